// Calling code in a child process: what it prints, and how it ends.
#pragma once

#include "support/process.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <sys/types.h>

namespace support {

// Runs the code in a child process, in the current directory, and waits for it. The status is what the code
// returned, or what it ended the process with. It is killed after a minute. A code that throws ends with
// status 125.
outcome call(const std::function<int()> &code);

// The same as the user and group `nobody` (65534) without further groups. Only root can become another user;
// for anybody else the status is 125.
outcome call_as_other_user(const std::function<int()> &code);

// Another program beside the test: the code runs in a child process of its own, for a minute at most. It ends
// with this object, if not before.
class other_program {
public:
  explicit other_program(const std::function<void()> &code);
  ~other_program();
  other_program(const other_program &) = delete;
  other_program &operator=(const other_program &) = delete;
  // Waits for it. True when the code came to its end without an exception.
  bool finish();
  pid_t process() const { return process_; }

private:
  pid_t process_;
};

// How a child ended, with all that it printed.
MATCHER_P3(Ended, status, out, err,
           "ended with status " + std::to_string(status) + "\n--- out\n" + std::string(out) + "--- err\n" +
               std::string(err)) {
  return arg.signal == 0 && arg.status == status && arg.out == out && arg.err == err;
}

} // namespace support
