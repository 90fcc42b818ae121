// Running a program with one of its file calls disturbed.
#pragma once

#include "faults/file_calls.h"
#include "faults/tracee.h"

#include <functional>

namespace faults {

// What happens at the `at_call`-th file call of a run, counted from 1; 0 is never. That call is not carried
// out: it fails with `error`, or, where that is 0, the program is killed. A lasting error also befalls every
// later call of that system call.
struct disturbance {
  long at_call = 0;
  int error = 0;
  bool lasting = false;
};

struct traced_outcome {
  int status = -1;            // the exit status; never set for a death by signal
  int signal = 0;             // the signal that killed it, or 0
  bool hung = false;          // it was killed because it took too long
  long calls = 0;             // the file calls that it asked for
  long disturbed_number = -1; // the number of the system call that was disturbed
};

using call_observer = std::function<void(const file_call &)>;

// Runs the program to its end. Its waits are answered at once; the programs that it starts run undisturbed.
// The observer, if any, is told of every file call before it is made.
traced_outcome run_traced(const program &what, const disturbance &how, const call_observer &observer = {});

} // namespace faults
