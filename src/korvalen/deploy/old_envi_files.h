// The product's save files in the directories that older ENVI releases read.
#pragma once

namespace korvalen {

// <sourceDir>/save_add into <enviDir>/save_add, after the files of earlier product releases were deleted from
// <enviDir>/save and <enviDir>/save_add. Uninstalling only deletes those. Copies are recorded in the
// uninstall script. Always 1. The process ends as fdfCopyDirFiles does when a file cannot be copied.
int copy_files_in_envi_old_dir_envi(const char *sourceDir, const char *enviDir, bool uninstall);

// <sourceDir>/lib/hook into <enviDir>/lib/hook, after everything that matches "korvalen*.sav" was deleted
// there. Uninstalling changes nothing. Always 1. The process ends as fdfCopyDirFiles does when a file cannot
// be copied.
int copy_files_in_envi_hook_dir(const char *sourceDir, const char *enviDir, bool uninstall);

// Removes what matches the pattern in the directory, read-only files too. Returns how many names matched,
// whether or not they could be removed.
int remove_matching_files(const char *dir, const char *pattern);

} // namespace korvalen
