#include "admin/mounts.h"

#include "admin/failure.h"
#include "admin/trees.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace korvalen::admin {

namespace {

bool is_octal(char byte) {
  return byte >= '0' && byte <= '7';
}

// Blanks, tabs, line ends and backslashes stand as \ooo.
std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && is_octal(text[i + 1]) && is_octal(text[i + 2]) &&
        is_octal(text[i + 3])) {
      result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

bool has_option(std::string_view options, std::string_view option) {
  while (!options.empty()) {
    const std::size_t comma = std::min(options.find(','), options.size());
    if (options.substr(0, comma) == option)
      return true;
    options.remove_prefix(std::min(comma + 1, options.size()));
  }
  return false;
}

// ID PARENT MAJOR:MINOR ROOT POINT OPTIONS [FIELD]... - TYPE SOURCE SUPER_OPTIONS
bool parse_line(const std::string &line, mounted &mount) {
  std::istringstream fields(line);
  std::string parent;
  std::string options;
  std::string field;
  if (!(fields >> mount.id >> parent >> mount.device >> mount.root >> mount.point >> options))
    return false;
  while (fields >> field && field != "-") {
  }
  if (!(fields >> mount.type))
    return false;
  // The source may be an empty text.
  const std::string_view super_options = std::string_view(line).substr(line.rfind(' ') + 1);
  mount.root = unescaped(mount.root);
  mount.point = unescaped(mount.point);
  mount.read_only = has_option(options, "ro") || has_option(super_options, "ro");
  mount.no_exec = has_option(options, "noexec");
  mount.no_suid = has_option(options, "nosuid");
  return true;
}

// Not hidden by a later mount.
bool is_visible(const mounted &mount) {
  struct statx status {};
  return statx(AT_FDCWD, mount.point.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID, &status) ==
             0 &&
         status.stx_mnt_id == mount.id;
}

// What can be told of "/" where it is no mount point. Its root may hold any other of its file system.
mounted root_without_mount() {
  struct stat status {};
  struct statvfs options {};
  checked(stat("/", &status), "cannot look up /");
  checked(statvfs("/", &options), "cannot look up /");
  mounted root;
  root.device = std::to_string(major(status.st_dev)) + ":" + std::to_string(minor(status.st_dev));
  root.root = "/";
  root.point = "/";
  root.read_only = (options.f_flag & ST_RDONLY) != 0;
  root.no_exec = (options.f_flag & ST_NOEXEC) != 0;
  root.no_suid = (options.f_flag & ST_NOSUID) != 0;
  return root;
}

} // namespace

std::vector<mounted> parse_mounts(std::string_view mountinfo) {
  std::vector<mounted> mounts;
  std::istringstream lines{std::string(mountinfo)};
  for (std::string line; std::getline(lines, line);) {
    mounted mount;
    if (parse_line(line, mount))
      mounts.push_back(std::move(mount));
  }
  return mounts;
}

std::vector<mounted> visible_mounts() {
  const std::string list = "/proc/self/mountinfo";
  std::vector<mounted> mounts = parse_mounts(read_whole(open_for_reading(list), list));
  if (mounts.empty())
    throw failure(list + " lists no mount; is /proc mounted?");
  std::erase_if(mounts, [](const mounted &mount) { return !is_visible(mount); });
  std::sort(mounts.begin(), mounts.end(),
            [](const mounted &a, const mounted &b) { return a.point < b.point; });
  if (std::none_of(mounts.begin(), mounts.end(), [](const mounted &mount) { return mount.point == "/"; }))
    mounts.insert(mounts.begin(), root_without_mount());
  return mounts;
}

bool lies_in(std::string_view path, std::string_view directory) {
  if (directory == "/")
    return true;
  return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

const mounted &mount_of(const std::vector<mounted> &mounts, std::string_view path) {
  // A parent comes before what is mounted in it, and the first one holds every path.
  return *std::find_if(mounts.rbegin(), mounts.rend(),
                       [path](const mounted &mount) { return lies_in(path, mount.point); });
}

} // namespace korvalen::admin
