#include "faults/changing_calls.h"

#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <iterator>
#include <linux/fs.h>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <system_error>

namespace faults {

namespace fs = std::filesystem;

namespace {

constexpr int no_argument = -1;

// Which arguments say where a path begins, and the path. Without a descriptor it begins in the current
// directory.
struct path_arguments {
  int descriptor = no_argument;
  int path = no_argument;
};

struct call_kind {
  long number;
  const char *name;
  effect does;
  int descriptor = no_argument; // the argument that is open on what the call is about
  path_arguments first = {};
  path_arguments second = {};
};

constexpr call_kind changing_calls[] = {
    {SYS_open, "open", effect::opens, no_argument, {no_argument, 0}},
    {SYS_creat, "creat", effect::opens, no_argument, {no_argument, 0}},
    {SYS_openat, "openat", effect::opens, no_argument, {0, 1}},
    {SYS_openat2, "openat2", effect::opens, no_argument, {0, 1}},
    {SYS_write, "write", effect::writes, 0},
    {SYS_writev, "writev", effect::writes, 0},
    {SYS_pwrite64, "pwrite64", effect::writes, 0},
    {SYS_pwritev, "pwritev", effect::writes, 0},
    {SYS_pwritev2, "pwritev2", effect::writes, 0},
    {SYS_ftruncate, "ftruncate", effect::writes, 0},
    {SYS_fallocate, "fallocate", effect::writes, 0},
    {SYS_sendfile, "sendfile", effect::writes, 0},
    {SYS_splice, "splice", effect::writes, 2},
    {SYS_copy_file_range, "copy_file_range", effect::writes, 2},
    {SYS_ioctl, "ioctl", effect::writes, 0},
    {SYS_truncate, "truncate", effect::truncates, no_argument, {no_argument, 0}},
    {SYS_mkdir, "mkdir", effect::makes, no_argument, {no_argument, 0}},
    {SYS_mkdirat, "mkdirat", effect::makes, no_argument, {0, 1}},
    {SYS_mknod, "mknod", effect::makes, no_argument, {no_argument, 0}},
    {SYS_mknodat, "mknodat", effect::makes, no_argument, {0, 1}},
    {SYS_symlink, "symlink", effect::makes, no_argument, {no_argument, 1}},
    {SYS_symlinkat, "symlinkat", effect::makes, no_argument, {1, 2}},
    {SYS_link, "link", effect::names, no_argument, {no_argument, 1}},
    {SYS_linkat, "linkat", effect::names, no_argument, {2, 3}},
    {SYS_unlink, "unlink", effect::names, no_argument, {no_argument, 0}},
    {SYS_unlinkat, "unlinkat", effect::names, no_argument, {0, 1}},
    {SYS_rmdir, "rmdir", effect::names, no_argument, {no_argument, 0}},
    {SYS_rename, "rename", effect::names, no_argument, {no_argument, 1}, {no_argument, 0}},
    {SYS_renameat, "renameat", effect::names, no_argument, {2, 3}, {0, 1}},
    {SYS_renameat2, "renameat2", effect::names, no_argument, {2, 3}, {0, 1}},
    {SYS_fsync, "fsync", effect::flushes, 0},
    {SYS_fdatasync, "fdatasync", effect::flushes, 0},
    {SYS_syncfs, "syncfs", effect::flushes_all, 0},
    {SYS_sync, "sync", effect::flushes_all},
    {SYS_close, "close", effect::harmless, 0},
    {SYS_chmod, "chmod", effect::harmless, no_argument, {no_argument, 0}},
    {SYS_fchmod, "fchmod", effect::harmless, 0},
    {SYS_fchmodat, "fchmodat", effect::harmless, no_argument, {0, 1}},
    {SYS_nanosleep, "nanosleep", effect::waits},
    {SYS_clock_nanosleep, "clock_nanosleep", effect::waits},
};

const call_kind &kind_of(long number) {
  const call_kind *const kind = std::find_if(std::begin(changing_calls), std::end(changing_calls),
                                             [number](const call_kind &k) { return k.number == number; });
  if (kind == std::end(changing_calls))
    throw std::runtime_error("set-up: the filter stopped at call number " + std::to_string(number));
  return *kind;
}

std::string process_dir(pid_t program) {
  return "/proc/" + std::to_string(program) + "/";
}

fs::path start_of_path(pid_t program, const path_arguments &where, const std::uint64_t *arguments) {
  if (where.descriptor == no_argument || static_cast<int>(arguments[where.descriptor]) == AT_FDCWD)
    return process_dir(program) + "cwd";
  return descriptor_path(program, arguments[where.descriptor]);
}

named_path path_of(pid_t program, const path_arguments &where, const std::uint64_t *arguments) {
  std::string text = text_at(program, arguments[where.path]);
  while (text.size() > 1 && text.ends_with('/'))
    text.pop_back();
  const fs::path path = text.starts_with('/') ? fs::path(process_dir(program) + "root" + text)
                                              : start_of_path(program, where, arguments) / text;
  return {path, look_behind(path.parent_path()), look_behind(path)};
}

// Paths as people know them; what cannot be told stays as it is.
std::string shown_descriptor(const fs::path &descriptor) {
  std::error_code unknown;
  const fs::path open_on = fs::read_symlink(descriptor, unknown);
  return (unknown ? descriptor : open_on).string();
}

std::string shown_path(const fs::path &path) {
  std::error_code unknown;
  const fs::path directory = fs::canonical(path.parent_path(), unknown);
  return (unknown ? path : directory / path.filename()).string();
}

std::uint64_t open_flags(pid_t program, const call_kind &kind, const std::uint64_t *arguments) {
  switch (kind.number) {
  case SYS_open:
    return arguments[1];
  case SYS_openat:
    return arguments[2];
  case SYS_openat2:
    return word_at(program, arguments[2] + offsetof(open_how, flags));
  case SYS_creat:
    return O_CREAT | O_TRUNC;
  default:
    return 0;
  }
}

// Of the many requests to devices and files, two write.
effect effect_of(const call_kind &kind, const std::uint64_t *arguments) {
  if (kind.number == SYS_ioctl && arguments[1] != FICLONE && arguments[1] != FICLONERANGE)
    return effect::harmless;
  return kind.does;
}

seen_file seen(int failed, const struct stat &status) {
  return failed != 0 ? seen_file{} : seen_file{true, {status.st_dev, status.st_ino}, status.st_mode};
}

} // namespace

seen_file look_at(const fs::path &path) {
  struct stat status {};
  const int failed = lstat(path.c_str(), &status);
  return seen(failed, status);
}

seen_file look_behind(const fs::path &path) {
  struct stat status {};
  const int failed = stat(path.c_str(), &status);
  return seen(failed, status);
}

fs::path descriptor_path(pid_t program, std::uint64_t descriptor) {
  return process_dir(program) + "fd/" + std::to_string(static_cast<int>(descriptor));
}

std::vector<sock_filter> changing_call_filter() {
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const call_kind &kind : changing_calls) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(kind.number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return filter;
}

started_call start_of_call(pid_t program) {
  const call_info info = call_of(program);
  std::uint64_t arguments[6] = {};
  std::ranges::copy(info.seccomp.args, arguments);
  const call_kind &kind = kind_of(static_cast<long>(info.seccomp.nr));

  started_call call = {effect_of(kind, arguments),          kind.name, {}, {}, {},
                       open_flags(program, kind, arguments)};
  if (kind.descriptor != no_argument) {
    call.descriptor = descriptor_path(program, arguments[kind.descriptor]);
    call.subject = look_behind(call.descriptor);
    call.text += " " + shown_descriptor(call.descriptor);
  }
  for (const path_arguments &where : {kind.first, kind.second})
    if (where.path != no_argument) {
      call.paths.push_back(path_of(program, where, arguments));
      call.text += " " + shown_path(call.paths.back().path);
    }
  return call;
}

} // namespace faults
