// How a command of korvalen_admin fails: one line for the user, and nothing half done.
#pragma once

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>

namespace korvalen::admin {

// Ends the command with status 1. Its text is the line that the user gets.
class failure : public std::runtime_error {
public:
  explicit failure(const std::string &text, int reason = 0) : std::runtime_error(text), reason_(reason) {}
  // The system's reason, or 0.
  [[nodiscard]] int reason() const { return reason_; }

private:
  int reason_;
};

// Throws a failure that names what could not be done and the system's reason in errno.
[[noreturn]] void fail(const std::string &what);

// The result of a system call, of which a negative one is a failure.
int checked(long result, const std::string &what);

// Whether a system's reason, as it stands in errno, is one of those.
bool is_one_of(int error, std::initializer_list<int> errors);

// An open file that is closed when its owner goes.
class descriptor {
public:
  descriptor() = default;
  explicit descriptor(int file) : file_(file) {}
  ~descriptor();
  descriptor(descriptor &&other) noexcept : file_(std::exchange(other.file_, -1)) {}
  descriptor &operator=(descriptor &&other) noexcept;
  descriptor(const descriptor &) = delete;
  descriptor &operator=(const descriptor &) = delete;

  [[nodiscard]] int get() const { return file_; }
  explicit operator bool() const { return file_ >= 0; }

private:
  int file_ = -1;
};

} // namespace korvalen::admin
