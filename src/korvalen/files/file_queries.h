// Questions about paths.
#pragma once

namespace korvalen {

// Whether anything stands at the path, of whatever kind; a symbolic link counts as its target.
// Leaves errno 0 when true and the reason when false.
bool fdfExists(const char *path);

// The same question; always leaves errno 0.
bool fdfExistsQuiet(const char *path);

// Whether both paths lead to one file; false when either cannot be looked up.
bool is_same_file(const char *path, const char *other_path);

} // namespace korvalen
