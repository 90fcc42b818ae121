#include "faults/file_calls.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <linux/seccomp.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <system_error>

namespace faults {

namespace {

// Where a call says which file it is about.
enum class subject { path, path_below_descriptor, descriptor, nothing };

struct call_kind {
  long number;
  const char *name;
  subject about;
  std::size_t argument; // of the path or of the descriptor
};

constexpr call_kind file_calls[] = {
    {SYS_open, "open", subject::path, 0},
    {SYS_openat, "openat", subject::path, 1},
    {SYS_creat, "creat", subject::path, 0},
    {SYS_close, "close", subject::descriptor, 0},
    {SYS_read, "read", subject::descriptor, 0},
    {SYS_readv, "readv", subject::descriptor, 0},
    {SYS_pread64, "pread64", subject::descriptor, 0},
    {SYS_write, "write", subject::descriptor, 0},
    {SYS_writev, "writev", subject::descriptor, 0},
    {SYS_pwrite64, "pwrite64", subject::descriptor, 0},
    {SYS_lseek, "lseek", subject::descriptor, 0},
    {SYS_fsync, "fsync", subject::descriptor, 0},
    {SYS_fdatasync, "fdatasync", subject::descriptor, 0},
    {SYS_ftruncate, "ftruncate", subject::descriptor, 0},
    {SYS_truncate, "truncate", subject::path, 0},
    {SYS_fcntl, "fcntl", subject::descriptor, 0},
    {SYS_ioctl, "ioctl", subject::descriptor, 0},
    {SYS_sendfile, "sendfile", subject::descriptor, 0},
    {SYS_copy_file_range, "copy_file_range", subject::descriptor, 2},
    {SYS_getdents64, "getdents64", subject::descriptor, 0},
    {SYS_stat, "stat", subject::path, 0},
    {SYS_lstat, "lstat", subject::path, 0},
    {SYS_fstat, "fstat", subject::descriptor, 0},
    {SYS_newfstatat, "newfstatat", subject::path_below_descriptor, 1},
    {SYS_statx, "statx", subject::path_below_descriptor, 1},
    {SYS_readlink, "readlink", subject::path, 0},
    {SYS_readlinkat, "readlinkat", subject::path, 1},
    {SYS_access, "access", subject::path, 0},
    {SYS_faccessat, "faccessat", subject::path, 1},
    {SYS_faccessat2, "faccessat2", subject::path, 1},
    {SYS_chmod, "chmod", subject::path, 0},
    {SYS_fchmod, "fchmod", subject::descriptor, 0},
    {SYS_fchmodat, "fchmodat", subject::path, 1},
    {SYS_mkdir, "mkdir", subject::path, 0},
    {SYS_mkdirat, "mkdirat", subject::path, 1},
    {SYS_rmdir, "rmdir", subject::path, 0},
    {SYS_unlink, "unlink", subject::path, 0},
    {SYS_unlinkat, "unlinkat", subject::path, 1},
    {SYS_rename, "rename", subject::path, 1},
    {SYS_renameat, "renameat", subject::path, 3},
    {SYS_renameat2, "renameat2", subject::path, 3},
    {SYS_link, "link", subject::path, 1},
    {SYS_linkat, "linkat", subject::path, 3},
    {SYS_symlink, "symlink", subject::path, 1},
    {SYS_symlinkat, "symlinkat", subject::path, 2},
    {SYS_utimensat, "utimensat", subject::path_below_descriptor, 1},
    {SYS_openat2, "openat2", subject::path, 1},
    {SYS_chown, "chown", subject::path, 0},
    {SYS_fchown, "fchown", subject::descriptor, 0},
    {SYS_fchownat, "fchownat", subject::path, 1},
    {SYS_syncfs, "syncfs", subject::descriptor, 0},
    {SYS_flock, "flock", subject::descriptor, 0},
    {SYS_statfs, "statfs", subject::path, 0},
    {SYS_getxattr, "getxattr", subject::path, 0},
    {SYS_lgetxattr, "lgetxattr", subject::path, 0},
    {SYS_fgetxattr, "fgetxattr", subject::descriptor, 0},
    {SYS_flistxattr, "flistxattr", subject::descriptor, 0},
    {SYS_setxattr, "setxattr", subject::path, 0},
    {SYS_fsetxattr, "fsetxattr", subject::descriptor, 0},
    {SYS_fremovexattr, "fremovexattr", subject::descriptor, 0},
    {SYS_memfd_create, "memfd_create", subject::path, 0},
    {SYS_dup, "dup", subject::descriptor, 0},
    {SYS_chdir, "chdir", subject::path, 0},
    {SYS_fchdir, "fchdir", subject::descriptor, 0},
    {SYS_chroot, "chroot", subject::path, 0},
    {SYS_close_range, "close_range", subject::nothing, 0},
    {SYS_unshare, "unshare", subject::nothing, 0},
    {SYS_setns, "setns", subject::descriptor, 0},
    {SYS_capset, "capset", subject::nothing, 0},
    {SYS_mount, "mount", subject::path, 1},
    {SYS_open_tree, "open_tree", subject::path, 1},
    {SYS_move_mount, "move_mount", subject::path, 3},
    {SYS_mount_setattr, "mount_setattr", subject::nothing, 0},
    {SYS_fsopen, "fsopen", subject::path, 0},
    {SYS_fsconfig, "fsconfig", subject::descriptor, 0},
    {SYS_fsmount, "fsmount", subject::descriptor, 0},
};

constexpr long waits[] = {SYS_nanosleep, SYS_clock_nanosleep};

constexpr std::uint32_t ip_high_word = offsetof(seccomp_data, instruction_pointer) + 4;

std::string open_file_at(pid_t program, std::uint64_t descriptor) {
  std::error_code not_open;
  const std::string link = "/proc/" + std::to_string(program) + "/fd/" + std::to_string(descriptor);
  return std::filesystem::read_symlink(link, not_open).string();
}

std::string subject_of(pid_t program, const call_kind &kind, const call_info &info) {
  const auto &arguments = info.seccomp.args;
  if (kind.about == subject::nothing)
    return "";
  if (kind.about == subject::descriptor)
    return open_file_at(program, arguments[kind.argument]);
  const std::uint64_t address = arguments[kind.argument];
  const std::string path = address == 0 ? "" : text_at(program, address);
  return path.empty() && kind.about == subject::path_below_descriptor ? open_file_at(program, arguments[0])
                                                                      : path;
}

// Jumps over `skipped` instructions when the loaded word is another one.
sock_filter unless_equal(std::uint32_t word, std::uint8_t skipped) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, word, 0, skipped);
}

std::vector<sock_filter> filter_of(const std::vector<long> &numbers) {
  const sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
  const sock_filter stop = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE);
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, ip_high_word),
                                     BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0), allow,
                                     BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const long number : numbers) {
    filter.push_back(unless_equal(static_cast<std::uint32_t>(number), 1));
    filter.push_back(stop);
  }
  filter.push_back(allow);
  return filter;
}

} // namespace

bool is_wait(long number) {
  return std::find(std::begin(waits), std::end(waits), number) != std::end(waits);
}

file_call describe_call(pid_t program, const call_info &info) {
  const auto number = static_cast<long>(info.seccomp.nr);
  const call_kind *const kind = std::find_if(std::begin(file_calls), std::end(file_calls),
                                             [number](const call_kind &k) { return k.number == number; });
  if (kind == std::end(file_calls))
    throw std::runtime_error("set-up: the filter stopped at call number " + std::to_string(number));
  const bool creates = number == SYS_openat && (info.seccomp.args[2] & (O_CREAT | O_TRUNC)) != 0;
  return {number, kind->name, subject_of(program, *kind, info), creates};
}

std::vector<sock_filter> file_call_filter() {
  std::vector<long> numbers(std::begin(waits), std::end(waits));
  for (const call_kind &kind : file_calls)
    numbers.push_back(kind.number);
  return filter_of(numbers);
}

std::vector<sock_filter> wait_filter() {
  return filter_of({std::begin(waits), std::end(waits)});
}

} // namespace faults
