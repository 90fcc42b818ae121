#include "fsops/file_queries.h"

#include "support/files.h"
#include "support/library.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace korvalen;
using support::lines_of;
using support::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class FileQueries : public support::scratch_test {
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

// The answer of a query that starts with another errno, and the errno that it leaves.
struct answer {
  bool exists;
  int error;
  bool operator==(const answer &) const = default;
};

std::ostream &operator<<(std::ostream &out, const answer &a) {
  return out << (a.exists ? "exists" : "is absent") << ", errno " << a.error;
}

answer ask(bool (*query)(const char *), const char *path) {
  errno = EIO;
  const bool exists = query(path);
  return {exists, errno};
}

} // namespace

TEST_F(FileQueries, FindObjectsOfEveryKind) {
  write_file("file", "");
  std::filesystem::create_directory("directory");
  std::filesystem::create_symlink("file", "link");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  for (const char *const path : {"file", "directory", "directory/", "link", "fifo", "/dev/null"}) {
    EXPECT_EQ(ask(fdfExists, path), (answer{true, 0})) << path;
    EXPECT_EQ(ask(fdfExistsQuiet, path), (answer{true, 0})) << path;
  }
}

TEST_F(FileQueries, DifferInTheErrnoThatTheyLeaveForAnAbsentPath) {
  write_file("file", "");
  std::filesystem::create_symlink("nowhere", "dangling");
  std::filesystem::create_symlink("loop", "loop");
  struct row {
    const char *path;
    int error;
  };
  constexpr row rows[] = {
      {"missing", ENOENT}, {"", ENOENT}, {"dangling", ENOENT}, {"file/below", ENOTDIR}, {"loop", ELOOP}};
  for (const row &r : rows) {
    EXPECT_EQ(ask(fdfExists, r.path), (answer{false, r.error})) << r.path;
    EXPECT_EQ(ask(fdfExistsQuiet, r.path), (answer{false, 0})) << r.path;
  }
}

TEST_F(FileQueries, FindNothingWhereTheUserMayNotLook) {
  write_file("closed/file", "");
  std::filesystem::permissions("closed", std::filesystem::perms(0700));
  const support::other_user nobody;
  EXPECT_EQ(ask(fdfExists, "closed/file"), (answer{false, EACCES}));
  EXPECT_EQ(ask(fdfExistsQuiet, "closed/file"), (answer{false, 0}));
}

TEST_F(FileQueries, TellOneFileUnderTwoNamesFromTwoFiles) {
  write_file("one", "bytes");
  write_file("equal", "bytes");
  std::filesystem::create_symlink("one", "link");
  std::filesystem::create_hard_link("one", "second");
  std::filesystem::create_symlink("nowhere", "dangling");
  for (const char *name : {"one", "./one", "link", "second"})
    EXPECT_TRUE(is_same_file("one", name)) << name;
  for (const char *name : {"equal", "/dev/null", "dangling", "absent", ""}) {
    EXPECT_FALSE(is_same_file("one", name)) << name;
    EXPECT_FALSE(is_same_file(name, "one")) << name;
  }
  EXPECT_FALSE(is_same_file("dangling", "dangling"));
}

TEST_F(FileQueries, ReadNoLinesFromAnEmptyFile) {
  EXPECT_THAT(lines(""), IsEmpty());
}

TEST_F(FileQueries, ReadALastLineWithAndWithoutNewline) {
  EXPECT_THAT(lines("a\nb"), ElementsAre("a", "b"));
  EXPECT_THAT(lines("a\nb\n"), ElementsAre("a", "b"));
}

TEST_F(FileQueries, KeepEmptyLines) {
  EXPECT_THAT(lines("\n\n"), ElementsAre("", ""));
  EXPECT_THAT(lines("a\n\nb"), ElementsAre("a", "", "b"));
}

TEST_F(FileQueries, TurnACarriageReturnIntoALineFeedThatEndsTheLine) {
  EXPECT_THAT(lines("x\r\ny\n"), ElementsAre("x\n", "y"));
  EXPECT_THAT(lines("a\rb\nc\r"), ElementsAre("a\n", "c\n"));
}

TEST_F(FileQueries, KeepBlanksTabsAndBytesBeyondAscii) {
  EXPECT_THAT(lines("\t a \t\n\xff\xc3\xa9\n"), ElementsAre("\t a \t", "\xff\xc3\xa9"));
}

TEST_F(FileQueries, EndALineAtANulByte) {
  EXPECT_THAT(lines(std::string("ab\0cd\nef\n", 9)), ElementsAre("ab", "ef"));
}

TEST_F(FileQueries, AreNullWithCountZeroForAMissingFile) {
  std::int32_t count = -1;
  EXPECT_EQ(fdfReadLines("missing", &count), nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(fdfReadLines("missing", nullptr), nullptr);
}

TEST_F(FileQueries, WriteEachLineWithALineEnd) {
  std::ostringstream file;
  constexpr std::array lines = {"first", "", "last"};
  write_lines(file, lines);
  EXPECT_EQ(file.str(), "first\n\nlast\n");
}

TEST_F(FileQueries, NeedNoCount) {
  write_file("text", "a\n");
  EXPECT_THAT(lines_of(fdfReadLines("text", nullptr)), ElementsAre("a"));
}

TEST_F(FileQueries, ReadNoLinesFromAFileThatMayNotBeRead) {
  write_file("secret", "a\nb\n", 0600);
  const support::other_user nobody;
  const support::captured_stderr errors;
  std::int32_t count = -1;
  EXPECT_THAT(lines_of(fdfReadLines("secret", &count)), IsEmpty());
  EXPECT_EQ(count, 0);
  EXPECT_EQ(errors.text(), "");
}

TEST_F(FileQueries, ReadNoLinesFromADirectory) {
  std::filesystem::create_directory("directory");
  std::int32_t count = -1;
  EXPECT_THAT(lines_of(fdfReadLines("directory", &count)), IsEmpty());
  EXPECT_EQ(count, 0);
}

TEST_F(FileQueries, KeepALineOf199999Characters) {
  const std::string longest(199'999, 'x');
  EXPECT_THAT(lines("a\n" + longest + "\nb\n"), ElementsAre("a", longest, "b"));
  EXPECT_THAT(lines("a\n" + longest), ElementsAre("a", longest));
}

TEST_F(FileQueries, StopBeforeALineOf200000Characters) {
  const std::string too_long(200'000, 'x');
  EXPECT_THAT(lines("a\n" + too_long + "\nb\n"), ElementsAre("a"));
  EXPECT_THAT(lines("a\n" + too_long), ElementsAre("a"));
  EXPECT_THAT(lines(too_long + "\nb\n"), IsEmpty());
}

TEST_F(FileQueries, StopAfter200000Lines) {
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
