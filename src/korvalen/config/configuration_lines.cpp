#include "korvalen/config/configuration_lines.h"

#include <ostream>

namespace korvalen {

void write_configuration_lines(std::ostream &file, const char *product_dir,
                               const configuration_directories &directories) {
  struct row {
    const char *base;
    const char *text;
  };
  const row rows[] = {
      {product_dir, "/auxiliary/key_files/"},
      {directories.mandatory, ""},
      {directories.work, ""},
      {product_dir, "/bin/"},
      {product_dir, "/auxiliary/map_files/"},
      {product_dir, "/auxiliary/description_files/"},
      {product_dir, "/auxiliary/xml_parameters_definition/"},
      {product_dir, "/auxiliary/description_files/"}, // Wanted: line 8 repeats line 6.
      {product_dir, "/auxiliary/description_01_files/"},
      {product_dir, "/auxiliary/xml_schema_files/"},
      {"", "LSBF"},
      {"", "ACTIVE"},
      {"", "1"},
      {"", "NaN"},
      {"", ""},
  };
  for (const row &line : rows)
    file << line.base << line.text << std::endl;
}

} // namespace korvalen
