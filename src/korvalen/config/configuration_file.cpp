#include "korvalen/config/configuration_file.h"

#include "korvalen/config/configuration_lines.h"
#include "korvalen/files/directories.h"
#include "korvalen/records/uninstall_script.h"
#include "korvalen/text/strings.h"

#include <cstdio>
#include <fstream>
#include <iostream>

namespace korvalen {

bool write_korvalen_configuration(char *product_dir, const char *init_dir) {
  if (init_dir != nullptr)
    fkorvCreateDir(init_dir);
  else
    str_remove_suffix(product_dir, "/");

  // Wanted: no slash is cut off the init directory, so one that ends in "/" gives a doubled one.
  const owned_string path =
      str_format_new("%s/%s", init_dir != nullptr ? init_dir : product_dir, configuration_file_name);
  std::FILE *const probe = std::fopen(path.get(), "w");
  if (probe == nullptr) {
    std::cerr << "Error: cannot create configuration file " << path.get() << std::endl;
    return false;
  }
  std::fclose(probe);
  add_korvalen_install_files(path.get());

  std::ofstream file(path.get());
  const owned_string mandatory = str_format_new("%s/auxiliary/mandatory/", product_dir);
  const owned_string work = str_format_new("%s/work/", product_dir);
  write_configuration_lines(file, product_dir, {mandatory.get(), work.get()});
  return true;
}

} // namespace korvalen
