// korvalen_admin: see before, install all or nothing, check, take back.

#include "admin/command_line.h"
#include "admin/failure.h"
#include "admin/install.h"
#include "admin/plan.h"
#include "admin/report.h"
#include "admin/texts.h"
#include "admin/uninstall.h"
#include "admin/verify.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

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

using carry_out = void (*)(const command &given, report &told);

constexpr std::pair<std::string_view, carry_out> commands[] = {
    {"plan", plan}, {"install", install_product}, {"verify", verify}, {"uninstall", uninstall}};

carry_out command_named(std::string_view name) {
  return std::find_if(std::begin(commands), std::end(commands),
                      [name](const auto &one) { return one.first == name; })
      ->second;
}

bool wants_colors(const command &given) {
  const char *const no_color = std::getenv("NO_COLOR");
  if (given.color == color_choice::automatic)
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
  return given.color == color_choice::always;
}

// A report as it is to be written: nothing is, until the command is at its end.
struct written_report {
  std::ostringstream output;
  std::string error;
};

void tell(const command &given, const report &told, written_report &to) {
  if (given.json)
    return write_json(to.output, told);
  std::set<std::string> scripts;
  for (const launch_script &script : launch_scripts_of(given.host))
    scripts.insert(real_script_path(script));
  write_text(to.output, told,
             {wants_colors(given), [&](const std::string &path) { return scripts.contains(path); }});
  to.error = visible(told.error);
}

int run(int argc, char **argv, written_report &to) {
  command given;
  given.json = asks_for_json(argc, argv);
  report told;
  told.command = named_command(argc, argv);
  try {
    given = read_arguments(argc, argv);
    command_named(given.name)(given, told);
  } catch (const answer &text) {
    to.output << text.what() << '\n';
    return 0;
  } catch (const std::exception &problem) {
    told.status = 1;
    told.error = problem.what();
  }
  tell(given, told, to);
  return told.status;
}

// 0, or why not all of it could be written.
int write_whole(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
    if (count >= 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return 0;
}

// A reader who goes early has read enough. What could not be written for another reason is a failure.
int status_of_writing(const written_report &told, int status) {
  std::signal(SIGPIPE, SIG_IGN);
  const int problem = write_whole(told.output.view());
  if (!told.error.empty())
    std::cerr << "korvalen_admin: " << told.error << std::endl;
  if (problem == 0 || problem == EPIPE)
    return status;
  std::cerr << "korvalen_admin: cannot write to standard output: " << std::strerror(problem)
            << "; without that, the status would be " << status << std::endl;
  return 1;
}

} // namespace

int main(int argc, char **argv) {
  open_closed_streams();
  written_report told;
  const int status = run(argc, argv, told);
  return status_of_writing(told, status);
}
