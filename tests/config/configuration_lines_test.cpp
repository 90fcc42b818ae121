#include "korvalen/config/configuration_lines.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace korvalen;

namespace {

class counting_buffer : public std::stringbuf {
public:
  int flushes = 0;

protected:
  int sync() override {
    ++flushes;
    return 0;
  }
};

} // namespace

TEST(ConfigurationLines, AreFifteenAndPositional) {
  std::ostringstream file;
  write_configuration_lines(file, "/opt/k", {"/m/", "/w/"});
  EXPECT_EQ(file.str(), "/opt/k/auxiliary/key_files/\n"
                        "/m/\n"
                        "/w/\n"
                        "/opt/k/bin/\n"
                        "/opt/k/auxiliary/map_files/\n"
                        "/opt/k/auxiliary/description_files/\n"
                        "/opt/k/auxiliary/xml_parameters_definition/\n"
                        "/opt/k/auxiliary/description_files/\n"
                        "/opt/k/auxiliary/description_01_files/\n"
                        "/opt/k/auxiliary/xml_schema_files/\n"
                        "LSBF\n"
                        "ACTIVE\n"
                        "1\n"
                        "NaN\n"
                        "\n");
}

TEST(ConfigurationLines, KeepTheProductDirectoryAsItIsGiven) {
  std::ostringstream file;
  write_configuration_lines(file, "a b/", {"", ""});
  EXPECT_EQ(file.str().substr(0, file.str().find('\n')), "a b//auxiliary/key_files/");
}

TEST(ConfigurationLines, AreFlushedOneByOne) {
  counting_buffer buffer;
  std::ostream file(&buffer);
  write_configuration_lines(file, "/opt/k", {"/m/", "/w/"});
  EXPECT_EQ(buffer.flushes, 15);
}
