// Running a program with all that it and the programs that it starts change in one directory recorded.
#pragma once

#include "faults/power_cut.h"
#include "faults/tracee.h"

namespace faults {

struct recording {
  disk start; // durable, as the directory was before the run; the directory is the root directory
  std::vector<recorded_call> calls;
  int status = -1; // the program's exit status; -1 for a death by signal
};

// Runs the program to its end, and the programs that it starts too. Waits are answered at once. Recorded are
// the calls that succeed and that make, rename, link or remove a name in the directory or below it, or change
// or flush what stands there, and close and changes of modes, which a power cut loses nothing by. A file that
// is opened to be written through at once counts as unflushed all the same. What is written through a mapping
// into memory is not seen: compare files_on, after all changes, with what the run left. Throws when the
// set-up breaks.
recording record_run(const program &what, const std::string &directory);

} // namespace faults
