#include "admin_faults/family_run.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <iterator>
#include <set>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>

namespace faults {

namespace {

constexpr long space_takers[] = {SYS_write,     SYS_writev,    SYS_pwrite64, SYS_copy_file_range,
                                 SYS_sendfile,  SYS_mkdir,     SYS_mkdirat,  SYS_symlink,
                                 SYS_symlinkat, SYS_link,      SYS_linkat,   SYS_fallocate,
                                 SYS_setxattr,  SYS_fsetxattr, SYS_rename,   SYS_renameat};

struct family {
  const family_disturbance &how;
  const family_observer &observer;
  pid_t first;
  std::set<pid_t> alive;
  family_outcome outcome;
};

bool takes_space(const call_info &info) {
  const auto number = static_cast<long>(info.seccomp.nr);
  return std::find(std::begin(space_takers), std::end(space_takers), number) != std::end(space_takers) ||
         (number == SYS_openat && (info.seccomp.args[2] & O_CREAT) != 0);
}

bool fails_too(const family &all, const call_info &info) {
  if (all.outcome.disturbed_number < 0 || all.how.how_long == lasting::no)
    return false;
  return all.how.how_long == lasting::all_calls || takes_space(info);
}

void send_all(const family &all, int signal) {
  for (const pid_t process : all.alive)
    kill(process, signal);
}

void strike(const family &all, pid_t caller) {
  switch (all.how.how) {
  case blow::fails:
    return answer(caller, -all.how.number);
  case blow::kills_all:
    return send_all(all, SIGKILL);
  case blow::kills_first:
    kill(all.first, SIGKILL);
    return;
  case blow::kills_caller:
    kill(caller, SIGKILL);
    return;
  case blow::kills_others:
    for (const pid_t process : all.alive)
      if (process != all.first && process != caller)
        kill(process, SIGKILL);
    return;
  case blow::asks_to_end:
    return send_all(all, all.how.number);
  }
}

void at_call(family &all, pid_t caller) {
  const call_info info = call_of(caller);
  const auto number = static_cast<long>(info.seccomp.nr);
  if (is_wait(number))
    return answer(caller, 0);
  ++all.outcome.calls;
  if (all.observer)
    all.observer({describe_call(caller, info), caller != all.first});
  if (all.outcome.calls == all.how.at_call) {
    all.outcome.disturbed_number = number;
    strike(all, caller);
  } else if (fails_too(all, info)) {
    answer(caller, -all.how.number);
  }
}

// A process that was killed while it was stopped is gone at once; its end is seen by the next wait.
void at_call_unless_gone(family &all, pid_t caller) {
  try {
    at_call(all, caller);
  } catch (const std::system_error &problem) {
    if (problem.code() != std::errc::no_such_process)
      throw;
  }
}

// A process that has just been made stops once, by a signal that is not for it.
void at_stop(family &all, pid_t process, int status) {
  const bool is_new = all.alive.insert(process).second;
  const bool is_signal = status >> 16 == 0;
  if (is_event(status, PTRACE_EVENT_SECCOMP))
    at_call_unless_gone(all, process);
  const int signal = is_signal && !(is_new && WSTOPSIG(status) == SIGSTOP) ? WSTOPSIG(status) : 0;
  let_go_on(process, signal);
}

void at_end(family &all, pid_t process, int status) {
  all.alive.erase(process);
  if (process != all.first)
    return;
  if (WIFEXITED(status))
    all.outcome.status = WEXITSTATUS(status);
  else
    all.outcome.signal = WTERMSIG(status);
}

} // namespace

family_outcome run_family(const program &what, const family_disturbance &how,
                          const family_observer &observer) {
  const pid_t first = start_traced(what, file_call_filter(),
                                   PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEEXEC |
                                       PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE);
  family all{how, observer, first, {first}, {}};
  start_watching(first);
  let_go_on(first, 0);
  int status = 0;
  for (pid_t process = 0; (process = waitpid(-1, &status, __WALL)) > 0;)
    if (WIFSTOPPED(status))
      at_stop(all, process, status);
    else
      at_end(all, process, status);
  all.outcome.hung = stop_watching();
  return all.outcome;
}

} // namespace faults
