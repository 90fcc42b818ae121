#include "korvalen/files/file_copy.h"

#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"
#include "support/library.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

using namespace korvalen;
using support::attached_log;
using support::captured_stderr;
using support::files_left_open;
using support::mode_of;
using support::read_file;
using support::seconds_taken;
using support::write_file;
using ::testing::Eq;
using ::testing::ExitedWithCode;

namespace {

class FileCopy : public support::recording_test {};
using FileCopyDeathTest = FileCopy;

std::string varied_bytes(std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i)
    bytes += static_cast<char>(i % 251);
  return bytes;
}

std::string copy_error(const std::string &source, const std::string &target) {
  return "ERROR while copying " + source + "\n to " + target + "\n\nPlease check path and privileges!\n\n";
}

// Puts a directory, of which no byte can be read, in place of every open file of that path.
void break_reading_of(const std::string &path) {
  const int directory = open("/", O_RDONLY | O_CLOEXEC);
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) == path)
      dup2(directory, std::stoi(entry.path().filename()));
  }
  close(directory);
}

} // namespace

TEST_F(FileCopy, CopiesEveryByteAroundTheBlockSizes) {
  for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8192U, 100'000U}) {
    const std::string bytes = varied_bytes(size);
    write_file("source", bytes);
    std::filesystem::remove("target");
    EXPECT_TRUE(fdfCopyFile("source", "target", 0, false));
    EXPECT_EQ(read_file("target"), bytes) << size;
    EXPECT_EQ(read_file("source"), bytes) << size;
  }
}

TEST_F(FileCopy, CreatesATargetWithTheModeOfANewFile) {
  write_file("source", "a", 0755);
  umask(027);
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, true));
  EXPECT_EQ(mode_of("target"), 0640U);
}

TEST_F(FileCopy, OntoItselfKeepsTheBytesUnderWhateverName) {
  write_file("file", "bytes", 0600);
  std::filesystem::create_symlink("file", "link");
  std::filesystem::create_hard_link("file", "second");
  for (const char *name : {"file", "./file", "link", "second"}) {
    EXPECT_TRUE(fdfCopyFile("file", name, 0, true)) << name;
    EXPECT_EQ(read_file("file"), "bytes") << name;
  }
  EXPECT_EQ(mode_of("file"), 0755U);
  EXPECT_TRUE(std::filesystem::is_symlink("link"));
  EXPECT_EQ(recorded(), "rm file\nrm ./file\nrm link\nrm second\n");
}

TEST_F(FileCopy, ReplacesTheContentsOfALongerTarget) {
  write_file("source", "new");
  write_file("target", std::string(5000, 'o'));
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, false));
  EXPECT_EQ(read_file("target"), "new");
}

TEST_F(FileCopy, MakesAReadOnlyTargetWritableAndOverwritesIt) {
  write_file("source", "new");
  write_file("target", "old", 0444);
  ASSERT_EQ(chown("target", 65534, 65534), 0);
  bool copied = false;
  const double seconds = seconds_taken([&] {
    const support::other_user nobody;
    copied = fdfCopyFile("source", "target", 0, false);
  });
  EXPECT_TRUE(copied);
  EXPECT_LT(seconds, 1.0) << "the first attempt must do";
  EXPECT_EQ(read_file("target"), "new");
  EXPECT_EQ(mode_of("target"), 0755U);
}

TEST_F(FileCopy, OverwritesThroughASymbolicLink) {
  write_file("source", "new");
  write_file("real", "old", 0600);
  std::filesystem::create_symlink("real", "target");
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, false));
  EXPECT_TRUE(std::filesystem::is_symlink("target"));
  EXPECT_EQ(read_file("real"), "new");
  EXPECT_EQ(mode_of("real"), 0755U);
}

TEST_F(FileCopy, CopiesAnEmptySourceAndRecordsIt) {
  write_file("source", "");
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, true));
  EXPECT_EQ(read_file("target"), "");
  EXPECT_EQ(recorded(), "rm target\n");
}

TEST_F(FileCopy, RecordsTheTargetOnlyWhenAsked) {
  write_file("source", "a");
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, false));
  EXPECT_EQ(recorded(), "");
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, true));
  EXPECT_EQ(recorded(), "rm target\n");
}

TEST_F(FileCopy, DoesNotRecordAKeptFile) {
  write_file("source", "a");
  EXPECT_TRUE(fdfCopyFile("source", "idl_catalog.xml", 0, true));
  EXPECT_EQ(recorded(), "");
}

TEST_F(FileCopy, IgnoresTheThirdArgument) {
  write_file("source", "a");
  EXPECT_TRUE(fdfCopyFile("source", "target", 17, false));
  EXPECT_EQ(read_file("target"), "a");
}

TEST_F(FileCopy, LogsNothingButTheRecordWhenItSucceeds) {
  write_file("source", varied_bytes(5000));
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, true));
  EXPECT_EQ(logged(), "add_korvalen_install_files : target\n");
}

TEST_F(FileCopy, LeavesNoFileOpen) {
  write_file("source", std::string(10'000, 'a'));
  for (const char *target : {"target", "target", "source"})
    EXPECT_EQ(files_left_open([&] { EXPECT_TRUE(fdfCopyFile("source", target, 0, true)); }), 0) << target;
  {
    const support::file_size_limit limit(5000);
    EXPECT_EQ(files_left_open([] { EXPECT_TRUE(fdfCopyFile("source", "cut_short", 0, true)); }), 0);
  }
  set_install_waits(false);
  EXPECT_EQ(files_left_open([] { EXPECT_FALSE(fdfCopyFile("missing", "target", 0, true)); }), 0);
  set_install_waits(true);
}

TEST_F(FileCopy, GivesUpOnAMissingSourceAfterFourSecondsWithoutAWord) {
  bool copied = true;
  const captured_stderr errors;
  const double seconds = seconds_taken([&] { copied = fdfCopyFile("missing", "target", 0, true); });
  EXPECT_FALSE(copied);
  EXPECT_GE(seconds, 4.0);
  EXPECT_LT(seconds, 5.0);
  EXPECT_EQ(errors.text(), "");
  EXPECT_FALSE(std::filesystem::exists("target"));
  EXPECT_EQ(recorded(), "");
}

TEST_F(FileCopy, LogsAMissingSource) {
  EXPECT_FALSE(fdfCopyFile("missing", "target", 0, true));
  EXPECT_EQ(logged(), "\nerrno : 2\nFILE NOT FOUND : missing\n");
}

TEST_F(FileCopy, LogsASourceThatMayNotBeReadAndLeavesTheTargetAlone) {
  write_file("source", "secret", 0600);
  write_file("target", "old", 0666);
  {
    const support::other_user nobody;
    EXPECT_FALSE(fdfCopyFile("source", "target", 0, true));
  }
  EXPECT_EQ(logged(), "\nerrno : 13\nFILE NOT FOUND : source\n");
  EXPECT_EQ(read_file("target"), "old");
  EXPECT_EQ(mode_of("target"), 0666U);
}

TEST_F(FileCopy, CopiesASourceThatAppearsBeforeTheFifthAttempt) {
  bool copied = false;
  std::thread late([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    write_file("late", "a");
    std::filesystem::rename("late", "source");
  });
  const double seconds = seconds_taken([&] { copied = fdfCopyFile("source", "target", 0, false); });
  late.join();
  EXPECT_TRUE(copied);
  EXPECT_GE(seconds, 4.0);
  EXPECT_EQ(read_file("target"), "a");
}

TEST_F(FileCopyDeathTest, EndsWith255AfterFourSecondsWhenTheTargetsDirectoryIsMissing) {
  write_file("source", "a");
  const double seconds = seconds_taken([&] {
    EXPECT_EXIT(fdfCopyFile("source", "missing/target", 0, true), ExitedWithCode(255),
                Eq("ERROR while copying source\n"
                   " to missing/target\n"
                   "\n"
                   "Please check path and privileges!\n"
                   "\n"));
  });
  EXPECT_GE(seconds, 4.0);
  EXPECT_FALSE(std::filesystem::exists("missing"));
  EXPECT_EQ(recorded(), "");
}

TEST_F(FileCopyDeathTest, LogsATargetThatCannotBeCreatedBeforeItEnds) {
  write_file("source", "a");
  std::filesystem::create_directory("target");
  EXPECT_EXIT(
      {
        std::ofstream log("log");
        set_install_log(&log);
        fdfCopyFile("source", "target", 0, true);
      },
      ExitedWithCode(255), Eq(copy_error("source", "target")));
  EXPECT_EQ(read_file("log"), "\nerrno : 21\nCREATE FILE ERROR : target\n");
}

TEST_F(FileCopyDeathTest, TellsACopyErrorInFiveLinesAndEndsWith255) {
  EXPECT_EXIT(end_with_copy_error("/src/a b", "/dst/a b"), ExitedWithCode(255),
              Eq(copy_error("/src/a b", "/dst/a b")));
}

TEST_F(FileCopy, GoesOnAfterAShortWriteAndLogsEachOne) {
  const std::string bytes = varied_bytes(3UL * 4096);
  write_file("source", bytes);
  const captured_stderr errors;
  bool copied = false;
  {
    const support::file_size_limit limit(5000);
    copied = fdfCopyFile("source", "target", 0, true);
  }
  EXPECT_TRUE(copied);
  EXPECT_EQ(read_file("target"), bytes.substr(0, 5000));
  EXPECT_EQ(logged(), "\nerrno : 27\nWRITE IN  FILE ERROR : target\n"
                      "\nerrno : 27\nWRITE IN  FILE ERROR : target\n"
                      "add_korvalen_install_files : target\n");
  EXPECT_EQ(errors.text(), "");
  EXPECT_EQ(recorded(), "rm target\n");
}

TEST_F(FileCopy, WritesTheNextBlocksOnceThereIsRoomAgain) {
  const std::string bytes = varied_bytes(10'000);
  write_file("source", bytes);
  bool copied = false;
  {
    support::file_size_limit limit(5000);
    const attached_log log([&] { limit.lift(); });
    copied = fdfCopyFile("source", "target", 0, true);
  }
  EXPECT_TRUE(copied);
  EXPECT_EQ(read_file("target"), bytes.substr(0, 5000) + bytes.substr(8192));
}

TEST_F(FileCopy, TakesAReadErrorInTheMiddleAsTheEndOfTheFile) {
  // Much more than is read before the first write.
  write_file("source", varied_bytes(1'000'000));
  const captured_stderr errors;
  bool copied = false;
  std::string logged;
  {
    const support::file_size_limit limit(1000);
    const attached_log log([&] { break_reading_of(path("source")); });
    copied = fdfCopyFile(path("source").c_str(), "target", 0, false);
    logged = log.text();
  }
  EXPECT_TRUE(copied);
  EXPECT_EQ(read_file("target"), varied_bytes(1000));
  std::string short_writes;
  for (int i = 0; i < 16; ++i)
    short_writes += "\nerrno : 27\nWRITE IN  FILE ERROR : target\n";
  EXPECT_EQ(logged, short_writes);
  EXPECT_EQ(errors.text(), "");
}

TEST_F(FileCopy, TakesASourceThatCannotBeReadAtAllAsEmpty) {
  std::filesystem::create_directory("source");
  EXPECT_TRUE(fdfCopyFile("source", "target", 0, true));
  EXPECT_EQ(read_file("target"), "");
  EXPECT_EQ(recorded(), "rm target\n");
}

TEST(Sleep, LastsForTheWholeSecondsAndReturnsThem) {
  int slept = 0;
  const double seconds = seconds_taken([&] { slept = fdfSleep(1.9); });
  EXPECT_EQ(slept, 1);
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, 1.9);
  EXPECT_LT(seconds_taken([&] { slept = fdfSleep(0.9); }), 0.9);
  EXPECT_EQ(slept, 0);
  EXPECT_EQ(fdfSleep(0.0), 0);
}

TEST(Sleep, ReturnsTheWholeSecondsAtOnceUntilItIsToldToWaitAgain) {
  int slept = 0;
  set_install_waits(false);
  EXPECT_LT(seconds_taken([&] { slept = fdfSleep(3.5); }), 1.0);
  EXPECT_EQ(slept, 3);
  set_install_waits(true);
  EXPECT_GE(seconds_taken([&] { slept = fdfSleep(1.0); }), 1.0);
  EXPECT_EQ(slept, 1);
}

TEST(Sleep, GoesOnAfterASignalForTheWholeSecondsThatAreLeft) {
  void (*const previous)(int) = std::signal(SIGALRM, [](int) {});
  const itimerval after_half_a_second{{0, 0}, {0, 500'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &after_half_a_second, nullptr), 0);
  int slept = 0;
  const double seconds = seconds_taken([&] { slept = fdfSleep(2.0); });
  EXPECT_GE(seconds, 1.5);
  EXPECT_EQ(slept, 2);
  std::signal(SIGALRM, previous);
}
