// Copies of files with all that belongs to them.
#pragma once

#include "admin/failure.h"
#include "admin/state.h"

#include <string>
#include <string_view>

namespace korvalen::admin {

// Opens the directory of a path as a place for names (O_PATH), going down from the root directory without
// following a link. Invalid, with the reason in errno, where one stands in the way (ELOOP) or a directory is
// missing.
descriptor open_parent(const std::string &path);

// Writes all bytes of one open file to another, sharing them where the file system can.
void copy_bytes(const descriptor &from, const descriptor &to, const std::string &what);

// Gives one open file or directory the extended attributes and the time of the other, access control lists
// and security labels included. What the file system cannot hold is left out; any other failure is one.
void copy_attributes(const descriptor &from, const descriptor &to);

// Makes the file, or for a directory an empty one, under the absolute name, which is free, with the bytes,
// attributes and time of what stands at the path, and flushes it. Returns its state, hash included.
state keep_copy(const tree &in, const std::string &path, const std::string &kept);

} // namespace korvalen::admin
