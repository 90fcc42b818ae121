// What changed within a text file.
#pragma once

#include <string>
#include <string_view>

namespace korvalen::admin {

// The unified difference of two texts, with three lines of context and the path in both header lines, as
// `patch` takes it; empty for equal texts.
std::string unified_diff(const std::string &path, std::string_view before, std::string_view after);

} // namespace korvalen::admin
