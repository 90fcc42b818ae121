#include "support/surroundings.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <grp.h>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <system_error>
#include <unistd.h>

namespace support {

namespace {

constexpr uid_t nobody = 65534;

// The result of a system call that must not fail.
int checked(int result, const char *what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up: ") + what);
  return result;
}

} // namespace

captured_stderr::captured_stderr()
    : previous_(checked(dup(STDERR_FILENO), "dup")),
      file_(checked(open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600), "a file for standard error")) {
  std::fflush(stderr);
  checked(dup2(file_, STDERR_FILENO), "dup2");
}

captured_stderr::~captured_stderr() {
  std::fflush(stderr);
  dup2(previous_, STDERR_FILENO);
  close(previous_);
  close(file_);
}

std::string captured_stderr::text() const {
  std::fflush(stderr);
  std::string result(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
  if (pread(file_, result.data(), result.size(), 0) != static_cast<ssize_t>(result.size()))
    throw std::system_error(errno, std::generic_category(), "test set-up: cannot read standard error");
  return result;
}

// The saved ids stay root's, for the way back. A shell would drop an effective id that is not the real one.
other_user::other_user() {
  checked(setgroups(0, nullptr), "setgroups");
  checked(setresgid(nobody, nobody, 0), "setresgid");
  checked(setresuid(nobody, nobody, 0), "setresuid");
}

other_user::~other_user() {
  if (setresuid(0, 0, 0) != 0 || setresgid(0, 0, 0) != 0)
    std::perror("test set-up: cannot become root again");
}

other_root::other_root(const std::filesystem::path &directory)
    : previous_directory_(std::filesystem::current_path()),
      previous_root_(checked(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "open /")) {
  checked(chroot(directory.c_str()), "chroot");
  checked(chdir("/"), "chdir");
}

other_root::~other_root() {
  if (fchdir(previous_root_) != 0 || chroot(".") != 0 || chdir(previous_directory_.c_str()) != 0)
    std::perror("test set-up: cannot leave the other root");
  close(previous_root_);
}

file_size_limit::file_size_limit(rlim_t bytes) : previous_action_(std::signal(SIGXFSZ, SIG_IGN)) {
  checked(getrlimit(RLIMIT_FSIZE, &previous_), "getrlimit");
  const rlimit limit{bytes, previous_.rlim_max};
  checked(setrlimit(RLIMIT_FSIZE, &limit), "setrlimit");
}

file_size_limit::~file_size_limit() {
  setrlimit(RLIMIT_FSIZE, &previous_);
  std::signal(SIGXFSZ, previous_action_);
}

void file_size_limit::lift() {
  checked(setrlimit(RLIMIT_FSIZE, &previous_), "setrlimit");
}

void fail_system_call(long number, int error, std::uint32_t limit) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, limit, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
  checked(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no new privileges");
  checked(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), "seccomp");
}

int files_left_open(const std::function<void()> &action) {
  const auto count = [] {
    const std::filesystem::directory_iterator open_files("/proc/self/fd");
    return static_cast<int>(std::distance(begin(open_files), end(open_files)));
  };
  const int before = count();
  action();
  return count() - before;
}

double seconds_taken(const std::function<void()> &action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace support
