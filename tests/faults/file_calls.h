// The system calls by which a program touches files.
#pragma once

#include "faults/tracee.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace faults {

// One call as it stands when the program has asked for it and it has not been carried out.
struct file_call {
  long number = 0;
  std::string name;
  std::string path;     // what it names, or what its descriptor is open on
  bool creates = false; // an open that makes or empties a file
};

bool is_wait(long number);

// The call that a stopped program is about to make.
file_call describe_call(pid_t program, const call_info &info);

// A seccomp filter that stops for a tracer at every file call and every wait of a program that is linked at a
// fixed address below 4 GB. The shell and the tools that it runs stand far above that and are not stopped:
// without a tracer of their own, their calls would fail.
std::vector<sock_filter> file_call_filter();

// The same for its waits alone.
std::vector<sock_filter> wait_filter();

} // namespace faults
