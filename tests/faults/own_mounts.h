// A file system of the sweep's own, which no other process sees.
#pragma once

#include "support/files.h"

#include <filesystem>
#include <set>
#include <string>
#include <sys/types.h>

namespace faults {

// Where the calling process keeps its trees. All of its parents have mode 0755 already, so that a tool which
// sets one of them to that mode by mistake does no harm outside.
inline constexpr const char *own_root = "/mnt";

// Gives the calling process mounts of its own, with an empty file system in memory at own_root and, if asked,
// own_root/etc in the place of /etc. Works without root where the system lets users have their own
// namespaces. False when it does not.
bool enter_own_mounts(bool with_etc);

// Whether it would work.
bool can_enter_own_mounts();

// Makes own_root hold exactly this tree. Every file in it was modified long ago.
void set_tree(const support::tree &tree);

// The files below own_root that were made or written since set_tree, by their paths relative to it.
std::set<std::string> written_files();

} // namespace faults
