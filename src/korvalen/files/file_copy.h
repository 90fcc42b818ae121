// Copying one file: the only way in which a file is placed.
#pragma once

namespace korvalen {

// Copies the source's bytes over the target. An existing target is first set to mode 0755 and then
// overwritten in place, through a symbolic link too; a new one gets the mode of a new file. A target that is
// the source itself, under whatever name, keeps its bytes. Either file is tried five times, with one second
// between the attempts. With `record`, the target is appended to the uninstall script. A short write or a
// read error does not stop the copy and does not change the result.
// False when the source cannot be opened; then no target is touched. A target that cannot be created ends the
// process with status 255 and a message on standard error. The third argument is not used.
bool fdfCopyFile(const char *source, const char *target, int unused, bool record);

// Writes the five lines that tell on standard error that a copy failed, and ends the process with status 255.
[[noreturn]] void end_with_copy_error(const char *source, const char *target);

// Sleeps for the whole seconds of a number from 0 to INT_MAX, and returns them. Each signal that is caught
// meanwhile may take less than a second off.
int fdfSleep(double seconds);

// Whether fdfSleep waits at all, in the whole process. It does unless told otherwise, and returns the same
// either way: only what rehearses an installation tells it not to.
void set_install_waits(bool waits);

} // namespace korvalen
