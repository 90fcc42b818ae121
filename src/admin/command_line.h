// The command line of korvalen_admin.
#pragma once

#include "admin/host.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace korvalen::admin {

enum class color_choice { automatic, always, never };

struct command {
  std::string name; // "plan", "install", "verify" or "uninstall"
  target host;
  bool json = false;
  bool only_plan = false;          // of an uninstallation
  std::vector<std::string> forced; // codes of warnings that do not refuse
  color_choice color = color_choice::automatic;
};

// Ends the program with what is printed on standard output and status 0: help, or the version.
class answer : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The arguments of main. Throws an answer, or a failure that says what is wrong with them: they are refused
// as korvalen_installer refuses them, and so is an ENVI directory that would count as not given.
command read_arguments(int argc, char **argv);

// The same two for a command line that is wrong: the command, empty where none is named, and whether JSON is
// asked for.
std::string named_command(int argc, char **argv);
bool asks_for_json(int argc, char **argv);

// The path behind the directory unless it is absolute, without "." and without repeated and trailing slashes.
// Links and ".." stay.
std::string plain_path(const std::string &path, const std::string &directory);

} // namespace korvalen::admin
