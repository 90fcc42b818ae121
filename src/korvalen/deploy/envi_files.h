// The product's extension files in an ENVI installation.
#pragma once

#include "korvalen/deploy/directory_step.h"

#include <span>

namespace korvalen {

// What is deployed where, in order.
std::span<const directory_step> envi_directory_steps();

// Installs: makes eleven subdirectories of the ENVI directory and copies into each the files of source_dir's
// subdirectory that match "*.*"; each is recorded in the uninstall script unless it is on the kept-file list.
// In custom_code, extensions and classic/save_add the product's stale files are deleted before, and
// "quorin_core.sav" is removed from the source; two files of extensions are deleted at the end. Uninstalls:
// deletes the product's files in these three, and resource/templates/tasks/Korvalen when it is empty.
// Always 1. The process ends as fdfCopyDirFiles does when a file cannot be copied.
int copy_files_in_envi_dir_envi(const char *source_dir, const char *envi_dir, bool uninstall);

} // namespace korvalen
