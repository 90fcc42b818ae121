// Running a program and the processes that it forks, with one of their file calls disturbed.
#pragma once

#include "faults/file_calls.h"
#include "faults/tracee.h"

#include <csignal>
#include <functional>

namespace faults {

// What befalls the caller and its family when it asks for a call, which is then not carried out; but for
// `kills_others`, which spares it and the first process, and `asks_to_end`, which sends a signal to all.
enum class blow { fails, kills_all, kills_first, kills_caller, kills_others, asks_to_end };

// Which calls fail from there on too.
enum class lasting { no, calls_that_take_space, all_calls };

struct family_disturbance {
  long at_call = 0; // counted from 1 over all processes; 0 is never
  blow how = blow::fails;
  int number = 0; // of the error, or of the signal
  lasting how_long = lasting::no;
};

struct family_outcome {
  int status = -1;   // the first process's exit status; never set for a death by signal
  int signal = 0;    // the signal that killed it, or 0
  bool hung = false; // it was killed because it took too long
  long calls = 0;    // the file calls that all of them asked for; not counted when nothing is disturbed
  long disturbed_number = -1; // the number of the system call that was disturbed
};

struct family_call {
  file_call asked;
  bool is_childs; // not the first process's own
};

using family_observer = std::function<void(const family_call &)>;

// Runs the program to its end and to that of all processes that it started. Their waits are answered at once;
// other programs that they become run undisturbed. The caller must have no other child processes.
family_outcome run_family(const program &what, const family_disturbance &how,
                          const family_observer &observer = {});

} // namespace faults
