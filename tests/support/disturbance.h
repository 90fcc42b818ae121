// Single calls of many, disturbed: the kernel refuses them, or something happens just before them.
#pragma once

#include <functional>

namespace support {

struct disturbance {
  long number;                         // the system call
  int error = 0;                       // what the call fails with; where it is 0, the call is made
  std::function<bool(int count)> when; // which ones, asked of each as it comes; they are counted from 1
  std::function<void()> deed = [] {};  // what another process does before each of these
};

// From here on, for this process and all that it starts, and until they have ended: once for a process, and
// in children of a test only. Throws when the set-up fails.
void disturb(const disturbance &how);

} // namespace support
