// Text files as arrays of lines.
#pragma once

#include "korvalen/text/strings.h"

#include <iosfwd>
#include <span>

namespace korvalen {

// The lines of a text file without their line ends; a CR ends a line early and stays in it as an LF. At most
// 200,000 lines; a line of more than 199,999 characters ends the reading before it.
// Null only when nothing stands at the path; a file that cannot be read gives an array without lines.
// The number of lines goes through `count` unless that is null.
line_array fdfReadLines(const char *path, std::int32_t *count);

// The lines of an array, whose owner keeps them.
using text_lines = std::span<char *const>;

// Writes each line with a line end, and flushes after each.
void write_lines(std::ostream &file, std::span<const char *const> lines);

} // namespace korvalen
