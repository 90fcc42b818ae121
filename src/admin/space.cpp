#include "admin/space.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <sys/statvfs.h>

namespace korvalen::admin {

namespace {

constexpr std::uint64_t block = 4096;

struct need {
  std::int64_t growth = 0;
  std::int64_t largest = 0;
};

std::int64_t size_on_disk(const state &one) {
  return static_cast<std::int64_t>(room_for(one));
}

} // namespace

std::uint64_t room_for(const state &one) {
  if (one.type == file_type::absent)
    return 0;
  return std::max<std::uint64_t>((one.size + block - 1) / block, 1) * block;
}

std::string find_missing_space(const view &seen, const std::vector<change> &changes) {
  std::map<std::string, need> needs; // by mount point
  for (const change &one : changes) {
    if (kind_of(one) == change_kind::none)
      continue;
    need &needed = needs[mount_of(seen.mounts(), one.path).point];
    needed.growth += size_on_disk(one.after) - size_on_disk(one.before);
    needed.largest = std::max(needed.largest, size_on_disk(one.after));
  }
  for (const auto &[point, needed] : needs) {
    struct statvfs room {};
    checked(statvfs(point.c_str(), &room), "cannot look up " + point);
    const std::int64_t wanted = needed.growth + needed.largest;
    const auto free = static_cast<std::int64_t>(room.f_bfree * room.f_frsize);
    if (wanted > free)
      return "too little space on " + point + ": " + std::to_string(wanted) + " bytes are needed, " +
             std::to_string(free) + " are free";
  }
  return "";
}

} // namespace korvalen::admin
