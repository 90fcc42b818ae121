// Directories: listing by pattern, copying by pattern, making paths, removing.
//
// Listings are made by `ls`, which the shell runs in the current directory and whose output stays there in
// "./.korvalen_ls_temp_txt". Two processes must not list in one current directory at the same time.
#pragma once

#include "korvalen/text/strings.h"

namespace korvalen {

// Sets mode 0755 and then removes a file or an empty directory; a symbolic link itself, not its target.
// True when it was removed.
bool fdfRemoveFile(const char *path);

// Removes an empty directory, leaving modes alone. True when it was removed.
bool fdfRemoveDir(const char *path);

// The bare names of what matches a path whose last component may hold the shell's wildcards * ? [ ]. Every
// other byte means itself. Their number goes through `count`. Leaves the listing in the temporary file. What
// `ls` says of a matching directory is its contents. Null, with `count` untouched and a message on standard
// error, when the listing cannot be made; an array without lines when a directory stands in its place.
line_array fdfDirFiles(const char *pattern, std::int32_t *count);

// Copies every entry of the source directory that matches the pattern into the target directory, which is
// made if it is missing, sets each copy to mode 0755 and records it in the uninstall script. Returns the
// number of entries. Ends the process with status 255, as fdfCopyFile does, when an entry cannot be read or
// its copy not be created.
std::int32_t fdfCopyDirFiles(const char *source_dir, const char *target_dir, const char *pattern);

// Makes every missing level of a path, each with mode 0755 whatever the umask; existing levels stay as they
// are. The path is taken from the root, also when it does not begin with "/". False when it names no
// component or a level cannot be made; the levels above that one stay.
bool fkorvCreateDir(const char *path);

} // namespace korvalen
