#include "admin/taking_back.h"

#include "admin/copies.h"
#include "admin/restoring.h"
#include "admin/texts.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace korvalen::admin {

namespace {

bool is_directory(const state &one) {
  return one.type == file_type::directory;
}

// Whether the first file holds the beginning of the second. Not where one of them cannot be read.
bool is_beginning(const std::string &path, const std::string &whole) {
  const descriptor file = open_in(open_tree_at(""), path);
  const descriptor other = open_in(open_tree_at(""), whole);
  std::array<char, 65'536> bytes;
  std::array<char, 65'536> other_bytes;
  for (off_t at = 0;;) {
    const ssize_t size = pread(file.get(), bytes.data(), bytes.size(), at);
    if (size <= 0)
      return size == 0;
    const ssize_t other_size = pread(other.get(), other_bytes.data(), static_cast<std::size_t>(size), at);
    if (other_size != size || !std::equal(bytes.begin(), bytes.begin() + size, other_bytes.begin()))
      return false;
    at += size;
  }
}

// A script, its backup and that one's temporary name hold each other's bytes for a while.
std::string script_of(std::string path) {
  for (const std::string_view suffix : {".new", "_original"})
    if (path.ends_with(suffix))
      path.resize(path.size() - suffix.size());
  return path;
}

// Files that hold what the run could have been writing to the path.
std::set<std::string> known_contents(const journal &run, const std::string &path) {
  std::set<std::string> files;
  for (const journaled_path &one : run.paths) {
    if (script_of(one.path) != script_of(path))
      continue;
    if (one.kept)
      files.insert(store::kept_path(*one.kept));
    else if (one.path != path && one.found.type == file_type::file)
      files.insert(one.path); // a backup that the run only reads
    if (one.after_kept)
      files.insert(store::kept_path(*one.after_kept));
    if (!one.source.empty())
      files.insert(one.source);
  }
  return files;
}

bool has_bytes_of(const state &one, const state &other) {
  return std::tie(one.size, one.hash) == std::tie(other.size, other.hash);
}

// Of a file.
bool holds_bytes_of_the_run(const journal &run, const journaled_path &one, const state &present) {
  if (present.size == 0 || has_bytes_of(present, one.found) || has_bytes_of(present, one.after))
    return true;
  const std::set<std::string> known = known_contents(run, one.path);
  return std::any_of(known.begin(), known.end(),
                     [&](const std::string &whole) { return is_beginning(one.path, whole); });
}

bool is_of_the_run(const journal &run, const journaled_path &one, const state &present) {
  switch (present.type) {
  case file_type::absent:
    return true;
  case file_type::directory:
    return is_directory(one.found) || is_directory(one.after);
  case file_type::link:
    return present.target == one.found.target || present.target == one.after.target;
  case file_type::special:
    return false;
  default:
    return holds_bytes_of_the_run(run, one, present);
  }
}

// Returns where it is now.
std::string put_aside(const journal &run, const std::string &path, const state &present) {
  if (present.type != file_type::file && present.type != file_type::link)
    throw failure(path + " is in the way, neither a file nor a link");
  std::string name = store::aside_path(run.run, path);
  if (present.type == file_type::file)
    keep_copy(open_tree_at(""), path, name);
  else
    checked(symlink(present.target.c_str(), name.c_str()), "cannot make " + name);
  store::flush_aside();
  return name;
}

std::vector<wanted_path> wanted_by(const journal &run) {
  std::vector<wanted_path> wanted;
  for (const journaled_path &one : run.paths)
    wanted.push_back({one.path, one.found, one.kept, wanted.size()});
  return wanted;
}

std::vector<std::string> paths_of(const journal &run) {
  std::vector<std::string> paths;
  for (const journaled_path &one : run.paths)
    paths.push_back(one.path);
  return paths;
}

void finish(const store &kept) {
  kept.remove_journal();
  store::remove_kept_but(kept_by(kept.read_receipt()));
  store::remove_run_directory();
}

} // namespace

void flush_file_systems(const std::vector<std::string> &paths) {
  std::set<dev_t> flushed;
  std::set<std::string> directories;
  for (const std::string &path : paths)
    directories.insert(parent_of(path));
  for (const std::string &path : directories) {
    const descriptor place = open_parent(joined(path, "x"));
    const descriptor directory(openat(place.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory)
      continue;
    struct stat status {};
    checked(fstat(directory.get(), &status), "cannot look up " + path);
    if (flushed.insert(status.st_dev).second)
      checked(syncfs(directory.get()), "cannot flush the file system of " + path);
  }
}

taken_back take_back(const store &kept, const journal &run) {
  taken_back result;
  const restored_paths restored =
      restore_all(wanted_by(run), true, [&](const wanted_path &one, const state &present) {
        if (!is_of_the_run(run, run.paths[one.number], present))
          result.aside.push_back("What stood at " + one.path + " is now " +
                                 put_aside(run, one.path, present));
      });
  if (!restored.problems.empty())
    throw failure("the interrupted run could not be taken back: " + restored.problems.front() +
                  "; mend that and give the command again");
  for (const std::string &path : restored.not_empty)
    result.aside.push_back(path + " was made by the interrupted run and stays, as something lies in it");
  for (const std::string &path : restored.homeless)
    result.aside.push_back(path + " could not come back, as its directory is gone");
  flush_file_systems(paths_of(run));
  finish(kept);
  return result;
}

std::vector<change> not_taken_back(const journal &run) {
  std::vector<change> changes;
  for (const journaled_path &one : run.paths) {
    const state present = present_state(one.path).value_or(state{});
    if (!is_same(present, one.found))
      changes.push_back({one.path, one.found, present});
  }
  return changes;
}

taken_back recover(const store &kept) {
  const std::optional<journal> run = kept.read_journal();
  const receipt record = kept.read_receipt();
  if (run && run->run > record.run)
    return take_back(kept, *run);
  // Of an interrupted uninstall.
  for (std::size_t i = 0; i < record.paths.size(); ++i)
    remove_beside(record.paths[i].path, i);
  finish(kept);
  return {};
}

} // namespace korvalen::admin
