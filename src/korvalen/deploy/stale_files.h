// Removing the product's files, one name at a time, from the subdirectories in which it places files.
//
// Each operation removes <base_dir>/<its subdirectory>/<file_name> if something stands there: a file,
// whatever its mode, or an empty directory. A trailing "/" of base_dir does not count. The install log tells
// of every attempt, also of one that failed. Nothing is recorded in the uninstall script.
#pragma once

#include <span>

namespace korvalen {

void delete_file_in_custom_code(const char *base_dir, const char *file_name);
void delete_file_in_extensions(const char *base_dir, const char *file_name);
void delete_file_in_classic_save_add(const char *base_dir, const char *file_name);
void delete_file_in_lib_hook(const char *base_dir, const char *file_name);
void delete_file_in_bin_linux_x86_64(const char *base_dir, const char *file_name);
void delete_file_in_save(const char *base_dir, const char *file_name);
void delete_file_in_save_add(const char *base_dir, const char *file_name);
void delete_file_in_bin_x86_64(const char *base_dir, const char *file_name);
void delete_file_in_bin_x86(const char *base_dir, const char *file_name);

// Names to delete, in this order, with the operation of the subdirectory that they are deleted from.
struct stale_list {
  void (*delete_file)(const char *base_dir, const char *file_name) = nullptr;
  std::span<const char *const> names;
};

void delete_stale_files(const stale_list &list, const char *base_dir);

// Removes the path if something stands there, and logs that.
void delete_if_present(const char *path);

} // namespace korvalen
