// Everything that can be told of the files of a disk, and how two looks at it differ.
#pragma once

#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace plans {

using file_identity = std::pair<dev_t, ino_t>;

struct file_state {
  std::string type; // "file", "directory", "link"
  mode_t mode = 0;  // of a link 0777
  uid_t owner = 0;
  gid_t group = 0;
  std::string bytes; // of a file, or the target of a link
  std::string modified;
  std::string attributes; // extended ones, access control lists included
  std::string traces;     // what else shows that somebody was there: times, link count, attributes
  file_identity identity;
  nlink_t names = 0;
};

// By real path.
using disk_state = std::map<std::string, file_state>;

// The directories and all that lies below them, mounts included; links are not followed.
disk_state look_at(const std::vector<std::string> &directories);

// One line a path that is not exactly as it was, times and link counts included.
std::string disturbances(const disk_state &before, const disk_state &after);

// One line a path that did not come back: bytes, mode, owner and attributes, a file's time, and which names
// are one file, where names below the directory `apart` count as those of other files.
std::string not_come_back(const disk_state &before, const disk_state &after, const std::string &apart);

// A path whose type, bytes, mode or owner is another one, as a plan has to announce it.
struct difference {
  std::string change; // "new", "removed", "type", "content", "mode", "owner"
  std::string type;
  std::string mode;
  std::string owner;
  bool operator==(const difference &) const = default;
};

std::map<std::string, difference> differences(const disk_state &before, const disk_state &after);

} // namespace plans
