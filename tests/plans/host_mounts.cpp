// Mounts in the midst of a host, and what nobody may write.
#include "plans/host_changes.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace plans {

namespace fs = std::filesystem;

namespace {

// Lies beside the host, where nobody looks.
std::string new_store(host &made) {
  const std::string store = made.disk.directory + "/store/" + new_name(made, "store");
  fs::create_directory(store);
  return store;
}

void copy_all(const std::string &from, const std::string &to) {
  must_run({"cp", "-a", from + "/.", to});
}

void mount_in_memory(host &made, const std::string &directory) {
  const std::string store = new_store(made);
  must(mount("plans", store.c_str(), "tmpfs", 0, ""), "mount " + store);
  copy_all(directory, store);
  must(mount(store.c_str(), directory.c_str(), nullptr, MS_MOVE, nullptr), "mount " + directory);
}

void mount_bound(host &made, const std::string &directory) {
  const std::string store = new_store(made);
  copy_all(directory, store);
  must(mount(store.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), "mount " + directory);
}

void mount_overlay(host &made, const std::string &directory) {
  const std::string store = new_store(made);
  for (const char *const part : {"/lower", "/upper", "/work"})
    fs::create_directory(store + part);
  copy_all(directory, store + "/lower");
  copy_all(store + "/lower", store + "/upper");
  for (const fs::directory_entry &found : fs::directory_iterator(store + "/upper"))
    fs::remove_all(found.path());
  const std::string options =
      "lowerdir=" + store + "/lower,upperdir=" + store + "/upper,workdir=" + store + "/work";
  must(mount("plans", directory.c_str(), "overlay", 0, options.c_str()), "mount " + directory);
  made.disk.has_mount_without_second_names = true;
}

std::string a_mount_point(host &made) {
  std::vector<std::string> points = {
      made.envi,           made.envi + "/bin",     made.idl,
      made.idl + "/bin",   made.product,           "/etc/quorin",
      made.envi + "/save", made.idl + "/lib/hook", made.disk.directory + "/outside"};
  for (const std::string &target : targets_of(made))
    points.push_back(target);
  std::erase_if(points,
                [](const std::string &point) { return !fs::is_directory(fs::symlink_status(point)); });
  // What is seen twice must not be hidden, for then it is seen once.
  const std::string &twice = made.disk.second_mount.first;
  std::erase_if(points, [&](const std::string &point) {
    return !twice.empty() && (twice + "/").starts_with(point + "/");
  });
  return any_of(made, points);
}

void mount_over_directories(host &made) {
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i)
    if (const std::string point = a_mount_point(made); !point.empty())
      made.d.chance(50) ? mount_in_memory(made, point) : mount_bound(made, point);
}

// What lies in it must not be mounted before: an overlay shows nothing of that.
void mount_overlay_over_directory(host &made) {
  if (const std::string point = a_mount_point(made); !point.empty())
    mount_overlay(made, point);
}

// One more would be one too many.
void mount_overlays_over_envi(host &made) {
  mount_overlay(made, made.envi);
  mount_overlay(made, made.envi);
  made.disk.has_mount_that_cannot_be_covered = true;
}

void mount_over_file(host &made) {
  const std::string file = any_of(made, files_below(made.d.chance(50) ? made.envi + "/bin" : made.envi));
  if (file.empty())
    return;
  const std::string store = new_store(made) + "/file";
  fs::copy_file(file, store);
  must(mount(store.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), "mount " + file);
  made.disk.has_mount_that_cannot_be_covered = true;
}

void mount_read_only(host &made) {
  const std::string point = a_mount_point(made);
  if (point.empty())
    return;
  mount_bound(made, point);
  must(mount("none", point.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), "remount " + point);
}

// The run writes through both, and removes through one what it wrote through the other.
void mount_twice(host &made) {
  const std::string shared = made.disk.directory + "/store/" + new_name(made, "shared");
  const std::string point = made.envi + "/custom_code";
  const std::string link = made.envi + "/extensions";
  if (!fs::is_directory(fs::symlink_status(point)) || !fs::is_directory(fs::symlink_status(link)))
    return;
  fs::create_directory(shared);
  const std::string sources = made.product + "/auxiliary/envi_extensions_54/envi/";
  support::write_file(sources + "custom_code/korvalen_core_extensions.sav", "x");
  support::write_file(sources + "extensions/extensions.sav", "x");
  must(mount(shared.c_str(), point.c_str(), nullptr, MS_BIND, nullptr), "mount " + point);
  fs::rename(link, link + "_before");
  fs::create_symlink(shared, link);
  made.disk.second_mount = {point, shared};
}

bool can_be_frozen(const std::string &path) {
  struct statfs system {};
  // What lies in memory goes with its mount; elsewhere, what is frozen stays.
  return statfs(path.c_str(), &system) == 0 && system.f_type == TMPFS_MAGIC &&
         (system.f_flags & ST_RDONLY) == 0;
}

void freeze(const std::string &path, int flag) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  must(file, "open " + path);
  int flags = 0;
  if (ioctl(file, FS_IOC_GETFLAGS, &flags) == 0) {
    flags |= flag;
    if (ioctl(file, FS_IOC_SETFLAGS, &flags) != 0 && errno != EROFS)
      must(-1, "freeze " + path);
  }
  close(file);
}

void freeze_paths(host &made) {
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i) {
    const std::string script = any_script(made);
    const std::string path = made.d.chance(30) && !script.empty() ? script
                             : made.d.chance(50)                  ? any_of(made, files_below(made.envi))
                                                 : any_of(made, directories_below(made.envi));
    if (!path.empty() && can_be_frozen(path))
      freeze(path, made.d.chance(70) ? FS_IMMUTABLE_FL : FS_APPEND_FL);
  }
}

constexpr host_change changes[] = {
    {"a mount that is seen twice", 3, mount_twice},
    {"an overlay", 5, mount_overlay_over_directory},
    {"mounts of their own", 40, mount_over_directories},
    {"an overlay over an overlay", 2, mount_overlays_over_envi},
    {"a file that is a mount", 3, mount_over_file},
    {"a read-only mount", 6, mount_read_only},
    {"frozen files", 8, freeze_paths},
};

} // namespace

std::span<const host_change> mount_changes() {
  return changes;
}

} // namespace plans
