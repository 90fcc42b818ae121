// The patcher of IDL's launch scripts.

#include "launch_script_check.h"

#include "korvalen/patch/launch_script.h"

void fuzz::check(std::string_view input) {
  const auto block = [](const std::string &value) -> std::vector<std::string> {
    return {"KORVALEN_INIT_DIR=" + value, "export KORVALEN_INIT_DIR", ""};
  };
  check_launch_script({korvalen::fkorvPatchIdlScript, "INSTALL_DIR=", block, false}, input);
}
