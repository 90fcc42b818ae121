// What is swept: one run of the tool on the sample trees, and how it goes undisturbed.
#pragma once

#include "faults/traced_run.h"
#include "support/files.h"

#include <set>
#include <string>
#include <vector>

namespace faults {

struct scenario {
  const char *name;
  std::vector<std::string> arguments; // after the program's name
  const char *uninstall_script;       // as all paths here, relative to own_root
  bool repeated = false;              // starts from a tree that is installed already
  bool replaces_etc = false;
};

inline constexpr const char *product_dir = "opt/product";
inline constexpr const char *envi_dir = "opt/envi54";

inline constexpr const char *launch_scripts[] = {
    "opt/envi54/bin/envi",      "opt/envi54/bin/envi_rt",     "opt/envi54/bin/envitaskengine",
    "opt/envi54/idl86/bin/idl", "opt/envi54/idl86/bin/idlde",
};

std::string backup_of(const std::string &launch_script);

// What stands under a path in a tree, or null.
const support::entry *find(const support::tree &tree, const std::string &path);

// The files that a tree's uninstall script removes.
std::set<std::string> recorded_files(const support::tree &tree, const char *uninstall_script);

// From the call that makes a file up to the call that records it: killed at one of the calls after the first
// and up to the last, the tool leaves a file that no script removes. Calls are counted from 1.
struct copy_to_record {
  std::string path;
  long made;
  long recorded;
  bool holds(long call) const { return made < call && call <= recorded; }
  long width() const { return recorded - made; }
};

// How a scenario goes when nothing disturbs it.
struct undisturbed {
  support::tree original; // the samples, before any installation
  support::tree start;
  support::tree end;
  std::vector<file_call> calls; // the first one at index 0
  std::vector<copy_to_record> windows;
};

// The sample trees as they stand in the source directory.
support::tree sample_trees();

program installer(const scenario &what);

// Runs it, to learn how it goes. Throws when it does not go as it must: the set-up broke. The caller has
// mounts of its own.
undisturbed go_undisturbed(const scenario &what, const program &tool, const support::tree &samples);

} // namespace faults
