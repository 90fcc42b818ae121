#include "korvalen/deploy/old_envi_files.h"

#include "korvalen/deploy/directory_step.h"
#include "korvalen/files/directories.h"
#include "korvalen/records/install_log.h"
#include "korvalen/text/strings.h"

namespace korvalen {

namespace {

constexpr const char *old_save_files[] = {
    "quorin_ts51.sav",   "korvalen_ts51.sav",         "quorin_ts52.sav",
    "korvalen_ts52.sav", "quorin_core_extension.sav", "korvalen_core_extensions.sav",
};

constexpr const char *old_save_add_files[] = {
    "korvalen_envi.sav",         "envi_korvalen_itools.sav", "envi50_korvalen_stretch.sav",
    "envi_korvalen_stretch.sav", "korvalen_for_arcgis.sav",  "evf_display_ps.sav",
    "envi_phase_analyzer.sav",   "envi_vector_ps.sav",
};

constexpr stale_list stale_in_save = {delete_file_in_save, old_save_files};
constexpr stale_list stale_in_save_add = {delete_file_in_save_add, old_save_add_files};

constexpr directory_step save_add_step = {.source = "save_add",
                                          .target = "save_add",
                                          .stale_on_install = stale_in_save_add,
                                          .stale_on_uninstall = stale_in_save_add,
                                          .logs_creation = true};

} // namespace

int copy_files_in_envi_old_dir_envi(const char *sourceDir, const char *enviDir, bool uninstall) {
  log_line("copy_files_in_envi_old_dir_envi  = ", uninstall ? 1 : 0);
  delete_stale_files(stale_in_save, enviDir);
  run_directory_step(save_add_step, sourceDir, enviDir, uninstall);
  return 1;
}

int copy_files_in_envi_hook_dir(const char *sourceDir, const char *enviDir, bool uninstall) {
  if (uninstall)
    return 1;
  const owned_string target = str_join_path(enviDir, "lib/hook");
  remove_matching_files(target.get(), "korvalen*.sav");
  create_and_copy(str_join_path(sourceDir, "lib/hook").get(), target.get());
  return 1;
}

int remove_matching_files(const char *dir, const char *pattern) {
  std::int32_t count = 0;
  const line_array names = fdfDirFiles(str_join_path(dir, pattern).get(), &count);
  // The removal sets mode 0755 first, so that read-only files go as well.
  for (std::int32_t i = 0; i < count; ++i)
    fdfRemoveFile(str_join_path(dir, names[static_cast<std::size_t>(i)]).get());
  return count;
}

} // namespace korvalen
