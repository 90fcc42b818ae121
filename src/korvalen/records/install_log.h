// The install log: an optional stream, one for the whole process, that receives the diagnostic lines of the
// operations. The command line never attaches one.
#pragma once

#include <iosfwd>

namespace korvalen {

// Attaches a stream that the caller keeps alive, or detaches it with null. Null is the default: no lines.
void set_install_log(std::ostream *log);

// The attached stream, or null.
std::ostream *install_log();

// Writes the label, the value and a flushing line end to the attached stream. Without a stream nothing
// happens.
void log_line(const char *label, const char *value);
void log_line(const char *label, int value);

} // namespace korvalen
