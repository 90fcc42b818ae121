#include "korvalen/deploy/envi_files.h"

namespace korvalen {

namespace {

// The lists for installing and for uninstalling differ on purpose, in names and in order. Names that stand
// twice are wanted too.

constexpr const char *custom_code_on_install[] = {
    "quorin_core.sav",
    "quorin_standard_multi_products_panels.sav",
    "quorin_user_interface_core.sav",
    "quorin_standard_core.sav",
    "quorin_modeling.sav",
    "quorin_standard_modeling.sav",
    "quorin_standard_core.sav",
    "quorin_classic_multi_products_panels.sav",
    "enviitgcpscollectordoit.sav",
    "korvalen_extensions.sav",
    "quorin_core_tools_custom_code_extension.sav",
    "korvalen_modeling.sav",
    "korvalen_standard_modeling.sav",
    "ts_analyzer.sav",
    "ts_analyzer_50.sav",
    "korvalen_itools_50.sav",
    "ps_analyzer_50.sav",
    "gcpscollectordoit.sav",
    "ts_analyzer_50.sav",
    "korvalen_itools_50.sav",
    "korvalen_stretch_50.sav",
    "ps_analyzer_50.sav",
    "envi5_vec_pkg.sav",
};

constexpr const char *custom_code_on_uninstall[] = {
    "korvalen_modeling.sav",
    "korvalen_standard_modeling.sav",
    "quorin_core_tools_custom_code_extension.sav",
    "quorin_standard_multi_products_panels.sav",
    "quorin_user_interface_core.sav",
    "quorin_standard_core.sav",
    "quorin_modeling.sav",
    "quorin_standard_modeling.sav",
    "quorin_standard_core.sav",
    "quorin_classic_multi_products_panels.sav",
    "enviitgcpscollectordoit.sav",
    "korvalen_extensions.sav",
    "quorin_core_tools_custom_code_extension.sav",
    "korvalen_modeling.sav",
    "korvalen_standard_modeling.sav",
    "ts_analyzer.sav",
    "ts_analyzer_50.sav",
    "korvalen_itools_50.sav",
    "ps_analyzer_50.sav",
    "gcpscollectordoit.sav",
    "ts_analyzer_50.sav",
    "korvalen_itools_50.sav",
    "korvalen_stretch_50.sav",
    "ps_analyzer_50.sav",
    "envi5_vec_pkg.sav",
};

constexpr const char *extensions_on_install[] = {
    "quorin_core.sav",
    "korvalen_menu.sav",
    "korvalen_standard.sav",
    "korvalen_import_standard.sav",
    "korvalen_standard_core.sav",
    "korvalen_modeling_menu.sav",
    "korvalen_standard_modeling.sav",
    "korvalen_modeling.sav",
    "ts_analyzer_50.sav",
    "ps_analyzer_50.sav",
    "ts_analyzer_51.sav",
    "ps_analyzer_51.sav",
    "ts_analyzer_52.sav",
    "ps_analyzer_52.sav",
};

constexpr const char *extensions_on_uninstall[] = {
    "korvalen_menu.sav",          "korvalen_import_standard.sav", "korvalen_standard.sav",
    "korvalen_standard_core.sav", "korvalen_modeling_menu.sav",   "korvalen_standard_modeling.sav",
    "korvalen_modeling.sav",      "ts_analyzer_50.sav",           "ps_analyzer_50.sav",
    "ts_analyzer_51.sav",         "ps_analyzer_51.sav",           "ts_analyzer_52.sav",
    "ps_analyzer_52.sav",
};

constexpr const char *core_extensions[] = {
    "quorin_core_tools_custom_code_extension.sav",
    "korvalen_core_extensions.sav",
};

constexpr const char *classic_save_add[] = {
    "quorin_classic_extension.sav",
    "korvalen_classic_extension.sav",
    "quorin_core.sav",
    "quorin_classic_multi_products_panels.sav",
    "korvalen_modeling.sav",
    "korvalen_envi.sav",
    "korvalen_classic.sav",
    "korvalen_classic_menu.sav",
    "envi_korvalen_itools.sav",
    "envi50_korvalen_stretch.sav",
    "envi_korvalen_stretch.sav",
    "korvalen_for_arcgis.sav",
    "evf_display_ps.sav",
    "envi_phase_analyzer.sav",
    "envi_vector_ps.sav",
    "ts_analyzer.sav",
};

constexpr directory_step steps[] = {
    {.source = "custom_code",
     .target = "custom_code",
     .core_file = core_file_removal::on_install,
     .stale_on_install = {delete_file_in_custom_code, custom_code_on_install},
     .stale_on_uninstall = {delete_file_in_custom_code, custom_code_on_uninstall},
     .logs_creation = true},
    {.source = "extensions",
     .target = "extensions",
     .core_file = core_file_removal::on_install,
     .stale_on_install = {delete_file_in_extensions, extensions_on_install},
     .stale_on_uninstall = {delete_file_in_extensions, extensions_on_uninstall}},
    {.source = "resource/langcat", .target = "resource/langcat"},
    {.source = "resource/templates", .target = "resource/templates"},
    // Wanted: the tasks go one level deeper on ENVI's side.
    {.source = "resource/templates/tasks",
     .target = "resource/templates/tasks/Korvalen",
     .removes_target_on_uninstall = true},
    {.source = "resource/bitmaps", .target = "resource/bitmaps"},
    {.source = "resource/filterfuncs", .target = "resource/filterfuncs"},
    // Wanted: deletes from extensions, which is filled by now, and not from save.
    {.source = "save", .target = "save", .stale_on_install = {delete_file_in_extensions, core_extensions}},
    {.source = "classic/save_add",
     .target = "classic/save_add",
     .core_file = core_file_removal::on_install,
     .stale_on_install = {delete_file_in_classic_save_add, classic_save_add},
     .stale_on_uninstall = {delete_file_in_classic_save_add, classic_save_add}},
    {.source = "classic/filt_func", .target = "classic/filt_func"},
    {.source = "classic/save", .target = "classic/save"},
};

} // namespace

std::span<const directory_step> envi_directory_steps() {
  return steps;
}

int copy_files_in_envi_dir_envi(const char *source_dir, const char *envi_dir, bool uninstall) {
  for (const directory_step &step : steps)
    run_directory_step(step, source_dir, envi_dir, uninstall);
  return 1;
}

} // namespace korvalen
