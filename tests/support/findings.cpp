#include "support/findings.h"

namespace support {

std::string listed(const std::vector<std::string> &findings) {
  constexpr std::size_t shown = 40;
  std::string text;
  for (std::size_t i = 0; i < findings.size() && i < shown; ++i)
    text += findings[i] + "\n";
  if (findings.size() > shown)
    text += "... and " + std::to_string(findings.size() - shown) + " more\n";
  return text;
}

} // namespace support
