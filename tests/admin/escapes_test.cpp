// Code that runs in a view changes nothing outside of it, whatever it tries.

#include "admin/confinement.h"
#include "admin/disk_state.h"
#include "admin/scratch.h"
#include "admin/view.h"
#include "support/child.h"
#include "support/files.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/capability.h>
#include <linux/fs.h>
#include <memory>
#include <optional>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

using namespace korvalen::admin;
using admin_tests::differences;
using admin_tests::state_of_all;
using support::write_file;
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t room = 64U << 20U;
constexpr int inherited = 700; // the number of a file that the parent left open

// A name of a file for open_by_handle_at.
struct file_handle_of {
  alignas(file_handle) std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> bytes{};
  file_handle *get() { return reinterpret_cast<file_handle *>(bytes.data()); }
  explicit file_handle_of(const std::string &path) {
    int mount = 0;
    get()->handle_bytes = MAX_HANDLE_SZ;
    if (name_to_handle_at(AT_FDCWD, path.c_str(), get(), &mount, 0) != 0)
      get()->handle_bytes = 0;
  }
};

// What the attempts aim at.
struct targets {
  std::string directory; // of the disk
  pid_t parent;
  pid_t bystander;
  file_handle_of victim; // DIRECTORY/victim
  file_handle_of device; // /dev/zero
  std::string at(const std::string &name) const { return directory + "/" + name; }
};

// 0 when the call went through, else the system's reason.
int result_of(long returned) {
  return returned < 0 ? errno : 0;
}

int try_to_write(const std::string &path, int flags = 0) {
  const int file = open(path.c_str(), O_WRONLY | flags, 0644);
  if (file < 0)
    return errno;
  return result_of(write(file, "escaped", 7));
}

int try_to_open(const std::string &path) {
  return result_of(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY));
}

int try_handle(const std::string &mount, file_handle_of handle) {
  const int file = open(mount.c_str(), O_RDONLY | O_NONBLOCK);
  return result_of(open_by_handle_at(file, handle.get(), O_WRONLY));
}

int try_mount(const char *source, const std::string &point, const char *type, unsigned long flags) {
  return result_of(mount(source, point.c_str(), type, flags, nullptr));
}

int try_to_connect(const std::string &name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.data(), name.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  const int file = socket(AF_UNIX, SOCK_STREAM, 0);
  if (file < 0)
    return errno;
  return result_of(connect(file, reinterpret_cast<const sockaddr *>(&address), size));
}

int shell(const std::string &command) {
  const int status = std::system(("exec 2>&1; " + command).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

struct attempt {
  const char *name;
  int status; // what it must end with: 0 when it may believe to have succeeded
  int (*code)(const targets &);
};

void PrintTo(const attempt &one, std::ostream *out) {
  *out << one.name;
}

const attempt attempts[] = {
    {"ToOpenANodeOfABlockDevice", EACCES, [](const targets &t) { return try_to_open(t.at("block_node")); }},
    {"ToOpenANodeOfTheMemory", EACCES, [](const targets &t) { return try_to_open(t.at("memory_node")); }},
    {"ToOpenANodeOfTheKernelsLog", EACCES, [](const targets &t) { return try_to_open(t.at("kmsg_node")); }},
    {"ToOpenADeviceOfTheDisk", EACCES, [](const targets &) { return try_to_open("/dev/full"); }},
    {"ToOpenTheTerminal", EACCES, [](const targets &) { return try_to_open("/dev/tty"); }},
    {"ToMakeABlockDevice", EPERM,
     [](const targets &t) { return result_of(mknod(t.at("node").c_str(), S_IFBLK | 0600, makedev(7, 0))); }},
    {"ToMakeACharacterDevice", EPERM,
     [](const targets &) { return result_of(mknod("node", S_IFCHR | 0600, makedev(1, 1))); }},
    {"ToOpenALinkedNameOfADevice", EACCES,
     [](const targets &t) {
       return link(t.at("block_node").c_str(), t.at("block_link").c_str()) == 0
                  ? try_to_open(t.at("block_link"))
                  : ENOTSUP;
     }},
    {"ToChangeTheModeOfTheOnlyDevice", EROFS,
     [](const targets &) { return result_of(chmod("/dev/null", 0666)); }},
    {"ToChangeTheOwnerOfTheOnlyDevice", EROFS,
     [](const targets &) { return result_of(chown("/dev/null", 0, 0)); }},
    {"ToRemoveTheOnlyDevice", EBUSY, [](const targets &) { return result_of(unlink("/dev/null")); }},
    {"ToSeeTheRootOfAProcess", ENOENT,
     [](const targets &t) {
       return try_to_open("/proc/" + std::to_string(t.parent) + "/root" + t.at("victim"));
     }},
    {"ToSeeTheRootOfTheFirstProcess", ENOENT,
     [](const targets &t) { return try_to_open("/proc/1/root" + t.at("victim")); }},
    {"ToSeeItsOwnOpenFiles", ENOENT, [](const targets &) { return try_to_open("/proc/self/fd/1"); }},
    {"ToMountTheProcesses", EPERM, [](const targets &) { return try_mount("proc", "/proc", "proc", 0); }},
    {"ToMountAFileSystem", EPERM, [](const targets &t) { return try_mount("t", t.directory, "tmpfs", 0); }},
    {"ToMountTheDiskElsewhere", EPERM,
     [](const targets &t) { return try_mount(t.directory.c_str(), "/mnt", nullptr, MS_BIND); }},
    {"ToMakeAReadOnlyMountWritable", EPERM,
     [](const targets &t) { return try_mount(nullptr, t.at("bare"), nullptr, MS_REMOUNT | MS_BIND); }},
    {"ToAllowDevices", EPERM,
     [](const targets &) { return try_mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND); }},
    {"ToUnmountTheView", EPERM, [](const targets &) { return result_of(umount2("/", MNT_DETACH)); }},
    {"ToUnmountWhatCoversTheDevices", EPERM,
     [](const targets &) { return result_of(umount2("/dev/null", MNT_DETACH)); }},
    {"ToCloneATreeOfMounts", EPERM,
     [](const targets &) { return result_of(open_tree(AT_FDCWD, "/", OPEN_TREE_CLONE)); }},
    {"ToOpenAFileSystem", EPERM, [](const targets &) { return result_of(fsopen("tmpfs", 0)); }},
    {"ToExchangeTheRoot", EPERM,
     [](const targets &) { return result_of(syscall(SYS_pivot_root, "/", "/")); }},
    {"ToTakeANamespaceOfMounts", EPERM, [](const targets &) { return result_of(unshare(CLONE_NEWNS)); }},
    {"ToTakeANamespaceOfUsers", EPERM, [](const targets &) { return result_of(unshare(CLONE_NEWUSER)); }},
    {"ToEnterTheNamespaceOfAProcess", EPERM,
     [](const targets &) {
       const long self = syscall(SYS_pidfd_open, getpid(), 0);
       return self < 0 ? 255 : result_of(setns(static_cast<int>(self), CLONE_NEWNS));
     }},
    {"ToLeaveItsRoot", EPERM,
     [](const targets &) {
       mkdir("/jail", 0755);
       return result_of(chroot("/jail"));
     }},
    {"ToClimbOutOfItsRoot", 0,
     [](const targets &t) {
       std::string up;
       for (int i = 0; i < 40; ++i)
         up += "../";
       return try_to_write(up + t.at("victim"));
     }},
    {"ToGoToADirectoryThatTheParentHasOpen", EBADF,
     [](const targets &) { return result_of(fchdir(inherited)); }},
    {"ToWriteWhereTheParentHasADirectoryOpen", EBADF,
     [](const targets &) { return result_of(openat(inherited, "victim", O_WRONLY)); }},
    {"ToWriteThroughAnAbsoluteLink", 0,
     [](const targets &t) {
       return symlink(t.at("victim").c_str(), "link") == 0 ? try_to_write("link") : 255;
     }},
    {"ToWriteThroughARelativeLink", 0,
     [](const targets &t) {
       return symlink(("../../../../.." + t.at("victim")).c_str(), "link") == 0 ? try_to_write("link") : 255;
     }},
    {"ToWriteThroughAHardLink", 0,
     [](const targets &t) {
       return link(t.at("victim").c_str(), t.at("second").c_str()) == 0 ? try_to_write(t.at("second")) : 255;
     }},
    {"ToLinkAFileOutOfTheView", EXDEV,
     [](const targets &t) { return result_of(link(t.at("victim").c_str(), "second")); }},
    {"ToWriteIntoAFile", 0, [](const targets &t) { return try_to_write(t.at("victim"), O_TRUNC); }},
    {"ToMakeAFile", 0, [](const targets &t) { return try_to_write(t.at("new"), O_CREAT); }},
    {"ToRemoveAFile", 0, [](const targets &t) { return result_of(unlink(t.at("victim").c_str())); }},
    {"ToRenameAFile", 0,
     [](const targets &t) { return result_of(rename(t.at("victim").c_str(), t.at("x").c_str())); }},
    {"ToChangeAMode", 0, [](const targets &t) { return result_of(chmod(t.at("victim").c_str(), 0)); }},
    {"ToChangeAnOwner", 0, [](const targets &t) { return result_of(chown(t.directory.c_str(), 7, 7)); }},
    {"ToSetAnAttribute", 0,
     [](const targets &t) { return result_of(setxattr(t.at("victim").c_str(), "user.escaped", "1", 1, 0)); }},
    {"ToMakeAFileImmutable", EPERM,
     [](const targets &t) {
       int flags = FS_IMMUTABLE_FL;
       return result_of(ioctl(open(t.at("victim").c_str(), O_RDONLY), FS_IOC_SETFLAGS, &flags));
     }},
    {"ToWriteIntoAMountThatCannotBeCovered", EROFS,
     [](const targets &t) { return try_to_write(t.at("bare")); }},
    {"ToChangeAMountThatCannotBeCovered", EROFS,
     [](const targets &t) { return result_of(chmod(t.at("bare").c_str(), 0)); }},
    {"ToOpenAFileByItsNumberThroughItsDirectory", EPERM,
     [](const targets &t) { return try_handle(".", t.victim); }},
    {"ToOpenAFileByItsNumberThroughAMountThatCannotBeCovered", EPERM,
     [](const targets &t) { return try_handle(t.at("bare"), t.victim); }},
    {"ToOpenAFileByItsNumberThroughTheView", EPERM,
     [](const targets &t) { return try_handle("/", t.victim); }},
    {"ToOpenADeviceByItsNumberThroughTheOnlyDevice", EPERM,
     [](const targets &t) { return try_handle("/dev/null", t.device); }},
    {"ToTraceTheParent", ESRCH,
     [](const targets &t) { return result_of(ptrace(PTRACE_SEIZE, t.parent, nullptr, nullptr)); }},
    {"ToWriteIntoTheParent", ESRCH,
     [](const targets &t) {
       char byte = 0;
       const iovec one{&byte, 1};
       return result_of(process_vm_writev(t.parent, &one, 1, &one, 1, 0));
     }},
    {"ToGetAFileOfTheParent", ESRCH,
     [](const targets &t) { return result_of(syscall(SYS_pidfd_open, t.parent, 0)); }},
    {"ToKillTheParent", ESRCH, [](const targets &t) { return result_of(kill(t.parent, SIGKILL)); }},
    {"ToKillAnotherProcess", ESRCH, [](const targets &t) { return result_of(kill(t.bystander, SIGKILL)); }},
    {"ToKillAllProcesses", ESRCH, [](const targets &) { return result_of(kill(-1, 0)); }},
    {"ToEndTheGroupOfTheParent", 0, [](const targets &) { return result_of(kill(0, SIGTERM)); }},
    {"ToSpeakToASocketOfTheDisk", EACCES, [](const targets &t) { return try_to_connect(t.at("socket")); }},
    {"ToSpeakToASocketOnAMountThatCannotBeCovered", EACCES,
     [](const targets &t) { return try_to_connect(t.at("bare_socket")); }},
    {"ToSpeakToASocketWithoutAFile", EACCES,
     [](const targets &t) { return try_to_connect('\0' + t.directory); }},
    {"ToGetPowersFromAProgramWithPowers", 1,
     [](const targets &t) { return shell(t.at("powerful_mknod") + " node c 1 1 || exit 1"); }},
    {"ToGetPowersFromASetuidProgram", 1,
     [](const targets &t) { return shell(t.at("setuid_mknod") + " node c 1 1"); }},
    {"ToMakeADeviceInAShell", 1, [](const targets &) { return shell("mknod node b 7 0"); }},
    {"ToMountInAShell", 32, [](const targets &t) { return shell("mount -t tmpfs t " + t.directory); }},
    {"ToRemountInAShell", 32,
     [](const targets &t) { return shell("mount -o remount,bind,rw " + t.at("bare")); }},
    {"ToLeaveItsRootInAShell", 125, [](const targets &) { return shell("chroot / true"); }},
    {"ToTakeNamespacesInAShell", 1, [](const targets &) { return shell("unshare -Urm true"); }},
    {"ToEnterNamespacesInAShell", 1,
     [](const targets &t) { return shell("nsenter -m -t " + std::to_string(t.parent)); }},
    {"ToKillInAShell", 1, [](const targets &t) { return shell("kill -9 " + std::to_string(t.bystander)); }},
    {"ToWriteInAShell", 0,
     [](const targets &t) {
       return shell("echo escaped >" + t.at("victim") + "; rm " + t.at("block_node"));
     }},
};

void must(long result, const char *what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up (as root): ") + what);
}

void make_node(const std::string &path, mode_t type, unsigned major, unsigned minor) {
  must(mknod(path.c_str(), type | 0666, makedev(major, minor)), "cannot make a device");
}

// A socket that listens, in a file or, where the name begins with a NUL, without one.
int listening(const std::string &name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.data(), name.size());
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  must(bind(file, reinterpret_cast<const sockaddr *>(&address), size), "cannot bind a socket");
  must(listen(file, 4), "cannot listen");
  return file;
}

void mount_itself(const std::string &file) {
  must(mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), "cannot mount a file over itself");
}

// In a mount namespace and a process group of its own. Of each attempt's target one stands in the scratch
// directory.
class Escape : public support::scratch_test, public testing::WithParamInterface<attempt> {
protected:
  Escape() {
    must(setpgid(0, 0), "cannot make a process group");
    must(unshare(CLONE_NEWNS), "cannot make a mount namespace");
    must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "cannot make the mounts private");
    write_file(path("victim"), "victim");
    write_file(path("bare"), "bare");
    make_node(path("block_node"), S_IFBLK, 7, 0);
    make_node(path("memory_node"), S_IFCHR, 1, 1);
    make_node(path("kmsg_node"), S_IFCHR, 1, 11);
    fs::copy_file("/usr/bin/mknod", path("setuid_mknod"));
    fs::permissions(path("setuid_mknod"), fs::perms(04755));
    fs::copy_file("/usr/bin/mknod", path("powerful_mknod"));
    give_powers(path("powerful_mknod"));
    for (const int socket :
         {listening(path("socket")), listening(path("bare_socket")), listening('\0' + scratch().string())})
      sockets_.push_back(socket);
    mount_itself(path("bare"));
    mount_itself(path("bare_socket"));
    directory_ = open(".", O_RDONLY | O_DIRECTORY);
    must(dup2(directory_, inherited), "cannot leave a directory open");
  }
  ~Escape() override {
    for (const int socket : sockets_)
      close(socket);
    close(directory_);
    close(inherited);
    umount2(path("bare").c_str(), MNT_DETACH);
    umount2(path("bare_socket").c_str(), MNT_DETACH);
  }

  static void give_powers(const std::string &program) {
    vfs_cap_data powers{};
    powers.magic_etc = VFS_CAP_REVISION_2 | VFS_CAP_FLAGS_EFFECTIVE;
    powers.data[0].permitted = 1U << CAP_MKNOD;
    must(setxattr(program.c_str(), "security.capability", &powers, sizeof powers, 0),
         "cannot set capabilities");
  }

  void expect_nothing_escapes(const scratch_place &place) {
    support::other_program bystander([] { pause(); });
    const targets aims{scratch().string(), getpid(), bystander.process(), file_handle_of(path("victim")),
                       file_handle_of("/dev/zero")};
    const auto before = state_of_all({scratch(), "/dev/null"});
    {
      const view seen(place);
      const outcome ended =
          run_confined(seen.inside().path, view::run_directory(), [&] { return GetParam().code(aims); });
      EXPECT_EQ(ended.status, GetParam().status)
          << (ended.status < 128 ? std::strerror(ended.status) : "signal") << "\n"
          << ended.output << ended.errors;
    }
    EXPECT_EQ(differences(before, state_of_all({scratch(), "/dev/null"})), "");
    siginfo_t end{};
    must(waitid(P_PID, static_cast<id_t>(bystander.process()), &end, WEXITED | WNOHANG | WNOWAIT),
         "cannot look at the bystander");
    EXPECT_EQ(end.si_pid, 0) << "another process was killed";
  }

private:
  std::vector<int> sockets_;
  int directory_ = -1;
};

} // namespace

TEST_P(Escape, FromAViewInMemoryFails) {
  expect_nothing_escapes({"", room});
}

TEST_P(Escape, FromAViewOnDiskFails) {
  const disk_scratch directory;
  expect_nothing_escapes({directory.path(), room});
}

INSTANTIATE_TEST_SUITE_P(Tries, Escape, testing::ValuesIn(attempts),
                         [](const testing::TestParamInfo<attempt> &one) { return one.param.name; });
