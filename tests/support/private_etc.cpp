#include "support/private_etc.h"

#include "support/files.h"
#include "support/private_mounts.h"

#include <cerrno>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <system_error>
#include <vector>

namespace support {

namespace {

// What programs that run as another user, or that are linked dynamically, look up.
constexpr const char *kept[] = {"/etc/passwd", "/etc/group", "/etc/ld.so.cache"};

void must(int result, const char *what) {
  if (result != 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up (as root): ") + what);
}

} // namespace

private_etc::private_etc() {
  std::vector<std::string> contents;
  for (const char *path : kept)
    contents.push_back(fs::exists(path) ? read_file(path) : "");

  must(unshare(CLONE_NEWNS), "cannot make a mount namespace");
  must(make_mounts_private() ? 0 : -1, "cannot make the mounts private");
  must(mount("korvalen_test", "/etc", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755"), "cannot mount over /etc");
  for (std::size_t i = 0; i < contents.size(); ++i)
    write_file(kept[i], contents[i]);
}

private_etc::~private_etc() {
  umount2("/etc", MNT_DETACH);
}

} // namespace support
