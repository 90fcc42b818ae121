// The state of a path: what a change starts from and leads to.
#pragma once

#include "admin/trees.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace korvalen::admin {

enum class file_type { absent, file, directory, link, special };

// Times, extended attributes and link counts are no part of it.
struct state {
  file_type type = file_type::absent;
  mode_t mode = 0; // permission bits, the upper ones included
  uid_t owner = 0;
  gid_t group = 0;
  std::uint64_t size = 0;                 // of a file's bytes
  std::optional<std::uint64_t> hash = {}; // XXH3 of a file's bytes, where it was asked for
  std::string target = {};                // of a link
};

// What stands at the path, whose directories are no links.
state state_of(const tree &in, const std::string &path);
state state_of(const tree &in, const std::string &path, const struct stat &status);

// The same with a file's hash.
state hashed_state_of(const tree &in, const std::string &path);

// XXH3 (64 bits) of the bytes of a file, which are read in pieces. Throws a failure when it cannot be read.
std::uint64_t hash_of(const tree &in, const std::string &path);

} // namespace korvalen::admin
