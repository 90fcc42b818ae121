// One directory's part of a deployment: what the deployments' tables hold, and how a row of them is carried
// out.
#pragma once

#include "korvalen/deploy/stale_files.h"

namespace korvalen {

// When "quorin_core.sav" is removed from the source directory, so that it never reaches the target.
enum class core_file_removal { never, on_install, always };

struct directory_step {
  const char *source; // below the source base
  const char *target; // below the target base
  core_file_removal core_file = core_file_removal::never;
  stale_list stale_on_install = {};
  stale_list stale_on_uninstall = {};
  bool logs_creation = false;
  bool removes_target_on_uninstall = false;
};

// Installs: removes the core file from the source and the stale files under target_base, makes the target
// directory and copies into it what matches "*.*". Uninstalls: removes only, at last the target directory if
// the step says so and it is empty. Both bases may end in one "/". The process ends as fdfCopyDirFiles
// does when a file cannot be copied.
void run_directory_step(const directory_step &step, const char *source_base, const char *target_base,
                        bool uninstall);

// Makes the target directory, with all its parents, and copies into it what matches "*.*". A missing source
// directory copies nothing.
void create_and_copy(const char *source_dir, const char *target_dir);

} // namespace korvalen
