#include "admin/copies.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace korvalen::admin {

namespace {

constexpr std::size_t piece = 1U << 20U;

void write_piece(const descriptor &to, const char *bytes, std::size_t size, const std::string &what) {
  for (std::size_t done = 0; done < size;)
    done +=
        static_cast<std::size_t>(checked(write(to.get(), bytes + done, size - done), "cannot write " + what));
}

void copy_by_hand(const descriptor &from, const descriptor &to, const std::string &what) {
  std::vector<char> bytes(piece);
  while (const int size = checked(read(from.get(), bytes.data(), bytes.size()), "cannot read for " + what))
    write_piece(to, bytes.data(), static_cast<std::size_t>(size), what);
}

// Some file systems have no attributes, or not these, and some belong to the system alone.
ssize_t checked_attribute(ssize_t result) {
  if (result < 0 && !is_one_of(errno, {EOPNOTSUPP, EPERM, E2BIG, EINVAL, ENODATA}))
    fail("cannot copy the attributes of a file");
  return result;
}

std::vector<std::string> attribute_names(const descriptor &file) {
  std::array<char, 65'536> list;
  const ssize_t size = checked_attribute(flistxattr(file.get(), list.data(), list.size()));
  std::vector<std::string> names;
  for (ssize_t at = 0; at < size;) {
    names.emplace_back(list.data() + at);
    at += static_cast<ssize_t>(names.back().size()) + 1;
  }
  return names;
}

void copy_attribute(const descriptor &from, const descriptor &to, const std::string &name) {
  std::vector<char> value(65'536);
  const ssize_t size = checked_attribute(fgetxattr(from.get(), name.c_str(), value.data(), value.size()));
  if (size >= 0)
    checked_attribute(fsetxattr(to.get(), name.c_str(), value.data(), static_cast<std::size_t>(size), 0));
}

descriptor make_like(const struct stat &status, const std::string &path) {
  if (S_ISDIR(status.st_mode)) {
    checked(mkdir(path.c_str(), 0700), "cannot make the directory " + path);
    return open_for_reading(path);
  }
  return descriptor(checked(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600),
                            "cannot make " + path));
}

} // namespace

descriptor open_parent(const std::string &path) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return descriptor(
      static_cast<int>(syscall(SYS_openat2, AT_FDCWD, parent_of(path).c_str(), &how, sizeof how)));
}

void copy_bytes(const descriptor &from, const descriptor &to, const std::string &what) {
  if (ioctl(to.get(), FICLONE, from.get()) == 0)
    return;
  ssize_t copied = 0;
  do {
    copied = copy_file_range(from.get(), nullptr, to.get(), nullptr, piece * 64, 0);
  } while (copied > 0);
  // Some file systems cannot, and some kernels say 0 where they cannot.
  if (copied < 0 && !is_one_of(errno, {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP}))
    fail("cannot write " + what);
  copy_by_hand(from, to, what);
}

void copy_attributes(const descriptor &from, const descriptor &to) {
  const std::vector<std::string> wanted = attribute_names(from);
  for (const std::string &name : attribute_names(to))
    if (std::find(wanted.begin(), wanted.end(), name) == wanted.end())
      checked_attribute(fremovexattr(to.get(), name.c_str()));
  for (const std::string &name : wanted)
    copy_attribute(from, to, name);
  struct stat status {};
  checked(fstat(from.get(), &status), "cannot look up a kept file");
  const timespec times[] = {status.st_atim, status.st_mtim};
  checked(futimens(to.get(), times), "cannot set the time of a kept file");
}

state keep_copy(const tree &in, const std::string &path, const std::string &kept) {
  const descriptor from = open_in(in, path);
  if (!from)
    fail("cannot open " + path);
  struct stat status {};
  checked(fstat(from.get(), &status), "cannot look up " + path);
  const descriptor to = make_like(status, kept);
  if (S_ISREG(status.st_mode))
    copy_bytes(from, to, kept);
  copy_attributes(from, to);
  checked(fsync(to.get()), "cannot flush " + kept);
  state result = state_of(in, path, status);
  if (result.type == file_type::file)
    result.hash = hash_of(open_tree_at(""), kept);
  return result;
}

} // namespace korvalen::admin
