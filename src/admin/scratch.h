// Where what is written in a rehearsal goes.
#pragma once

#include "admin/failure.h"
#include "admin/view.h"

#include <cstdint>
#include <string>

namespace korvalen::admin {

// A directory below /var/tmp that goes with its owner. While one lives, it is locked.
class disk_scratch {
public:
  disk_scratch();
  ~disk_scratch();
  disk_scratch(const disk_scratch &) = delete;
  disk_scratch &operator=(const disk_scratch &) = delete;
  const std::string &path() const { return path_; }

private:
  std::string path_;
  descriptor lock_;
};

// Removes what killed runs left below /var/tmp.
void remove_old_scratches();

// The memory that the system could give away without trouble, in bytes.
std::uint64_t available_memory();

// The bytes of the files below a directory.
std::uint64_t bytes_below(const tree &in, const std::string &directory);

// Throws a failure when the scratch directory is so full that something may not have fitted into it.
void expect_room(const std::string &scratch);

} // namespace korvalen::admin
