// A program that stops at those of its calls that a filter names, for the calling process to look at.
#pragma once

#include <cstdint>
#include <linux/filter.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <vector>

namespace faults {

struct program {
  int file = -1;                      // open on the executable, which need not have a path any more
  std::vector<std::string> arguments; // from its name on
  std::string directory;              // its current directory
  int output = -1;                    // for both of its output streams
};

using call_info = __ptrace_syscall_info; // as the tracer sees a call that a program stopped at

// Starts the program as a child that is stopped before its first instruction, with these PTRACE_O_ options
// and a small environment. Throws, as all functions here do, when the system does not let it.
pid_t start_traced(const program &what, std::vector<sock_filter> filter, unsigned long options);

// Whether a child's status says that it stopped for this PTRACE_EVENT_.
bool is_event(int status, int event);

// The call that a stopped program is about to make, or has made.
call_info call_of(pid_t stopped);

// The call that the program is about to make is not carried out and gives `result`.
void answer(pid_t stopped, long result);

// Lets it run up to its next stop, or to the end of the call that it is about to make. A program that was
// killed meanwhile is gone already; its end is seen by the next wait.
void let_go_on(pid_t stopped, int signal);
void let_finish_call(pid_t stopped);

// The text that stands at an address of the program: up to its NUL, at most 4,095 bytes.
std::string text_at(pid_t stopped, std::uint64_t address);
std::uint64_t word_at(pid_t stopped, std::uint64_t address);

// Kills the program when it takes too long. The second one ends that, and tells whether it had to.
void start_watching(pid_t child);
bool stop_watching();

} // namespace faults
