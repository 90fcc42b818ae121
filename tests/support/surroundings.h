// The surroundings of a test's own process, changed for a while. Each change is undone by its destructor and
// throws when it cannot be made: the set-up broke.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>

namespace support {

// Collects what this process and its children write to standard error.
class captured_stderr {
public:
  captured_stderr();
  ~captured_stderr();
  captured_stderr(const captured_stderr &) = delete;
  captured_stderr &operator=(const captured_stderr &) = delete;
  std::string text() const;

private:
  int previous_;
  int file_;
};

// Makes this process, and what it starts, act as the user and group `nobody` (65534), whom permissions bind.
class other_user {
public:
  other_user();
  ~other_user();
  other_user(const other_user &) = delete;
  other_user &operator=(const other_user &) = delete;
};

// Makes a directory the root directory and the current directory of this process.
class other_root {
public:
  explicit other_root(const std::filesystem::path &directory);
  ~other_root();
  other_root(const other_root &) = delete;
  other_root &operator=(const other_root &) = delete;

private:
  std::filesystem::path previous_directory_;
  int previous_root_;
};

// Lets no file grow beyond a size: what would go beyond is not written, with EFBIG.
class file_size_limit {
public:
  explicit file_size_limit(rlim_t bytes);
  ~file_size_limit();
  file_size_limit(const file_size_limit &) = delete;
  file_size_limit &operator=(const file_size_limit &) = delete;
  void lift();

private:
  rlimit previous_{};
  void (*previous_action_)(int);
};

// Makes every later call of one system call fail whose first argument is not above a limit, until the process
// ends: for death tests only.
void fail_system_call(long number, int error, std::uint32_t limit = UINT32_MAX);

// How many more files this process has open after the action than before it.
int files_left_open(const std::function<void()> &action);

// How long the action takes.
double seconds_taken(const std::function<void()> &action);

} // namespace support
