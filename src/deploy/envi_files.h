// The product's extension files in an ENVI installation.
#pragma once

namespace korvalen {

// Installs: in each of eleven subdirectories of the ENVI directory, deletes the product's stale files, makes
// the subdirectory and copies into it the files of source_dir's subdirectory that match "*.*"; each is
// recorded in the uninstall script. "quorin_core.sav" is removed from the source first. Uninstalls: deletes
// only. Always 1. The process ends as fdfCopyDirFiles does when a file cannot be copied.
int copy_files_in_envi_dir_envi(const char *source_dir, const char *envi_dir, bool uninstall);

} // namespace korvalen
