#include "korvalen/records/uninstall_script.h"

#include "korvalen/records/install_log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace korvalen {

namespace {

std::array<char, uninstall_script_path_size> script_path{};

constexpr std::array kept_files = {
    "quorin_core_essentials.sav", "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_batch_init.sav",    "Korvalen_config.xml",
    "quorin_core_tasks.sav",      "korvalen_error_catalog_eng.cat",
    "korvalenuiwf_eng.cat",       "envigcpscollectwfui_eng.cat",
    "korvalen_default_eng.cat",   "idl_catalog.xml",
};

bool append_line(const char *command, const char *path) {
  std::FILE *const script = std::fopen(script_path.data(), "a");
  if (script == nullptr)
    return false;
  // Of its own, so that the library need not ask the system for the size of a good one.
  std::array<char, BUFSIZ> buffer;
  std::setvbuf(script, buffer.data(), _IOFBF, buffer.size());
  std::fprintf(script, "%s%s\n", command, path);
  std::fclose(script);
  return true;
}

} // namespace

bool is_kept_by_uninstall_script(const char *path) {
  return std::any_of(kept_files.begin(), kept_files.end(),
                     [path](const char *name) { return std::strstr(path, name) != nullptr; });
}

void init_korvalen_install_files_name(const char *path) {
  const bool fits = std::strlen(path) < script_path.size();
  std::snprintf(script_path.data(), script_path.size(), "%s", fits ? path : "");
  log_line("init_korvalen_install_files_name : ", script_path.data());
}

void init_korvalen_install_files(const char * /*product_dir*/) {
  if (std::FILE *const script = std::fopen(script_path.data(), "w"))
    std::fclose(script);
  log_line("init_korvalen_install_files : ", script_path.data());
}

void add_korvalen_install_files(const char *path) {
  if (is_kept_by_uninstall_script(path))
    return;
  if (append_line("rm ", path))
    log_line("add_korvalen_install_files : ", path);
  else
    log_line("FAIL add_korvalen_install_files : ", script_path.data());
}

void add_dir_korvalen_install_files(const char *path) {
  if (append_line("rm -rf ", path))
    log_line("add_dir_korvalen_install_files : ", path);
  else
    log_line("FAIL add_dir_korvalen_install_files : ", script_path.data());
}

const char *get_korvalen_install_files_name() {
  return script_path.data();
}

} // namespace korvalen
