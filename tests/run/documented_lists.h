// What the documents list: which directory is copied where, which files are deleted as stale, and which are
// never recorded for removal.
#pragma once

#include <string>
#include <vector>

namespace whole_runs {

struct deployed_directory {
  std::string source; // below the extension tree
  std::string target; // below the ENVI directory; "IDL" stands for the IDL directory
  bool probed;        // whether quorin_core.sav is taken out of the source
};

inline const std::vector<deployed_directory> deployed_directories = {
    {"envi/custom_code", "custom_code", true},
    {"envi/extensions", "extensions", true},
    {"envi/resource/langcat", "resource/langcat", false},
    {"envi/resource/templates", "resource/templates", false},
    {"envi/resource/templates/tasks", "resource/templates/tasks/Korvalen", false},
    {"envi/resource/bitmaps", "resource/bitmaps", false},
    {"envi/resource/filterfuncs", "resource/filterfuncs", false},
    {"envi/save", "save", false},
    {"envi/classic/save_add", "classic/save_add", true},
    {"envi/classic/filt_func", "classic/filt_func", false},
    {"envi/classic/save", "classic/save", false},
    {"idl/lib/hook", "IDL/lib/hook", true},
    {"idl/bin/bin.linux.x86_64", "IDL/bin/bin.linux.x86_64", false},
    {"idl/help", "IDL/help", false},
    {"idl/help/Korvalen", "IDL/help/online_help/Subsystems/Korvalen", false},
};

struct stale_directory {
  std::string before; // the target whose copying the deletion precedes
  std::string directory;
  std::vector<std::string> names;
};

inline const std::vector<stale_directory> stale_directories = {
    {"custom_code",
     "custom_code",
     {"quorin_core.sav", "quorin_standard_multi_products_panels.sav", "quorin_user_interface_core.sav",
      "quorin_standard_core.sav", "quorin_modeling.sav", "quorin_standard_modeling.sav",
      "quorin_classic_multi_products_panels.sav", "enviitgcpscollectordoit.sav", "korvalen_extensions.sav",
      "quorin_core_tools_custom_code_extension.sav", "korvalen_modeling.sav",
      "korvalen_standard_modeling.sav", "ts_analyzer.sav", "ts_analyzer_50.sav", "korvalen_itools_50.sav",
      "ps_analyzer_50.sav", "gcpscollectordoit.sav", "korvalen_stretch_50.sav", "envi5_vec_pkg.sav"}},
    {"extensions",
     "extensions",
     {"quorin_core.sav", "korvalen_menu.sav", "korvalen_standard.sav", "korvalen_import_standard.sav",
      "korvalen_standard_core.sav", "korvalen_modeling_menu.sav", "korvalen_standard_modeling.sav",
      "korvalen_modeling.sav", "ts_analyzer_50.sav", "ps_analyzer_50.sav", "ts_analyzer_51.sav",
      "ps_analyzer_51.sav", "ts_analyzer_52.sav", "ps_analyzer_52.sav"}},
    {"save", "extensions", {"quorin_core_tools_custom_code_extension.sav", "korvalen_core_extensions.sav"}},
    {"classic/save_add",
     "classic/save_add",
     {"quorin_classic_extension.sav", "korvalen_classic_extension.sav", "quorin_core.sav",
      "quorin_classic_multi_products_panels.sav", "korvalen_modeling.sav", "korvalen_envi.sav",
      "korvalen_classic.sav", "korvalen_classic_menu.sav", "envi_korvalen_itools.sav",
      "envi50_korvalen_stretch.sav", "envi_korvalen_stretch.sav", "korvalen_for_arcgis.sav",
      "evf_display_ps.sav", "envi_phase_analyzer.sav", "envi_vector_ps.sav", "ts_analyzer.sav"}},
    {"IDL/lib/hook",
     "IDL/lib/hook",
     {"quorin_core_essentials.sav", "korvalen_batch_init.sav",
      "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
      "korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav",
      "korvalen_run_single_dataset_batch.sav", "korvalen_run_tds_list.sav"}},
    {"IDL/bin/bin.linux.x86_64",
     "IDL/bin/bin.linux.x86_64",
     {"libKorvalen_general_dll.so", "libKorvalen_general_dll.dlm", "libKorvalenIDLExtensions.so",
      "libKorvalenIDLExtensions.dlm"}},
};

inline const std::vector<std::string> kept_names = {
    "quorin_core_essentials.sav", "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_batch_init.sav",    "Korvalen_config.xml",
    "quorin_core_tasks.sav",      "korvalen_error_catalog_eng.cat",
    "korvalenuiwf_eng.cat",       "envigcpscollectwfui_eng.cat",
    "korvalen_default_eng.cat",   "idl_catalog.xml",
};

// In the order of the search.
inline const std::vector<std::string> idl_directories = {"idl80",  "idl82", "idl86",  "idl89",
                                                         "idl810", "idl90", "idl912", "idl1019"};

} // namespace whole_runs
