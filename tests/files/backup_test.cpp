#include "korvalen/files/backup.h"

#include "korvalen/files/file_copy.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace korvalen;
using support::captured_stderr;
using support::files_left_open;
using support::mode_of;
using support::read_file;
using support::write_file;
using ::testing::Eq;
using ::testing::ExitedWithCode;

namespace {

class Backup : public support::recording_test {
protected:
  Backup() { write_file("envi", "#!/bin/sh\nexec idl\n", 0755); }

  // Everything but the uninstall script, one name a line.
  std::string names() const {
    support::tree tree = support::snapshot(scratch());
    tree.erase("uninstall.sh");
    return support::file_names(tree);
  }

  // Keeps "big", which holds 10,000 bytes, as "big_original" where only 5,000 fit.
  static bool keep_big_without_room(bool record) {
    write_file("big", std::string(10'000, 'x'));
    const support::file_size_limit limit(5000);
    return keep_original("big", "big_original", record);
  }

  // Keeps the FIFO "pipe" as "pipe_original" and acts while its copy, "pipe_original.new", is being written.
  static bool keep_pipe_and_meanwhile(const std::function<void()> &act) {
    if (mkfifo("pipe", 0600) != 0)
      throw std::runtime_error("test set-up: no FIFO");
    std::thread writer([&] {
      const int end = open("pipe", O_WRONLY | O_CLOEXEC);
      while (access("pipe_original.new", F_OK) != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      act();
      close(end);
    });
    const bool kept = keep_original("pipe", "pipe_original", true);
    writer.join();
    return kept;
  }
};
using BackupDeathTest = Backup;

std::uint32_t fourth_free_descriptor() {
  int descriptors[4];
  for (int &descriptor : descriptors)
    descriptor = dup(STDIN_FILENO);
  for (const int descriptor : descriptors)
    close(descriptor);
  return static_cast<std::uint32_t>(descriptors[3]);
}

} // namespace

TEST_F(Backup, HoldsTheOriginalsBytesWithTheModeOfANewFile) {
  umask(027);
  EXPECT_TRUE(keep_original("envi", "envi_original", false));
  EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(mode_of("envi_original"), 0640U);
  EXPECT_EQ(read_file("envi"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(mode_of("envi"), 0755U);
  EXPECT_EQ(names(), "envi\nenvi_original\n");
}

TEST_F(Backup, IsRecordedOnlyWhenAskedAndUnderItsFinalName) {
  EXPECT_TRUE(keep_original("envi", "quiet", false));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "");
  EXPECT_TRUE(keep_original("envi", "envi_original", true));
  EXPECT_EQ(recorded(), "rm envi_original\n");
  EXPECT_EQ(logged(), "add_korvalen_install_files : envi_original\n");
}

TEST_F(Backup, IsMadeInAnotherDirectoryOfAnEmptyOriginal) {
  write_file("empty", "");
  std::filesystem::create_directory("kept");
  EXPECT_TRUE(keep_original(path("empty").c_str(), path("kept/empty_original").c_str(), true));
  EXPECT_EQ(read_file("kept/empty_original"), "");
  EXPECT_EQ(recorded(), "rm ~/kept/empty_original\n");
}

TEST_F(Backup, KeepsWhatASymbolicLinkPointsTo) {
  std::filesystem::create_symlink("envi", "link");
  EXPECT_TRUE(keep_original("link", "link_original", false));
  EXPECT_FALSE(std::filesystem::is_symlink("link_original"));
  EXPECT_EQ(read_file("link_original"), "#!/bin/sh\nexec idl\n");
}

TEST_F(Backup, NeverReplacesAnExistingOne) {
  write_file("envi_original", "kept long ago", 0600);
  EXPECT_FALSE(keep_original("envi", "envi_original", true));
  EXPECT_EQ(read_file("envi_original"), "kept long ago");
  EXPECT_EQ(mode_of("envi_original"), 0600U);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\nenvi_original\n");
}

TEST_F(Backup, NeverReplacesADirectory) {
  std::filesystem::create_directory("envi_original");
  EXPECT_FALSE(keep_original("envi", "envi_original", true));
  EXPECT_TRUE(std::filesystem::is_directory("envi_original"));
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(Backup, IsNotMadeWhereTheUserMayNotLookForOne) {
  write_file("closed/envi_original", "kept long ago");
  std::filesystem::permissions("closed", std::filesystem::perms(0700));
  bool kept = true;
  {
    const support::other_user nobody;
    kept = keep_original("envi", "closed/envi_original", false);
  }
  EXPECT_FALSE(kept);
  EXPECT_EQ(read_file("closed/envi_original"), "kept long ago");
}

TEST_F(Backup, KeepsWhatAsManyLinksLeadToAsTheSystemFollows) {
  std::filesystem::create_symlink("envi", "link1");
  for (int link = 2; link <= 40; ++link)
    std::filesystem::create_symlink("link" + std::to_string(link - 1), "link" + std::to_string(link));
  EXPECT_TRUE(keep_original("link40", "link_original", false));
  EXPECT_EQ(read_file("link_original"), "#!/bin/sh\nexec idl\n");
}

TEST_F(Backup, TakesThePlaceOfALinkAndLeavesTheLinksTargetAlone) {
  write_file("foreign", "foreign", 0600);
  for (const char *const target : {"foreign", "nowhere"}) {
    std::filesystem::remove("envi_original");
    std::filesystem::create_symlink(target, "envi_original");
    EXPECT_TRUE(keep_original("envi", "envi_original", false)) << target;
    EXPECT_FALSE(std::filesystem::is_symlink("envi_original")) << target;
    EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n") << target;
  }
  EXPECT_EQ(read_file("foreign"), "foreign");
  EXPECT_EQ(mode_of("foreign"), 0600U);
  EXPECT_EQ(names(), "envi\nenvi_original\nforeign\n");
}

TEST_F(Backup, RemovesALeftoverFileFirst) {
  write_file("envi_original.new", std::string(5000, 'x'), 0600);
  EXPECT_TRUE(keep_original("envi", "envi_original", false));
  EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(mode_of("envi_original"), 0644U);
  EXPECT_EQ(names(), "envi\nenvi_original\n");
}

TEST_F(Backup, RemovesALeftoverDirectoryFirst) {
  std::filesystem::create_directory("envi_original.new");
  EXPECT_TRUE(keep_original("envi", "envi_original", false));
  EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n");
  EXPECT_FALSE(std::filesystem::exists("envi_original.new"));
}

TEST_F(Backup, RemovesALeftoverLinkFirstAndLeavesItsTargetAlone) {
  write_file("foreign", "foreign", 0600);
  for (const char *const target : {"foreign", "nowhere"}) {
    std::filesystem::remove("envi_original");
    std::filesystem::create_symlink(target, "envi_original.new");
    EXPECT_TRUE(keep_original("envi", "envi_original", false)) << target;
    EXPECT_FALSE(std::filesystem::is_symlink("envi_original")) << target;
    EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n") << target;
  }
  EXPECT_EQ(read_file("foreign"), "foreign");
  EXPECT_EQ(mode_of("foreign"), 0600U);
  EXPECT_EQ(names(), "envi\nenvi_original\nforeign\n");
}

TEST_F(Backup, RemovesALeftoverLinkToTheOriginalFirst) {
  for (const std::string &target : {std::string("envi"), path("envi")}) {
    std::filesystem::remove("envi_original");
    std::filesystem::create_symlink(target, "envi_original.new");
    EXPECT_TRUE(keep_original("envi", "envi_original", false)) << target;
    EXPECT_FALSE(std::filesystem::is_symlink("envi_original")) << target;
    EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n") << target;
    EXPECT_EQ(read_file("envi"), "#!/bin/sh\nexec idl\n") << target;
  }
  EXPECT_EQ(mode_of("envi"), 0755U);
  EXPECT_EQ(names(), "envi\nenvi_original\n");
}

TEST_F(Backup, RemovesALeftoverThatIsASecondNameOfTheOriginalFirst) {
  std::filesystem::create_hard_link("envi", "envi_original.new");
  EXPECT_TRUE(keep_original("envi", "envi_original", true));
  EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n");
  EXPECT_FALSE(std::filesystem::equivalent("envi", "envi_original"));
  EXPECT_EQ(read_file("envi"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(mode_of("envi"), 0755U);
  EXPECT_EQ(recorded(), "rm envi_original\n");
  EXPECT_EQ(names(), "envi\nenvi_original\n");
}

// "linked" leads to "real", where the same names stand without being links.
TEST_F(Backup, RemovesALeftoverLinkToAnOriginalThatIsReachedThroughALinkedDirectory) {
  write_file("real/envi", "real");
  std::filesystem::create_symlink("real", "linked");
  std::filesystem::create_symlink(path("linked/envi"), "real/envi_original.new");
  EXPECT_TRUE(keep_original("linked/envi", "real/envi_original", false));
  EXPECT_FALSE(std::filesystem::is_symlink("real/envi_original"));
  EXPECT_EQ(read_file("real/envi_original"), "real");
  EXPECT_EQ(read_file("real/envi"), "real");
  EXPECT_FALSE(std::filesystem::is_symlink("real/envi_original.new"));
}

TEST_F(Backup, RemovesALeftoverWhenTheOriginalEndsAtThatNameInAnotherDirectory) {
  write_file("store/script_original.new", "original");
  std::filesystem::create_symlink("store/script_original.new", "script");
  std::filesystem::create_symlink("script", "script_original.new");
  EXPECT_TRUE(keep_original("script", "script_original", false));
  EXPECT_EQ(read_file("script_original"), "original");
  EXPECT_EQ(read_file("store/script_original.new"), "original");
  EXPECT_EQ(names(), "envi\nscript\nscript_original\nstore/script_original.new\n");
}

TEST_F(Backup, IsAPlainCopyWhenItsTemporaryNameIsTaken) {
  write_file("envi_original.new/somebodys", "work");
  EXPECT_TRUE(keep_original("envi", "envi_original", true));
  EXPECT_EQ(read_file("envi_original"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(recorded(), "rm envi_original\n");
  EXPECT_EQ(names(), "envi\nenvi_original\nenvi_original.new/somebodys\n");
}

TEST_F(Backup, IsNotMadeThroughALinkWhenItsTemporaryNameIsTaken) {
  write_file("envi_original.new/somebodys", "work");
  std::filesystem::create_symlink("envi", "envi_original");
  EXPECT_FALSE(keep_original("envi", "envi_original", true));
  EXPECT_EQ(read_file("envi"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(std::filesystem::read_symlink("envi_original"), "envi");
  EXPECT_EQ(recorded(), "");
}

TEST_F(Backup, IsNotMadeOfAnOriginalUnderItsTemporaryName) {
  write_file("script.new", "original");
  EXPECT_FALSE(keep_original("./script.new", "script", true));
  EXPECT_EQ(read_file("script.new"), "original");
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\nscript.new\n");
}

TEST_F(Backup, IsNotMadeOfALinkThatEndsAtItsTemporaryName) {
  std::filesystem::create_directory("bin");
  std::filesystem::create_symlink("bin", "linked");
  std::filesystem::create_symlink("near", "chain");
  for (const std::string &target :
       {std::string("script_original.new"), path("bin/script_original.new"),
        std::string("../linked/script_original.new"), std::string(".././chain"), path("chain")}) {
    write_file("bin/script_original.new", "original", 0600);
    std::filesystem::remove("near");
    std::filesystem::create_symlink("linked/script_original.new", "near");
    std::filesystem::remove("bin/script");
    std::filesystem::create_symlink(target, "bin/script");
    EXPECT_FALSE(keep_original("linked/script", "bin/script_original", true)) << target;
    EXPECT_EQ(read_file("bin/script"), "original") << target;
    EXPECT_EQ(mode_of("bin/script_original.new"), 0600U) << target;
    EXPECT_FALSE(std::filesystem::exists("bin/script_original")) << target;
  }
  EXPECT_EQ(recorded(), "");
}

// Without the link in the middle nothing would lead to the original any more.
TEST_F(Backup, IsNotMadeOfALinkThatLeadsOnThroughItsTemporaryName) {
  std::filesystem::create_symlink("script_original.new", "script");
  std::filesystem::create_symlink("envi", "script_original.new");
  EXPECT_FALSE(keep_original("script", "script_original", true));
  EXPECT_EQ(read_file("script"), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(std::filesystem::read_symlink("script_original.new"), "envi");
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\nscript\nscript_original.new\n");
}

TEST_F(Backup, IsAPlainCopyWhenItsTemporaryNameIsTooLong) {
  const std::string longest(255, 'b');
  EXPECT_TRUE(keep_original("envi", longest.c_str(), false));
  EXPECT_EQ(read_file(longest), "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(recorded(), "");
}

TEST_F(BackupDeathTest, EndsWithTheMessageThatNamesTheFinalNameWhenNothingCanBeCreated) {
  const double seconds = support::seconds_taken([] {
    EXPECT_EXIT(keep_original("envi", "missing/envi_original", true), ExitedWithCode(255),
                Eq("ERROR while copying envi\n"
                   " to missing/envi_original\n"
                   "\n"
                   "Please check path and privileges!\n"
                   "\n"));
  });
  EXPECT_GE(seconds, 4.0);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(Backup, IsNotMadeOfAMissingOriginal) {
  const captured_stderr errors;
  bool kept = true;
  const double seconds =
      support::seconds_taken([&] { kept = keep_original("missing", "missing_original", true); });
  EXPECT_FALSE(kept);
  EXPECT_GE(seconds, 4.0);
  EXPECT_LT(seconds, 5.0);
  EXPECT_EQ(errors.text(), "");
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(Backup, IsNotMadeOfAnOriginalThatMayNotBeRead) {
  write_file("shared/secret", "secret", 0600);
  std::filesystem::permissions("shared", std::filesystem::perms(0777));
  bool kept = true;
  {
    const support::other_user nobody;
    kept = keep_original("shared/secret", "shared/secret_original", true);
  }
  EXPECT_FALSE(kept);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\nshared/secret\n");
}

TEST_F(Backup, IsNotMadeWhenItsCopyIsIncomplete) {
  EXPECT_FALSE(keep_big_without_room(true));
  EXPECT_EQ(read_file("big"), std::string(10'000, 'x'));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "big\nenvi\n");
}

TEST_F(Backup, IsNotMadeWhenItsPlainCopyIsIncomplete) {
  write_file("big_original.new/somebodys", "work");
  EXPECT_FALSE(keep_big_without_room(true));
  EXPECT_EQ(read_file("big"), std::string(10'000, 'x'));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "big\nbig_original.new/somebodys\nenvi\n");
}

TEST_F(Backup, LeavesALinkInItsPlaceWhenItsCopyIsIncomplete) {
  std::filesystem::create_symlink("envi", "big_original");
  EXPECT_FALSE(keep_big_without_room(false));
  EXPECT_EQ(std::filesystem::read_symlink("big_original"), "envi");
  EXPECT_EQ(read_file("envi"), "#!/bin/sh\nexec idl\n");
}

TEST_F(Backup, IsNotMadeWhenItsCopyCannotBeOpenedToBeFlushed) {
  std::filesystem::create_directory("shared");
  std::filesystem::permissions("shared", std::filesystem::perms(0777));
  umask(0777);
  bool kept = true;
  {
    const support::other_user nobody;
    kept = keep_original("envi", "shared/envi_original", false);
  }
  EXPECT_FALSE(kept);
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(BackupDeathTest, IsNotMadeWhenItsCopyCannotBeFlushed) {
  EXPECT_EXIT(
      {
        support::fail_system_call(SYS_fsync, EIO);
        std::exit(keep_original("envi", "envi_original", true) ? 1 : 0);
      },
      ExitedWithCode(0), Eq(""));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\n");
}

// It opens four files; each of their descriptors stays open when its close fails.
TEST_F(BackupDeathTest, IsNotMadeWhenItsCopyCannotBeClosedAfterTheFlush) {
  EXPECT_EXIT(
      {
        support::fail_system_call(SYS_close, EIO, fourth_free_descriptor());
        std::exit(keep_original("envi", "envi_original", true) ? 1 : 0);
      },
      ExitedWithCode(0), Eq(""));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(BackupDeathTest, IsNotMadeWhenItsTemporaryNameCannotBeRemovedAgain) {
  EXPECT_EXIT(
      {
        support::fail_system_call(SYS_unlink, EPERM);
        std::exit(keep_original("envi", "envi_original", true) ? 1 : 0);
      },
      ExitedWithCode(0), Eq(""));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\nenvi_original.new\n");
}

TEST_F(Backup, LeavesNoFileOpenWhenItIsMade) {
  write_file("leftover_original.new", "leftover");
  write_file("taken_original.new/somebodys", "work");
  const std::string longest(255, 'b');
  for (const std::string &backup : {std::string("envi_original"), std::string("leftover_original"),
                                    std::string("taken_original"), longest})
    EXPECT_EQ(files_left_open([&] { EXPECT_TRUE(keep_original("envi", backup.c_str(), true)); }), 0)
        << backup;
}

TEST_F(Backup, LeavesNoFileOpenWhenItIsNotMade) {
  write_file("kept", "kept long ago");
  write_file("script.new", "original");
  write_file("taken.new/somebodys", "work");
  std::filesystem::create_symlink("envi", "taken");
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_original("envi", "kept", true)); }), 0);
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_original("script.new", "script", true)); }), 0);
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_original("envi", "taken", true)); }), 0);
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_big_without_room(true)); }), 0);
  write_file("big_original.new/somebodys", "work");
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_big_without_room(true)); }), 0);
  set_install_waits(false);
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_original("missing", "missing_original", true)); }), 0);
  set_install_waits(true);
}

TEST_F(Backup, LeavesNoFileOpenWhenItsCopyCannotBeOpenedToBeFlushed) {
  std::filesystem::create_directory("shared");
  std::filesystem::permissions("shared", std::filesystem::perms(0777));
  umask(0777);
  const support::other_user nobody;
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(keep_original("envi", "shared/envi_original", false)); }), 0);
}

TEST_F(Backup, LeavesNoFileOpenWhenADirectoryTakesItsNameMeanwhile) {
  EXPECT_EQ(files_left_open([] {
              EXPECT_FALSE(
                  keep_pipe_and_meanwhile([] { std::filesystem::create_directory("pipe_original"); }));
            }),
            0);
}

TEST_F(BackupDeathTest, LeavesNoFileOpenWhenItsCopyCannotBeFlushed) {
  EXPECT_EXIT(
      {
        support::fail_system_call(SYS_fsync, EIO);
        bool kept = true;
        const int left = files_left_open([&] { kept = keep_original("envi", "envi_original", true); });
        std::exit(kept ? 100 : left);
      },
      ExitedWithCode(0), Eq(""))
      << "the status is the number of files, or 100 when it was made all the same";
}

TEST_F(Backup, IsMadeOfAnOriginalWithoutASizeAsFarAsItCanBeRead) {
  EXPECT_TRUE(keep_pipe_and_meanwhile([] {}));
  EXPECT_EQ(read_file("pipe_original"), "");
  EXPECT_EQ(recorded(), "rm pipe_original\n");
}

TEST_F(Backup, IsNotMadeWhenTheOriginalVanishesMeanwhile) {
  EXPECT_FALSE(keep_pipe_and_meanwhile([] { unlink("pipe"); }));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(names(), "envi\n");
}

TEST_F(Backup, IsNotMadeWhenItsCopyVanishesMeanwhile) {
  EXPECT_FALSE(keep_pipe_and_meanwhile([] { unlink("pipe_original.new"); }));
  EXPECT_EQ(recorded(), "");
  EXPECT_FALSE(std::filesystem::exists("pipe_original"));
}

TEST_F(Backup, IsNotMadeWhenADirectoryTakesItsNameMeanwhile) {
  EXPECT_FALSE(keep_pipe_and_meanwhile([] { std::filesystem::create_directory("pipe_original"); }));
  EXPECT_EQ(recorded(), "");
  EXPECT_TRUE(std::filesystem::is_empty("pipe_original"));
  EXPECT_FALSE(std::filesystem::exists("pipe_original.new"));
}
