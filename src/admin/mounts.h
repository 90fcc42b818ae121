// What is mounted where, as /proc/self/mountinfo tells it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvalen::admin {

struct mounted {
  unsigned long id = 0;
  std::string device; // MAJOR:MINOR of the file system
  std::string root;   // the directory of the file system that is mounted
  std::string point;  // where it is mounted, seen from the root directory of the process
  std::string type;
  bool read_only = false; // the mount or its whole file system
  bool no_exec = false;
  bool no_suid = false;
};

// The mounts that a text of this form lists, in its order. Lines of another form are left out.
std::vector<mounted> parse_mounts(std::string_view mountinfo);

// The mounts that can be reached, a parent before what is mounted in it. The first is that of "/", which is
// made up where the root directory is no mount point. Throws a failure when they cannot be told.
std::vector<mounted> visible_mounts();

// Whether the path is the directory or lies below it.
bool lies_in(std::string_view path, std::string_view directory);

// The mount that holds the path, whose components are no links.
const mounted &mount_of(const std::vector<mounted> &mounts, std::string_view path);

} // namespace korvalen::admin
