#include "admin/trees.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace korvalen::admin {

namespace {

// Taken from the root directory: the system calls resolve an absolute path from the process's own.
std::string relative(const std::string &path) {
  const std::size_t start = path.find_first_not_of('/');
  if (start == std::string::npos)
    return ".";
  return path.substr(start);
}

// Each rename or mount on the machine, by whomever, may have moved the way up from "..": the system cannot
// tell, and asks to try again. So it does for a file that somebody holds, which is no use for ever.
constexpr int most_tries = 10'000;

descriptor open_below(const tree &in, const std::string &path, unsigned long long flags) {
  open_how how{};
  how.flags = flags | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  long file = -1;
  int tries = 0;
  do {
    file = syscall(SYS_openat2, in.root.get(), relative(path).c_str(), &how, sizeof how);
  } while (file < 0 && errno == EAGAIN && ++tries < most_tries);
  return descriptor(static_cast<int>(file));
}

// `path` is what a failure names.
std::optional<struct stat> look_up_at(const descriptor &directory, const std::string &name,
                                      const std::string &path) {
  struct stat status {};
  if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return status;
  if (errno != ENOENT && errno != ENOTDIR)
    fail("cannot look up " + path);
  return std::nullopt;
}

struct directory_closer {
  void operator()(DIR *directory) const { closedir(directory); }
};

// Whether the reason in errno is that nothing of that kind stands at the path, and not that it cannot be
// told.
bool is_missing() {
  return is_one_of(errno, {ENOENT, ENOTDIR, ELOOP, ENXIO});
}

// The next name of a listing, or null after the last one.
const dirent *next_of(DIR *listing, const std::string &directory) {
  errno = 0;
  const dirent *const entry = readdir(listing);
  if (entry == nullptr && errno != 0)
    fail("cannot list " + directory);
  return entry;
}

} // namespace

tree open_tree_at(const std::string &path) {
  std::string directory = path;
  if (directory.empty())
    directory = "/";
  descriptor root(
      checked(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), "cannot open " + directory));
  return {path, std::move(root)};
}

std::optional<struct stat> look_up(const tree &in, const std::string &path) {
  return look_up_at(in.root, relative(path), path);
}

std::optional<struct stat> follow(const tree &in, const std::string &path) {
  const descriptor file = open_below(in, path, O_PATH);
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0)
    return std::nullopt;
  return status;
}

open_directory open_directory_in(const tree &in, const std::string &path) {
  return {in, path, open_below(in, path, O_PATH | O_DIRECTORY)};
}

std::optional<struct stat> look_up(const open_directory &directory, const std::string &name) {
  return look_up_at(directory.file, name, joined(directory.path, name));
}

std::optional<struct stat> follow(const open_directory &directory, const std::string &name) {
  struct stat status {};
  if (!directory.file || fstatat(directory.file.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return std::nullopt;
  if (S_ISLNK(status.st_mode))
    return follow(directory.in, joined(directory.path, name));
  return status;
}

descriptor open_in(const tree &in, const std::string &path) {
  return open_below(in, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
}

descriptor open_for_reading(const std::string &path) {
  return descriptor(checked(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY), "cannot open " + path));
}

std::string read_whole(const descriptor &file, const std::string &name) {
  std::string text;
  std::array<char, 65'536> block;
  for (;;) {
    const ssize_t size = pread(file.get(), block.data(), block.size(), static_cast<off_t>(text.size()));
    if (checked(size, "cannot read " + name) == 0)
      return text;
    text.append(block.data(), static_cast<std::size_t>(size));
  }
}

std::optional<std::string> read_small(const tree &in, const std::string &path, std::size_t limit) {
  const descriptor file = open_in(in, path);
  if (!file && is_missing())
    return std::nullopt;
  struct stat status {};
  checked(file ? fstat(file.get(), &status) : -1, "cannot open " + path);
  if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > limit)
    return std::nullopt;
  return read_whole(file, path);
}

std::vector<std::string> names_in(const tree &in, const std::string &directory) {
  std::vector<std::string> names;
  const descriptor file = open_below(in, directory, O_RDONLY | O_DIRECTORY);
  if (!file && is_missing())
    return names;
  if (!file)
    fail("cannot list " + directory);
  const std::unique_ptr<DIR, directory_closer> listing(fdopendir(dup(file.get())));
  if (!listing)
    fail("cannot list " + directory);
  while (const dirent *const entry = next_of(listing.get(), directory)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..")
      names.emplace_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string link_target(const tree &in, const std::string &path) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = readlinkat(in.root.get(), relative(path).c_str(), target.data(), target.size());
  return {target.data(), static_cast<std::size_t>(checked(size, "cannot read the link " + path))};
}

std::string joined(const std::string &directory, std::string_view name) {
  std::string path = directory;
  if (!path.ends_with('/'))
    path += '/';
  return path.append(name);
}

std::string name_of(const std::string &path) {
  return path.substr(path.rfind('/') + 1);
}

std::string parent_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  if (slash == 0 || slash == std::string::npos)
    return "/";
  return path.substr(0, slash);
}

} // namespace korvalen::admin
