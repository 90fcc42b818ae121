// The fifteen lines of the product's configuration file.
#pragma once

#include <iosfwd>

namespace korvalen {

inline constexpr const char *configuration_file_name = "Korvalen_configuration.ini";

// The two lines in which the writers of the file differ, each ending in "/".
struct configuration_directories {
  const char *mandatory;
  const char *work;
};

// Writes the lines for the product directory as it is given, each ended by a flushing line end. The file is
// positional: its readers know a line by its number.
void write_configuration_lines(std::ostream &file, const char *product_dir,
                               const configuration_directories &directories);

} // namespace korvalen
