#include "korvalen/patch/launch_script.h"

#include "korvalen/files/file_copy.h"
#include "support/child.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

using support::call;
using support::call_as_other_user;
using support::Ended;
using support::files_left_open;
using support::mode_of;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

using patch_function = int (*)(const char *script, const char *product_dir, const char *init_dir);
constexpr patch_function patch_envi = korvalen::fkorvPatchEnviScript;
constexpr patch_function patch_idl = korvalen::fkorvPatchIdlScript;

constexpr const char *envi_script = "#!/bin/sh\n"
                                    "ENVI_DIR=/e\n"
                                    "if [ -d /e/lib ]; then\n"
                                    "  LD_LIBRARY_PATH=/e/lib\n"
                                    "fi\n"
                                    "if [ $# -gt 0 ]; then shift; fi\n"
                                    "exec /e/envi\n";

constexpr const char *patched_envi_script = "#!/bin/sh\n"
                                            "ENVI_DIR=/e\n"
                                            "if [ \"$KORVALEN_INIT_DIR\" = \"\" ]; then\n"
                                            "   KORVALEN_INIT_DIR=/etc/quorin\n"
                                            "   export KORVALEN_INIT_DIR\n"
                                            "fi\n"
                                            "\n"
                                            "if [ -d /e/lib ]; then\n"
                                            "  LD_LIBRARY_PATH=/e/lib\n"
                                            "fi\n"
                                            "if [ $# -gt 0 ]; then shift; fi\n"
                                            "exec /e/envi\n";

constexpr const char *idl_script = "#!/bin/sh\n"
                                   "IDL_DIR=/e/idl86\n"
                                   "INSTALL_DIR=/e\n"
                                   "exec /e/idl86/idl\n";

constexpr const char *patched_idl_script = "#!/bin/sh\n"
                                           "IDL_DIR=/e/idl86\n"
                                           "KORVALEN_INIT_DIR=/etc/quorin\n"
                                           "export KORVALEN_INIT_DIR\n"
                                           "\n"
                                           "INSTALL_DIR=/e\n"
                                           "exec /e/idl86/idl\n";

std::string envi_block(const std::string &value) {
  return "if [ \"$KORVALEN_INIT_DIR\" = \"\" ]; then\n"
         "   KORVALEN_INIT_DIR=" +
         value +
         "\n"
         "   export KORVALEN_INIT_DIR\n"
         "fi\n"
         "\n";
}

std::string idl_block(const std::string &value) {
  return "KORVALEN_INIT_DIR=" + value + "\nexport KORVALEN_INIT_DIR\n\n";
}

// Whatever scripts are patched here, nothing is recorded, and nothing but the script and its backup remains.
struct LaunchScript : support::recording_test {
  LaunchScript() { write_file(path("bin/untouched"), "", 0640); }

  std::string script() const { return path("bin/script"); }
  std::string backup() const { return path("bin/script_original"); }

  // The patch in this process; it may wait, but not end the process.
  int patch(patch_function function, const char *init_dir = "/etc/quorin") const {
    return function(script().c_str(), "/opt/korvalen", init_dir);
  }

  // The same in a child, for what it prints and how it ends.
  support::outcome patch_in_child(patch_function function) const {
    return call([&] { return patch(function); });
  }
  support::outcome patch_as_other_user(patch_function function) const {
    return call_as_other_user([&] { return patch(function); });
  }

  void give_directory_away() const {
    if (chown(path("bin").c_str(), 65534, 65534) != 0)
      throw std::runtime_error("test set-up: cannot give a directory away");
  }

  support::tree files() const { return snapshot(path("bin")); }
  support::tree expected(support::tree wanted) const {
    wanted["untouched"] = {"file", 0640, ""};
    return wanted;
  }

  // The block of lines with which the process ends when a file cannot be created.
  std::string copy_error(const std::string &source, const std::string &target) const {
    return "ERROR while copying " + source + "\n to " + target + "\n\nPlease check path and privileges!\n\n";
  }
};

using EnviScript = LaunchScript;
using IdlScript = LaunchScript;

TEST_F(EnviScript, GetsTheBlockBeforeItsFirstTest) {
  write_file(script(), envi_script, 0555);
  EXPECT_THAT(patch_in_child(patch_envi), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, patched_envi_script}},
                               {"script_original", {"file", 0644, envi_script}}}));
}

TEST_F(EnviScript, IsNotRecordedAndNotLogged) {
  write_file(script(), envi_script);
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "");
}

TEST_F(EnviScript, TakesASecond) {
  write_file(script(), envi_script);
  EXPECT_GE(support::seconds_taken([this] { EXPECT_EQ(patch(patch_envi), 1); }), 1.0);
}

TEST_F(EnviScript, WithoutATestGetsTheBlockAboveItsInterpreterLine) {
  write_file(script(), "#!/bin/sh\nIF [ a ]\nif test\nexec envi\n");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()), envi_block("/etc/quorin") + "#!/bin/sh\nIF [ a ]\nif test\nexec envi\n");
}

TEST_F(EnviScript, WithATestInItsFirstLineGetsTheBlockAtTheTop) {
  write_file(script(), "if [ a ]; then b; fi\nif [ c ]; then d; fi\n");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()), envi_block("/etc/quorin") + "if [ a ]; then b; fi\nif [ c ]; then d; fi\n");
}

TEST_F(EnviScript, GetsTheBlockBeforeATestThatIsOnlyPartOfAComment) {
  write_file(script(), "#!/bin/sh\n# elif [ or not\nif [ a ]; then b; fi\n");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()),
            "#!/bin/sh\n" + envi_block("/etc/quorin") + "# elif [ or not\nif [ a ]; then b; fi\n");
}

TEST_F(EnviScript, ExportsTheProductDirectoryWithoutAnInitDirectory) {
  write_file(script(), "exec envi\n");
  EXPECT_EQ(patch(patch_envi, nullptr), 1);
  EXPECT_EQ(read_file(script()), envi_block("/opt/korvalen") + "exec envi\n");
}

TEST_F(EnviScript, KeepsLinesAboutLibrariesAsLongAsItHoldsNoBlock) {
  write_file(script(), "a\nLD_LIBRARY_PATH=exe_envi\nb\nif [ c ]\n");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()),
            "a\nLD_LIBRARY_PATH=exe_envi\nb\n" + envi_block("/etc/quorin") + "if [ c ]\n");
}

TEST_F(EnviScript, PatchedTwiceIsAsPatchedOnce) {
  write_file(script(), envi_script, 0755);
  EXPECT_EQ(patch(patch_envi), 1);
  const support::tree once = files();
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(files(), once);
  EXPECT_EQ(read_file(script()), patched_envi_script);
}

TEST_F(EnviScript, PatchedWithAnotherDirectoryHoldsOnlyTheOther) {
  write_file(script(), "a\nif [ b ]\n");
  EXPECT_EQ(patch(patch_envi, "/a"), 1);
  EXPECT_EQ(patch(patch_envi, "/b"), 1);
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, "a\n" + envi_block("/b") + "if [ b ]\n"}},
                               {"script_original", {"file", 0644, "a\nif [ b ]\n"}}}));
}

TEST_F(EnviScript, IsPatchedFromItsBackupWhateverItHoldsItself) {
  write_file(backup(), "kept\n", 0600);
  write_file(script(), "changed since\nif [ a ]\n", 0444);
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, envi_block("/etc/quorin") + "kept\n"}},
                               {"script_original", {"file", 0600, "kept\n"}}}));
}

TEST_F(EnviScript, MissingBesideItsBackupComesBackAsANewFile) {
  write_file(backup(), "kept\n", 0755);
  EXPECT_THAT(patch_in_child(patch_envi), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, envi_block("/etc/quorin") + "kept\n"}},
                               {"script_original", {"file", 0755, "kept\n"}}}));
}

TEST_F(EnviScript, ThatIsEmptyIsReportedByEveryRunAndStaysEmpty) {
  write_file(script(), "", 0711);
  const std::string message = "WRONG size envi script 2 :: " + script() + "\n";
  for (int run = 1; run <= 2; ++run) {
    EXPECT_THAT(patch_in_child(patch_envi), Ended(0, message, "")) << "run " << run;
    EXPECT_EQ(files(), expected({{"script", {"file", 0755, ""}}, {"script_original", {"file", 0644, ""}}}))
        << "run " << run;
  }
}

TEST_F(EnviScript, ThatIsMissingIsCreatedWithTheBlockAloneAndTheModeOfANewFile) {
  const std::string messages =
      "WRONG envi script 1 : " + script() + "\nWRONG size envi script 2 :: " + script() + "\n";
  EXPECT_THAT(patch_in_child(patch_envi), Ended(1, messages, ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, envi_block("/etc/quorin")}}}));
}

TEST_F(EnviScript, CreatedByAnEarlierRunHoldsOneBlockAfterTheNext) {
  EXPECT_EQ(patch(patch_envi, "/a"), 1);
  EXPECT_THAT(patch_in_child(patch_envi), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, envi_block("/etc/quorin")}},
                               {"script_original", {"file", 0644, envi_block("/a")}}}));
}

TEST_F(EnviScript, InAMissingDirectoryIsNotCreated) {
  const std::string missing = path("gone/script");
  EXPECT_THAT(
      call([&] { return patch_envi(missing.c_str(), "/p", "/i"); }),
      Ended(1, "WRONG envi script 1 : " + missing + "\nWRONG size envi script 2 :: " + missing + "\n", ""));
  EXPECT_FALSE(support::fs::exists(path("gone")));
}

// Nothing may be written over a script that only could not be seen for a moment.
TEST_F(EnviScript, ThatAppearsDuringTheWaitIsLeftAlone) {
  ASSERT_EQ(mkfifo(path("told").c_str(), 0600), 0);
  support::other_program program([this] {
    std::ifstream told(path("told"));
    std::string message;
    std::getline(told, message);
    write_file(script(), "suddenly\n", 0700);
    std::getline(told, message);
  });
  const support::outcome ended = call([this] {
    if (std::freopen(path("told").c_str(), "w", stdout) == nullptr)
      return 126;
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    return patch(patch_envi);
  });
  ASSERT_TRUE(program.finish());
  EXPECT_THAT(ended, Ended(0, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0700, "suddenly\n"}}}));
}

TEST_F(EnviScript, WithCarriageReturnsGetsAnEmptyLineAfterEachOfTheseLines) {
  write_file(script(), "#!/bin/sh\r\nplain\nif [ a ]\r\n\r\nlast");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()),
            "#!/bin/sh\n\nplain\n" + envi_block("/etc/quorin") + "if [ a ]\n\n\n\nlast\n");
  EXPECT_EQ(read_file(backup()), "#!/bin/sh\r\nplain\nif [ a ]\r\n\r\nlast");
}

TEST_F(EnviScript, BehindALinkIsPatchedThroughItAndKeptBesideIt) {
  write_file(path("real/envi.sh"), envi_script, 0700);
  support::fs::create_symlink("../real/envi.sh", script());
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(files(), expected({{"script", {"link", 0, "../real/envi.sh"}},
                               {"script_original", {"file", 0644, envi_script}}}));
  EXPECT_EQ(snapshot(path("real")), (support::tree{{"envi.sh", {"file", 0755, patched_envi_script}}}));
}

TEST_F(EnviScript, WhoseBackupIsALinkToItIsGivenARealOne) {
  write_file(script(), envi_script);
  support::fs::create_symlink("script", backup());
  EXPECT_THAT(patch_in_child(patch_envi), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, patched_envi_script}},
                               {"script_original", {"file", 0644, envi_script}}}));
}

// There is nothing to restore it from, and no free name for a backup.
TEST_F(EnviScript, ThatIsItsOwnBackupIsReportedAndStaysAsItWas) {
  write_file(backup(), envi_script, 0700);
  support::fs::create_symlink("script_original", script());
  EXPECT_THAT(patch_in_child(patch_envi), Ended(0, "WRONG size envi script 2 :: " + script() + "\n", ""));
  support::fs::remove(script());
  support::fs::create_hard_link(backup(), script());
  EXPECT_THAT(patch_in_child(patch_envi), Ended(0, "WRONG size envi script 2 :: " + script() + "\n", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0700, envi_script}},
                               {"script_original", {"file", 0700, envi_script}}}));
}

TEST_F(EnviScript, ThatCannotBeReadIsReportedAndStaysAsItWas) {
  write_file(script(), envi_script, 0700);
  give_directory_away();
  EXPECT_THAT(patch_as_other_user(patch_envi),
              Ended(0, "WRONG size envi script 2 :: " + script() + "\n", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0700, envi_script}}}));
}

// Whoever may write the script may restore it, but not make it readable when it is somebody else's.
TEST_F(EnviScript, ThatCannotBeReadOnceRestoredIsReportedAndStaysRestored) {
  write_file(backup(), "kept\n");
  write_file(script(), "changed since\n", 0222);
  EXPECT_THAT(patch_as_other_user(patch_envi),
              Ended(0, "WRONG size envi script 2 :: " + script() + "\n", ""));
  EXPECT_EQ(files(),
            expected({{"script", {"file", 0222, "kept\n"}}, {"script_original", {"file", 0644, "kept\n"}}}));
}

// The copy tries five times, a second apart, and gives up without a word.
TEST_F(EnviScript, WhoseBackupCannotBeReadIsPatchedAsItStands) {
  write_file(backup(), "kept\n", 0);
  write_file(script(), "a\n" + envi_block("/old") + "if [ b ]\n", 0666);
  EXPECT_GE(
      support::seconds_taken([this] { EXPECT_THAT(patch_as_other_user(patch_envi), Ended(1, "", "")); }),
      5.0);
  EXPECT_EQ(files(), expected({{"script", {"file", 0666, "a\n" + envi_block("/etc/quorin") + "if [ b ]\n"}},
                               {"script_original", {"file", 0, "kept\n"}}}));
}

TEST_F(EnviScript, WhoseBackupCannotBeMadeEndsTheProcess) {
  write_file(script(), envi_script);
  EXPECT_THAT(patch_as_other_user(patch_envi), Ended(255, "", copy_error(script(), backup())));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, envi_script}}}));
}

TEST_F(EnviScript, ThatCannotBePutBackEndsTheProcess) {
  write_file(script(), "patched\n");
  write_file(backup(), "kept\n");
  give_directory_away();
  EXPECT_THAT(patch_as_other_user(patch_envi), Ended(255, "", copy_error(backup(), script())));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, "patched\n"}},
                               {"script_original", {"file", 0644, "kept\n"}}}));
}

// Somebody takes the script away between its restoring and its rewriting. It starts as a FIFO, so that the
// moment is known: the restored text has arrived, and the reading back has begun.
void take_away_once_restored(const std::string &script) {
  const std::string restored = read_file(script);
  std::ofstream read_back(script);
  support::fs::remove(script);
  write_file(script, restored, 0444);
  read_back << restored;
}

TEST_F(LaunchScript, IsNotLeftOpenHoweverItIsPatched) {
  const char *const texts[] = {envi_script, idl_script, ""};
  korvalen::set_install_waits(false);
  for (const patch_function function : {patch_envi, patch_idl})
    for (const char *text : texts) {
      support::fs::remove(backup());
      write_file(script(), text, 0755);
      const int patched = *text == '\0' ? 0 : 1;
      EXPECT_EQ(files_left_open([&] { EXPECT_EQ(patch(function), patched); }), 0) << "with a new backup";
      EXPECT_EQ(files_left_open([&] { EXPECT_EQ(patch(function), patched); }), 0) << "again";
      support::fs::remove(script());
      EXPECT_EQ(files_left_open([&] { EXPECT_EQ(patch(function), patched); }), 0) << "from its backup";
    }
  korvalen::set_install_waits(true);
}

TEST_F(LaunchScript, IsNotLeftOpenWhenItIsMissingOrCannotBeRead) {
  korvalen::set_install_waits(false);
  EXPECT_EQ(files_left_open([this] { patch(patch_idl); }), 0) << "missing, IDL's";
  EXPECT_FALSE(support::fs::exists(script()));
  EXPECT_EQ(files_left_open([this] { patch(patch_envi); }), 0) << "missing, ENVI's";
  write_file(script(), envi_script, 0700);
  give_directory_away();
  for (const patch_function function : {patch_envi, patch_idl}) {
    const support::other_user nobody;
    EXPECT_EQ(files_left_open([&] { EXPECT_EQ(patch(function), 0); }), 0) << "unreadable";
  }
  korvalen::set_install_waits(true);
}

TEST_F(LaunchScript, ThatCannotBeRewrittenKeepsWhatWasRestored) {
  for (const patch_function function : {patch_envi, patch_idl}) {
    write_file(backup(), "kept\nINSTALL_DIR=\n");
    ASSERT_EQ(mkfifo(script().c_str(), 0600), 0);
    ASSERT_EQ(chown(script().c_str(), 65534, 65534), 0);
    support::other_program program([this] { take_away_once_restored(script()); });
    const support::outcome ended = patch_as_other_user(function);
    ASSERT_TRUE(program.finish());
    EXPECT_THAT(ended, Ended(1, "", ""));
    EXPECT_EQ(files(), expected({{"script", {"file", 0444, "kept\nINSTALL_DIR=\n"}},
                                 {"script_original", {"file", 0644, "kept\nINSTALL_DIR=\n"}}}));
    support::fs::remove(script());
  }
}

TEST_F(IdlScript, GetsTheBlockBeforeItsInstallationDirectory) {
  write_file(script(), idl_script, 0555);
  EXPECT_THAT(patch_in_child(patch_idl), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, patched_idl_script}},
                               {"script_original", {"file", 0644, idl_script}}}));
}

TEST_F(IdlScript, IsNotRecordedAndNotLogged) {
  write_file(script(), idl_script);
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "");
}

// The fastest of a few, since a busy machine may hold one up.
TEST_F(IdlScript, IsPatchedWithoutWaiting) {
  write_file(script(), idl_script);
  double fastest = 60;
  for (int run = 0; run < 5; ++run)
    fastest = std::min(fastest, support::seconds_taken([this] { EXPECT_EQ(patch(patch_idl), 1); }));
  EXPECT_LT(fastest, 1.0);
}

TEST_F(IdlScript, GetsTheBlockBeforeALongerNameThatEndsLikeTheInstallationDirectory) {
  write_file(script(), "#!/bin/sh\nINSTALL_DIR =x\nIDL_INSTALL_DIR=/e\nINSTALL_DIR=/f\n");
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(read_file(script()), "#!/bin/sh\nINSTALL_DIR =x\n" + idl_block("/etc/quorin") +
                                     "IDL_INSTALL_DIR=/e\nINSTALL_DIR=/f\n");
}

TEST_F(IdlScript, WithoutAnInstallationDirectoryGetsTheBlockAboveItsInterpreterLine) {
  write_file(script(), "#!/bin/sh\nif [ a ]\ninstall_dir=b\n");
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(read_file(script()), idl_block("/etc/quorin") + "#!/bin/sh\nif [ a ]\ninstall_dir=b\n");
}

TEST_F(IdlScript, WithItsInstallationDirectoryInTheFirstLineGetsTheBlockAtTheTop) {
  write_file(script(), "INSTALL_DIR=/a\nINSTALL_DIR=/b\n");
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(read_file(script()), idl_block("/etc/quorin") + "INSTALL_DIR=/a\nINSTALL_DIR=/b\n");
}

TEST_F(IdlScript, ExportsTheProductDirectoryWithoutAnInitDirectory) {
  write_file(script(), "exec idl\n");
  EXPECT_EQ(patch(patch_idl, nullptr), 1);
  EXPECT_EQ(read_file(script()), idl_block("/opt/korvalen") + "exec idl\n");
}

TEST_F(IdlScript, PatchedTwiceIsAsPatchedOnce) {
  write_file(script(), idl_script, 0755);
  EXPECT_EQ(patch(patch_idl), 1);
  const support::tree once = files();
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(files(), once);
  EXPECT_EQ(read_file(script()), patched_idl_script);
}

TEST_F(IdlScript, PatchedWithAnotherDirectoryHoldsOnlyTheOther) {
  write_file(script(), "a\nINSTALL_DIR=b\n");
  EXPECT_EQ(patch(patch_idl, "/a"), 1);
  EXPECT_EQ(patch(patch_idl, "/b"), 1);
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, "a\n" + idl_block("/b") + "INSTALL_DIR=b\n"}},
                               {"script_original", {"file", 0644, "a\nINSTALL_DIR=b\n"}}}));
}

TEST_F(IdlScript, MissingBesideItsBackupComesBackAsANewFile) {
  write_file(backup(), "kept\n", 0755);
  EXPECT_THAT(patch_in_child(patch_idl), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, idl_block("/etc/quorin") + "kept\n"}},
                               {"script_original", {"file", 0755, "kept\n"}}}));
}

TEST_F(IdlScript, ThatIsMissingIsReportedAndNotCreated) {
  EXPECT_THAT(patch_in_child(patch_idl), Ended(0, "WRONG idl script 3 : " + script() + "\n", ""));
  EXPECT_EQ(files(), expected({}));
}

TEST_F(IdlScript, ThatIsEmptyIsReportedByEveryRunAndStaysEmpty) {
  write_file(script(), "", 0711);
  const std::string message = "WRONG size envi script 4 : " + script() + "\n";
  for (int run = 1; run <= 2; ++run) {
    EXPECT_THAT(patch_in_child(patch_idl), Ended(0, message, "")) << "run " << run;
    EXPECT_EQ(files(), expected({{"script", {"file", 0755, ""}}, {"script_original", {"file", 0644, ""}}}))
        << "run " << run;
  }
}

TEST_F(IdlScript, WithoutABackupAfterAllIsReportedAndStaysAsItWas) {
  write_file(script(), idl_script, 0700);
  give_directory_away();
  EXPECT_THAT(patch_as_other_user(patch_idl), Ended(0, "WRONG size envi script 4 : " + script() + "\n", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0700, idl_script}}}));
}

TEST_F(IdlScript, ThatCannotBeReadOnceRestoredIsReportedAndStaysRestored) {
  write_file(backup(), "kept\n");
  write_file(script(), "changed since\n", 0222);
  EXPECT_THAT(patch_as_other_user(patch_idl), Ended(0, "WRONG size envi script 4 : " + script() + "\n", ""));
  EXPECT_EQ(files(),
            expected({{"script", {"file", 0222, "kept\n"}}, {"script_original", {"file", 0644, "kept\n"}}}));
}

TEST_F(IdlScript, WhoseBackupCannotBeReadIsPatchedAsItStands) {
  write_file(backup(), "kept\n", 0);
  write_file(script(), "a\n" + idl_block("/old") + "INSTALL_DIR=b\n", 0666);
  EXPECT_GE(support::seconds_taken([this] { EXPECT_THAT(patch_as_other_user(patch_idl), Ended(1, "", "")); }),
            4.0);
  EXPECT_EQ(files(),
            expected({{"script", {"file", 0666, "a\n" + idl_block("/etc/quorin") + "INSTALL_DIR=b\n"}},
                      {"script_original", {"file", 0, "kept\n"}}}));
}

TEST_F(IdlScript, WithCarriageReturnsGetsAnEmptyLineAfterEachOfTheseLines) {
  write_file(script(), "#!/bin/sh\r\nINSTALL_DIR=a\r\nlast");
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(read_file(script()), "#!/bin/sh\n\n" + idl_block("/etc/quorin") + "INSTALL_DIR=a\n\nlast\n");
}

TEST_F(IdlScript, BehindALinkIsPatchedThroughItAndKeptBesideIt) {
  write_file(path("real/idl.sh"), idl_script, 0700);
  support::fs::create_symlink("../real/idl.sh", script());
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(files(), expected({{"script", {"link", 0, "../real/idl.sh"}},
                               {"script_original", {"file", 0644, idl_script}}}));
  EXPECT_EQ(snapshot(path("real")), (support::tree{{"idl.sh", {"file", 0755, patched_idl_script}}}));
}

TEST_F(IdlScript, WhoseBackupIsALinkToItIsGivenARealOne) {
  write_file(script(), idl_script);
  support::fs::create_symlink("script", backup());
  EXPECT_THAT(patch_in_child(patch_idl), Ended(1, "", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0755, patched_idl_script}},
                               {"script_original", {"file", 0644, idl_script}}}));
}

// There is nothing to restore it from, and no free name for a backup.
TEST_F(IdlScript, ThatIsItsOwnBackupIsReportedAndStaysAsItWas) {
  write_file(backup(), idl_script, 0700);
  support::fs::create_symlink("script_original", script());
  EXPECT_THAT(patch_in_child(patch_idl), Ended(0, "WRONG size envi script 4 : " + script() + "\n", ""));
  support::fs::remove(script());
  support::fs::create_hard_link(backup(), script());
  EXPECT_THAT(patch_in_child(patch_idl), Ended(0, "WRONG size envi script 4 : " + script() + "\n", ""));
  EXPECT_EQ(files(), expected({{"script", {"file", 0700, idl_script}},
                               {"script_original", {"file", 0700, idl_script}}}));
}

TEST_F(IdlScript, WhoseBackupCannotBeMadeEndsTheProcess) {
  write_file(script(), idl_script);
  EXPECT_THAT(patch_as_other_user(patch_idl), Ended(255, "", copy_error(script(), backup())));
  EXPECT_EQ(files(), expected({{"script", {"file", 0644, idl_script}}}));
}

TEST_F(IdlScript, ThatCannotBePutBackEndsTheProcess) {
  write_file(backup(), "kept\n");
  support::fs::create_directory(script());
  EXPECT_THAT(patch_in_child(patch_idl), Ended(255, "", copy_error(backup(), script())));
  EXPECT_EQ(files(),
            expected({{"script", {"directory", 0755, ""}}, {"script_original", {"file", 0644, "kept\n"}}}));
}

// What a backup that already carries a block becomes.
struct rewriting {
  const char *name;
  std::string backup;
  std::string script;
};

void PrintTo(const rewriting &r, std::ostream *out) {
  *out << r.name;
}

std::string name_of(const testing::TestParamInfo<rewriting> &info) {
  return info.param.name;
}

const std::string new_envi_block = envi_block("/etc/quorin");

struct EnviScriptWithABlock : LaunchScript, testing::WithParamInterface<rewriting> {};

TEST_P(EnviScriptWithABlock, GetsTheNewBlockInTheOldOnesPlace) {
  write_file(backup(), GetParam().backup);
  write_file(script(), "whatever\n");
  EXPECT_EQ(patch(patch_envi), 1);
  EXPECT_EQ(read_file(script()), GetParam().script);
}

INSTANTIATE_TEST_SUITE_P(
    Backups, EnviScriptWithABlock,
    testing::Values(
        rewriting{"AWholeBlock", "a\n" + envi_block("/old") + "if [ b ]\nc\n",
                  "a\n" + new_envi_block + "if [ b ]\nc\n"},
        rewriting{"FiveLinesGoFromTheFirstMentionOnWhateverTheyHold",
                  "a\nif [ b ]\n# KORVALEN_INIT_DIR\n2\n3\n4\n5\n6\nKORVALEN_INIT_DIR=x\n",
                  "a\nif [ b ]\n" + new_envi_block + "6\nKORVALEN_INIT_DIR=x\n"},
        rewriting{"AMentionInOtherLettersIsNone", "a\nkorvalen_init_dir\nif [ b ]\n",
                  "a\nkorvalen_init_dir\n" + new_envi_block + "if [ b ]\n"},
        rewriting{"ABlockThatIsCutShortEndsTheScript", "a\nKORVALEN_INIT_DIR\nb\n", "a\n" + new_envi_block},
        rewriting{"AMentionInTheLastLine", "a\nb\nKORVALEN_INIT_DIR", "a\nb\n" + new_envi_block},
        rewriting{"TheLibraryLineAndTheTwoAfterItGoToo",
                  "KORVALEN_INIT_DIR\n1\n2\n3\n4\nkept?\nLD_LIBRARY_PATH=exe_envi\nx\ny\nz\n",
                  new_envi_block + "z\n"},
        rewriting{
            "TheLastLibraryLineWins",
            "KORVALEN_INIT_DIR\nexe_envi $LD_LIBRARY_PATH\n2\n3\n4\n5\nLD_LIBRARY_PATH:exe_envi\n7\n8\n9\n",
            new_envi_block + "9\n"},
        rewriting{"ALibraryLineInTheLastLineDropsAllBefore",
                  "a\nKORVALEN_INIT_DIR\n1\n2\n3\n4\n5\nLD_LIBRARY_PATH=exe_envi\n", "a\n" + new_envi_block},
        rewriting{"ALibraryLineRightAtTheMentionKeepsTheOldBlocksEnd",
                  "KORVALEN_INIT_DIR LD_LIBRARY_PATH exe_envi\n1\n2\n3\n4\n5\n",
                  new_envi_block + "3\n4\n5\n"},
        rewriting{"ALibraryLineInsideTheOldBlockKeepsItsLastLine",
                  "a\nKORVALEN_INIT_DIR\nLD_LIBRARY_PATH exe_envi\n2\n3\n4\n5\n",
                  "a\n" + new_envi_block + "4\n5\n"},
        rewriting{"ALibraryLineBeforeTheMentionDoesNotCount",
                  "LD_LIBRARY_PATH exe_envi\nKORVALEN_INIT_DIR\n1\n2\n3\n4\n5\n",
                  "LD_LIBRARY_PATH exe_envi\n" + new_envi_block + "5\n"},
        rewriting{"HalfALibraryLineDoesNotCount",
                  "KORVALEN_INIT_DIR\n1\n2\n3\n4\n5\nLD_LIBRARY_PATH\nexe_envi\n8\n",
                  new_envi_block + "5\nLD_LIBRARY_PATH\nexe_envi\n8\n"}),
    name_of);

struct IdlScriptWithABlock : LaunchScript, testing::WithParamInterface<rewriting> {};

TEST_P(IdlScriptWithABlock, GetsTheNewBlockInTheOldOnesPlace) {
  write_file(backup(), GetParam().backup);
  EXPECT_EQ(patch(patch_idl), 1);
  EXPECT_EQ(read_file(script()), GetParam().script);
}

INSTANTIATE_TEST_SUITE_P(
    Backups, IdlScriptWithABlock,
    testing::Values(rewriting{"AWholeBlock", "a\n" + idl_block("/old") + "INSTALL_DIR=b\nc\n",
                              "a\n" + idl_block("/etc/quorin") + "INSTALL_DIR=b\nc\n"},
                    rewriting{"ThreeLinesGoFromTheFirstMentionOnWhateverTheyHold",
                              "INSTALL_DIR=a\n# KORVALEN_INIT_DIR\n1\n2\n3\nKORVALEN_INIT_DIR\n",
                              "INSTALL_DIR=a\n" + idl_block("/etc/quorin") + "3\nKORVALEN_INIT_DIR\n"},
                    rewriting{"ABlockThatIsCutShortEndsTheScript", "a\nKORVALEN_INIT_DIR\nb\n",
                              "a\n" + idl_block("/etc/quorin")},
                    rewriting{"LibraryLinesDoNotCount",
                              "KORVALEN_INIT_DIR\n1\n2\n3\nLD_LIBRARY_PATH exe_envi\n5\n6\n7\n",
                              idl_block("/etc/quorin") + "3\nLD_LIBRARY_PATH exe_envi\n5\n6\n7\n"}),
    name_of);

} // namespace
