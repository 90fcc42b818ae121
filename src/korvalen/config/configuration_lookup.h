// Finding the product directory again from its configuration file, another writer of that file, and the
// decoding of configuration values.
//
// The configuration directory is the value of KORVALEN_INIT_DIR, else that of windir, else what each
// operation says.
#pragma once

#include <cstddef>

namespace korvalen {

// Writes "Korvalen_configuration.ini" for productDir into the configuration directory (else into productDir)
// and records it in the uninstall script. Its work directory is workDir, or <productDir>/work when that is
// null or empty. With deleteMode, removes "KorvalenInstallation.ini" from that directory instead and leaves
// the configuration file. Always 1. A configuration file that cannot be created ends the process with status
// 255 and a message on standard error.
int korvalen_config_file(const char *productDir, const char *workDir, bool deleteMode);

// The size of the buffers that hold a product directory, the end included.
inline constexpr std::size_t korvalen_dir_size = 3000;

// The product directory from the configuration file's first line less its tail "/key_files/", in a
// process-wide buffer that the next call overwrites. With neither variable set, the configuration directory
// is "./NOT_FOUND". Without a configuration file the buffer keeps what it held, which is nothing at first.
// Null, and an emptied buffer, when the file has fewer than two lines or the directory does not fit.
const char *get_korvalen_dir();

// The product directory from the configuration file's first line less its tail "key_files\", into dirBuffer,
// which has room for korvalen_dir_size bytes. With neither variable set, the configuration directory is the
// value of the variable that dirBuffer names on entry. 1 when found; 0, and dirBuffer as it was, when there
// is no such directory, file or line or the directory does not fit.
int find_korvalen_dir(char *dirBuffer);

// Decodes a line "name=code, code, ..., 0" into "name=", the characters of the decimal codes up to the 0, and
// ";". A line without ", 0" is copied as it is. Codes are taken until `out` holds 1,000 characters. `out`:
// strlen(line) + 1 bytes, and never less than 1,002, always suffice; where they would not, the ";" is left
// out. Always 1.
int decode_configuration_value(const char *line, char *out);

} // namespace korvalen
