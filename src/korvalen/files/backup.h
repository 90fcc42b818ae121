// Keeping an original before it is changed.
#pragma once

namespace korvalen {

// Whether anything stands at `backup` other than the file at `path` itself.
bool has_backup(const char *path, const char *backup);

// Copies the file at `path` to `backup` so that the backup, once it stands under its name, is complete and on
// disk: the copy is made under the backup's name followed by ".new", checked, flushed, and only then renamed.
// With `record`, the backup is appended to the uninstall script. False when no complete copy could be made,
// or when a backup stands there already: an existing one is never replaced. The original is as it was in
// every case. What stands under the ".new" name is removed first, be it a link to the original or a second
// name of it; where the path itself is, or leads through, that very name, nothing is removed and the answer
// is false. Where the ".new" name cannot be created at all the copy is made under the final name, which may
// end the process as fdfCopyFile does, unless a symbolic link stands there.
bool keep_original(const char *path, const char *backup, bool record);

} // namespace korvalen
