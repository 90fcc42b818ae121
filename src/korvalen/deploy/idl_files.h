// The product's hooks, libraries, module descriptions and help in an IDL directory.
#pragma once

#include "korvalen/deploy/directory_step.h"

#include <span>

namespace korvalen {

// What is deployed where, in order.
std::span<const directory_step> idl_directory_steps();

// Installs: deletes the product's stale files in lib/hook and bin/bin.linux.x86_64, makes the four target
// directories and copies into them the files of source_dir that match "*.*"; each is recorded in the
// uninstall script unless it is on the kept-file list. The product's own help pages go to
// help/online_help/Subsystems/Korvalen. Uninstalls: deletes fewer hooks, the libraries, and that directory
// when it is empty. "quorin_core.sav" is removed from the source's lib/hook in both modes.
// Always 1. The process ends as fdfCopyDirFiles does when a file cannot be copied.
int copy_files_in_envi_dir_idl(const char *source_dir, const char *idl_dir, bool uninstall);

} // namespace korvalen
