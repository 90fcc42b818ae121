#include "admin/rehearsal.h"

#include "installer/installation.h"
#include "korvalen/files/file_copy.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <utility>

namespace korvalen::admin {

namespace {

// In memory where twice the files to be deployed take less than half of what is free there.
scratch_place choose_scratch(const target &host, rehearsal &made) {
  const tree disk = open_tree_at("");
  const std::uint64_t available = available_memory();
  std::uint64_t bytes = 0;
  if (host.envi_dir)
    bytes = bytes_below(disk, extensions_dir_of(host));
  remove_old_scratches();
  if (2 * bytes < available / 2)
    return {"", available / 2};
  made.scratch = std::make_unique<disk_scratch>();
  return {made.scratch->path(), available / 2};
}

[[noreturn]] void refuse_mount(const std::string &path, const bare_mount &bare) {
  throw failure(path + " cannot be rehearsed: " + bare.mount.point +
                " is a mount of its own that cannot be covered (" + bare.reason + ")");
}

void refuse_bare(const view &seen, const std::string &path) {
  for (const bare_mount &bare : seen.bare_mounts())
    if (lies_in(bare.mount.point, path) || mount_of(seen.mounts(), path).point == bare.mount.point)
      refuse_mount(path, bare);
}

// What a path leads to must be in the view as it is on the disk.
void refuse_end(const view &seen, const std::string &path) {
  const struct stat end = follow(seen.disk(), path).value_or(no_file);
  if (S_ISCHR(end.st_mode) || S_ISBLK(end.st_mode))
    throw failure(path + " cannot be rehearsed: it leads to a device, and there is none in a rehearsal");
  if (const auto real = real_path(path))
    refuse_bare(seen, *real);
}

void refuse_ends_below(const view &seen, const std::string &directory) {
  const open_directory opened = open_directory_in(seen.disk(), directory);
  for (const std::string &name : names_in(seen.disk(), directory)) {
    const std::string path = joined(directory, name);
    const struct stat status = look_up(opened, name).value_or(no_file);
    if (S_ISDIR(status.st_mode))
      refuse_ends_below(seen, path);
    else if (!S_ISREG(status.st_mode))
      refuse_end(seen, path);
  }
}

// The installer would be refused there what it is allowed on the disk.
void refuse_what_is_not_in_view(const view &seen, const std::vector<std::string> &directories) {
  for (const std::string &directory : directories) {
    refuse_bare(seen, directory);
    refuse_ends_below(seen, directory);
  }
}

bool separates_names(const view &seen, const std::string &path) {
  const mounted &mount = mount_of(seen.mounts(), path);
  return std::any_of(seen.layers().begin(), seen.layers().end(),
                     [&](const layer &one) { return one.mount.point == mount.point && !one.joins_names; });
}

void refuse_separate_names(const view &seen, const found_changes &found) {
  for (const std::string &path : found.of_several_names) {
    if (separates_names(seen, path))
      throw failure(path +
                    " cannot be rehearsed: the file has further names, which its file system does not let "
                    "an overlay tell");
  }
}

// The path within the file system of its mount.
std::string path_on_device(const mounted &mount, const std::string &path) {
  const std::size_t point = mount.point == "/" ? 0 : mount.point.size();
  if (mount.root == "/")
    return path.substr(point);
  return mount.root + path.substr(point);
}

// Whether some of the paths are seen through the mount, and lie in that directory of its file system.
bool reaches(const view &seen, const std::vector<std::string> &paths, const mounted &mount,
             const std::string &directory) {
  return std::any_of(paths.begin(), paths.end(), [&](const std::string &path) {
    if (mount_of(seen.mounts(), path).point != mount.point)
      return false;
    return lies_in(path_on_device(mount, path), directory);
  });
}

std::vector<std::string> changed_paths(const found_changes &found) {
  std::vector<std::string> paths;
  for (const change &touched : found.touched)
    if (kind_of(touched) != change_kind::none)
      paths.push_back(touched.path);
  return paths;
}

// In the view, what is written through one mount is not seen through another of the same file system. The run
// may have found nothing to do there for that reason alone, so where it looks counts like what it changes.
void refuse_second_mounts(const view &seen, const found_changes &found, const target &host) {
  const std::vector<std::string> changed = changed_paths(found);
  std::vector<std::string> used = written_directories_of(host);
  used.insert(used.end(), changed.begin(), changed.end());
  for (const layer &one : seen.layers())
    for (const layer &other : seen.layers()) {
      const std::string &shared = other.mount.root;
      const bool are_of_one = one.mount.device == other.mount.device && lies_in(shared, one.mount.root);
      if (&one == &other || !are_of_one)
        continue;
      if ((reaches(seen, changed, one.mount, shared) && reaches(seen, used, other.mount, shared)) ||
          (reaches(seen, used, one.mount, shared) && reaches(seen, changed, other.mount, shared)))
        throw failure(
            one.mount.point + " and " + other.mount.point +
            " cannot be rehearsed together: they are mounts of the same directory, and the run writes "
            "through both");
    }
}

using file_identity = std::pair<dev_t, ino_t>;

file_identity file_of(const struct stat &status) {
  return {status.st_dev, status.st_ino};
}

struct copied_file {
  std::string path;
  off_t size; // as large as its source, or not
  off_t source_size;
  file_identity source;
};

// What the name leads to, where that is a file.
std::optional<struct stat> follow_to_file(const open_directory &directory, const std::string &name) {
  const struct stat status = follow(directory, name).value_or(no_file);
  return S_ISREG(status.st_mode) ? std::optional(status) : std::nullopt;
}

// The last copy into a file counts.
std::map<file_identity, copied_file> find_copies(const tree &in, const target &host) {
  std::map<file_identity, copied_file> copies;
  for (const deployment &step : deployments_of(host)) {
    const open_directory sources = open_directory_in(in, step.source);
    const open_directory targets = open_directory_in(in, step.target);
    for (const std::string &name : names_in(in, step.source)) {
      const auto source = follow_to_file(sources, name);
      const auto copy = follow_to_file(targets, name);
      if (!is_deployed_name(name) || !source || !copy)
        continue;
      copies[file_of(*copy)] = {joined(step.target, name), copy->st_size, source->st_size, file_of(*source)};
    }
  }
  return copies;
}

std::set<file_identity> find_scripts(const tree &in, const target &host) {
  std::set<file_identity> scripts;
  for (const launch_script &script : launch_scripts_of(host))
    if (const auto status = follow(in, script.path))
      scripts.insert(file_of(*status));
  return scripts;
}

// A scratch directory that ran full gives short files without an error. Of files that are written for another
// reason too, the sizes say nothing; and of none where the installer ended early.
void expect_whole_files(const view &seen, const target &host) {
  const std::map<file_identity, copied_file> copies = find_copies(seen.inside(), host);
  const std::set<file_identity> scripts = find_scripts(seen.inside(), host);
  for (const auto &[identity, copy] : copies) {
    const bool is_written_again =
        scripts.contains(identity) || scripts.contains(copy.source) || copies.contains(copy.source);
    if (!is_written_again && copy.size != copy.source_size)
      throw failure("the scratch directory for the rehearsal is full: " + copy.path + " was cut short");
  }
}

// Without this the reason alone would not tell what to do.
std::unique_ptr<view> make_view(const scratch_place &scratch) {
  try {
    return std::make_unique<view>(scratch);
  } catch (const failure &problem) {
    throw failure(
        std::string(problem.what()) +
        "; a rehearsal needs CAP_SYS_ADMIN and overlays in a mount namespace (Linux 5.12 or later): in a "
        "container, grant that, or run korvalen_installer without a rehearsal");
  }
}

} // namespace

int set_aside_and_install(const target &host, const std::vector<std::string> &stale_backups) {
  for (const std::string &backup : stale_backups)
    std::remove(backup.c_str());
  return install(request_of(host));
}

int install_at_once(const target &host, const std::vector<std::string> &stale_backups) {
  set_install_waits(false);
  return set_aside_and_install(host, stale_backups);
}

rehearsal rehearse(const target &host, hashing hashed) {
  rehearsal made;
  const std::vector<std::string> directories = real_directories_of(host);
  const scratch_place scratch = choose_scratch(host, made);
  for (const launch_script &script : launch_scripts_of(host))
    if (is_stale(open_tree_at(""), script))
      made.stale_backups.push_back(script.backup);

  made.seen = make_view(scratch);
  refuse_what_is_not_in_view(*made.seen, directories);
  made.installer =
      run_confined(made.seen->inside().path, view::run_directory(),
                   std::bind_front(install_at_once, std::cref(host), std::cref(made.stale_backups)));
  expect_room(made.seen->scratch());
  if (made.installer.status == 0)
    expect_whole_files(*made.seen, host);
  made.found = find_changes(*made.seen, directories, hashed);
  refuse_separate_names(*made.seen, made.found);
  refuse_second_mounts(*made.seen, made.found, host);
  return made;
}

} // namespace korvalen::admin
