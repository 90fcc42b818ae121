// per_user_install install|uninstall PRODUCT_DIR ENVI_DIR VERSION [LOG]
//
// Installs the product for one ENVI version, or uninstalls it again, and prints what was done. VERSION is the
// suffix of the product's source directory, such as "_54". The install log goes to LOG, or to
// per_user_install.log; per_user_uninstall.sh stands beside it while the product is installed.
//
// Build it against the installed library:
//   cmake -S . -B build && cmake --build build
//   g++ per_user_install.cpp $(pkg-config --cflags --libs korvalen-install)

#include "korvalen/envi/user_install.h"
#include "korvalen/files/directories.h"
#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

struct request {
  bool uninstall;
  std::string product_dir;
  std::string envi_dir;
  std::string version;
  std::string log;
};

// The library makes directories from the root on, so it is handed absolute paths, without a trailing "/".
std::string absolute_directory(const char *argument) {
  std::error_code error;
  const fs::path path = fs::absolute(argument, error).lexically_normal();
  return (path.has_filename() ? path : path.parent_path()).string();
}

bool read_arguments(int argc, char **argv, request &wanted) {
  if (argc < 5 || argc > 6)
    return false;
  const std::string_view action = argv[1];
  wanted = {action == "uninstall", absolute_directory(argv[2]), absolute_directory(argv[3]), argv[4],
            argc == 6 ? argv[5] : "per_user_install.log"};
  return action == "install" || action == "uninstall";
}

bool is_directory(const std::string &path) {
  std::error_code error;
  if (fs::is_directory(path, error))
    return true;
  std::fprintf(stderr, "per_user_install: %s is not a directory\n", path.c_str());
  return false;
}

// The operations tell what they do in the install log only.
bool run(const request &wanted) {
  std::ofstream log(wanted.log);
  if (!log) {
    std::fprintf(stderr, "per_user_install: cannot write %s\n", wanted.log.c_str());
    return false;
  }
  korvalen::set_install_log(&log);

  const std::string script = fs::path(wanted.log).replace_filename("per_user_uninstall.sh").string();
  korvalen::init_korvalen_install_files_name(script.c_str());
  korvalen::init_korvalen_install_files(wanted.product_dir.c_str());
  korvalen::korvalen_install_uninstall_user_add(wanted.envi_dir.c_str(), wanted.product_dir.c_str(), nullptr,
                                                wanted.uninstall, wanted.version.c_str());
  if (wanted.uninstall)
    korvalen::fdfRemoveFile(korvalen::get_korvalen_install_files_name());

  korvalen::set_install_log(nullptr);
  return true;
}

// What a line of the install log tells, by how it begins and ends.
struct log_meaning {
  std::string_view begin;
  std::string_view end;
  const char *meaning;
};

constexpr log_meaning log_meanings[] = {
    {"Delete  ", "", "removed"},
    {"INTO  = ", "", "placed"},
    {"add_korvalen_install_files : ", "/menu/useradd_old.txt", "kept"},
    {"add_korvalen_install_files : ", "/menu/useradd.txt", "changed"},
};

void print_what_was_done(const request &wanted) {
  std::ifstream log(wanted.log);
  for (std::string line; std::getline(log, line);)
    for (const log_meaning &known : log_meanings)
      if (line.starts_with(known.begin) && line.ends_with(known.end))
        std::printf("%-8s %s\n", known.meaning, line.c_str() + known.begin.size());
  std::printf("The install log is %s\n", wanted.log.c_str());
}

} // namespace

int main(int argc, char **argv) {
  request wanted;
  if (!read_arguments(argc, argv, wanted)) {
    std::puts("usage: per_user_install install|uninstall PRODUCT_DIR ENVI_DIR VERSION [LOG]");
    return 1;
  }
  if (!is_directory(wanted.product_dir) || !is_directory(wanted.envi_dir) || !run(wanted))
    return 1;
  print_what_was_done(wanted);
  return 0;
}
