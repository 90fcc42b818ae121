// Questions about paths, and text files as arrays of lines.
#pragma once

#include "driver/strings.h"

#include <iosfwd>
#include <span>

namespace korvalen {

// Whether anything stands at the path, of whatever kind; a symbolic link counts as its target.
// Leaves errno 0 when true and the reason when false.
bool fdfExists(const char *path);

// The same question; always leaves errno 0.
bool fdfExistsQuiet(const char *path);

// Whether both paths lead to one file; false when either cannot be looked up.
bool is_same_file(const char *path, const char *other_path);

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
