#include "korvalen/deploy/arcgis_toolbox.h"

#include "korvalen/deploy/old_envi_files.h"
#include "korvalen/files/directories.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/records/install_log.h"
#include "korvalen/text/strings.h"

#include <cstdlib>
#include <span>

namespace korvalen {

namespace {

struct tools_variable {
  const char *guard;
  const char *value;
  const char *release; // what the names of the product's source directories carry
};

constexpr tools_variable tools_variables[] = {
    {"ENVI60_GPTOOLS", "ENVI60_GPTOOLS", "_6.0"},
    {"ENVI54_GPTOOLS", "ENVI54_GPTOOLS", "_5.4"},
    // Wanted: the variable of 5.4 guards this row too, so that it is never reached.
    {"ENVI54_GPTOOLS", "ENVI53_GPTOOLS", "_5.3"},
    {"ENVI52_GPTOOLS", "ENVI52_GPTOOLS", "_5.2"},
    {"ENVI51_GPTOOLS", "ENVI51_GPTOOLS", "_5.1"},
    {"ENVI50_GPTOOLS", "ENVI50_GPTOOLS", "_5.0"},
    {"ENVI48_GPTOOLS", "ENVI48_GPTOOLS", ""},
};

constexpr const char *toolbox_files[] = {"Korvalen Tools.tbx"};
constexpr const char *compiled_script_files[] = {"korvalenpy.pyc"};
constexpr const char *script_files[] = {"korvalenpy.py", "EnviKorvalen*.py"};

struct directory_pair {
  owned_string source;
  owned_string target;
};

const tools_variable *find_tools_variable() {
  for (const tools_variable &row : tools_variables)
    if (std::getenv(row.guard) != nullptr)
      return &row;
  return nullptr;
}

// The ArcGIS desktop directory with a trailing "/", or null when there is none.
owned_string find_desktop_dir() {
  const char *const value = std::getenv("AGSDESKTOPJAVA");
  if (value == nullptr) {
    log_line("aAGSDESKTOPJAVA_DIR = NOT FOUND", "");
    return nullptr;
  }
  log_line("aAGSDESKTOPJAVA_DIR = ", value);
  owned_string directory = str_join_path(value, "");
  if (fdfExists(directory.get()))
    return directory;
  log_line("NOT EXIST the DIRECTORY aAGSDESKTOPJAVA_DIR = ", directory.get());
  return nullptr;
}

// What the source directories' names carry for ENVI's release, or null when there are no geoprocessing tools.
const char *find_release() {
  const tools_variable *const variable = find_tools_variable();
  if (variable == nullptr) {
    log_line("aGPTOOLS_DIR = NOT FOUND", "");
    return nullptr;
  }
  const char *const directory = std::getenv(variable->value);
  log_line("aGPTOOLS_DIR = ", directory);
  if (fdfExists(directory))
    return variable->release;
  log_line("NOT EXIST the DIRECTORY GPTOOLS_DIR = ", directory);
  return nullptr;
}

// `part` is "Toolboxes" or "Scripts". False when the target is missing; the source is not tested.
bool find_directories(const char *product_dir, const char *release, const char *desktop_dir, const char *part,
                      directory_pair &directories) {
  directories.source = str_format_new(R"(%s\auxiliary\ArcToolbox%s\%s)", product_dir, release, part);
  directories.target = str_format_new(R"(%sArcToolbox\%s)", desktop_dir, part);
  log_line("aSRCDIR = ", directories.source.get());
  log_line("aTARGETDIR = ", directories.target.get());
  if (fdfExists(directories.target.get()))
    return true;
  log_line("NOT EXIST the DIRECTORY aTARGETDIR = ", directories.target.get());
  return false;
}

void remove_files(const directory_pair &directories, std::span<const char *const> patterns) {
  for (const char *pattern : patterns)
    remove_matching_files(directories.target.get(), pattern);
}

void install_or_remove(const directory_pair &directories, std::span<const char *const> patterns,
                       bool uninstall) {
  if (uninstall)
    return remove_files(directories, patterns);
  for (const char *pattern : patterns)
    fdfCopyDirFiles(directories.source.get(), directories.target.get(), pattern);
}

} // namespace

int envi_arcgis_install_uninstall(const char *theKorvalenDir, bool uninstall) {
  log_line("envi_arcgis_install_uninstall  = ", theKorvalenDir);
  const owned_string desktop_dir = find_desktop_dir();
  if (!desktop_dir)
    return 0;
  const char *const release = find_release();
  if (release == nullptr)
    return 0;

  directory_pair directories;
  if (!find_directories(theKorvalenDir, release, desktop_dir.get(), "Toolboxes", directories))
    return 0;
  install_or_remove(directories, toolbox_files, uninstall);

  if (!find_directories(theKorvalenDir, release, desktop_dir.get(), "Scripts", directories))
    return 0;
  remove_files(directories, compiled_script_files);
  install_or_remove(directories, script_files, uninstall);
  return 1;
}

} // namespace korvalen
