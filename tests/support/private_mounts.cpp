#include "support/private_mounts.h"

#include <cerrno>
#include <filesystem>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>

namespace support {

namespace {

constexpr const char *proc = "/proc";

bool set_private(const char *mount_point, unsigned long more = 0) {
  return mount("none", mount_point, nullptr, MS_PRIVATE | more, nullptr) == 0;
}

// A mount over a directory of a mount that is shared shows up wherever that mount is shared, and the mount
// that holds the root directory of a plain chroot cannot be named from inside. So the copy of everything goes
// where a private mount can be had: over /proc, which is a mount point in every root. The copy shows the
// first /proc.
bool move_into_private_copy() {
  return set_private(proc) && mount("/", proc, nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
         set_private(proc, MS_REC) && chdir(proc) == 0 && chroot(".") == 0;
}

} // namespace

bool make_mounts_private() {
  if (set_private("/", MS_REC))
    return true;
  if (errno != EINVAL)
    return false;
  std::error_code error;
  const std::filesystem::path directory = std::filesystem::current_path(error);
  return !error && move_into_private_copy() && chdir(directory.c_str()) == 0;
}

} // namespace support
