// What stands on the disk, so exactly that nothing can have happened to it unseen.
#pragma once

#include "support/files.h"

#include <map>
#include <string>
#include <sys/stat.h>

namespace admin_tests {

namespace fs = std::filesystem;

// Of every entry below a directory, by its path: type, mode, owner, bytes or target, and, where asked for,
// the time of its last change of any kind.
using disk_state = std::map<std::string, std::string>;

inline std::string bytes_of(const fs::path &path, const struct stat &status) {
  if (S_ISLNK(status.st_mode))
    return " -> " + fs::read_symlink(path).string();
  return S_ISREG(status.st_mode) ? " " + support::read_file(path) : "";
}

inline std::string line_of(const fs::path &path, bool with_times) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0)
    return "cannot be looked up";
  const std::string times = " " + std::to_string(status.st_nlink) + " " +
                            std::to_string(status.st_ctim.tv_sec) + "." +
                            std::to_string(status.st_ctim.tv_nsec);
  return std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + ":" +
         std::to_string(status.st_gid) + (with_times ? times : "") + bytes_of(path, status);
}

inline void add_state(disk_state &state, const fs::path &directory, bool with_times) {
  if (!fs::exists(fs::symlink_status(directory)))
    return;
  state[directory.string()] = line_of(directory, with_times);
  if (!fs::is_directory(fs::symlink_status(directory)))
    return;
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(directory))
    state[found.path().string()] = line_of(found.path(), with_times);
}

inline disk_state state_of_all(const std::initializer_list<fs::path> &directories, bool with_times = true) {
  disk_state state;
  for (const fs::path &directory : directories)
    add_state(state, directory, with_times);
  return state;
}

// What differs, one line an entry with what it was and what it is; empty when nothing does.
inline std::string differences(const disk_state &before, const disk_state &after) {
  std::string text;
  for (const auto &[path, line] : before)
    if (const auto now = after.find(path); now == after.end())
      text += path + " is gone\n";
    else if (now->second != line)
      text += path + " was " + line + ", is " + now->second + "\n";
  for (const auto &[path, line] : after)
    if (!before.contains(path))
      text += path + " is new\n";
  return text;
}

} // namespace admin_tests
