#include "korvalen/files/text_lines.h"

#include "support/files.h"
#include "support/library.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <vector>

using namespace korvalen;
using support::lines_of;
using support::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class TextLines : public support::scratch_test {
protected:
  // Writes the bytes into a file and reads its lines; the count must agree.
  static std::vector<std::string> lines(const std::string &bytes) {
    write_file("text", bytes);
    std::int32_t count = -1;
    const std::vector<std::string> result = lines_of(fdfReadLines("text", &count));
    EXPECT_EQ(static_cast<std::size_t>(count), result.size());
    return result;
  }
};

} // namespace

TEST_F(TextLines, ReadNoLinesFromAnEmptyFile) {
  EXPECT_THAT(lines(""), IsEmpty());
}

TEST_F(TextLines, ReadALastLineWithAndWithoutNewline) {
  EXPECT_THAT(lines("a\nb"), ElementsAre("a", "b"));
  EXPECT_THAT(lines("a\nb\n"), ElementsAre("a", "b"));
}

TEST_F(TextLines, KeepEmptyLines) {
  EXPECT_THAT(lines("\n\n"), ElementsAre("", ""));
  EXPECT_THAT(lines("a\n\nb"), ElementsAre("a", "", "b"));
}

TEST_F(TextLines, TurnACarriageReturnIntoALineFeedThatEndsTheLine) {
  EXPECT_THAT(lines("x\r\ny\n"), ElementsAre("x\n", "y"));
  EXPECT_THAT(lines("a\rb\nc\r"), ElementsAre("a\n", "c\n"));
}

TEST_F(TextLines, KeepBlanksTabsAndBytesBeyondAscii) {
  EXPECT_THAT(lines("\t a \t\n\xff\xc3\xa9\n"), ElementsAre("\t a \t", "\xff\xc3\xa9"));
}

TEST_F(TextLines, EndALineAtANulByte) {
  EXPECT_THAT(lines(std::string("ab\0cd\nef\n", 9)), ElementsAre("ab", "ef"));
}

TEST_F(TextLines, AreNullWithCountZeroForAMissingFile) {
  std::int32_t count = -1;
  EXPECT_EQ(fdfReadLines("missing", &count), nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(fdfReadLines("missing", nullptr), nullptr);
}

TEST_F(TextLines, WriteEachLineWithALineEnd) {
  std::ostringstream file;
  constexpr std::array lines = {"first", "", "last"};
  write_lines(file, lines);
  EXPECT_EQ(file.str(), "first\n\nlast\n");
}

TEST_F(TextLines, NeedNoCount) {
  write_file("text", "a\n");
  EXPECT_THAT(lines_of(fdfReadLines("text", nullptr)), ElementsAre("a"));
}

TEST_F(TextLines, ReadNoLinesFromAFileThatMayNotBeRead) {
  write_file("secret", "a\nb\n", 0600);
  const support::other_user nobody;
  const support::captured_stderr errors;
  std::int32_t count = -1;
  EXPECT_THAT(lines_of(fdfReadLines("secret", &count)), IsEmpty());
  EXPECT_EQ(count, 0);
  EXPECT_EQ(errors.text(), "");
}

TEST_F(TextLines, ReadNoLinesFromADirectory) {
  std::filesystem::create_directory("directory");
  std::int32_t count = -1;
  EXPECT_THAT(lines_of(fdfReadLines("directory", &count)), IsEmpty());
  EXPECT_EQ(count, 0);
}

TEST_F(TextLines, LeaveNoFileOpen) {
  write_file("text", "one\ntwo\n");
  write_file("empty", "");
  write_file("too_long", "one\n" + std::string(200'000, 'x') + "\n");
  write_file("secret", "secret", 0600);
  std::filesystem::create_directory("directory");
  for (const char *name : {"text", "empty", "too_long", "directory"})
    EXPECT_EQ(support::files_left_open([&] { EXPECT_TRUE(fdfReadLines(name, nullptr)); }), 0) << name;
  EXPECT_EQ(support::files_left_open([] { EXPECT_FALSE(fdfReadLines("missing", nullptr)); }), 0);
  const support::other_user nobody;
  EXPECT_EQ(support::files_left_open([] { EXPECT_TRUE(fdfReadLines("secret", nullptr)); }), 0);
}

TEST_F(TextLines, KeepALineOf199999Characters) {
  const std::string longest(199'999, 'x');
  EXPECT_THAT(lines("a\n" + longest + "\nb\n"), ElementsAre("a", longest, "b"));
  EXPECT_THAT(lines("a\n" + longest), ElementsAre("a", longest));
}

TEST_F(TextLines, StopBeforeALineOf200000Characters) {
  const std::string too_long(200'000, 'x');
  EXPECT_THAT(lines("a\n" + too_long + "\nb\n"), ElementsAre("a"));
  EXPECT_THAT(lines("a\n" + too_long), ElementsAre("a"));
  EXPECT_THAT(lines(too_long + "\nb\n"), IsEmpty());
}

TEST_F(TextLines, StopAfter200000Lines) {
  std::string bytes;
  for (int i = 1; i <= 200'000; ++i)
    bytes += std::to_string(i) + "\n";
  for (const char *const more : {"", "one more\n", "one more\nand one\n"}) {
    const std::vector<std::string> result = lines(bytes + more);
    ASSERT_EQ(result.size(), 200'000U);
    EXPECT_EQ(result.front(), "1");
    EXPECT_EQ(result.back(), "200000");
  }
}
