#include "faults/power_cut.h"

#include <gtest/gtest.h>

namespace {

using faults::bytes_changed;
using faults::demand;
using faults::disk;
using faults::flushed;
using faults::name_changed;
using faults::nothing;
using faults::recorded_call;
using faults::root_directory;

constexpr faults::inode bin = 2;
constexpr faults::inode script = 3;
constexpr faults::inode copy = 4;
constexpr faults::inode second_copy = 5;
constexpr faults::inode kept = 6;

// bin/envi, as it stood on disk long before.
const disk host = {{{script, {"original", true}}},
                   {{{root_directory, "bin"}, {bin}}, {{bin, "envi"}, {script}}}};

const demand script_or_backup = {"original", {"bin/envi", "bin/envi_original"}};
const demand backup_before_script = {
    "original", {"bin/envi_original", "bin/envi"}, demand::rule::first_there_holds};

const recorded_call make_copy = {"make copy",
                                 {name_changed{bin, "envi_original.new", copy}, bytes_changed{copy, ""}}};
const recorded_call write_copy = {"write copy", {bytes_changed{copy, "original"}}};
const recorded_call flush_copy = {"flush copy", {flushed{copy}}};
const recorded_call rename_copy = {
    "rename copy",
    {name_changed{bin, "envi_original", copy}, name_changed{bin, "envi_original.new", nothing}}};
const recorded_call flush_bin = {"flush bin", {flushed{bin}}};
const recorded_call empty_script = {"empty script", {bytes_changed{script, ""}}};
const recorded_call write_script = {"write script", {bytes_changed{script, "patched"}}};
const recorded_call flush_script = {"flush script", {flushed{script}}};

// Every loss, one a line.
std::string losses(const std::vector<recorded_call> &calls, const demand &wanted, const disk &start = host) {
  std::string text;
  for (const faults::loss &one : faults::cut_at_every_call(start, calls, {wanted}))
    text += one.text + "\n";
  return text;
}

} // namespace

TEST(PowerCut, LosesNothingWhileABackupIsFlushedRenamedAndItsDirectoryFlushedBeforeTheScriptIsWritten) {
  const std::vector<recorded_call> calls = {make_copy, write_copy,   flush_copy,  rename_copy,
                                            flush_bin, empty_script, write_script};
  EXPECT_EQ(losses(calls, script_or_backup), "");
  EXPECT_EQ(losses(calls, backup_before_script), "");
}

TEST(PowerCut, LosesAScriptThatIsWrittenWithoutABackup) {
  EXPECT_EQ(losses({empty_script, write_script, flush_script}, script_or_backup),
            "after call 1, empty script: bin/envi may hold anything, bin/envi_original may be missing\n"
            "after call 2, write script: bin/envi may hold anything, bin/envi_original may be missing\n"
            "after call 3, flush script: bin/envi may hold other bytes, bin/envi_original may be missing\n");
}

TEST(PowerCut, LosesBytesThatAreWrittenAnewUntilTheyAreFlushed) {
  EXPECT_EQ(losses({empty_script, {"write the same", {bytes_changed{script, "original"}}}, flush_script},
                   {"original", {"bin/envi"}}),
            "after call 1, empty script: bin/envi may hold anything\n"
            "after call 2, write the same: bin/envi may hold anything\n");
}

TEST(PowerCut, LosesABackupWhoseBytesWereNotFlushed) {
  EXPECT_EQ(losses({make_copy, write_copy, rename_copy, flush_bin, empty_script}, script_or_backup),
            "after call 5, empty script: bin/envi may hold anything, bin/envi_original may hold anything\n");
}

TEST(PowerCut, LosesABackupWhoseNameWasNotFlushed) {
  EXPECT_EQ(losses({make_copy, write_copy, flush_copy, rename_copy, empty_script}, script_or_backup),
            "after call 5, empty script: bin/envi may hold anything, bin/envi_original may be missing\n");
}

TEST(PowerCut, LosesWhatWasWrittenAfterTheFlush) {
  EXPECT_EQ(
      losses({make_copy, flush_copy, write_copy, rename_copy, flush_bin, empty_script}, script_or_backup),
      "after call 6, empty script: bin/envi may hold anything, bin/envi_original may hold anything\n");
}

TEST(PowerCut, LosesARenameThatCameAfterTheFlushOfTheDirectory) {
  EXPECT_EQ(
      losses({make_copy, write_copy, flush_copy, flush_bin, rename_copy, empty_script}, script_or_backup),
      "after call 6, empty script: bin/envi may hold anything, bin/envi_original may be missing\n");
}

TEST(PowerCut, MayShowARenamedFileUnderNeitherName) {
  const recorded_call rename_script = {
      "rename script", {name_changed{bin, "envi_original", script}, name_changed{bin, "envi", nothing}}};
  EXPECT_EQ(losses({rename_script, flush_bin}, script_or_backup),
            "after call 1, rename script: bin/envi may be missing, bin/envi_original may be missing\n");
}

TEST(PowerCut, ShowsTheOldOrTheNewFileUnderANameThatWasRenamedOver) {
  const recorded_call rename_over = {
      "rename over", {name_changed{bin, "envi", copy}, name_changed{bin, "envi_original.new", nothing}}};
  const demand the_script = {"original", {"bin/envi"}};
  EXPECT_EQ(losses({make_copy, write_copy, flush_copy, rename_over}, the_script), "");
  EXPECT_EQ(losses({make_copy, write_copy, rename_over}, the_script),
            "after call 3, rename over: bin/envi may hold anything\n");
}

TEST(PowerCut, MayShowAFileOfBeforeUnderANameThatWasRemovedAndMadeAgain) {
  const recorded_call make_first = {"make",
                                    {name_changed{bin, "envi_original", copy}, bytes_changed{copy, ""}}};
  const recorded_call remove = {"remove", {name_changed{bin, "envi_original", nothing}}};
  const recorded_call make_again = {
      "make again",
      {name_changed{bin, "envi_original", second_copy}, bytes_changed{second_copy, "original"}}};
  const recorded_call flush_again = {"flush again", {flushed{second_copy}}};
  EXPECT_EQ(losses({make_first, remove, make_again, flush_again, flush_bin}, backup_before_script),
            "after call 1, make: bin/envi_original may hold anything\n"
            "after call 2, remove: bin/envi_original may hold anything\n"
            "after call 3, make again: bin/envi_original may hold anything\n"
            "after call 4, flush again: bin/envi_original may hold anything\n");
}

TEST(PowerCut, LosesBothNamesOfAFileThatIsWritten) {
  const recorded_call link_script = {"link script", {name_changed{bin, "envi_original", script}}};
  EXPECT_EQ(losses({link_script, flush_bin, empty_script}, script_or_backup),
            "after call 3, empty script: bin/envi may hold anything, bin/envi_original may hold anything\n");
}

TEST(PowerCut, LosesAFileWhoseFirstNameIsRemovedBeforeItsSecondIsFlushed) {
  const recorded_call link_script = {"link script", {name_changed{bin, "envi_original", script}}};
  const recorded_call remove_script = {"remove script", {name_changed{bin, "envi", nothing}}};
  EXPECT_EQ(losses({link_script, flush_bin, remove_script}, script_or_backup), "");
  EXPECT_EQ(losses({link_script, remove_script}, script_or_backup),
            "after call 2, remove script: bin/envi may be missing, bin/envi_original may be missing\n");
}

TEST(PowerCut, LosesWhatStandsInANewDirectoryUntilItsParentIsFlushed) {
  const recorded_call make_directory = {"make kept", {name_changed{root_directory, "kept", kept}}};
  const recorded_call make_file = {"make kept/1",
                                   {name_changed{kept, "1", copy}, bytes_changed{copy, "original"}}};
  const recorded_call flush_kept = {"flush kept", {flushed{kept}}};
  const recorded_call flush_root = {"flush root", {flushed{root_directory}}};
  const demand script_or_kept = {"original", {"bin/envi", "kept/1"}};

  EXPECT_EQ(
      losses({make_directory, make_file, flush_copy, flush_kept, flush_root, empty_script}, script_or_kept),
      "");
  EXPECT_EQ(losses({make_directory, make_file, flush_copy, flush_kept, empty_script}, script_or_kept),
            "after call 5, empty script: bin/envi may hold anything, kept/1 may be missing\n");
  EXPECT_EQ(losses({make_directory, flush_root, make_file, flush_copy, empty_script}, script_or_kept),
            "after call 5, empty script: bin/envi may hold anything, kept/1 may be missing\n");
}

TEST(PowerCut, ShowsOneAndTheSameDirectoryToAllPathsThroughIt) {
  // Two directories may have changed places. Each holds the file, under another name.
  disk both = host;
  both.names[{root_directory, "d"}] = {6, 7};
  both.names[{6, "first"}] = {script};
  both.names[{7, "second"}] = {script};
  EXPECT_EQ(losses({}, {"original", {"d/first", "d/second"}}, both), "");
  EXPECT_EQ(losses({}, {"original", {"d/first"}}, both), "before any call: d/first may be missing\n");
  EXPECT_EQ(losses({}, {"original", {"d/second"}}, both), "before any call: d/second may be missing\n");
}

TEST(PowerCut, TakesADirectoryOrALinkForNoFile) {
  EXPECT_EQ(losses({}, {"original", {"bin"}}), "before any call: bin may be no file\n");
}

TEST(PowerCut, TakesAHalfWrittenBackupForTheOneThatIsBelieved) {
  const std::vector<recorded_call> straight = {
      {"make backup", {name_changed{bin, "envi_original", copy}, bytes_changed{copy, ""}}},
      write_copy,
      flush_copy};
  EXPECT_EQ(losses(straight, script_or_backup), "");
  EXPECT_EQ(losses(straight, backup_before_script),
            "after call 1, make backup: bin/envi_original may hold anything\n"
            "after call 2, write copy: bin/envi_original may hold anything\n");
}

TEST(PowerCut, NamesTheDemandThatIsBroken) {
  const std::vector<faults::loss> losses =
      faults::cut_at_every_call(host, {empty_script}, {{"original", {"bin"}}, {"original", {"bin/envi"}}});
  ASSERT_EQ(losses.size(), 3U);
  EXPECT_EQ(losses[1].calls_made, 1U);
  EXPECT_EQ(losses[1].broken, 0U);
  EXPECT_EQ(losses[2].calls_made, 1U);
  EXPECT_EQ(losses[2].broken, 1U);
}

TEST(PowerCut, LetsTheProgramSeeTheNewestOfEverything) {
  disk all = host;
  for (const recorded_call &call : {make_copy, write_copy, rename_copy, empty_script, write_script})
    for (const faults::change &one : call.changes)
      faults::apply(all, one);
  EXPECT_EQ(faults::files_on(all),
            (std::map<std::string, std::string>{{"bin/envi", "patched"}, {"bin/envi_original", "original"}}));
}
