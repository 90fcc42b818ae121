#include "extras/text_utilities.h"

#include "support/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using namespace korvalen;
using support::read_file;
using support::write_file;

namespace {

TEST(CutAtCharacter, EndsTheTextAndTellsWhereItStopped) {
  struct cut_case {
    const char *before;
    char character;
    bool every;
    const char *after;
    int position;
  };
  const cut_case cases[] = {
      {"/d.e/a.b.c", '.', false, "/d.e/a.b", 8},
      {"/d.e/a.b.c", '.', true, "/d.e/a", 4},
      {"a.b.c", '.', false, "a.b", 3},
      {"a.b.c", '.', true, "a", 0},
      {"/d.e/abc", '.', false, "/d.e/abc", 4},
      {"abc", '.', false, "abc", 0},
      {".abc", '.', true, ".abc", 0},
      {"a.", '.', false, "a", 1},
      {"d/", '.', false, "d/", 1},
      {"/", '.', false, "/", 0},
      {"/abc", '.', true, "/abc", 0},
      {"a/b", '/', false, "a/b", 1},
      {"", '.', false, "", 0},
      {".", '.', true, ".", 0},
  };
  for (const cut_case &c : cases) {
    std::string text = c.before;
    EXPECT_EQ(cut_at_character(text.data(), c.character, c.every), c.position) << c.before << c.every;
    EXPECT_STREQ(text.c_str(), c.after) << c.before << c.every;
  }
}

TEST(CompareTexts, OrdersAsStrcmpDoes) {
  EXPECT_EQ(compare_texts("a", "a"), 0);
  EXPECT_LT(compare_texts("a", "b"), 0);
  EXPECT_GT(compare_texts("b", "a"), 0);
  EXPECT_LT(compare_texts("", "a"), 0);
  EXPECT_GT(compare_texts("\xff", "a"), 0);
}

TEST(CompareTexts, PutsANullBeforeEveryText) {
  EXPECT_EQ(compare_texts(nullptr, nullptr), 0);
  EXPECT_LT(compare_texts(nullptr, ""), 0);
  EXPECT_GT(compare_texts("", nullptr), 0);
}

TEST(EndsWith, NeedsATextThatIsLongerThanTheSuffix) {
  EXPECT_TRUE(ends_with("a.sav", ".sav"));
  EXPECT_TRUE(ends_with("a", ""));
  EXPECT_FALSE(ends_with(".sav", ".sav"));
  EXPECT_FALSE(ends_with("sav", ".sav"));
  EXPECT_FALSE(ends_with("", ""));
  EXPECT_FALSE(ends_with("a.sax", ".sav"));
  EXPECT_FALSE(ends_with("a.sav.b", ".sav"));
}

TEST(TrimTrailingBlanks, RemovesBlanksAtTheEndOnly) {
  const std::pair<const char *, const char *> cases[] = {{"a b  ", "a b"}, {"  a", "  a"}, {"a\t ", "a\t"},
                                                         {"a", "a"},       {"   ", ""},    {"", ""}};
  for (const auto &[before, after] : cases) {
    std::string text = before;
    trim_trailing_blanks(text.data());
    EXPECT_STREQ(text.c_str(), after) << '"' << before << '"';
  }
}

TEST(TrimTrailingBlanksDeathTest, SurvivesANull) {
  EXPECT_EXIT(
      {
        trim_trailing_blanks(nullptr);
        std::exit(0);
      },
      testing::ExitedWithCode(0), testing::Eq(""));
}

TEST(JoinWithUnderscore, PutsOneBetweenTheTexts) {
  EXPECT_STREQ(join_with_underscore("a", "b").get(), "a_b");
  EXPECT_STREQ(join_with_underscore("", "").get(), "_");
}

TEST(JoinWithUnderscore, IsNullWithoutAFirstText) {
  EXPECT_EQ(join_with_underscore(nullptr, "b"), nullptr);
}

TEST(ReplaceFirstOf, EndsTheTextBehindTheReplacement) {
  struct replace_case {
    const char *before;
    const char *set;
    const char *after;
    std::size_t length;
  };
  const replace_case cases[] = {{"a,b;c", ";,", "a!", 2}, {"a,b", ",", "a!", 1},   {"abc,", ",", "abc!", 1},
                                {",", ",;:", "!", 3},     {"abc", ",;", "abc", 2}, {"abc", "", "abc", 0},
                                {"", ",", "", 1}};
  for (const replace_case &c : cases) {
    std::string text = c.before;
    EXPECT_EQ(replace_first_of(text.data(), c.set, '!'), c.length) << c.before << " with " << c.set;
    EXPECT_STREQ(text.c_str(), c.after) << c.before << " with " << c.set;
  }
}

struct CopyBinaryFile : support::scratch_test {
  int copy(const std::string &target) const {
    return copy_binary_file(path("source").c_str(), target.c_str());
  }
};

TEST_F(CopyBinaryFile, CopiesEveryByteOfAnySize) {
  for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 10000u}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
      bytes[i] = static_cast<char>(i * 7 % 256);
    write_file(path("source"), bytes);
    write_file(path("target"), "something longer that was there before");
    EXPECT_EQ(copy(path("target")), 1) << size;
    EXPECT_TRUE(read_file(path("target")) == bytes) << size;
  }
}

TEST_F(CopyBinaryFile, WithoutASourceMakesNoTarget) {
  EXPECT_EQ(copy(path("target")), 0);
  EXPECT_FALSE(support::fs::exists(path("target")));
}

TEST_F(CopyBinaryFile, IntoAPlaceThatTakesNoFileIsNotDone) {
  write_file(path("source"), "bytes");
  EXPECT_EQ(copy(path("no_directory/target")), 0);
  EXPECT_EQ(copy(scratch().string()), 0);
}

TEST_F(CopyBinaryFile, OntoAFullDeviceIsNotDone) {
  write_file(path("source"), "bytes");
  EXPECT_EQ(copy("/dev/full"), 0);
}

struct ProbeFileStream : support::scratch_test {};

TEST_F(ProbeFileStream, LeavesEverythingAsItWas) {
  write_file(path("file"), "content");
  const support::tree before = support::snapshot(scratch());
  probe_file_stream();
  EXPECT_EQ(support::snapshot(scratch()), before);
}

} // namespace
