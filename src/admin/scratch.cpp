#include "admin/scratch.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

namespace korvalen::admin {

namespace {

constexpr const char *scratch_directory = "/var/tmp";
constexpr std::string_view scratch_name = "korvalen_plan.";
constexpr std::uint64_t least_bytes = 1U << 20U;
constexpr std::uint64_t least_files = 1000;

// Only root's own, for anybody may make names there; and only one that no run holds.
void remove_if_left_over(const std::string &path) {
  const descriptor lock(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!lock || fstat(lock.get(), &status) != 0 || status.st_uid != 0 ||
      flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
    return;
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

} // namespace

disk_scratch::disk_scratch() {
  struct stat status {};
  // Another run may take it for left over before it is locked, and remove it.
  do {
    path_ = joined(scratch_directory, std::string(scratch_name) + "XXXXXX");
    if (mkdtemp(path_.data()) == nullptr)
      fail(std::string("cannot make a scratch directory in ") + scratch_directory);
    lock_ =
        descriptor(checked(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), "cannot open " + path_));
    checked(flock(lock_.get(), LOCK_EX), "cannot lock " + path_);
    checked(fstat(lock_.get(), &status), "cannot look up " + path_);
  } while (status.st_nlink == 0);
}

disk_scratch::~disk_scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void remove_old_scratches() {
  for (const std::string &name : names_in(open_tree_at(""), scratch_directory))
    if (name.starts_with(scratch_name))
      remove_if_left_over(joined(scratch_directory, name));
}

std::uint64_t available_memory() {
  std::ifstream file("/proc/meminfo");
  std::string name;
  std::uint64_t kilobytes = 0;
  while (file >> name >> kilobytes) {
    if (name == "MemAvailable:")
      return kilobytes * 1024;
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}

std::uint64_t bytes_below(const tree &in, const std::string &directory) {
  std::uint64_t bytes = 0;
  const open_directory opened = open_directory_in(in, directory);
  for (const std::string &name : names_in(in, directory)) {
    const struct stat end = follow(opened, name).value_or(no_file);
    if (!S_ISDIR(end.st_mode))
      bytes += static_cast<std::uint64_t>(end.st_size);
    else if (S_ISDIR(look_up(opened, name).value_or(no_file).st_mode))
      bytes += bytes_below(in, joined(directory, name));
  }
  return bytes;
}

void expect_room(const std::string &scratch) {
  struct statvfs room {};
  checked(statvfs(scratch.c_str(), &room), "cannot look up " + scratch);
  // A file system without a number of files has no limit of them.
  if (room.f_bfree * room.f_frsize < least_bytes || (room.f_files > 0 && room.f_ffree < least_files))
    throw failure(
        "the scratch directory for the rehearsal is full: free some memory, or some space in /var/tmp");
}

} // namespace korvalen::admin
