#!/bin/sh
# Patches ENVI's and IDL's launch scripts with sed, each with a copy of the script as it was beside it. To be sourced.

# Puts a block before the first line that holds a text.
patch_script() { # script, text, the block, each of its lines but the last ended by a backslash
  cp "$1" "$1_original"
  sed -i "0,/$2/{/$2/i\\
$3
}" "$1"
}

patch_launch_scripts() { # ENVI directory, the value to export
  for script in "$1/bin/envi" "$1/bin/envi_rt" "$1/bin/envitaskengine"; do
    # shellcheck disable=SC2016 # the launch script is to expand it
    patch_script "$script" 'if \[' 'if [ "$KORVALEN_INIT_DIR" = "" ]; then\
   KORVALEN_INIT_DIR='"$2"'\
   export KORVALEN_INIT_DIR\
fi\
'
  done
  for script in "$1/idl86/bin/idl" "$1/idl86/bin/idlde"; do
    patch_script "$script" 'INSTALL_DIR=' "KORVALEN_INIT_DIR=$2\\
export KORVALEN_INIT_DIR\\
"
  done
}
