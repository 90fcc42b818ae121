#!/bin/sh
# rsync.sh PRODUCT_DIR ENVI_DIR: one `rsync -a` for each half of the extensions, and one for each of the two
# directories that get another place in ENVI.
set -e
extensions=$1/auxiliary/envi_extensions_54
mkdir -p "$2/resource/templates/tasks" "$2/idl86/help/online_help/Subsystems"
rsync -a --exclude=/resource/templates/tasks "$extensions/envi/" "$2/"
rsync -a "$extensions/envi/resource/templates/tasks/" "$2/resource/templates/tasks/Korvalen/"
rsync -a --exclude=/help/Korvalen "$extensions/idl/" "$2/idl86/"
rsync -a "$extensions/idl/help/Korvalen/" "$2/idl86/help/online_help/Subsystems/Korvalen/"
