// korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]]: the order of one run.

#include "config/configuration_file.h"
#include "driver/command_line.h"
#include "driver/uninstall_script.h"
#include "fsops/file_queries.h"
#include "launch/extension_install.h"

#include <cstdio>
#include <iostream>
#include <sys/stat.h>

using namespace korvalen;

namespace {

void print_usage() {
  std::puts("wrong input parameter list :   korvalen_dir  envi_dir   ");
}

int install(const install_request &request) {
  init_korvalen_install_files_name(uninstall_script_path(request).get());
  init_korvalen_install_files(request.product_dir);

  if (!write_korvalen_configuration(request.product_dir, init_directory(request))) {
    std::cerr << std::endl << "Please check path and privileges!" << std::endl << std::endl;
    return 1;
  }

  if (installs_into_envi(request))
    fkorvInstallEnviExtensions(request.envi_dir, request.product_dir, nullptr,
                               exported_init_directory(request).c_str());

  add_dir_korvalen_install_files(request.product_dir);
  // Wanted: the group gets no rights.
  if (fdfExists(get_korvalen_install_files_name()))
    chmod(get_korvalen_install_files_name(), 0705);
  return 0;
}

} // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    print_usage();
    return 1;
  }
  const install_request request = read_command_line(argc, argv);
  if (const owned_string refusal = find_refusal(request)) {
    print_usage();
    std::cerr << refusal.get() << std::endl;
    return 1;
  }
  return install(request);
}
