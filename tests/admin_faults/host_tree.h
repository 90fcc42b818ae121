// A host as it stands on disk, with everything that must come back.
#pragma once

#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>

namespace faults {

struct host_entry {
  std::string kind; // "file", "directory", "link"
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  std::string content;                           // a file's bytes, a link's target
  std::string first_name = {};                   // of a file that has several names, the first of them
  std::map<std::string, std::string> attributes; // extended ones, of files and directories
  time_t modified = 0; // of an old file; a new one has 0, as no two runs make it alike
  bool operator==(const host_entry &) const = default;
};

using host_tree = std::map<std::string, host_entry>;

// Everything below a directory, by its path relative to it.
host_tree look_at_host(const std::filesystem::path &directory);

// Makes the directory hold exactly this. What stands right below it stays, as something may be mounted there.
void set_host(const std::filesystem::path &directory, const host_tree &tree);

// What lies below a directory of the tree, and what does not, without changing the paths.
host_tree part_below(const host_tree &whole, const std::string &directory);
host_tree part_not_below(const host_tree &whole, const std::string &directory);

// The paths that differ, a line each, or nothing.
std::string differences(const host_tree &expected, const host_tree &actual);

} // namespace faults
