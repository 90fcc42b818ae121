// Running programs from tests.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

struct outcome {
  std::string out;
  std::string err;
  int status = -1; // the exit status; never set for a death by signal
  int signal = 0;  // the signal that killed it, or 0
};
std::ostream &operator<<(std::ostream &stream, const outcome &o);

// Runs a program without a shell and waits for it. It is killed after `seconds`.
outcome run(const std::vector<std::string> &arguments, int seconds = 60);

// The same arguments, run as the user and group `nobody` (65534) without further groups, through setpriv.
std::vector<std::string> as_other_user(std::vector<std::string> arguments);

} // namespace support
