#include "faults/own_mounts.h"

#include "support/private_mounts.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace faults {

namespace fs = std::filesystem;

namespace {

constexpr time_t long_ago = 1'000'000'000;

[[noreturn]] void broken(const fs::path &path) {
  throw std::system_error(errno, std::generic_category(), "set-up: " + path.string());
}

bool tell_kernel(const char *path, const std::string &text) {
  std::ofstream file(path);
  file << text << std::flush;
  return file.good();
}

// Without root: the caller becomes root of a namespace in which only its own user exists.
bool enter_as_user() {
  const std::string user = "0 " + std::to_string(geteuid()) + " 1";
  const std::string group = "0 " + std::to_string(getegid()) + " 1";
  return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && tell_kernel("/proc/self/setgroups", "deny") &&
         tell_kernel("/proc/self/uid_map", user) && tell_kernel("/proc/self/gid_map", group);
}

void put(const fs::path &path, const support::entry &e) {
  if (e.kind == "directory") {
    fs::create_directory(path);
    if (chmod(path.c_str(), e.mode) != 0)
      broken(path);
    return;
  }
  if (e.kind != "file")
    throw std::runtime_error("set-up: neither a file nor a directory: " + path.string());
  support::write_file(path, e.content, e.mode);
  const timespec times[] = {{long_ago, 0}, {long_ago, 0}};
  if (utimensat(AT_FDCWD, path.c_str(), times, 0) != 0)
    broken(path);
}

// The directories right below the root stay, as one of them may be mounted elsewhere too.
void remove_all_below_root() {
  for (const fs::directory_entry &top : fs::directory_iterator(own_root))
    for (const fs::directory_entry &found : fs::directory_iterator(top.path()))
      fs::remove_all(found.path());
}

} // namespace

bool enter_own_mounts(bool with_etc) {
  if (unshare(CLONE_NEWNS) != 0 && !enter_as_user())
    return false;
  if (!support::make_mounts_private() || mount("tmpfs", own_root, "tmpfs", 0, "mode=0755") != 0)
    return false;
  const fs::path etc = fs::path(own_root) / "etc";
  fs::create_directory(etc);
  return !with_etc || mount(etc.c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
}

bool can_enter_own_mounts() {
  const pid_t child = fork();
  if (child == 0)
    _exit(enter_own_mounts(true) ? 0 : 1);
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void set_tree(const support::tree &tree) {
  remove_all_below_root();
  for (const auto &[path, e] : tree)
    put(fs::path(own_root) / path, e);
}

std::set<std::string> written_files() {
  std::set<std::string> written;
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(own_root)) {
    struct stat status {};
    if (lstat(found.path().c_str(), &status) != 0)
      broken(found.path());
    if (S_ISREG(status.st_mode) && status.st_mtime != long_ago)
      written.insert(found.path().lexically_relative(own_root).string());
  }
  return written;
}

} // namespace faults
