// What an installation is made from and into.
#pragma once

#include "admin/trees.h"
#include "installer/command_line.h"
#include "korvalen/deploy/directory_step.h"

#include <optional>
#include <string>
#include <vector>

namespace korvalen::admin {

// The arguments of a command, absolute and plain.
struct target {
  std::string product_dir;
  std::optional<std::string> envi_dir;
  bool local_layout = false;
};

// The same for the installer. Its texts are those of the target, which outlives it.
install_request request_of(const target &host);

// The directory that receives the configuration file.
std::string init_dir_of(const target &host);

// The IDL directory that the installer takes, if there is one.
std::optional<std::string> idl_dir_of(const target &host);

struct launch_script {
  std::string path;
  std::string backup;
  bool is_envis; // else IDL's
};

// What is longer is no script.
constexpr std::size_t script_limit = 16U << 20U;

// The scripts that the installer patches, whether or not they exist: ENVI's three, and IDL's two where there
// is an IDL directory.
std::vector<launch_script> launch_scripts_of(const target &host);

// Where the script really stands: where it is a link, its target is what changes.
std::string real_script_path(const launch_script &script);

// The path without links on the way to its last component, which may be one. Directories that are missing are
// looked for in the last one that is there.
std::string real_place(const std::string &path);

// The path without links; where it leads nowhere, its real place.
std::string real_path_or_place(const std::string &path);

// A directory of the product and the one that it is deployed into.
struct deployment {
  std::string source;
  std::string target;
  bool loses_core_file; // "quorin_core.sav" is removed from the source first
};

// The product's directory of extension files.
std::string extensions_dir_of(const target &host);

// The directories that the installer deploys, in its order; none where there is no IDL directory.
std::vector<deployment> deployments_of(const target &host);

// Whether the installer copies files of this name.
bool is_deployed_name(std::string_view name);

// The path without links, "." and ".."; nothing where it leads nowhere.
std::optional<std::string> real_path(const std::string &path);

// The directories below which a run writes, as real paths; those that do not exist are left out.
std::vector<std::string> real_directories_of(const target &host);

// The directories that a run writes into, as real paths; those that do not exist are left out.
std::vector<std::string> written_directories_of(const target &host);

// Whether a text, line by line, mentions the variable that the installer's block sets.
bool holds_block(std::string_view script);

// Whether the script's backup is not its own: the host's upgrade brought a new script, without a block, and
// the backup is that of the script before.
bool is_stale(const tree &in, const launch_script &script);

} // namespace korvalen::admin
