#include "support/child.h"

#include "support/surroundings.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace support {

namespace {

[[noreturn]] void broken(const char *what) {
  throw std::system_error(errno, std::generic_category(), std::string("test set-up: ") + what);
}

struct file_closer {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
using capture = std::unique_ptr<std::FILE, file_closer>;

capture new_capture() {
  capture file(std::tmpfile());
  if (!file)
    broken("cannot capture output");
  return file;
}

std::string text_of(std::FILE *file) {
  std::string text;
  std::rewind(file);
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file))
    text += static_cast<char>(byte);
  return text;
}

int own_out = -1;
int own_err = -1;
std::optional<other_user> somebody_else;

// What sanitizers and coverage say and write at the very end is neither the code's output nor its user's.
void give_back() {
  std::fflush(nullptr);
  dup2(own_out, STDOUT_FILENO);
  dup2(own_err, STDERR_FILENO);
  somebody_else.reset();
}

[[noreturn]] void run_child(const std::function<int()> &code, int out, int err, bool as_other_user) {
  own_out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
  own_err = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10);
  std::atexit(give_back);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  alarm(60);
  int status = 125;
  try {
    if (as_other_user)
      somebody_else.emplace();
    status = code();
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
  }
  std::exit(status);
}

pid_t fork_cleanly() {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0)
    broken("fork");
  return child;
}

int wait_for(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

outcome call_in_child(const std::function<int()> &code, bool as_other_user) {
  const capture out = new_capture();
  const capture err = new_capture();
  const pid_t child = fork_cleanly();
  if (child == 0)
    run_child(code, fileno(out.get()), fileno(err.get()), as_other_user);

  const int status = wait_for(child);
  outcome result{text_of(out.get()), text_of(err.get())};
  if (WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  return result;
}

} // namespace

outcome call(const std::function<int()> &code) {
  return call_in_child(code, false);
}

outcome call_as_other_user(const std::function<int()> &code) {
  return call_in_child(code, true);
}

other_program::other_program(const std::function<void()> &code) : process_(fork_cleanly()) {
  if (process_ != 0)
    return;
  alarm(60);
  try {
    code();
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    _exit(1);
  }
  _exit(0);
}

other_program::~other_program() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    wait_for(process_);
  }
}

bool other_program::finish() {
  const int status = wait_for(process_);
  process_ = 0;
  return status == 0;
}

} // namespace support
