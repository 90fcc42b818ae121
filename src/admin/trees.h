// Looking things up below a root directory: that of the disk, or that of a view of it.
#pragma once

#include "admin/failure.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace korvalen::admin {

// Where nothing stands: of no type, of no size.
inline constexpr struct stat no_file {};

// A root directory. Absolute paths mean what they would mean after a chroot to it; links lead nowhere else.
struct tree {
  std::string path; // of the root directory, without a trailing "/": "" is the disk
  descriptor root;
};

// Throws a failure when it cannot be opened.
tree open_tree_at(const std::string &path);

// What stands at the path itself, which is no link's target; nothing when nothing stands there. Throws a
// failure when that cannot be told.
std::optional<struct stat> look_up(const tree &in, const std::string &path);

// The same of what the path leads to in the end. Nothing also where the way to it is barred or runs in a
// circle.
std::optional<struct stat> follow(const tree &in, const std::string &path);

// An open directory, in which many names are looked up at little cost.
struct open_directory {
  const tree &in;
  std::string path;
  descriptor file;
};

// The directory that the path leads to; its file is invalid where there is none.
open_directory open_directory_in(const tree &in, const std::string &path);

// As the same of a path in the tree.
std::optional<struct stat> look_up(const open_directory &directory, const std::string &name);
std::optional<struct stat> follow(const open_directory &directory, const std::string &name);

// Opens a file or a directory for reading, following links. Never waits and never becomes a terminal.
// Invalid, with the reason in errno, when that fails.
descriptor open_in(const tree &in, const std::string &path);

// A file of the process's own root directory, opened for reading. Throws a failure when that fails.
descriptor open_for_reading(const std::string &path);

// What the file holds from its beginning. Throws a failure, which names it so, when it cannot be read.
std::string read_whole(const descriptor &file, const std::string &name);

// The bytes of a regular file of at most `limit` bytes that the path leads to, or nothing. Throws a failure
// when it cannot be read.
std::optional<std::string> read_small(const tree &in, const std::string &path, std::size_t limit);

// The names in a directory, sorted by their bytes, less "." and ".."; none where there is no directory.
// Throws a failure when it cannot be listed: who took that for an empty one would miss a change.
std::vector<std::string> names_in(const tree &in, const std::string &directory);

// What a link points to. Throws a failure when it cannot be read.
std::string link_target(const tree &in, const std::string &path);

// Directory and name joined by one "/".
std::string joined(const std::string &directory, std::string_view name);

// The last component of a path.
std::string name_of(const std::string &path);

// The path without its last component; "/" for what lies in it.
std::string parent_of(const std::string &path);

} // namespace korvalen::admin
