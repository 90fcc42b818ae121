// The tool's command line: what its arguments mean, and which are refused.
#pragma once

#include "korvalen/text/strings.h"

#include <string>

namespace korvalen {

struct install_request {
  char *product_dir;    // as given
  const char *envi_dir; // null when absent; may be empty, which installs nothing into ENVI
  bool local_layout;
};

// Whether there is an ENVI directory to install into.
bool installs_into_envi(const install_request &request);

// The arguments of main, of which there is at least a product directory. An ENVI directory or a layout whose
// text holds "NotOK" counts as not given. The texts stay those of argv.
install_request read_command_line(int argc, char **argv);

// The uninstall script's path in the request's layout.
owned_string uninstall_script_path(const install_request &request);

// The directory that receives the configuration file: the product directory itself in the local layout.
const char *init_directory(const install_request &request);

// The same without one trailing slash, as the launch scripts export it.
std::string exported_init_directory(const install_request &request);

// What is printed instead of an installation: for `--help` as the only argument what the arguments are, for
// `--version` the version; null for anything else.
const char *find_answer(int argc, char **argv);

// Why the request is refused, as one line of text without its end that names the argument; null when it is
// not. Touches nothing on disk.
owned_string find_refusal(const install_request &request);

// The same for the arguments of main, of which there is at least a product directory. So that nobody who
// writes an option gets an installation, each argument after the first that begins with "-" is refused too,
// whatever its position, unless it is the second or third and counts as not given.
owned_string find_refusal(int argc, char **argv);

} // namespace korvalen
