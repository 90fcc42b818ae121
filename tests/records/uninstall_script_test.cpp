#include "korvalen/records/uninstall_script.h"

#include "korvalen/records/install_log.h"
#include "support/library.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>

using namespace korvalen;
using support::attached_log;
using support::write_file;

namespace {

class UninstallScript : public support::recording_test {};

constexpr const char *kept_names[] = {
    "quorin_core_essentials.sav", "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_batch_init.sav",    "Korvalen_config.xml",
    "quorin_core_tasks.sav",      "korvalen_error_catalog_eng.cat",
    "korvalenuiwf_eng.cat",       "envigcpscollectwfui_eng.cat",
    "korvalen_default_eng.cat",   "idl_catalog.xml",
};

} // namespace

TEST_F(UninstallScript, IsEmptiedWhenItHoldsOldLines) {
  write_file("uninstall.sh", "rm /old\nrm -rf /older\n");
  init_korvalen_install_files("/opt/k");
  EXPECT_EQ(recorded(), "");
}

TEST_F(UninstallScript, IsCreatedWithoutHeader) {
  std::filesystem::remove("uninstall.sh");
  init_korvalen_install_files("/opt/k");
  EXPECT_EQ(recorded(), "");
}

TEST_F(UninstallScript, HoldsTheLinesInTheOrderOfRecording) {
  add_korvalen_install_files("/opt/b");
  EXPECT_EQ(recorded(), "rm /opt/b\n");
  add_dir_korvalen_install_files("/opt/k/");
  EXPECT_EQ(recorded(), "rm /opt/b\nrm -rf /opt/k/\n");
  add_korvalen_install_files("/opt/a");
  EXPECT_EQ(recorded(), "rm /opt/b\nrm -rf /opt/k/\nrm /opt/a\n");
}

TEST_F(UninstallScript, HoldsAPathTwiceThatWasRecordedTwice) {
  add_korvalen_install_files("/opt/a");
  add_korvalen_install_files("/opt/a");
  EXPECT_EQ(recorded(), "rm /opt/a\nrm /opt/a\n");
}

TEST_F(UninstallScript, HoldsPathsVerbatim) {
  add_korvalen_install_files("/opt/a b/100%s$x");
  EXPECT_EQ(recorded(), "rm /opt/a b/100%s$x\n");
}

TEST_F(UninstallScript, NeverHoldsAKeptFile) {
  for (const std::string name : kept_names) {
    add_korvalen_install_files(("/opt/k/auxiliary/" + name).c_str());
    EXPECT_EQ(recorded(), "") << name;
    EXPECT_EQ(logged(), "") << name;
  }
}

TEST_F(UninstallScript, HoldsAFileWhoseNameLacksTheFirstOrTheLastCharacterOfAKeptOne) {
  for (const std::string name : kept_names) {
    for (const std::string &near_miss : {name.substr(1), name.substr(0, name.size() - 1)}) {
      init_korvalen_install_files("/opt/k");
      add_korvalen_install_files(("/opt/k/auxiliary/" + near_miss).c_str());
      EXPECT_EQ(recorded(), "rm /opt/k/auxiliary/" + near_miss + "\n");
    }
  }
}

TEST_F(UninstallScript, HoldsTheConfigurationFileWhoseNameOnlyResemblesAKeptOne) {
  add_korvalen_install_files("/opt/k/auxiliary/Korvalen_configuration.ini");
  EXPECT_EQ(recorded(), "rm /opt/k/auxiliary/Korvalen_configuration.ini\n");
}

TEST_F(UninstallScript, DoesNotHoldFilesBelowADirectoryThatIsNamedLikeAKeptFile) {
  add_korvalen_install_files("/opt/idl_catalog.xml_old/a.sav");
  EXPECT_EQ(recorded(), "");
}

TEST_F(UninstallScript, TellsKeptNamesApartByCase) {
  add_korvalen_install_files("/opt/k/Idl_catalog.xml");
  EXPECT_EQ(recorded(), "rm /opt/k/Idl_catalog.xml\n");
}

TEST_F(UninstallScript, AlwaysHoldsADirectoryEvenOneNamedLikeAKeptFile) {
  add_dir_korvalen_install_files("/opt/k/idl_catalog.xml");
  EXPECT_EQ(recorded(), "rm -rf /opt/k/idl_catalog.xml\n");
}

TEST_F(UninstallScript, IsCreatedByTheFirstLineWhenItsDirectoryCameLater) {
  init_korvalen_install_files_name(path("later/uninstall.sh").c_str());
  init_korvalen_install_files("/opt/k");
  add_korvalen_install_files("/opt/lost");
  std::filesystem::create_directory("later");
  add_korvalen_install_files("/opt/k/a");
  EXPECT_EQ(support::read_file("later/uninstall.sh"), "rm /opt/k/a\n");
}

TEST_F(UninstallScript, LosesLinesSilentlyWhenItCannotBeOpened) {
  init_korvalen_install_files_name(path("missing/uninstall.sh").c_str());
  const support::captured_stderr errors;
  init_korvalen_install_files("/opt/k");
  add_korvalen_install_files("/opt/k/a");
  add_dir_korvalen_install_files("/opt/k");
  EXPECT_EQ(errors.text(), "");
  EXPECT_FALSE(std::filesystem::exists("missing"));
}

TEST_F(UninstallScript, CannotBeWrittenByAUserWithoutRights) {
  {
    const support::other_user nobody;
    add_korvalen_install_files("/opt/k/a");
    init_korvalen_install_files("/opt/k");
  }
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "FAIL add_korvalen_install_files : ~/uninstall.sh\n"
                      "init_korvalen_install_files : ~/uninstall.sh\n");
}

TEST_F(UninstallScript, IsNotLeftOpenByAnyOperation) {
  for (const char *script : {"uninstall.sh", "new.sh", "missing/uninstall.sh"}) {
    init_korvalen_install_files_name(path(script).c_str());
    EXPECT_EQ(support::files_left_open([] { init_korvalen_install_files("/opt/k"); }), 0) << script;
    EXPECT_EQ(support::files_left_open([] { add_korvalen_install_files("/opt/a"); }), 0) << script;
    EXPECT_EQ(support::files_left_open([] { add_korvalen_install_files("/opt/idl_catalog.xml"); }), 0)
        << script;
    EXPECT_EQ(support::files_left_open([] { add_dir_korvalen_install_files("/opt/k"); }), 0) << script;
  }
  EXPECT_EQ(support::read_file("new.sh"), "rm /opt/a\nrm -rf /opt/k\n");
}

TEST_F(UninstallScript, TracesEveryOperationInTheLog) {
  const attached_log log;
  init_korvalen_install_files_name("other.sh");
  init_korvalen_install_files("/opt/k");
  add_korvalen_install_files("/opt/k/a");
  add_dir_korvalen_install_files("/opt/k");
  EXPECT_EQ(log.text(), "init_korvalen_install_files_name : other.sh\n"
                        "init_korvalen_install_files : other.sh\n"
                        "add_korvalen_install_files : /opt/k/a\n"
                        "add_dir_korvalen_install_files : /opt/k\n");
  EXPECT_EQ(log.flushes(), 4);
}

TEST_F(UninstallScript, TracesFailuresWithTheScriptsPath) {
  init_korvalen_install_files_name("missing/u.sh");
  init_korvalen_install_files("/opt/k");
  add_korvalen_install_files("/opt/k/a");
  add_dir_korvalen_install_files("/opt/k");
  EXPECT_EQ(logged(), "init_korvalen_install_files_name : missing/u.sh\n"
                      "init_korvalen_install_files : missing/u.sh\n"
                      "FAIL add_korvalen_install_files : missing/u.sh\n"
                      "FAIL add_dir_korvalen_install_files : missing/u.sh\n");
}

TEST_F(UninstallScript, KeepsItsPathInTheProcessWideBuffer) {
  const char *const before = get_korvalen_install_files_name();
  EXPECT_EQ(before, path("uninstall.sh"));
  init_korvalen_install_files_name("other.sh");
  EXPECT_EQ(get_korvalen_install_files_name(), before);
  EXPECT_STREQ(get_korvalen_install_files_name(), "other.sh");
}

TEST_F(UninstallScript, HasAPathOfAtMost2999BytesAndNoneWhenItIsLonger) {
  init_korvalen_install_files_name(std::string(2999, 'x').c_str());
  EXPECT_EQ(get_korvalen_install_files_name(), std::string(2999, 'x'));
  init_korvalen_install_files_name(std::string(3000, 'x').c_str());
  EXPECT_STREQ(get_korvalen_install_files_name(), "");
}

// A fresh process, in which no other test has named a script.
TEST(UninstallScriptDeathTest, HasAnEmptyPathThatCannotBeOpenedBeforeItIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        set_install_log(&std::cerr);
        init_korvalen_install_files("/opt/k");
        add_korvalen_install_files("/opt/k/a");
        add_dir_korvalen_install_files("/opt/k");
        std::exit(get_korvalen_install_files_name()[0] == '\0' ? 0 : 1);
      },
      ::testing::ExitedWithCode(0),
      ::testing::Eq("init_korvalen_install_files : \n"
                    "FAIL add_korvalen_install_files : \n"
                    "FAIL add_dir_korvalen_install_files : \n"));
}
