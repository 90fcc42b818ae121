#include "korvalen/text/strings.h"

#include "support/library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>

using namespace korvalen;
using support::lines_of;
using ::testing::ElementsAre;

namespace {

owned_string owned(const char *text) {
  owned_string result(new char[std::strlen(text) + 1]);
  return owned_string(std::strcpy(result.release(), text));
}

std::string times(int count, const std::string &text) {
  std::string result;
  for (int i = 0; i < count; ++i)
    result += text;
  return result;
}

std::string cut(std::string text, char find, char put) {
  str_cut_at_char(text.data(), find, put);
  return text.c_str();
}

std::string without_suffix(std::string text, const char *suffix) {
  str_remove_suffix(text.data(), suffix);
  return text.c_str();
}

} // namespace

TEST(FormatNew, JoinsADirectoryASlashAndAName) {
  const owned_string text = str_format_new("%s%s%s", "/a", "/", "b.ini");
  EXPECT_STREQ(text.get(), "/a/b.ini");
}

// These are sizes of which the allocator hands out blocks without a spare byte.
TEST(FormatNew, AllocatesExactlyTheResultAndItsEnd) {
  for (const std::size_t size : {24U, 40U, 56U, 1000U}) {
    const owned_string text = str_format_new("%s", std::string(size - 1, 'x').c_str());
    EXPECT_EQ(std::strlen(text.get()), size - 1);
    EXPECT_EQ(malloc_usable_size(text.get()), size);
  }
}

TEST(FormatNew, FormatsNumbersAndTheEmptyString) {
  EXPECT_STREQ(str_format_new("%s/idl%d%d", "/envi", 8, 6).get(), "/envi/idl86");
  EXPECT_STREQ(str_format_new("%s", "").get(), "");
}

TEST(FormatNew, GrowsBeyondTenThousandBytes) {
  const std::string text(20'000, 'x');
  EXPECT_EQ(str_format_new("%s/", text.c_str()).get(), text + "/");
}

TEST(FormatNew, IsNullForAValueThatCannotBeFormatted) {
  const wchar_t no_character[] = {0x110000, 0};
  EXPECT_EQ(str_format_new("%ls", no_character), nullptr);
}

TEST(AppendOwned, AppendsToTheFirstString) {
  EXPECT_STREQ(str_append_owned(owned("/opt/"), "k").get(), "/opt/k");
  EXPECT_STREQ(str_append_owned(owned(""), "").get(), "");
}

TEST(AppendOwned, IsNullForANullFirstStringWhateverTheSecond) {
  EXPECT_EQ(str_append_owned(nullptr, "b"), nullptr);
  EXPECT_EQ(str_append_owned(nullptr, nullptr), nullptr);
}

TEST(AppendOwned, KeepsCarriageReturns) {
  EXPECT_STREQ(str_append_owned(owned("a\rb"), "c\rd").get(), "a\rbc\rd");
}

TEST(AppendOwned, AllocatesFourBytesMoreThanBothStringsHold) {
  const owned_string text = str_append_owned(owned("eleven char"), "ten  chars");
  EXPECT_STREQ(text.get(), "eleven charten  chars");
  EXPECT_GE(malloc_usable_size(text.get()), 25U);
}

TEST(CutAtChar, OverwritesTheFirstOccurrenceAndDropsWhatFollows) {
  EXPECT_EQ(cut("ab\rcd\ref", '\r', '\n'), "ab\n");
  EXPECT_EQ(cut("ab\rcd\ref", '\r', '\0'), "ab");
  EXPECT_EQ(cut("\rab", '\r', '\n'), "\n");
  EXPECT_EQ(cut("ab\r", '\r', '\n'), "ab\n");
}

TEST(CutAtChar, LeavesAStringWithoutTheCharacterAlone) {
  EXPECT_EQ(cut("abcd", '\r', '\n'), "abcd");
  EXPECT_EQ(cut("", '\r', '\n'), "");
}

TEST(ConcatNew, BuildsABackupName) {
  EXPECT_STREQ(str_concat_new("/usr/bin/envi", "_original").get(), "/usr/bin/envi_original");
}

TEST(ConcatNew, IsNullForANullFirstString) {
  EXPECT_EQ(str_concat_new(nullptr, "b"), nullptr);
}

TEST(ConcatNew, TurnsTheFirstStringsCarriageReturnIntoALineFeedAndDropsTheSecondStrings) {
  EXPECT_STREQ(str_concat_new("ab\rcd", "ef").get(), "ab\nef");
  EXPECT_STREQ(str_concat_new("ab", "ef\rgh").get(), "abef");
  EXPECT_STREQ(str_concat_new("ab\rcd", "ef\rgh").get(), "ab\nef");
  EXPECT_STREQ(str_concat_new("ab", "\r").get(), "ab");
}

TEST(ConcatNew, AllocatesFourBytesMoreThanBothStringsHold) {
  EXPECT_GE(malloc_usable_size(str_concat_new("eleven char", "ten  chars").get()), 25U);
}

TEST(DupLine, EndsAtTheFirstCarriageReturnWhichBecomesALineFeed) {
  EXPECT_STREQ(str_dup_line("abc\r\nd").get(), "abc\n");
  EXPECT_STREQ(str_dup_line("\r\n").get(), "\n");
}

TEST(DupLine, CopiesAStringWithoutCarriageReturnExactly) {
  EXPECT_STREQ(str_dup_line("abc\n \td ").get(), "abc\n \td ");
  EXPECT_STREQ(str_dup_line("").get(), "");
}

TEST(DupLine, IsNullForNull) {
  EXPECT_EQ(str_dup_line(nullptr), nullptr);
}

TEST(RemoveSuffix, CutsOneTrailingSlash) {
  EXPECT_EQ(without_suffix("/opt/k/", "/"), "/opt/k");
  EXPECT_EQ(without_suffix("/opt/k//", "/"), "/opt/k/");
  EXPECT_EQ(without_suffix("/opt/k", "/"), "/opt/k");
}

TEST(RemoveSuffix, CutsALongerTail) {
  EXPECT_EQ(without_suffix("/opt/k/auxiliary/key_files/", "/key_files/"), "/opt/k/auxiliary");
  EXPECT_EQ(without_suffix("/opt/k/auxiliary/key_files/x", "/key_files/"), "/opt/k/auxiliary/key_files/x");
}

TEST(RemoveSuffix, LeavesAStringAloneThatIsNotLongerThanTheSuffix) {
  EXPECT_EQ(without_suffix("/", "/"), "/");
  EXPECT_EQ(without_suffix("", "/"), "");
  EXPECT_EQ(without_suffix("/key", "/key_files/"), "/key");
}

TEST(RemoveSuffix, MatchesASuffixWithACarriageReturnAgainstALineFeed) {
  EXPECT_EQ(without_suffix("fi\n", "i\r"), "f");
  EXPECT_EQ(without_suffix("fi\n", "x\r"), "fi\n");
}

TEST(RemoveSuffix, LooksForNoSuffixBehindACarriageReturn) {
  EXPECT_EQ(without_suffix("a\rbcdef", "eF"), "a\rbcdef");
}

TEST(SplitPath, YieldsTheComponentsBetweenLeadingDoubledAndTrailingSlashes) {
  std::int32_t count = -1;
  EXPECT_THAT(lines_of(split_path("/usr//local/x/", &count)), ElementsAre("usr", "local", "x"));
  EXPECT_EQ(count, 3);
}

TEST(SplitPath, IsNullWithCountZeroWhenThereIsNoComponent) {
  for (const char *const path : {"///", "/", ""}) {
    std::int32_t count = -1;
    EXPECT_EQ(split_path(path, &count), nullptr) << path;
    EXPECT_EQ(count, 0) << path;
  }
}

TEST(SplitPath, NeedsNoCount) {
  EXPECT_THAT(lines_of(split_path("a/b", nullptr)), ElementsAre("a", "b"));
  EXPECT_EQ(split_path("/", nullptr), nullptr);
}

TEST(SplitPath, KeepsTheFirstHundredComponents) {
  struct row {
    int components;
    int kept;
  };
  for (const row &r : {row{99, 99}, row{100, 100}, row{101, 100}, row{150, 100}}) {
    std::string path;
    for (int i = 0; i < r.components; ++i)
      path += "/d" + std::to_string(i);
    std::int32_t count = -1;
    const std::vector<std::string> components = lines_of(split_path(path.c_str(), &count));
    EXPECT_EQ(count, r.kept) << r.components;
    ASSERT_EQ(components.size(), static_cast<std::size_t>(r.kept)) << r.components;
    for (std::size_t i = 0; i < components.size(); ++i)
      EXPECT_EQ(components[i], "d" + std::to_string(i));
  }
}

TEST(SplitPath, SplitsOnlyTheFirstThousandBytes) {
  const std::string path = "/" + times(600, "a") + "/" + times(600, "b") + "/c";
  EXPECT_THAT(lines_of(split_path(path.c_str(), nullptr)), ElementsAre(times(600, "a"), times(398, "b")));
  const std::string exact = "/" + times(999, "a");
  EXPECT_THAT(lines_of(split_path((exact + "b").c_str(), nullptr)), ElementsAre(times(999, "a")));
  EXPECT_THAT(lines_of(split_path((exact + "/b").c_str(), nullptr)), ElementsAre(times(999, "a")));
}

TEST(SplitPath, EndsAComponentAtItsCarriageReturn) {
  EXPECT_THAT(lines_of(split_path("/a\rb/c", nullptr)), ElementsAre("a\n", "c"));
}

TEST(SplitPath, LeavesThePathAsItIs) {
  const std::string path = "/usr//local/";
  split_path(path.c_str(), nullptr);
  EXPECT_EQ(path, "/usr//local/");
}

TEST(LineArray, TakesTheStringsOverInOrderAndEndsWithNull) {
  owned_string strings[] = {owned("b"), owned("a")};
  const line_array array = line_array_of(strings);
  EXPECT_THAT(lines_of(array), ElementsAre("b", "a"));
  EXPECT_EQ(strings[0], nullptr);
  EXPECT_EQ(strings[1], nullptr);
  EXPECT_EQ(lines_of(line_array_of({})).size(), 0U);
}

TEST(LineArrayDeathTest, IsReleasedWithItsStringsAndMayBeNull) {
  EXPECT_EXIT(
      {
        free_line_array(nullptr);
        free_line_array(split_path("/a/b", nullptr).release());
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), ::testing::Eq(""));
}

TEST(JoinPath, PutsOneSlashForATrailingOne) {
  struct row {
    const char *directory;
    const char *sub_path;
    const char *joined;
  };
  constexpr row rows[] = {
      {"/a", "b", "/a/b"}, {"/a/", "b", "/a/b"}, {"/a//", "b", "/a//b"}, {"/a", "b/c", "/a/b/c"},
      {"/", "b", "//b"},   {"", "b", "/b"},      {"/a", "", "/a/"},      {"/a/", "", "/a/"},
  };
  for (const row &r : rows)
    EXPECT_STREQ(str_join_path(r.directory, r.sub_path).get(), r.joined);
}

TEST(WithoutTrailingSlash, LosesOneSlashEvenOfTheRoot) {
  EXPECT_EQ(without_trailing_slash("/a/"), "/a");
  EXPECT_EQ(without_trailing_slash("/a//"), "/a/");
  EXPECT_EQ(without_trailing_slash("/a"), "/a");
  EXPECT_EQ(without_trailing_slash("/"), "");
  EXPECT_EQ(without_trailing_slash(""), "");
}
