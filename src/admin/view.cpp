#include "admin/view.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace korvalen::admin {

namespace {

// The namespace's own work stands on top of /proc: no product and no ENVI lies there, and what runs in the
// view must not see it.
constexpr const char *workshop = "/proc";
constexpr const char *view_root = "/proc/view";
constexpr const char *memory_scratch = "/proc/scratch";

// What the kernel makes up, and much of what is in it cannot be covered. Nobody installs there: the view goes
// without, and without what is mounted in it.
constexpr std::string_view made_up_types[] = {
    "binfmt_misc", "bpf",        "cgroup",    "cgroup2", "configfs", "debugfs", "devpts",
    "efivarfs",    "fusectl",    "hugetlbfs", "mqueue",  "nsfs",     "proc",    "rpc_pipefs",
    "pstore",      "securityfs", "selinuxfs", "sysfs",   "tracefs",
};

bool is_made_up(const mounted &mount) {
  return std::find(std::begin(made_up_types), std::end(made_up_types), mount.type) != std::end(made_up_types);
}

unsigned attributes_of(const mounted &mount) {
  return MOUNT_ATTR_NODEV | (mount.no_exec ? MOUNT_ATTR_NOEXEC : 0U) |
         (mount.no_suid ? MOUNT_ATTR_NOSUID : 0U);
}

void set_attributes(const descriptor &mount, std::uint64_t set, std::uint64_t clear) {
  mount_attr attributes{};
  attributes.attr_set = set;
  attributes.attr_clr = clear;
  attributes.propagation = MS_PRIVATE;
  checked(mount_setattr(mount.get(), "", AT_EMPTY_PATH, &attributes, sizeof attributes),
          "cannot set the attributes of a mount");
}

// A second mount of what is mounted at the path, attached nowhere yet.
descriptor clone_of(const std::string &path) {
  return descriptor(
      checked(open_tree(AT_FDCWD, path.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_SYMLINK_NOFOLLOW),
              "cannot copy the mount of " + path));
}

void attach(const descriptor &mount, const std::string &path) {
  checked(move_mount(mount.get(), "", AT_FDCWD, path.c_str(), MOVE_MOUNT_F_EMPTY_PATH),
          "cannot mount over " + path);
}

std::string in_view(const std::string &path) {
  if (path == "/")
    return view_root;
  return view_root + path;
}

bool is_directory(const std::string &path) {
  struct stat status {};
  lstat(path.c_str(), &status);
  return S_ISDIR(status.st_mode);
}

void make_directory(const std::string &path) {
  checked(mkdir(path.c_str(), 0755), "cannot make the directory " + path);
}

// The rights of the lower directory, access control lists included: the topmost directory of an overlay has
// those of its upper one.
void copy_rights(const std::string &from, const std::string &to) {
  struct stat status {};
  checked(stat(from.c_str(), &status), "cannot look up " + from);
  checked(chown(to.c_str(), status.st_uid, status.st_gid), "cannot set the owner of " + to);
  checked(chmod(to.c_str(), status.st_mode & 07777), "cannot set the mode of " + to);
  for (const char *const list : {"system.posix_acl_access", "system.posix_acl_default"}) {
    std::array<char, 65'536> value;
    const ssize_t size = getxattr(from.c_str(), list, value.data(), value.size());
    if (size > 0)
      checked(setxattr(to.c_str(), list, value.data(), static_cast<std::size_t>(size), 0),
              "cannot set the access control list of " + to);
  }
}

// What lies in a directory keeps its flags in an overlay, but for the topmost directory.
void refuse_frozen(const std::string &directory) {
  struct statx status {};
  checked(statx(AT_FDCWD, directory.c_str(), 0, 0, &status), "cannot look up " + directory);
  if ((status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0)
    throw failure("its topmost directory is immutable or only to be appended to");
}

void configure(const descriptor &overlay, const char *key, const char *value) {
  checked(fsconfig(overlay.get(), FSCONFIG_SET_STRING, key, value, 0), std::string("cannot set ") + key);
}

// The umask of the caller must not reach the scratch directory.
struct open_umask {
  mode_t previous = umask(0);
  open_umask() = default;
  ~open_umask() { umask(previous); }
  open_umask(const open_umask &) = delete;
  open_umask &operator=(const open_umask &) = delete;
};

} // namespace

view::way_back::way_back()
    : names(open_for_reading("/proc/self/ns/mnt")),
      root(checked(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC), "cannot open /")),
      directory(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  // Better now than when there is a view to come back from.
  if (!go())
    fail("cannot enter a mount namespace");
  checked(unshare(CLONE_NEWNS), "cannot make a private mount namespace");
}

view::way_back::~way_back() {
  if (go())
    return;
  // A process that cannot go back has lost its surroundings: to go on would be to work on the view.
  dprintf(STDERR_FILENO, "korvalen_admin: cannot come back from a rehearsal: %s\n", std::strerror(errno));
  _exit(1);
}

bool view::way_back::go() const {
  return setns(names.get(), CLONE_NEWNS) == 0 && fchdir(root.get()) == 0 && chroot(".") == 0 &&
         (!directory || fchdir(directory.get()) == 0);
}

view::view(const scratch_place &scratch) : scratch_(scratch.directory), mounts_(visible_mounts()) {
  const open_umask none;
  // Nothing that is mounted from here on may reach other namespaces.
  checked(mount(nullptr, workshop, nullptr, MS_PRIVATE, nullptr), "cannot make the mount of /proc private");
  const std::string limit = "mode=0700,nr_inodes=0,size=" + std::to_string(scratch.memory_limit);
  checked(mount("korvalen", workshop, "tmpfs", MS_NOSUID | MS_NODEV, limit.c_str()),
          "cannot mount a scratch directory in memory");
  make_directory(view_root);
  if (scratch_.empty()) {
    scratch_ = memory_scratch;
    make_directory(scratch_);
  }
  attach_everything();
  disk_ = open_tree_at("");
  inside_ = open_tree_at(view_root);
}

view::~view() = default;

std::string view::run_directory() {
  return workshop;
}

void view::attach_everything() {
  std::vector<std::string> left_out;
  left_out.emplace_back(workshop);
  for (const mounted &mount : mounts_) {
    const bool is_hidden = std::any_of(left_out.begin(), left_out.end(),
                                       [&](const std::string &point) { return lies_in(mount.point, point); });
    if (!is_hidden && (is_made_up(mount) || !cover_or_bare(mount)))
      left_out.push_back(mount.point);
  }
  // The one device. Read-only means its mode and owner, which are the disk's.
  const descriptor null = clone_of("/dev/null");
  set_attributes(null, MOUNT_ATTR_NOEXEC | MOUNT_ATTR_RDONLY, MOUNT_ATTR_NODEV);
  attach(null, in_view("/dev/null"));
  // In place of /proc, which nothing in the view must see.
  const std::string run = scratch_ + "/run";
  make_directory(run);
  const descriptor run_clone = clone_of(run);
  set_attributes(run_clone, MOUNT_ATTR_NODEV | MOUNT_ATTR_NOSUID, 0);
  attach(run_clone, in_view(run_directory()));
  checked(chdir("/"), "cannot enter /");
}

// False when it is not in the view at all.
bool view::cover_or_bare(const mounted &mount) {
  try {
    if (!mount.read_only) {
      attach(cover(mount), in_view(mount.point));
      return true;
    }
  } catch (const failure &problem) {
    bare_mounts_.push_back({mount, problem.what()});
  }
  try {
    const descriptor clone = clone_of(mount.point);
    set_attributes(clone, attributes_of(mount) | MOUNT_ATTR_RDONLY, 0);
    attach(clone, in_view(mount.point));
    return true;
  } catch (const failure &problem) {
    bare_mounts_.push_back({mount, problem.what()});
    return false;
  }
}

descriptor view::cover(const mounted &mount) {
  if (!is_directory(mount.point))
    throw failure("it is no directory");
  const std::string place = scratch_ + "/" + std::to_string(layers_.size() + bare_mounts_.size());
  const std::string upper = place + "/upper";
  const std::string work = place + "/work";
  make_directory(place);
  make_directory(upper);
  make_directory(work);
  // So that no byte of the mount point's name can mean anything to the overlay's options.
  checked(chdir(mount.point.c_str()), "cannot enter " + mount.point);
  refuse_frozen(".");
  copy_rights(".", upper);
  const descriptor overlay(
      checked(fsopen("overlay", FSOPEN_CLOEXEC), "the kernel has no overlay file system"));
  configure(overlay, "lowerdir", ".");
  configure(overlay, "upperdir", upper.c_str());
  configure(overlay, "workdir", work.c_str());
  configure(overlay, "index", "on");
  configure(overlay, "metacopy", "on");
  checked(fsconfig(overlay.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0),
          mount.type == "overlay" ? "it is an overlay itself, of which the kernel stacks two at most"
                                  : "the kernel refuses an overlay of it");
  descriptor covered(
      checked(fsmount(overlay.get(), FSMOUNT_CLOEXEC, attributes_of(mount)), "the kernel mounts no overlay"));
  layers_.push_back({mount, upper, access((work + "/index").c_str(), F_OK) == 0});
  return covered;
}

} // namespace korvalen::admin
