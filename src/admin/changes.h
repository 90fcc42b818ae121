// What a run changes: a change is a path with its state before and after.
#pragma once

#include "admin/state.h"
#include "admin/view.h"

#include <string>
#include <vector>

namespace korvalen::admin {

// Tells whether what stands at a path is the same and as it was.
struct identity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec changed{};
};

identity identity_of(const struct stat &status);
bool is_same(const identity &a, const identity &b);

struct change {
  std::string path; // real: no component is a link, but the last when the change is of the link itself
  state before;
  state after;
  std::optional<identity> stood = {}; // what stood there before
};

enum class change_kind { none, created, removed, type, content, mode, owner };

// The first that holds, or `none` where nothing differs.
change_kind kind_of(const change &change);

// Which files are hashed: those whose size does not tell whether their bytes differ, or all.
enum class hashing { where_needed, always };

struct found_changes {
  std::vector<change> touched; // every path that was written, sorted; of some of them nothing changed
  std::vector<std::string> of_several_names;  // those changed files of the disk that have further names
  std::vector<std::string> with_unseen_names; // of those, a name of each whose other names were not all found
};

// Compares what was touched in the view with the disk. Further names of a touched file are touched too; they
// are looked for beside it and below the directories, which are real paths. Throws a failure when something
// cannot be read.
found_changes find_changes(const view &seen, const std::vector<std::string> &directories, hashing hashed);

} // namespace korvalen::admin
