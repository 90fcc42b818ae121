#include "korvalen/deploy/idl_files.h"

namespace korvalen {

namespace {

constexpr const char *hooks_on_install[] = {
    "quorin_core_essentials.sav",
    "korvalen_batch_init.sav",
    "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav",
    "korvalen_run_single_dataset_batch.sav",
    "korvalen_run_tds_list.sav",
};

// Wanted: the other four hooks stay in place.
constexpr const char *hooks_on_uninstall[] = {
    "korvalen_run_single_dataset_batch.sav",
    "korvalen_run_tds_list.sav",
};

constexpr const char *libraries[] = {
    "libKorvalen_general_dll.so",
    "libKorvalen_general_dll.dlm",
    "libKorvalenIDLExtensions.so",
    "libKorvalenIDLExtensions.dlm",
};

constexpr directory_step steps[] = {
    // Wanted: this source loses its core file in both modes, unlike those of the ENVI files.
    {.source = "lib/hook",
     .target = "lib/hook",
     .core_file = core_file_removal::always,
     .stale_on_install = {delete_file_in_lib_hook, hooks_on_install},
     .stale_on_uninstall = {delete_file_in_lib_hook, hooks_on_uninstall}},
    {.source = "bin/bin.linux.x86_64",
     .target = "bin/bin.linux.x86_64",
     .stale_on_install = {delete_file_in_bin_linux_x86_64, libraries},
     .stale_on_uninstall = {delete_file_in_bin_linux_x86_64, libraries}},
    {.source = "help", .target = "help"},
    {.source = "help/Korvalen",
     .target = "help/online_help/Subsystems/Korvalen",
     .removes_target_on_uninstall = true},
};

} // namespace

std::span<const directory_step> idl_directory_steps() {
  return steps;
}

int copy_files_in_envi_dir_idl(const char *source_dir, const char *idl_dir, bool uninstall) {
  for (const directory_step &step : steps)
    run_directory_step(step, source_dir, idl_dir, uninstall);
  return 1;
}

} // namespace korvalen
