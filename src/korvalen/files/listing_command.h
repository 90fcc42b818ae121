// The shell command that lists what matches a pattern.
#pragma once

#include <string>

namespace korvalen {

// "ls  <pattern>><output> 2>/dev/null". In the pattern, the wildcards of the last component are the shell's;
// every other byte that the shell would act on is quoted, and a pattern that, or whose matches, could be
// taken for an option or for the number of a file descriptor is made to begin with "./".
std::string listing_command(const char *pattern, const char *output);

} // namespace korvalen
