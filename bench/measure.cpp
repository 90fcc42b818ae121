// measure time COMMAND...: runs the command and prints the CPU seconds (user and system, of all its
// processes) and the wall seconds.
//
// measure count COMMAND...: runs the command step by step, which takes longer, and prints how many processes
// it took, itself included, the system calls that they made, the peak of the command's own resident memory
// and that of the largest other process, in KiB. What a process held before its last exec does not count.
//
// The command's standard output is dropped. When the command fails, so does this: when it ends with another
// status than 0, or than N where --status N stands before the command.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace {

[[noreturn]] void fail(const char *what) {
  std::perror(what);
  std::exit(2);
}

// Every system call of this process and of its children stops for the tracer.
void stop_at_system_calls() {
  sock_filter instruction = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE);
  const sock_fprog filter{.len = 1, .filter = &instruction};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
    _exit(126);
}

// A child that starts its command only when the other end of its pipe is closed, so that it can be seized
// before.
struct held_child {
  pid_t id;
  int release;
};

held_child start_held(char **command, bool traced) {
  int hold[2];
  if (pipe2(hold, O_CLOEXEC) != 0)
    fail("measure: pipe");
  const pid_t child = fork();
  if (child < 0)
    fail("measure: fork");
  if (child == 0) {
    close(hold[1]);
    char byte = 0;
    if (read(hold[0], &byte, 1) < 0 || std::freopen("/dev/null", "w", stdout) == nullptr)
      _exit(126);
    if (traced)
      stop_at_system_calls();
    execvp(command[0], command);
    _exit(127);
  }
  close(hold[0]);
  return {child, hold[1]};
}

double seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

int time_command(char **command) {
  const held_child child = start_held(command, false);
  const double start = now();
  close(child.release);
  int status = 0;
  rusage usage{};
  if (wait4(child.id, &status, 0, &usage) < 0)
    fail("measure: wait4");
  std::printf("%.6f %.6f\n", seconds(usage.ru_utime) + seconds(usage.ru_stime), now() - start);
  return status;
}

// Readable while the process still stands at its exit.
long peak_memory(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string word; file >> word;)
    if (long peak = 0; word == "VmHWM:" && file >> peak)
      return peak;
  return 0;
}

struct counts {
  bool started = false; // the command's own exec is done
  long processes = 1;
  long calls = 0;
  long own_peak = 0;
  long other_peak = 0;
};

// Counts what a stop stands for. Returns the signal to hand on to the process.
int count_stop(pid_t process, pid_t root, int status, counts &total) {
  const int event = status >> 16;
  total.calls += event == PTRACE_EVENT_SECCOMP;
  total.processes += event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_VFORK;
  if (event == PTRACE_EVENT_EXEC && !total.started)
    total = {.started = true, .calls = 1};
  if (event == PTRACE_EVENT_EXIT) {
    long &peak = process == root ? total.own_peak : total.other_peak;
    peak = std::max(peak, peak_memory(process));
  }
  return event == 0 ? WSTOPSIG(status) : 0;
}

int count_command(char **command) {
  const held_child child = start_held(command, true);
  const long options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                       PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL;
  if (ptrace(PTRACE_SEIZE, child.id, nullptr, options) != 0)
    fail("measure: ptrace");
  close(child.release);

  counts total;
  int root_status = 0;
  int status = 0;
  for (pid_t process = waitpid(-1, &status, __WALL); process > 0; process = waitpid(-1, &status, __WALL))
    if (WIFSTOPPED(status))
      ptrace(PTRACE_CONT, process, nullptr, count_stop(process, child.id, status, total));
    else if (process == child.id)
      root_status = status;
  std::printf("%ld %ld %ld %ld\n", total.processes, total.calls, total.own_peak, total.other_peak);
  return root_status;
}

} // namespace

int main(int argc, char **argv) {
  const bool times = argc > 2 && std::strcmp(argv[1], "time") == 0;
  const bool has_status = argc > 4 && std::strcmp(argv[2], "--status") == 0;
  if (!times && (argc < 3 || std::strcmp(argv[1], "count") != 0)) {
    std::fprintf(stderr, "usage: measure time|count [--status N] COMMAND...\n");
    return 2;
  }
  char **const command = has_status ? argv + 4 : argv + 2;
  const int expected = has_status ? std::atoi(argv[3]) : 0;
  const int status = times ? time_command(command) : count_command(command);
  if (WIFEXITED(status) && WEXITSTATUS(status) == expected)
    return 0;
  std::fprintf(stderr, "measure: %s ended with wait status %d\n", command[0], status);
  return 1;
}
