// Where the programs of this build lie, and the sample trees beside the sources.
#pragma once

namespace support {

extern const char *const installer_path;
extern const char *const admin_path;
extern const char *const samples_path;

} // namespace support
