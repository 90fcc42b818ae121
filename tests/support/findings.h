// What a test over very many cases found.
#pragma once

#include <string>
#include <vector>

namespace support {

// The first of the findings, a line each, and how many more there are.
std::string listed(const std::vector<std::string> &findings);

} // namespace support
