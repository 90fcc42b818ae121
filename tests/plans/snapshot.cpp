#include "plans/snapshot.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>

namespace plans {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void broken(const std::string &path) {
  throw std::system_error(errno, std::generic_category(), "set-up: " + path);
}

std::string attributes_of(const std::string &path) {
  std::array<char, 4096> names{};
  const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
  std::istringstream list(std::string(names.data(), size > 0 ? static_cast<std::size_t>(size) : 0));
  std::set<std::string> pairs; // a file system may tell them in any order
  for (std::string name; std::getline(list, name, '\0');) {
    std::array<char, 4096> value{};
    const ssize_t length = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    pairs.insert(" " + name + "=" +
                 std::string(value.data(), length > 0 ? static_cast<std::size_t>(length) : 0));
  }
  return std::accumulate(pairs.begin(), pairs.end(), std::string());
}

// At once: byte by byte, looking would take most of a case's time.
std::string bytes_of(const std::string &path, off_t size) {
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::ifstream file(path, std::ios::binary);
  if (!file.read(bytes.data(), size))
    broken(path);
  return bytes;
}

std::string time_text(const timespec &time) {
  return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

file_state state_of(const std::string &path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0)
    broken(path);
  file_state state;
  state.type = S_ISDIR(status.st_mode) ? "directory" : S_ISLNK(status.st_mode) ? "link" : "file";
  state.mode = status.st_mode & 07777;
  state.owner = status.st_uid;
  state.group = status.st_gid;
  if (S_ISREG(status.st_mode))
    state.bytes = bytes_of(path, status.st_size);
  if (S_ISLNK(status.st_mode))
    state.bytes = fs::read_symlink(path).string();
  state.identity = {status.st_dev, status.st_ino};
  state.names = status.st_nlink;
  state.modified = time_text(status.st_mtim);
  state.attributes = attributes_of(path);
  state.traces = "links " + std::to_string(status.st_nlink) + ", modified " + state.modified + ", changed " +
                 time_text(status.st_ctim) + ", inode " + std::to_string(status.st_ino) + state.attributes;
  return state;
}

std::string octal(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", mode);
  return text.data();
}

difference described(const char *change, const file_state &shown) {
  return {change, shown.type, octal(shown.mode),
          std::to_string(shown.owner) + ":" + std::to_string(shown.group)};
}

const char *name_of_change(const file_state &before, const file_state &after) {
  if (before.type != after.type)
    return "type";
  if (before.bytes != after.bytes)
    return "content";
  if (before.mode != after.mode)
    return "mode";
  return before.owner != after.owner || before.group != after.group ? "owner" : nullptr;
}

std::string shown(const file_state &one, const std::string &first_name) {
  std::string text = one.type + " " + octal(one.mode) + " " + std::to_string(one.owner) + ":" +
                     std::to_string(one.group) + one.attributes;
  if (one.type == "link")
    return text + " to " + one.bytes;
  if (one.type == "file")
    text +=
        " of " + one.modified + ", " + std::to_string(one.bytes.size()) + " bytes, the file of " + first_name;
  return text;
}

// What must come back, in words, and with the bytes behind them.
std::map<std::string, std::pair<std::string, std::string>> lines_of(const disk_state &state,
                                                                    const std::string &apart) {
  std::map<std::string, std::pair<std::string, std::string>> lines;
  std::map<std::pair<file_identity, bool>, std::string> names;
  for (const auto &[path, one] : state) {
    const bool is_apart = path.starts_with(apart + "/");
    lines[path] = {shown(one, names.try_emplace({one.identity, is_apart}, path).first->second), one.bytes};
  }
  return lines;
}

} // namespace

disk_state look_at(const std::vector<std::string> &directories) {
  disk_state result;
  for (const std::string &directory : directories) {
    result[directory] = state_of(directory);
    for (const fs::directory_entry &found : fs::recursive_directory_iterator(directory))
      result[found.path().string()] = state_of(found.path().string());
  }
  return result;
}

std::string disturbances(const disk_state &before, const disk_state &after) {
  std::string text;
  for (const auto &[path, what] : differences(before, after))
    text += what.change + " " + path + "\n";
  for (const auto &[path, was] : before)
    if (const auto is = after.find(path); is != after.end() && is->second.traces != was.traces)
      text += path + " was " + was.traces + " and is " + is->second.traces + "\n";
  return text;
}

std::string not_come_back(const disk_state &before, const disk_state &after, const std::string &apart) {
  std::string text;
  const auto now = lines_of(after, apart);
  const auto then = lines_of(before, apart);
  for (const auto &[path, was] : then)
    if (const auto is = now.find(path); is == now.end())
      text += "gone " + path + "\n";
    else if (is->second != was)
      text += path + "\n  was " + was.first + "\n  is  " + is->second.first +
              (is->second.first == was.first ? ", of other bytes" : "") + "\n";
  for (const auto &[path, is] : now)
    if (!then.contains(path))
      text += "new " + path + "\n";
  return text;
}

std::map<std::string, difference> differences(const disk_state &before, const disk_state &after) {
  std::map<std::string, difference> result;
  for (const auto &[path, was] : before) {
    const auto is = after.find(path);
    if (is == after.end())
      result[path] = described("removed", was);
    else if (const char *const change = name_of_change(was, is->second))
      result[path] = described(change, is->second);
  }
  for (const auto &[path, is] : after)
    if (!before.contains(path))
      result[path] = described("new", is);
  return result;
}

} // namespace plans
