#include "korvalen/text/text_utilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using namespace korvalen;

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

TEST(TrimTrailingBlanks, OfATextOfBlanksAloneStopsAtItsStart) {
  std::string buffer = "before   ";
  trim_trailing_blanks(buffer.data() + 7);
  EXPECT_STREQ(buffer.c_str(), "before ") << "the blank before the text is not the text's";
  trim_trailing_blanks(buffer.data() + 7);
  EXPECT_STREQ(buffer.c_str(), "before ") << "nor is it an empty text's";
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

} // namespace
