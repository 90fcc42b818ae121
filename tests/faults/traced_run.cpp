#include "faults/traced_run.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <system_error>

namespace faults {

namespace {

int wait_for(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child)
    throw std::system_error(errno, std::generic_category(), "set-up: waiting for the program");
  return status;
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

} // namespace

traced_outcome run_traced(const program &what, const disturbance &how, const call_observer &observer) {
  traced_outcome outcome;
  const pid_t child =
      start_traced(what, file_call_filter(), PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEEXEC);
  start_watching(child);
  let_go_on(child, 0);
  int status = wait_for(child);
  for (; WIFSTOPPED(status); status = wait_for(child)) {
    if (is_event(status, PTRACE_EVENT_SECCOMP))
      at_call(child, how, observer, outcome);
    const bool is_signal = status >> 16 == 0;
    let_go_on(child, is_signal ? WSTOPSIG(status) : 0);
  }
  outcome.hung = stop_watching();
  if (WIFEXITED(status))
    outcome.status = WEXITSTATUS(status);
  else
    outcome.signal = WTERMSIG(status);
  return outcome;
}

} // namespace faults
