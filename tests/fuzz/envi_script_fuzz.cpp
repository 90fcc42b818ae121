// The patcher of ENVI's launch scripts.

#include "launch_script_check.h"

#include "korvalen/patch/launch_script.h"

void fuzz::check(std::string_view input) {
  const auto block = [](const std::string &value) -> std::vector<std::string> {
    return {R"(if [ "$KORVALEN_INIT_DIR" = "" ]; then)", "   KORVALEN_INIT_DIR=" + value,
            "   export KORVALEN_INIT_DIR", "fi", ""};
  };
  check_launch_script({korvalen::fkorvPatchEnviScript, "if [", block, true}, input);
}
