// What the fuzz targets share.
//
// A target is one function that is handed arbitrary bytes, calls the code under test with them and aborts
// when a property does not hold. Built with clang's fuzzer it makes up its inputs; built without, it replays
// its corpus.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// The one function of a target.
void check(std::string_view input);

// Ends the process with the message unless the property holds.
void require(bool holds, std::string_view property);

// Ends the process and shows both texts unless they are the same bytes.
void require_equal(std::string_view actual, std::string_view expected, std::string_view property);

// The texts of an input, separated by NUL bytes: always `count`, the missing ones empty, the surplus dropped.
std::vector<std::string> texts(std::string_view input, std::size_t count);

// The bytes before the first NUL: what a NUL-terminated string shows of them.
std::string visible(std::string_view bytes);

// A line as it is kept in memory: it ends at its first NUL, and at its first CR, which becomes an LF.
std::string line_of(std::string_view bytes);

// The lines that are read from a file that holds the bytes.
std::vector<std::string> lines_of(std::string_view bytes);

// The bytes of a file to which the lines were written.
std::string joined(const std::vector<std::string> &lines);

// A path in this process's own scratch directory, which goes when the process ends.
std::string scratch_path(std::string_view name);

} // namespace fuzz
