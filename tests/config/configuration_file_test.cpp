#include "korvalen/config/configuration_file.h"

#include "korvalen/records/uninstall_script.h"
#include "support/library.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <gtest/gtest.h>

#include <string>

using namespace korvalen;
using support::attached_log;
using support::captured_stderr;
using support::mode_of;
using support::read_file;
using support::write_file;

namespace {

class ConfigurationFile : public support::recording_test {
protected:
  static bool write(std::string product_dir, const char *init_dir) {
    return write_korvalen_configuration(product_dir.data(), init_dir);
  }
};

constexpr const char *lines_for_opt_k = "/opt/k/auxiliary/key_files/\n"
                                        "/opt/k/auxiliary/mandatory/\n"
                                        "/opt/k/work/\n"
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
                                        "\n";

constexpr const char *lines_for_opt_k_slash = "/opt/k//auxiliary/key_files/\n"
                                              "/opt/k//auxiliary/mandatory/\n"
                                              "/opt/k//work/\n"
                                              "/opt/k//bin/\n"
                                              "/opt/k//auxiliary/map_files/\n"
                                              "/opt/k//auxiliary/description_files/\n"
                                              "/opt/k//auxiliary/xml_parameters_definition/\n"
                                              "/opt/k//auxiliary/description_files/\n"
                                              "/opt/k//auxiliary/description_01_files/\n"
                                              "/opt/k//auxiliary/xml_schema_files/\n"
                                              "LSBF\n"
                                              "ACTIVE\n"
                                              "1\n"
                                              "NaN\n"
                                              "\n";

} // namespace

TEST_F(ConfigurationFile, LiesInTheSystemsInitDirectory) {
  std::filesystem::create_directories("root/etc/quorin");
  {
    const support::other_root root("root");
    init_korvalen_install_files_name("/uninstall.sh");
    EXPECT_TRUE(write("/opt/k", "/etc/quorin"));
  }
  EXPECT_EQ(read_file("root/etc/quorin/Korvalen_configuration.ini"), lines_for_opt_k);
  EXPECT_EQ(read_file("root/uninstall.sh"), "rm /etc/quorin/Korvalen_configuration.ini\n");
  EXPECT_FALSE(std::filesystem::exists("root/opt"));
}

TEST_F(ConfigurationFile, DoublesTheSlashOfAProductDirectoryThatIsItsOwnInitDirectory) {
  std::filesystem::create_directories("root");
  {
    const support::other_root root("root");
    init_korvalen_install_files_name("/uninstall.sh");
    EXPECT_TRUE(write("/opt/k/", "/opt/k/"));
  }
  EXPECT_EQ(read_file("root/opt/k/Korvalen_configuration.ini"), lines_for_opt_k_slash);
  EXPECT_EQ(read_file("root/uninstall.sh"), "rm /opt/k//Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationFile, MakesTheInitDirectoryWithAllItsParents) {
  umask(077);
  EXPECT_TRUE(write("/opt/k", path("a/b/init").c_str()));
  EXPECT_EQ(read_file("a/b/init/Korvalen_configuration.ini"), lines_for_opt_k);
  for (const char *const made : {"a", "a/b", "a/b/init"})
    EXPECT_EQ(mode_of(made), 0755U) << made;
  EXPECT_EQ(recorded(), "rm ~/a/b/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationFile, ReplacesAnExistingOneEntirely) {
  write_file("init/Korvalen_configuration.ini", std::string(5000, 'x') + "\n");
  EXPECT_TRUE(write("/opt/k", path("init").c_str()));
  EXPECT_EQ(read_file("init/Korvalen_configuration.ini"), lines_for_opt_k);
}

TEST_F(ConfigurationFile, LiesInTheProductDirectoryWithoutAnInitDirectory) {
  std::filesystem::create_directory("k");
  std::string product_dir = path("k//");
  EXPECT_TRUE(write_korvalen_configuration(product_dir.data(), nullptr));
  EXPECT_EQ(product_dir.c_str(), path("k/"));
  EXPECT_EQ(recorded(), "rm ~/k//Korvalen_configuration.ini\n");
  EXPECT_EQ(read_file("k/Korvalen_configuration.ini").substr(0, path("k//auxiliary/key_files/\n").size()),
            path("k//auxiliary/key_files/\n"));
}

TEST_F(ConfigurationFile, DoesNotMakeAProductDirectoryThatIsMissing) {
  const captured_stderr errors;
  EXPECT_FALSE(write(path("k"), nullptr));
  EXPECT_EQ(errors.text(),
            "Error: cannot create configuration file " + path("k/Korvalen_configuration.ini") + "\n");
  EXPECT_FALSE(std::filesystem::exists("k"));
}

TEST_F(ConfigurationFile, IsNamedWhenItCannotBeCreatedAndNothingIsRecorded) {
  std::filesystem::create_directories("init/Korvalen_configuration.ini");
  const captured_stderr errors;
  EXPECT_FALSE(write("/opt/k", path("init").c_str()));
  EXPECT_EQ(errors.text(),
            "Error: cannot create configuration file " + path("init/Korvalen_configuration.ini") + "\n");
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "");
}

TEST_F(ConfigurationFile, CannotBeCreatedByAUserWhoMayNotMakeTheSystemsInitDirectory) {
  std::filesystem::create_directories("root/etc");
  const captured_stderr errors;
  {
    const support::other_root root("root");
    const support::other_user nobody;
    EXPECT_FALSE(write("/opt/k", "/etc/quorin"));
  }
  EXPECT_EQ(errors.text(),
            "Error: cannot create configuration file /etc/quorin/Korvalen_configuration.ini\n");
  EXPECT_FALSE(std::filesystem::exists("root/etc/quorin"));
  EXPECT_EQ(recorded(), "");
}

TEST_F(ConfigurationFile, CannotBeCreatedByAUserWhoMayNotWriteInTheInitDirectory) {
  std::filesystem::create_directories("init");
  const captured_stderr errors;
  {
    const support::other_user nobody;
    EXPECT_FALSE(write("/opt/k", path("init").c_str()));
  }
  EXPECT_EQ(errors.text(),
            "Error: cannot create configuration file " + path("init/Korvalen_configuration.ini") + "\n");
  EXPECT_EQ(recorded(), "");
}

TEST_F(ConfigurationFile, IsRecordedBeforeItIsWritten) {
  std::string at_the_record = "not recorded";
  const attached_log log([&] { at_the_record = read_file("init/Korvalen_configuration.ini"); });
  EXPECT_TRUE(write("/opt/k", path("init").c_str()));
  EXPECT_EQ(at_the_record, "");
  EXPECT_EQ(log.text(), "add_korvalen_install_files : " + path("init/Korvalen_configuration.ini") + "\n");
}

TEST_F(ConfigurationFile, LeavesNoFileOpenWhenItIsWritten) {
  std::filesystem::create_directory("k");
  const std::string init = path("init");
  EXPECT_EQ(support::files_left_open([&] { EXPECT_TRUE(write("/opt/k", init.c_str())); }), 0);
  EXPECT_EQ(support::files_left_open([&] { EXPECT_TRUE(write(path("k"), nullptr)); }), 0);
}

TEST_F(ConfigurationFile, LeavesNoFileOpenWhenItCannotBeCreated) {
  std::filesystem::create_directories("init/Korvalen_configuration.ini");
  const std::string init = path("init");
  const captured_stderr errors;
  EXPECT_EQ(support::files_left_open([&] { EXPECT_FALSE(write("/opt/k", init.c_str())); }), 0);
  EXPECT_EQ(support::files_left_open([&] { EXPECT_FALSE(write(path("missing"), nullptr)); }), 0);
}

// Only between its creation and its writing can the file become one that cannot be opened.
TEST_F(ConfigurationFile, IsReportedAsWrittenWhenTheSecondOpenFails) {
  const attached_log log([] {
    std::filesystem::remove("init/Korvalen_configuration.ini");
    std::filesystem::create_directory("init/Korvalen_configuration.ini");
  });
  const captured_stderr errors;
  EXPECT_EQ(support::files_left_open([&] { EXPECT_TRUE(write("/opt/k", path("init").c_str())); }), 0);
  EXPECT_EQ(errors.text(), "");
  EXPECT_TRUE(std::filesystem::is_empty("init/Korvalen_configuration.ini"));
}

TEST_F(ConfigurationFile, IsReportedAsWrittenWhenAWriteFails) {
  const captured_stderr errors;
  bool written = false;
  {
    const support::file_size_limit limit(40);
    init_korvalen_install_files_name("u");
    written = write("/opt/k", path("init").c_str());
  }
  EXPECT_TRUE(written);
  EXPECT_EQ(errors.text(), "");
  EXPECT_EQ(read_file("init/Korvalen_configuration.ini"), std::string(lines_for_opt_k, 40));
}
