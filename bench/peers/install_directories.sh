#!/bin/sh
# install_directories.sh PRODUCT_DIR ENVI_DIR: one `install -t` a directory.
set -e
product=$1
envi=$2
# shellcheck source=bench/peers/launch_scripts.sh
. "${0%/*}/launch_scripts.sh"
while read -r source target; do
  set -- "$product/auxiliary/envi_extensions_54/$source"/*.*
  [ ! -e "$1" ] || install -D -m 755 -t "$envi/$target" "$@"
done <"${0%/*}/../directories"
patch_launch_scripts "$envi" "$product"
