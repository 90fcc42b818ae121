// Trees with all that an exact inverse must bring back.
#pragma once

#include "support/files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <map>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <utility>
#include <vector>

namespace admin_runs {

namespace fs = std::filesystem;

// Of every entry, by its path: type, mode, owner, extended attributes (access control lists included), a
// link's target; of a file also its time, the first of its names and its bytes. The times of directories and
// links are left out.
using exact_tree = std::map<std::string, std::string>;

enum class file_times { compared, left_out };

namespace details {

using names_of_files = std::map<std::pair<dev_t, ino_t>, std::string>;

inline std::string attributes_of(const std::string &path) {
  std::array<char, 65'536> list;
  const ssize_t size = llistxattr(path.c_str(), list.data(), list.size());
  std::vector<std::string> pairs;
  for (ssize_t at = 0; at < size;) {
    const std::string name = list.data() + at;
    std::array<char, 65'536> value;
    const ssize_t length = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    pairs.push_back(name + "=" +
                    std::string(value.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  std::sort(pairs.begin(), pairs.end());
  std::string text;
  for (const std::string &pair : pairs)
    text += " " + pair;
  return text;
}

inline std::string file_line(const std::string &path, const struct stat &status, file_times times,
                             names_of_files &names) {
  const std::string first = names.try_emplace({status.st_dev, status.st_ino}, path).first->second;
  const std::string time =
      std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
  return (first == path ? "" : " is " + first) + (times == file_times::compared ? " of " + time : "") +
         " \"" + support::read_file(path) + "\"";
}

inline std::string line_of(const std::string &path, file_times times, names_of_files &names) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0)
    throw std::system_error(errno, std::generic_category(), "cannot look up " + path);
  const mode_t mode = status.st_mode;
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%s %04o %u:%u",
                S_ISDIR(mode)   ? "directory"
                : S_ISLNK(mode) ? "link"
                : S_ISREG(mode) ? "file"
                                : "special",
                mode & 07777, status.st_uid, status.st_gid);
  const std::string line = text.data() + attributes_of(path);
  if (S_ISLNK(mode))
    return line + " -> " + fs::read_symlink(path).string();
  return S_ISREG(mode) ? line + file_line(path, status, times, names) : line;
}

} // namespace details

// The entries themselves and all below them; what does not exist is left out.
inline exact_tree exact(const std::vector<std::string> &entries, file_times times = file_times::compared) {
  std::vector<std::string> paths;
  for (const std::string &entry : entries) {
    const fs::file_status status = fs::symlink_status(entry);
    if (fs::exists(status))
      paths.push_back(entry);
    if (fs::is_directory(status))
      for (const fs::directory_entry &found : fs::recursive_directory_iterator(entry))
        paths.push_back(found.path().string());
  }
  std::sort(paths.begin(), paths.end());
  exact_tree result;
  details::names_of_files names;
  for (const std::string &path : paths)
    result[path] = details::line_of(path, times, names);
  return result;
}

// One entry a line that is not as it was; empty when nothing differs.
inline std::string differences(const exact_tree &before, const exact_tree &after) {
  std::string text;
  for (const auto &[path, line] : before)
    if (const auto now = after.find(path); now == after.end())
      text += "gone " + path + "\n";
    else if (now->second != line)
      text += "changed " + path + "\n  from " + line + "\n  to   " + now->second + "\n";
  for (const auto &[path, line] : after)
    if (!before.contains(path))
      text += "new " + path + "\n";
  return text;
}

// The paths alone of what differs, one a line.
inline std::string differing_paths(const exact_tree &before, const exact_tree &after) {
  std::map<std::string, bool> paths;
  for (const auto &[path, line] : before)
    paths[path] = !after.contains(path) || after.at(path) != line;
  for (const auto &[path, line] : after)
    if (!before.contains(path))
      paths[path] = true;
  std::string text;
  for (const auto &[path, differs] : paths)
    text += differs ? path + "\n" : "";
  return text;
}

} // namespace admin_runs
