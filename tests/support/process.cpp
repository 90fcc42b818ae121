#include "support/process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <ostream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace support {

namespace {

struct captured_stream {
  int file = -1;
  captured_stream() {
    char name[] = "/tmp/korvalen_output.XXXXXX";
    file = mkostemp(name, O_CLOEXEC);
    if (file < 0)
      throw std::system_error(errno, std::generic_category(), "test set-up: cannot capture output");
    unlink(name);
  }
  ~captured_stream() { close(file); }
  captured_stream(const captured_stream &) = delete;
  captured_stream &operator=(const captured_stream &) = delete;

  std::string text() const {
    std::string result(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    const ssize_t got = pread(file, result.data(), result.size(), 0);
    result.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return result;
  }
};

[[noreturn]] void become(const std::vector<std::string> &arguments, int out, int err, unsigned seconds) {
  std::vector<char *> argv;
  for (const std::string &argument : arguments)
    argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  const int nothing = open("/dev/null", O_RDONLY);
  dup2(nothing, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  alarm(seconds);
  execvp(argv[0], argv.data());
  _exit(127);
}

} // namespace

std::ostream &operator<<(std::ostream &stream, const outcome &o) {
  return stream << "status " << o.status << ", signal " << o.signal << "\n--- out\n"
                << o.out << "--- err\n"
                << o.err;
}

outcome run(const std::vector<std::string> &arguments, int seconds) {
  const captured_stream out;
  const captured_stream err;
  const pid_t child = fork();
  if (child < 0)
    throw std::system_error(errno, std::generic_category(), "test set-up: fork");
  if (child == 0)
    become(arguments, out.file, err.file, static_cast<unsigned>(seconds));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  outcome result{out.text(), err.text()};
  if (WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  return result;
}

std::vector<std::string> as_other_user(std::vector<std::string> arguments) {
  std::vector<std::string> result = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  result.insert(result.end(), arguments.begin(), arguments.end());
  return result;
}

} // namespace support
