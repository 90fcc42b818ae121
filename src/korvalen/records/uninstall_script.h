// The uninstall script: one removal line for every file or directory that was placed.
//
// Its path is process-wide and empty until init_korvalen_install_files_name sets it. No operation reports a
// failure: a script that cannot be opened loses the line, which only the install log tells. Paths are written
// as they stand, without quoting.
#pragma once

#include <cstddef>

namespace korvalen {

// The size of the path's buffer, its end included.
inline constexpr std::size_t uninstall_script_path_size = 3000;

// Names the script. A path that does not fit leaves the name empty, so that no other file is written to.
void init_korvalen_install_files_name(const char *path);

// Creates the script, or empties it. The product directory is not used.
void init_korvalen_install_files(const char *product_dir);

// Whether the path holds, anywhere, a name of the kept-file list: such files outlive the product.
bool is_kept_by_uninstall_script(const char *path);

// Appends "rm <path>", unless the path holds a name of the kept-file list.
// The line is on disk when the call returns.
void add_korvalen_install_files(const char *path);

// Appends "rm -rf <path>", whatever the path holds. The line is on disk when the call returns.
void add_dir_korvalen_install_files(const char *path);

// The script's path: the process-wide buffer itself, to be read only.
const char *get_korvalen_install_files_name();

} // namespace korvalen
