#include "korvalen/deploy/stale_files.h"

#include "korvalen/files/directories.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/records/install_log.h"
#include "korvalen/text/strings.h"

namespace korvalen {

namespace {

void delete_file_in(const char *base_dir, const char *sub_path, const char *file_name) {
  const owned_string directory = str_join_path(base_dir, sub_path);
  delete_if_present(str_join_path(directory.get(), file_name).get());
}

} // namespace

void delete_if_present(const char *path) {
  if (!fdfExists(path))
    return;
  fdfRemoveFile(path);
  log_line("Delete  ", path);
}

void delete_stale_files(const stale_list &list, const char *base_dir) {
  for (const char *name : list.names)
    list.delete_file(base_dir, name);
}

void delete_file_in_custom_code(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "custom_code", file_name);
}

void delete_file_in_extensions(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "extensions", file_name);
}

void delete_file_in_classic_save_add(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "classic/save_add", file_name);
}

void delete_file_in_lib_hook(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "lib/hook", file_name);
}

void delete_file_in_bin_linux_x86_64(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "bin/bin.linux.x86_64", file_name);
}

void delete_file_in_save(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "save", file_name);
}

void delete_file_in_save_add(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "save_add", file_name);
}

void delete_file_in_bin_x86_64(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "bin/bin.x86_64", file_name);
}

void delete_file_in_bin_x86(const char *base_dir, const char *file_name) {
  delete_file_in(base_dir, "bin/bin.x86", file_name);
}

} // namespace korvalen
