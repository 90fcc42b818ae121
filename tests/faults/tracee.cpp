#include "faults/tracee.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace faults {

namespace {

constexpr unsigned seconds_before_hung = 20;

volatile pid_t watched = 0;
volatile std::sig_atomic_t took_too_long = 0;

[[noreturn]] void broken(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), "set-up: " + what);
}

void kill_the_watched(int) {
  took_too_long = 1;
  kill(watched, SIGKILL);
}

bool stop_at_calls(std::vector<sock_filter> &filter) {
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[noreturn]] void become(const program &what, std::vector<sock_filter> &filter) {
  std::vector<char *> arguments;
  for (const std::string &argument : what.arguments)
    arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  char path[] = "PATH=/usr/bin:/bin";
  char locale[] = "LC_ALL=C";
  char *const environment[] = {path, locale, nullptr};

  const bool ready = chdir(what.directory.c_str()) == 0 && dup2(what.output, STDOUT_FILENO) >= 0 &&
                     dup2(what.output, STDERR_FILENO) >= 0 &&
                     ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
  raise(SIGSTOP); // the tracer sets its options now
  if (ready && stop_at_calls(filter))
    fexecve(what.file, arguments.data(), environment);
  _exit(126);
}

void resume(pid_t stopped, __ptrace_request how, int signal) {
  if (ptrace(how, stopped, nullptr, signal) != 0 && errno != ESRCH)
    broken("letting the program go on");
}

// Reads less where the program's memory ends before. A program that is gone has none.
void read_memory(pid_t stopped, std::uint64_t address, void *bytes, std::size_t most) {
  const std::string memory = "/proc/" + std::to_string(stopped) + "/mem";
  const int file = open(memory.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t got = pread(file, bytes, most, static_cast<off_t>(address));
  if (file < 0 || got == 0)
    errno = ESRCH;
  const int reason = errno;
  close(file);
  errno = reason;
  if (got <= 0)
    broken("cannot read the program's memory");
}

} // namespace

pid_t start_traced(const program &what, std::vector<sock_filter> filter, unsigned long options) {
  const pid_t child = fork();
  if (child < 0)
    broken("fork");
  if (child == 0)
    become(what, filter);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status) ||
      ptrace(PTRACE_SETOPTIONS, child, nullptr, options) != 0)
    broken("tracing the program");
  return child;
}

bool is_event(int status, int event) {
  return status >> 8 == (SIGTRAP | (event << 8));
}

call_info call_of(pid_t stopped) {
  call_info info{};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, stopped, sizeof info, &info) <= 0)
    broken("reading a system call");
  return info;
}

void answer(pid_t stopped, long result) {
  user_regs_struct registers{};
  if (ptrace(PTRACE_GETREGS, stopped, nullptr, &registers) != 0)
    broken("reading registers");
  registers.orig_rax = static_cast<unsigned long long>(-1L);
  registers.rax = static_cast<unsigned long long>(result);
  if (ptrace(PTRACE_SETREGS, stopped, nullptr, &registers) != 0)
    broken("writing registers");
}

void let_go_on(pid_t stopped, int signal) {
  resume(stopped, PTRACE_CONT, signal);
}

void let_finish_call(pid_t stopped) {
  resume(stopped, PTRACE_SYSCALL, 0);
}

std::string text_at(pid_t stopped, std::uint64_t address) {
  std::array<char, 4096> text{};
  read_memory(stopped, address, text.data(), text.size() - 1);
  return text.data();
}

std::uint64_t word_at(pid_t stopped, std::uint64_t address) {
  std::uint64_t word = 0;
  read_memory(stopped, address, &word, sizeof word);
  return word;
}

void start_watching(pid_t child) {
  watched = child;
  took_too_long = 0;
  struct sigaction action {};
  action.sa_handler = kill_the_watched;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, nullptr);
  alarm(seconds_before_hung);
}

bool stop_watching() {
  alarm(0);
  return took_too_long != 0;
}

} // namespace faults
