#include "admin/diff.h"

#include "support/files.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace korvalen::admin;

namespace {

class Diff : public support::scratch_test {
protected:
  // What `patch` makes of the text with the difference.
  std::string patched(const std::string &before, const std::string &difference) const {
    support::write_file(path("text"), before);
    support::write_file(path("difference"), difference);
    const support::outcome ended = support::run({"patch", "--binary", "--quiet", "--fuzz=0", "-i",
                                                 path("difference"), "-o", path("result"), path("text")});
    EXPECT_EQ(ended.status, 0) << ended << difference;
    return support::read_file(path("result"));
  }
};

std::string random_text(std::mt19937 &random) {
  const char *const lines[] = {"",      "a",  "b",   "if [",    "-- c", "+++ d", "@@ -1 +1 @@",
                               "\\ No", " e", "f\r", "\xff\x01"};
  std::string text;
  for (std::size_t i = random() % 14; i > 0; --i)
    text += std::string(lines[random() % std::size(lines)]) + "\n";
  if (random() % 3 == 0 && !text.empty())
    text.pop_back();
  return text;
}

std::string edited(std::string text, std::mt19937 &random) {
  for (std::size_t i = random() % 4; i > 0 && !text.empty(); --i) {
    const std::size_t at = random() % text.size();
    if (random() % 2 == 0)
      text.erase(at, 1 + random() % 5);
    else
      text.insert(at, random() % 2 == 0 ? "x\n" : "y");
  }
  return text;
}

TEST_F(Diff, IsWhatPatchTakesToMakeTheOneOfTheOther) {
  std::mt19937 random(20'240'611);
  for (int round = 0; round < 250; ++round) {
    const std::string before = random_text(random);
    const std::string after = random() % 3 == 0 ? random_text(random) : edited(before, random);
    const std::string difference = unified_diff("/a b/c", before, after);
    if (before == after) {
      EXPECT_EQ(difference, "");
      continue;
    }
    EXPECT_TRUE(difference.starts_with("--- /a b/c\n+++ /a b/c\n@@ ")) << difference;
    EXPECT_EQ(patched(before, difference), after) << "round " << round << "\n" << difference;
  }
}

TEST_F(Diff, ShowsThreeLinesAroundAChangeAndSaysWhereALineEndIsMissing) {
  EXPECT_EQ(unified_diff("/p", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n", "1\n2\n3\n4\nfive\n6\n7\n8\n9\n10\n"),
            "--- /p\n+++ /p\n@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n");
  EXPECT_EQ(unified_diff("/p", "a", "a\n"),
            "--- /p\n+++ /p\n@@ -1,1 +1,1 @@\n-a\n\\ No newline at end of file\n+a\n");
}

TEST_F(Diff, ReplacesEverythingWhereTextsHaveTooLittleInCommon) {
  std::string before = "head\n";
  std::string after = "head\n";
  for (int i = 0; i < 8'000; ++i) {
    before += "a" + std::to_string(i) + "\n";
    after += "b" + std::to_string(i) + "\n";
  }
  const std::string difference = unified_diff("/p", before, after);
  EXPECT_EQ(difference.substr(0, 36), "--- /p\n+++ /p\n@@ -1,8001 +1,8001 @@\n");
  EXPECT_EQ(patched(before, difference), after);
}

TEST_F(Diff, ReplacesEverythingWhereVeryManyLinesDiffer) {
  std::string added;
  for (int i = 0; i < 50'001; ++i)
    added += "b\n";
  EXPECT_THAT(unified_diff("/p", "head\n", "head\n" + added),
              testing::StartsWith("--- /p\n+++ /p\n@@ -1,1 +1,50002 @@\n-head\n+head\n+b\n"));
  EXPECT_THAT(unified_diff("/p", "head\n", "head\n" + added.substr(2)),
              testing::StartsWith("--- /p\n+++ /p\n@@ -1,1 +1,50001 @@\n head\n+b\n"));
}

TEST_F(Diff, KeepsAHeaderToOneLine) {
  EXPECT_EQ(unified_diff("/a\nb", "", "x\n").substr(0, 24), "--- /a\\x0Ab\n+++ /a\\x0Ab\n");
}

} // namespace
