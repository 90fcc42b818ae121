// korvalen_admin: see before what the installer changes.

#include "admin/command_line.h"
#include "admin/failure.h"
#include "admin/plan.h"
#include "admin/texts.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

using namespace korvalen::admin;

namespace {

// A file that is opened where a standard stream was closed would be taken for that stream.
void open_closed_streams() {
  while (true) {
    const int file = open("/dev/null", O_RDWR);
    if (file > STDERR_FILENO || file < 0) {
      close(file);
      return;
    }
  }
}

int tell_failure(const command &given, const std::string &problem) {
  if (given.json) {
    report told;
    told.command = given.name;
    told.status = 1;
    told.error = problem;
    write_json(std::cout, told);
  } else {
    std::cerr << "korvalen_admin: " << visible(problem) << std::endl;
  }
  return 1;
}

int run(int argc, char **argv) {
  command given;
  given.name = named_command(argc, argv);
  given.json = asks_for_json(argc, argv);
  try {
    given = read_arguments(argc, argv);
    return plan(given, std::cout);
  } catch (const answer &text) {
    std::cout << text.what() << '\n';
    return 0;
  } catch (const std::exception &problem) {
    return tell_failure(given, problem.what());
  }
}

} // namespace

int main(int argc, char **argv) {
  open_closed_streams();
  const int status = run(argc, argv);
  if (std::cout.flush())
    return status;
  std::cerr << "korvalen_admin: cannot write to standard output: " << std::strerror(errno) << std::endl;
  return 1;
}
