#include "support/disturbance.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <new>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace support {

namespace {

constexpr int nothing_yet = -1;
constexpr int got_it = -2;

int checked(long result, const char *what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up: ") + what);
  return static_cast<int>(result);
}

// The number of the file on which the kernel asks.
int ask_about(long number) {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
  checked(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no new privileges");
  return checked(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program),
                 "seccomp");
}

int file_of_parent(int file) {
  const int parent = checked(syscall(SYS_pidfd_open, getppid(), 0), "pidfd_open");
  return checked(syscall(SYS_pidfd_getfd, parent, file, 0), "pidfd_getfd");
}

// False when nobody is left who could ask.
bool waits_for_question(int file) {
  pollfd question{file, POLLIN, 0};
  while (poll(&question, 1, -1) < 0 && errno == EINTR) {
  }
  return (question.revents & POLLIN) != 0;
}

void answer(int file, const seccomp_notif &asked, int error) {
  seccomp_notif_resp told{};
  told.id = asked.id;
  if (error != 0)
    told.error = -error;
  else
    told.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  ioctl(file, SECCOMP_IOCTL_NOTIF_SEND, &told);
}

[[noreturn]] void answer_all(int file, const disturbance &how) {
  for (int count = 1; waits_for_question(file);) {
    seccomp_notif asked{};
    if (ioctl(file, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0)
      continue; // who asked was killed meanwhile
    const bool is_disturbed = how.when(count++);
    if (is_disturbed)
      how.deed();
    answer(file, asked, is_disturbed ? how.error : 0);
  }
  _exit(0);
}

// Another process, which is under no filter itself.
[[noreturn]] void help(std::atomic<int> &file, const disturbance &how) {
  alarm(110);
  try {
    while (file == nothing_yet)
      usleep(1000);
    const int mine = file_of_parent(file);
    file = got_it;
    answer_all(mine, how);
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    file = got_it;
    _exit(1);
  }
}

} // namespace

void disturb(const disturbance &how) {
  // The filter stands when the number is told: to tell it must take no call.
  void *const shared = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED)
    throw std::system_error(errno, std::generic_category(), "test set-up: mmap");
  auto *const file = new (shared) std::atomic<int>(nothing_yet);
  if (checked(fork(), "fork") == 0)
    help(*file, how);
  *file = ask_about(how.number);
  while (*file != got_it)
    sched_yield();
}

} // namespace support
