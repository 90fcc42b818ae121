// Bringing a path back to a state. Nothing is written in place: what comes back is made beside it, flushed
// and renamed, so that each path is as it was or as it should be at every moment.
#pragma once

#include "admin/state.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace korvalen::admin {

struct restored_path {
  const std::string &path;
  const state &wanted;
  std::optional<std::uint64_t> kept; // the bytes and attributes of a file, the attributes of a directory
  std::uint64_t number;              // of the name beside it, the same at every attempt
  std::string twin = {};             // another name of the same file that stands as wanted
};

enum class restored { done, not_empty, no_directory };

// What stands at the path, which no link may lead to: nothing is told where its directory is not reached so.
std::optional<state> present_state(const std::string &path);

// Whether that is because a link stands in the way: what is there now is not what was there.
bool is_behind_link(const std::string &path);

// The path becomes as wanted, whatever stands there, but for a directory that holds something. Removes what
// an interrupted attempt left. Where there is no room for old and new at once, and only when
// `may_remove_first`, what stands there goes first. Throws a failure that names the path and the reason.
restored restore(const restored_path &one, bool may_remove_first);

// Removes only what an interrupted attempt with this number left beside the path, if anything.
void remove_beside(const std::string &path, std::uint64_t number);

struct wanted_path {
  std::string path;
  state wanted;
  std::optional<std::uint64_t> kept = {};
  std::uint64_t number = 0;
};

struct restored_paths {
  std::vector<std::string> not_empty; // directories that should go and hold something
  std::vector<std::string> homeless;  // what should come back, but its directory is gone
  std::vector<std::string> problems;  // what failed, a sentence each
};

// Restores all of them, sorted by path, in an order in which each can come back: new files go first, which
// frees space. Names that share kept bytes become names of one file again. `before_change` sees each path
// that is not as wanted just before it is changed, and may throw a failure to leave it. A failure ends
// nothing but its path.
restored_paths
restore_all(const std::vector<wanted_path> &paths, bool may_remove_first,
            const std::function<void(const wanted_path &, const state &present)> &before_change);

} // namespace korvalen::admin
