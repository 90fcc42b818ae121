#include "installer/installation.h"

#include "korvalen/config/configuration_file.h"
#include "korvalen/envi/extension_install.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/records/uninstall_script.h"

#include <iostream>
#include <sys/stat.h>

namespace korvalen {

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

} // namespace korvalen
