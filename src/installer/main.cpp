// korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]] | --help | --version

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
  if (const char *const answer = find_answer(argc, argv)) {
    std::fputs(answer, stdout);
    return 0;
  }
  if (const owned_string refusal = find_refusal(argc, argv)) {
    print_usage();
    // Flushes standard output first, so that the usage line comes first where both go to one place.
    std::cerr << refusal.get() << std::endl;
    return 1;
  }
  return install(read_command_line(argc, argv));
}
