#include "faults/traced_run.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
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

void watch(pid_t child) {
  watched = child;
  took_too_long = 0;
  struct sigaction action {};
  action.sa_handler = kill_the_watched;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, nullptr);
  alarm(seconds_before_hung);
}

bool stop_at_file_calls() {
  std::vector<sock_filter> filter = file_call_filter();
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[noreturn]] void become(const program &what) {
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
  if (ready && stop_at_file_calls())
    fexecve(what.file, arguments.data(), environment);
  _exit(126);
}

int wait_for(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child)
    broken("waiting for the program");
  return status;
}

pid_t start(const program &what) {
  const pid_t child = fork();
  if (child < 0)
    broken("fork");
  if (child == 0)
    become(what);
  if (!WIFSTOPPED(wait_for(child)) ||
      ptrace(PTRACE_SETOPTIONS, child, nullptr,
             PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEEXEC) != 0)
    broken("tracing the program");
  return child;
}

bool is_event(int status, int event) {
  return status >> 8 == (SIGTRAP | (event << 8));
}

// The call that the program is stopped at is not carried out and gives `result`.
void answer(pid_t child, long result) {
  user_regs_struct registers{};
  if (ptrace(PTRACE_GETREGS, child, nullptr, &registers) != 0)
    broken("reading registers");
  registers.orig_rax = static_cast<unsigned long long>(-1L);
  registers.rax = static_cast<unsigned long long>(result);
  if (ptrace(PTRACE_SETREGS, child, nullptr, &registers) != 0)
    broken("writing registers");
}

call_info call_of(pid_t child) {
  call_info info{};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0)
    broken("reading a system call");
  return info;
}

void disturb(pid_t child, const disturbance &how) {
  if (how.error == 0)
    kill(child, SIGKILL);
  else
    answer(child, -how.error);
}

void at_call(pid_t child, const disturbance &how, const call_observer &observer, traced_outcome &outcome) {
  const call_info info = call_of(child);
  const auto number = static_cast<long>(info.seccomp.nr);
  if (is_wait(number)) {
    answer(child, 0);
    return;
  }
  ++outcome.calls;
  if (observer)
    observer(describe_call(child, info));
  if (outcome.calls == how.at_call)
    outcome.disturbed_number = number;
  else if (!how.lasting || number != outcome.disturbed_number)
    return;
  disturb(child, how);
}

// A program that was killed meanwhile is gone already; its end is seen by the next wait.
void let_go_on(pid_t child, int signal) {
  if (ptrace(PTRACE_CONT, child, nullptr, signal) != 0 && errno != ESRCH)
    broken("letting the program go on");
}

} // namespace

traced_outcome run_traced(const program &what, const disturbance &how, const call_observer &observer) {
  traced_outcome outcome;
  const pid_t child = start(what);
  watch(child);
  let_go_on(child, 0);
  int status = wait_for(child);
  for (; WIFSTOPPED(status); status = wait_for(child)) {
    if (is_event(status, PTRACE_EVENT_SECCOMP))
      at_call(child, how, observer, outcome);
    const bool is_signal = status >> 16 == 0;
    let_go_on(child, is_signal ? WSTOPSIG(status) : 0);
  }
  alarm(0);
  outcome.hung = took_too_long != 0;
  if (WIFEXITED(status))
    outcome.status = WEXITSTATUS(status);
  else
    outcome.signal = WTERMSIG(status);
  return outcome;
}

} // namespace faults
