// korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]]

#include "installer/command_line.h"
#include "installer/installation.h"

#include <cstdio>
#include <iostream>

using namespace korvalen;

namespace {

void print_usage() {
  std::puts("wrong input parameter list :   korvalen_dir  envi_dir   ");
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
