#include "admin_faults/host_tree.h"

#include "support/files.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace faults {

namespace fs = std::filesystem;

namespace {

using file_identity = std::pair<dev_t, ino_t>;
using names_of_files = std::map<file_identity, std::string>;

// Later times are of the day and differ from run to run.
constexpr time_t surely_old = 1'500'000'000;

void expect(bool done, const fs::path &path) {
  if (!done)
    throw std::system_error(errno, std::generic_category(), "set-up: " + path.string());
}

std::map<std::string, std::string> attributes_of(const fs::path &path) {
  std::array<char, 4096> names{};
  const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> attributes;
  for (ssize_t at = 0; at < size;) {
    const std::string name = &names[static_cast<std::size_t>(at)];
    std::array<char, 4096> value{};
    const ssize_t length = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    expect(length >= 0, path);
    attributes[name] = std::string(value.data(), static_cast<std::size_t>(length));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  return attributes;
}

host_entry entry_at(const fs::path &path, const std::string &name, names_of_files &names) {
  struct stat status {};
  expect(lstat(path.c_str(), &status) == 0, path);
  host_entry found{"directory", status.st_mode & 07777, status.st_uid, status.st_gid, "", "", {}, 0};
  if (S_ISLNK(status.st_mode)) {
    found.kind = "link";
    found.content = fs::read_symlink(path).string();
    return found;
  }
  found.attributes = attributes_of(path);
  if (S_ISDIR(status.st_mode))
    return found;
  found.kind = S_ISREG(status.st_mode) ? "file" : "special";
  found.content = support::read_file(path);
  found.modified = status.st_mtime < surely_old ? status.st_mtime : 0;
  if (status.st_nlink > 1)
    found.first_name = names.try_emplace({status.st_dev, status.st_ino}, name).first->second;
  return found;
}

void look_below(const fs::path &root, const fs::path &directory, host_tree &found) {
  for (const fs::directory_entry &one : fs::directory_iterator(directory)) {
    found[one.path().lexically_relative(root).string()]; // in the order of the paths, below
    if (one.is_directory() && !one.is_symlink())
      look_below(root, one.path(), found);
  }
}

void put(const fs::path &root, const std::string &name, const host_entry &wanted) {
  const fs::path path = root / name;
  if (!wanted.first_name.empty() && wanted.first_name != name)
    return expect(link((root / wanted.first_name).c_str(), path.c_str()) == 0, path);
  if (wanted.kind == "link")
    return fs::create_symlink(wanted.content, path);
  if (wanted.kind == "directory")
    fs::create_directory(path);
  else
    support::write_file(path, wanted.content);
  for (const auto &[attribute, value] : wanted.attributes)
    expect(lsetxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0, path);
  expect(lchown(path.c_str(), wanted.owner, wanted.group) == 0, path);
  expect(chmod(path.c_str(), wanted.mode) == 0, path);
  const timespec times[] = {{wanted.modified, 0}, {wanted.modified, 0}};
  expect(wanted.modified == 0 || utimensat(AT_FDCWD, path.c_str(), times, 0) == 0, path);
}

std::string shown(const host_entry *one) {
  if (one == nullptr)
    return "absent";
  std::ostringstream text;
  text << one->kind << " " << std::oct << one->mode << std::dec << " " << one->owner << ":" << one->group
       << ", " << one->content.size() << " bytes";
  if (!one->first_name.empty())
    text << ", the file of " << one->first_name;
  if (one->modified != 0)
    text << ", of " << one->modified;
  for (const auto &[name, value] : one->attributes)
    text << ", " << name << "=" << value;
  return text.str();
}

const host_entry *find_in(const host_tree &tree, const std::string &path) {
  const auto found = tree.find(path);
  return found == tree.end() ? nullptr : &found->second;
}

bool is_below(const std::string &path, const std::string &directory) {
  return path.starts_with(directory + "/");
}

} // namespace

host_tree look_at_host(const fs::path &directory) {
  host_tree found;
  look_below(directory, directory, found);
  names_of_files names;
  for (auto &[name, entry] : found)
    entry = entry_at(directory / name, name, names);
  return found;
}

void set_host(const fs::path &directory, const host_tree &tree) {
  for (const fs::directory_entry &top : fs::directory_iterator(directory))
    for (const fs::directory_entry &found : fs::directory_iterator(top.path()))
      fs::remove_all(found.path());
  for (const auto &[name, wanted] : tree)
    put(directory, name, wanted);
}

host_tree part_below(const host_tree &whole, const std::string &directory) {
  host_tree part = whole;
  std::erase_if(part, [&](const auto &one) { return !is_below(one.first, directory); });
  return part;
}

host_tree part_not_below(const host_tree &whole, const std::string &directory) {
  host_tree part = whole;
  std::erase_if(part, [&](const auto &one) { return is_below(one.first, directory); });
  return part;
}

std::string differences(const host_tree &expected, const host_tree &actual) {
  std::string text;
  const auto add = [&](const std::string &path, const host_entry *wanted, const host_entry *found) {
    text += path + ": " + shown(wanted) + " expected, but " + shown(found) +
            (shown(wanted) == shown(found) ? " of other content" : "") + "\n";
  };
  for (const auto &[path, wanted] : expected)
    if (const host_entry *const found = find_in(actual, path); found == nullptr || *found != wanted)
      add(path, &wanted, found);
  for (const auto &[path, found] : actual)
    if (!expected.contains(path))
      add(path, nullptr, &found);
  return text;
}

} // namespace faults
