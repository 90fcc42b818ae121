// The properties that hold for every launch script patcher.
#pragma once

#include "fuzz.h"

namespace fuzz {

struct launch_script_kind {
  int (*patch)(const char *script, const char *product_dir, const char *init_dir);
  const char *anchor; // the block goes before the first line that holds it
  std::vector<std::string> (*block)(const std::string &value); // the lines that are inserted
  bool has_library_rule; // whether "LD_LIBRARY_PATH" and "exe_envi" in one line move the end of an earlier
                         // block
};

// The input's first line is the value, the rest the script.
void check_launch_script(const launch_script_kind &kind, std::string_view input);

} // namespace fuzz
