// Whether there is room on the disk for what would be changed.
#pragma once

#include "admin/changes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvalen::admin {

// The bytes that it takes on a disk, about.
std::uint64_t room_for(const state &one);

// Which file system is too full, as a sentence; empty when there is room: on each for what the changes add to
// it and for its largest changed file a second time.
std::string find_missing_space(const view &seen, const std::vector<change> &changes);

} // namespace korvalen::admin
