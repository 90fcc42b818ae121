#include "korvalen/files/listing_command.h"

#include "support/files.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace korvalen;
using support::read_file;
using support::write_file;
using ::testing::ElementsAre;

namespace {

constexpr const char *output = "./.korvalen_ls_temp_txt";

// The part of the command that stands for the pattern.
std::string quoted(const std::string &pattern) {
  const std::string command = listing_command(pattern.c_str(), "OUT");
  const std::string start = "ls  ";
  const std::string end = ">OUT 2>/dev/null";
  if (!command.starts_with(start) || !command.ends_with(end))
    throw std::runtime_error("a command of another form: " + command);
  return command.substr(start.size(), command.size() - start.size() - end.size());
}

// Runs commands in a shell whose `ls` writes its arguments, each ended by a NUL byte.
class ListingInShell : public support::scratch_test {
protected:
  // Runs the commands for the patterns in one shell, and returns what `ls` was told by each.
  static std::vector<std::string> told(const std::vector<std::string> &patterns) {
    std::string script = "ls() { for name; do printf '%s\\0' \"$name\"; done; }\n";
    std::filesystem::create_directory("listings");
    for (std::size_t i = 0; i < patterns.size(); ++i)
      script += listing_command(patterns[i].c_str(), listing(i).c_str()) + "\n";
    write_file("script", script);
    const support::outcome shell = support::run({"/bin/sh", "script"});
    EXPECT_EQ(shell.out + shell.err, "");
    std::vector<std::string> result;
    for (std::size_t i = 0; i < patterns.size(); ++i)
      result.push_back(read_file(listing(i)));
    return result;
  }

  // Nothing but the script and the listings may have come into being.
  void expect_that_nothing_ran() const {
    for (const auto &entry : std::filesystem::directory_iterator(scratch()))
      EXPECT_TRUE(entry.path().filename() == "script" || entry.path().filename() == "listings")
          << entry.path();
  }

private:
  static std::string listing(std::size_t i) { return "listings/" + std::to_string(i); }
};

const std::vector<std::string> hostile_names = {
    "a b",       " ",           "  two  ",    "tab\there",  "new\nline",  "\n",       "cr\rhere",
    "'",         "''",          "it's",       "\"",         "say \"hi\"", "\\",       "back\\slash",
    "\\\\",      "end\\",       "$HOME",      "$(touch x)", "${HOME}",    "$((1+1))", "`touch x`",
    ";touch x",  "&touch x",    "|touch x",   ">x",         "<x",         "2>x",      "x&",
    "(touch x)", "-",           "-la",        "--help",     "-- x",       "#comment", "a#b",
    "~",         "~root",       "a~",         "{a,b}",      "{1..3}",     "12",       "0",
    "12x",       "!",           "!!",         "^a",         "]",          "%s",       "=",
    "A=B",       "A=~",         "\x01\x02",   "\x7f",       "\xc3\xa9",   "\xff\xfe", "\x81\x82\x88",
    "if",        "a'b\"c\\d$e", ";\n'\"`$(x", "x 12",       "\t12",       ".",        "..",
};

} // namespace

TEST(ListingCommand, LeavesOrdinaryNamesAsTheyAre) {
  struct row {
    const char *pattern;
    const char *command;
  };
  constexpr row rows[] = {
      {"/opt/x/save/*.*", "ls  /opt/x/save/*.*>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"/opt/x/korvalen_modeling_??.[st]av",
       "ls  /opt/x/korvalen_modeling_??.[st]av>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"/opt/x//*", "ls  /opt/x//*>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"save/*.sav", "ls  save/*.sav>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"/opt/A-Z_a-z.0-9+,:=@%^!~#/x",
       "ls  /opt/A-Z_a-z.0-9+,:=@%^!~#/x>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"/opt/\xc3\xa9\xff/*", "ls  /opt/\xc3\xa9\xff/*>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"/opt/12", "ls  /opt/12>./.korvalen_ls_temp_txt 2>/dev/null"},
      {"", "ls  >./.korvalen_ls_temp_txt 2>/dev/null"},
  };
  for (const row &r : rows)
    EXPECT_EQ(listing_command(r.pattern, output), r.command);
}

TEST(ListingCommand, QuotesEachByteThatTheShellActsOn) {
  for (const char byte : std::string_view(" \"$&();<>\\`{|}\t\n\r\x01\x1f\x7f")) {
    const std::string in_quotes = std::string("'") + byte + "'";
    EXPECT_EQ(quoted(std::string("/d") + byte + "/x"), "/d" + in_quotes + "/x") << byte;
    EXPECT_EQ(quoted(std::string("/d/x") + byte + "*"), "/d/x" + in_quotes + "*") << byte;
    EXPECT_EQ(quoted(std::string(1, byte)), in_quotes) << byte;
  }
}

TEST(ListingCommand, QuotesAnApostropheWithABackslash) {
  EXPECT_EQ(quoted("/it's/*"), "/it\\'s/*");
  EXPECT_EQ(quoted("''"), "\\'\\'");
}

TEST(ListingCommand, QuotesWildcardsOfDirectories) {
  EXPECT_EQ(quoted("/a*b/c?d/[e]/*.[a-z]?"), "/a'*'b/c'?'d/'['e]/*.[a-z]?");
  EXPECT_EQ(quoted("*/x"), "'*'/x");
}

TEST(ListingCommand, QuotesAHashOrATildeAtTheStartOnly) {
  EXPECT_EQ(quoted("#a#/#*"), "'#'a#/#*");
  EXPECT_EQ(quoted("~/a~/~*"), "'~'/a~/~*");
}

TEST(ListingCommand, PutsADirectoryBeforeWhatWouldBeAnOptionOrAFileDescriptor) {
  EXPECT_EQ(quoted("-la"), "./-la");
  EXPECT_EQ(quoted("-/*"), "./-/*");
  EXPECT_EQ(quoted("-;x"), "./-';'x");
  EXPECT_EQ(quoted("0"), "./0");
  EXPECT_EQ(quoted("0123456789"), "./0123456789");
  EXPECT_EQ(quoted("12x"), "12x");
  EXPECT_EQ(quoted("x12"), "x12");
}

TEST_F(ListingInShell, MeansEveryHostileNameItself) {
  const std::vector<std::string> heard = told(hostile_names);
  for (std::size_t i = 0; i < hostile_names.size(); ++i) {
    const std::string &name = hostile_names[i];
    const bool with_directory = name.starts_with('-') || name == "12" || name == "0";
    EXPECT_EQ(heard[i], (with_directory ? "./" : "") + name + '\0');
  }
  expect_that_nothing_ran();
}

TEST_F(ListingInShell, MeansEveryHostileDirectoryItself) {
  std::vector<std::string> patterns;
  for (const std::string &name : hostile_names)
    patterns.push_back("/nowhere/" + name + "*?[a]/" + name);
  const std::vector<std::string> heard = told(patterns);
  for (std::size_t i = 0; i < patterns.size(); ++i)
    EXPECT_EQ(heard[i], patterns[i] + '\0');
  expect_that_nothing_ran();
}

TEST_F(ListingInShell, MeansEveryByteItselfWhereverItStands) {
  std::vector<std::string> patterns;
  for (int byte = 1; byte < 256; ++byte)
    for (const char *const before : {"x", "'", "\\", "$", "\"", "a\n"})
      patterns.push_back(std::string("/nowhere/") + before + static_cast<char>(byte) + "/y");
  for (int byte = 1; byte < 256; ++byte)
    patterns.push_back(static_cast<char>(byte) + std::string("a/y"));
  const std::vector<std::string> heard = told(patterns);
  for (std::size_t i = 0; i < patterns.size(); ++i)
    EXPECT_EQ(heard[i], (patterns[i].starts_with('-') ? "./" : "") + patterns[i] + '\0');
  expect_that_nothing_ran();
}

TEST_F(ListingInShell, ExpandsTheWildcardsOfTheLastComponentOnly) {
  write_file("d/a b/1.sav", "");
  write_file("d/a b/2.sav", "");
  write_file("d/a b/3.pro", "");
  write_file("d/a*b/4.sav", "");
  using std::string_literals::operator""s;
  EXPECT_THAT(told({"d/a b/*.sav", "d/a b/[12].*", "d/a b/?.pro", "d/a*b/*.sav", "d/a?b/*"}),
              ElementsAre("d/a b/1.sav\0d/a b/2.sav\0"s, "d/a b/1.sav\0d/a b/2.sav\0"s, "d/a b/3.pro\0"s,
                          "d/a*b/4.sav\0"s, "d/a?b/*\0"s));
}
