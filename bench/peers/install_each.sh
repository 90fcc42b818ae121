#!/bin/sh
# install_each.sh PRODUCT_DIR ENVI_DIR: one `install` a file.
set -e
# shellcheck source=bench/peers/launch_scripts.sh
. "${0%/*}/launch_scripts.sh"
while read -r source target; do
  for file in "$1/auxiliary/envi_extensions_54/$source"/*.*; do
    [ ! -e "$file" ] || install -D -m 755 "$file" "$2/$target/${file##*/}"
  done
done <"${0%/*}/../directories"
patch_launch_scripts "$2" "$1"
