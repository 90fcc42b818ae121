#include "korvalen/config/configuration_lookup.h"

#include "korvalen/config/configuration_lines.h"
#include "korvalen/files/directories.h"
#include "korvalen/files/text_lines.h"
#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"
#include "korvalen/text/strings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

namespace korvalen {

namespace {

constexpr const char *init_dir_variable = "KORVALEN_INIT_DIR";
constexpr std::size_t max_decoded = 1000;

std::array<char, korvalen_dir_size> found_dir{};

const char *directory_from_environment(const char *fallback) {
  for (const char *name : {init_dir_variable, "windir"})
    if (const char *const value = std::getenv(name))
      return value;
  return fallback;
}

owned_string path_in(const char *directory, const char *name) {
  return str_format_new("%s/%s", without_trailing_slash(directory).c_str(), name);
}

void log_directory_choice(const char *directory) {
  const bool found = std::getenv(init_dir_variable) != nullptr;
  log_line(found ? "\nFOUND KORVALEN_INIT_DIR = " : "\nNOT FOUND KORVALEN_INIT_DIR USED = ", directory);
}

[[noreturn]] void end_with_create_error(const char *path) {
  std::cerr << "ERROR create configuration file  " << path << std::endl
            << std::endl
            << "Please check path and privileges!" << std::endl
            << std::endl;
  std::exit(-1);
}

void write_configuration(const char *path, const char *product_dir, const char *work_dir) {
  log_line("korvalen_config_file  INIT = ", path);
  std::ofstream file(path);
  add_korvalen_install_files(path);

  const bool has_work_dir = work_dir != nullptr && work_dir[0] != '\0';
  const owned_string mandatory = str_format_new("%s/mandatory/", product_dir);
  const owned_string work =
      has_work_dir ? str_format_new("%s/", work_dir) : str_format_new("%s/work/", product_dir);
  write_configuration_lines(file, product_dir, {mandatory.get(), work.get()});
}

// The first line less the tail, in the buffer. False when it does not fit.
bool take_directory(char *first_line, const char *tail, char *buffer) {
  str_remove_suffix(first_line, tail);
  if (std::strlen(first_line) >= korvalen_dir_size)
    return false;
  std::snprintf(buffer, korvalen_dir_size, "%s", first_line);
  return true;
}

} // namespace

int korvalen_config_file(const char *productDir, const char *workDir, bool deleteMode) {
  const char *const directory = directory_from_environment(productDir);
  log_directory_choice(directory);
  const owned_string path = path_in(directory, configuration_file_name);
  const owned_string installation_path = path_in(directory, "KorvalenInstallation.ini");

  if (deleteMode) {
    log_line("delete  = ", path.get());
    log_line("delete  = ", installation_path.get());
    fdfRemoveFile(installation_path.get());
    return 1;
  }

  std::FILE *const probe = std::fopen(path.get(), "w");
  if (probe == nullptr)
    end_with_create_error(path.get());
  std::fclose(probe);
  write_configuration(path.get(), productDir, workDir);
  return 1;
}

const char *get_korvalen_dir() {
  const owned_string path = path_in(directory_from_environment("NOT_FOUND"), configuration_file_name);
  std::int32_t count = 0;
  const line_array lines = fdfReadLines(path.get(), &count);
  if (!lines)
    return found_dir.data();
  if (count >= 2 && take_directory(lines[0], "/key_files/", found_dir.data()))
    return found_dir.data();
  found_dir[0] = '\0';
  return nullptr;
}

int find_korvalen_dir(char *dirBuffer) {
  const char *directory = directory_from_environment(nullptr);
  // Wanted: without the two variables, the buffer's text on entry names the variable to read.
  if (directory == nullptr)
    directory = std::getenv(dirBuffer);
  if (directory == nullptr)
    return 0;
  const owned_string path = path_in(directory, configuration_file_name);
  log_line("aConfigDir : ", without_trailing_slash(directory).c_str());

  std::int32_t count = 0;
  const line_array lines = fdfReadLines(path.get(), &count);
  // Wanted: a backslash here, a slash in the other look-up.
  if (count < 1 || !take_directory(lines[0], "key_files\\", dirBuffer))
    return 0;
  log_line("theKorvalenDir : ", dirBuffer);
  return 1;
}

int decode_configuration_value(const char *line, char *out) {
  const std::size_t length = std::strlen(line);
  if (std::strstr(line, ", 0") == nullptr) {
    std::memcpy(out, line, length + 1);
    return 1;
  }

  const char *const equals = std::strchr(line, '=');
  std::size_t used = equals == nullptr ? 0 : static_cast<std::size_t>(equals - line) + 1;
  std::memcpy(out, line, used);

  const owned_string values = str_format_new("%s", line + used);
  char *rest = nullptr;
  for (const char *piece = strtok_r(values.get(), "= \t,\n;", &rest); piece != nullptr && used < max_decoded;
       piece = strtok_r(nullptr, "= \t,\n;", &rest)) {
    const auto character = static_cast<char>(std::strtol(piece, nullptr, 10));
    if (character == '\0')
      break;
    out[used++] = character;
  }

  if (used + 2 <= std::max(length + 1, max_decoded + 2))
    out[used++] = ';';
  out[used] = '\0';
  return 1;
}

} // namespace korvalen
