#include "admin/changes.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <set>
#include <sys/xattr.h>
#include <utility>

namespace korvalen::admin {

namespace {

// A file of the disk, whatever its names.
using file_identity = std::pair<dev_t, ino_t>;

struct shared_file {
  nlink_t names; // how many it has
  std::set<std::string> found;
};

struct search {
  const view &seen;
  std::map<std::string, change> touched;
  std::map<file_identity, shared_file> shared_files; // touched files of several names
};

bool is_shared_file(const struct stat &status) {
  return S_ISREG(status.st_mode) && status.st_nlink > 1;
}

bool has_attribute(const std::string &path, const char *name) {
  return lgetxattr(path.c_str(), name, nullptr, 0) >= 0;
}

// Whether a new directory hides what lay in the one before it.
bool is_opaque(const std::string &written) {
  char value = 0;
  const ssize_t size = lgetxattr(written.c_str(), "trusted.overlay.opaque", &value, 1);
  if (size < 0 && !is_one_of(errno, {ENODATA, EOPNOTSUPP}))
    fail("cannot look up " + written);
  return size == 1 && value == 'y';
}

// Whether a file was written only as far as its mode and owner go.
bool keeps_bytes(const std::string &written) {
  return has_attribute(written, "trusted.overlay.metacopy");
}

// Where size does not tell whether the bytes are the same.
bool may_have_same_bytes(const change &touched) {
  return touched.before.type == file_type::file && touched.after.type == file_type::file &&
         touched.before.size == touched.after.size;
}

void add_hash(const tree &in, const std::string &path, state &one) {
  if (one.type == file_type::file && !one.hash)
    one.hash = hash_of(in, path);
}

void add_hashes(const view &seen, change &touched) {
  if (!may_have_same_bytes(touched))
    return;
  add_hash(seen.disk(), touched.path, touched.before);
  add_hash(seen.inside(), touched.path, touched.after);
}

// What stands at a path of the disk and of the view.
struct sight {
  std::optional<struct stat> before;
  std::optional<struct stat> after;
};

sight look(const view &seen, const std::string &path) {
  return {look_up(seen.disk(), path), look_up(seen.inside(), path)};
}

// Without hashes.
change &note(search &all, const std::string &path, const sight &there) {
  const auto [place, is_new] = all.touched.try_emplace(path);
  change &touched = place->second;
  if (!is_new)
    return touched;
  touched.path = path;
  if (there.before) {
    touched.before = state_of(all.seen.disk(), path, *there.before);
    touched.stood = identity_of(*there.before);
    if (is_shared_file(*there.before)) {
      shared_file &file = all.shared_files[{there.before->st_dev, there.before->st_ino}];
      file.names = there.before->st_nlink;
      file.found.insert(path);
    }
  }
  if (there.after)
    touched.after = state_of(all.seen.inside(), path, *there.after);
  return touched;
}

change &note_with_hashes(search &all, const std::string &path) {
  change &touched = note(all, path, look(all.seen, path));
  add_hashes(all.seen, touched);
  return touched;
}

// A path of the disk, and all below it, that the view may lack.
void note_tree(search &all, const std::string &path) {
  if (note_with_hashes(all, path).before.type != file_type::directory)
    return;
  for (const std::string &name : names_in(all.seen.disk(), path))
    note_tree(all, joined(path, name));
}

void note_children(search &all, const std::string &directory) {
  for (const std::string &name : names_in(all.seen.disk(), directory))
    note_tree(all, joined(directory, name));
}

void note_written(search &all, const std::string &path, const std::string &written, const sight &there);

// The names that the overlay holds of a directory of the view.
void note_names(search &all, const change &directory, const std::string &written) {
  const open_directory after = open_directory_in(all.seen.inside(), directory.path);
  std::optional<open_directory> before;
  if (directory.before.type == file_type::directory)
    before.emplace(open_directory_in(all.seen.disk(), directory.path));
  for (const std::string &name : names_in(all.seen.disk(), written))
    note_written(all, joined(directory.path, name), joined(written, name),
                 {before ? look_up(*before, name) : std::nullopt, look_up(after, name)});
}

// `written` is what the overlay holds of the path: of the same type as in the view, where it is not a mark of
// absence.
void note_written(search &all, const std::string &path, const std::string &written, const sight &there) {
  change &touched = note(all, path, there);
  const bool is_directory = touched.after.type == file_type::directory;
  if (may_have_same_bytes(touched) && !keeps_bytes(written))
    add_hashes(all.seen, touched);
  if (is_directory)
    note_names(all, touched, written);
  if (touched.before.type == file_type::directory && (!is_directory || is_opaque(written)))
    note_children(all, path);
}

void note_if_shared(search &all, const std::string &path, const struct stat &status) {
  const auto file = all.shared_files.find({status.st_dev, status.st_ino});
  if (!S_ISREG(status.st_mode) || file == all.shared_files.end())
    return;
  file->second.found.insert(path);
  note_with_hashes(all, path);
}

void find_names(search &all, const std::string &directory, bool descends) {
  for (const std::string &name : names_in(all.seen.disk(), directory)) {
    const std::string path = joined(directory, name);
    const struct stat status = look_up(all.seen.disk(), path).value_or(no_file);
    note_if_shared(all, path, status);
    if (descends && S_ISDIR(status.st_mode))
      find_names(all, path, true);
  }
}

void find_other_names(search &all, const std::vector<std::string> &directories) {
  std::set<std::string> beside;
  for (const auto &[identity, file] : all.shared_files)
    for (const std::string &path : file.found)
      beside.insert(parent_of(path));
  for (const std::string &directory : beside)
    find_names(all, directory, false);
  for (const std::string &directory : directories)
    find_names(all, directory, true);
}

bool has_changed(const search &all, const shared_file &file) {
  return std::any_of(file.found.begin(), file.found.end(), [&](const std::string &path) {
    return kind_of(all.touched.at(path)) != change_kind::none;
  });
}

bool same_bytes(const state &a, const state &b) {
  return a.size == b.size && a.hash == b.hash && a.target == b.target;
}

} // namespace

change_kind kind_of(const change &change) {
  const state &before = change.before;
  const state &after = change.after;
  if (before.type == file_type::absent && after.type == file_type::absent)
    return change_kind::none;
  if (before.type == file_type::absent)
    return change_kind::created;
  if (after.type == file_type::absent)
    return change_kind::removed;
  if (before.type != after.type)
    return change_kind::type;
  if (!same_bytes(before, after))
    return change_kind::content;
  if (before.mode != after.mode)
    return change_kind::mode;
  return before.owner != after.owner || before.group != after.group ? change_kind::owner : change_kind::none;
}

identity identity_of(const struct stat &status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_ctim};
}

bool is_same(const identity &a, const identity &b) {
  return a.device == b.device && a.inode == b.inode && a.size == b.size &&
         a.changed.tv_sec == b.changed.tv_sec && a.changed.tv_nsec == b.changed.tv_nsec;
}

found_changes find_changes(const view &seen, const std::vector<std::string> &directories, hashing hashed) {
  search all{seen, {}, {}};
  for (const layer &covered : seen.layers())
    note_written(all, covered.mount.point, covered.changes, look(seen, covered.mount.point));
  if (!all.shared_files.empty())
    find_other_names(all, directories);

  found_changes found;
  for (const auto &[identity, file] : all.shared_files) {
    if (!has_changed(all, file))
      continue;
    found.of_several_names.insert(found.of_several_names.end(), file.found.begin(), file.found.end());
    if (file.found.size() < file.names)
      found.with_unseen_names.push_back(*file.found.begin());
  }
  for (auto &[path, touched] : all.touched) {
    if (hashed == hashing::always) {
      add_hash(seen.disk(), path, touched.before);
      add_hash(seen.inside(), path, touched.after);
    }
    found.touched.push_back(std::move(touched));
  }
  return found;
}

} // namespace korvalen::admin
