#include "korvalen/config/configuration_lookup.h"

#include "support/child.h"
#include "support/recording.h"
#include "support/surroundings.h"
#include "support/variables.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

using namespace korvalen;
using support::Ended;
using support::file_names;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

// The text of /p with the work directory of the third line.
std::string configuration(const std::string &work) {
  return "/p/auxiliary/key_files/\n"
         "/p/mandatory/\n" +
         work +
         "/p/bin/\n"
         "/p/auxiliary/map_files/\n"
         "/p/auxiliary/description_files/\n"
         "/p/auxiliary/xml_parameters_definition/\n"
         "/p/auxiliary/description_files/\n"
         "/p/auxiliary/description_01_files/\n"
         "/p/auxiliary/xml_schema_files/\n"
         "LSBF\n"
         "ACTIVE\n"
         "1\n"
         "NaN\n"
         "\n";
}

// A configuration directory "init", which no variable names yet.
struct Configuration : support::recording_test {
  Configuration() { support::fs::create_directories(path("init")); }

  void use_init(const char *variable = "KORVALEN_INIT_DIR", const char *directory = "init") const {
    setenv(variable, path(directory).c_str(), 1);
  }
  std::string file() const { return path("init/Korvalen_configuration.ini"); }

private:
  support::free_variables variables_{{"KORVALEN_INIT_DIR", "windir", "OTHER_DIR"}};
};

using ConfigurationWriter = Configuration;
constexpr bool writing = false;
constexpr bool deleting = true;

TEST_F(ConfigurationWriter, PutsFifteenLinesIntoTheInitDirectory) {
  use_init();
  write_file(file(), "something longer than that\n" + configuration("/old/\n"));
  EXPECT_THAT(support::call([] { return korvalen_config_file("/p", nullptr, writing); }), Ended(1, "", ""));
  EXPECT_EQ(read_file(file()), configuration("/p/work/\n"));
  EXPECT_EQ(file_names(snapshot(path("init"))), "Korvalen_configuration.ini\n");
  EXPECT_EQ(recorded(), "rm ~/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationWriter, NamesTheGivenWorkDirectory) {
  use_init();
  EXPECT_EQ(korvalen_config_file("/p", "/w", writing), 1);
  EXPECT_EQ(read_file(file()), configuration("/w/\n"));
}

TEST_F(ConfigurationWriter, TakesAnEmptyWorkDirectoryForNone) {
  use_init();
  EXPECT_EQ(korvalen_config_file("/p", "", writing), 1);
  EXPECT_EQ(read_file(file()), configuration("/p/work/\n"));
}

TEST_F(ConfigurationWriter, NeedsNoSlashLessForADirectoryThatEndsInOne) {
  use_init("KORVALEN_INIT_DIR", "init/");
  EXPECT_EQ(korvalen_config_file("/p", nullptr, writing), 1);
  EXPECT_EQ(read_file(file()), configuration("/p/work/\n"));
  EXPECT_EQ(recorded(), "rm ~/init/Korvalen_configuration.ini\n");
  EXPECT_EQ(logged(), "\n"
                      "FOUND KORVALEN_INIT_DIR = ~/init/\n"
                      "korvalen_config_file  INIT = ~/init/Korvalen_configuration.ini\n"
                      "add_korvalen_install_files : ~/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationWriter, PrefersTheInitDirectory) {
  use_init();
  use_init("windir", "other");
  EXPECT_EQ(korvalen_config_file("/p", nullptr, writing), 1);
  EXPECT_EQ(logged(), "\n"
                      "FOUND KORVALEN_INIT_DIR = ~/init\n"
                      "korvalen_config_file  INIT = ~/init/Korvalen_configuration.ini\n"
                      "add_korvalen_install_files : ~/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationWriter, TakesTheSecondVariableNext) {
  use_init("windir");
  EXPECT_EQ(korvalen_config_file("/p", nullptr, writing), 1);
  EXPECT_EQ(read_file(file()), configuration("/p/work/\n"));
  EXPECT_EQ(logged(), "\n"
                      "NOT FOUND KORVALEN_INIT_DIR USED = ~/init\n"
                      "korvalen_config_file  INIT = ~/init/Korvalen_configuration.ini\n"
                      "add_korvalen_install_files : ~/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationWriter, TakesTheProductDirectoryLast) {
  EXPECT_EQ(korvalen_config_file(path("init/").c_str(), nullptr, writing), 1);
  EXPECT_EQ(read_file(file()).substr(0, path("init//auxiliary/key_files/\n").size()),
            path("init//auxiliary/key_files/\n"));
  EXPECT_EQ(logged(), "\n"
                      "NOT FOUND KORVALEN_INIT_DIR USED = ~/init/\n"
                      "korvalen_config_file  INIT = ~/init/Korvalen_configuration.ini\n"
                      "add_korvalen_install_files : ~/init/Korvalen_configuration.ini\n");
}

TEST_F(ConfigurationWriter, DeletesOnlyTheInstallationFile) {
  use_init();
  write_file(file(), "kept");
  write_file(path("init/KorvalenInstallation.ini"), "", 0400);
  for (int run = 1; run <= 2; ++run) {
    forget_log();
    EXPECT_EQ(korvalen_config_file("/p", "/w", deleting), 1) << "run " << run;
    EXPECT_EQ(snapshot(path("init")), (support::tree{{"Korvalen_configuration.ini", {"file", 0644, "kept"}}}))
        << "run " << run;
    EXPECT_EQ(logged(), "\n"
                        "FOUND KORVALEN_INIT_DIR = ~/init\n"
                        "delete  = ~/init/Korvalen_configuration.ini\n"
                        "delete  = ~/init/KorvalenInstallation.ini\n")
        << "run " << run;
  }
  EXPECT_EQ(recorded(), "");
}

TEST_F(ConfigurationWriter, NamesFilesBelowTheRootWithOneSlash) {
  setenv("KORVALEN_INIT_DIR", "/", 1);
  EXPECT_EQ(korvalen_config_file("/p", "/w", deleting), 1);
  EXPECT_EQ(logged(), "\n"
                      "FOUND KORVALEN_INIT_DIR = /\n"
                      "delete  = /Korvalen_configuration.ini\n"
                      "delete  = /KorvalenInstallation.ini\n");
}

TEST_F(ConfigurationWriter, SaysNothingWhenItDeletesWhetherThereIsAFileOrNot) {
  use_init();
  write_file(path("init/KorvalenInstallation.ini"), "");
  for (int run = 1; run <= 2; ++run)
    EXPECT_THAT(support::call([] { return korvalen_config_file("/p", nullptr, deleting); }), Ended(1, "", ""))
        << "run " << run;
}

TEST_F(ConfigurationWriter, LeavesNoFileOpen) {
  use_init();
  EXPECT_EQ(support::files_left_open([] { korvalen_config_file("/p", nullptr, writing); }), 0) << "new";
  EXPECT_EQ(support::files_left_open([] { korvalen_config_file("/p", "/w", writing); }), 0) << "replaced";
  EXPECT_EQ(support::files_left_open([] { korvalen_config_file("/p", nullptr, deleting); }), 0) << "deleted";
}

TEST_F(ConfigurationWriter, EndsTheProcessWhenItCannotCreateTheFile) {
  use_init("KORVALEN_INIT_DIR", "gone");
  EXPECT_THAT(support::call([] { return korvalen_config_file("/p", nullptr, writing); }),
              Ended(255, "",
                    "ERROR create configuration file  " + path("gone/Korvalen_configuration.ini") +
                        "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(recorded(), "");
}

TEST_F(ConfigurationWriter, EndsTheProcessWhenItMayNotCreateTheFile) {
  use_init();
  EXPECT_THAT(
      support::call_as_other_user([] { return korvalen_config_file("/p", nullptr, writing); }),
      Ended(255, "",
            "ERROR create configuration file  " + file() + "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(snapshot(path("init")), support::tree{});
}

// The process-wide buffer is emptied first, since another test may have filled it.
struct DirectoryLookup : Configuration {
  DirectoryLookup() {
    use_init();
    write_file(file(), "one line\n");
    get_korvalen_dir();
    support::fs::remove(file());
  }

  // The text found, or "null".
  static std::string found() {
    const char *const directory = get_korvalen_dir();
    return directory == nullptr ? "null" : directory;
  }
};

TEST_F(DirectoryLookup, FindsTheFirstLineLessItsTail) {
  write_file(file(), "/opt/korvalen/auxiliary/key_files/\nsecond\n");
  EXPECT_EQ(found(), "/opt/korvalen/auxiliary");
}

TEST_F(DirectoryLookup, KeepsAnyOtherTail) {
  for (const char *line : {"/opt/korvalen", "/opt/key_files", "/opt/key_files//", "/opt\\key_files\\"}) {
    write_file(file(), line + std::string("\nsecond\n"));
    EXPECT_EQ(found(), line);
  }
}

TEST_F(DirectoryLookup, LooksBelowADirectoryThatEndsInASlash) {
  use_init("KORVALEN_INIT_DIR", "init/");
  write_file(file(), "/a/key_files/\n\n");
  EXPECT_EQ(found(), "/a");
}

TEST_F(DirectoryLookup, PrefersTheInitDirectory) {
  use_init("windir", "other");
  write_file(file(), "/a\n\n");
  write_file(path("other/Korvalen_configuration.ini"), "/b\n\n");
  EXPECT_EQ(found(), "/a");
  unsetenv("KORVALEN_INIT_DIR");
  EXPECT_EQ(found(), "/b");
}

TEST_F(DirectoryLookup, LooksInADirectoryNamedNotFoundWithoutAVariable) {
  unsetenv("KORVALEN_INIT_DIR");
  EXPECT_EQ(found(), "");
  write_file(path("NOT_FOUND/Korvalen_configuration.ini"), "/a/key_files/\n\n");
  EXPECT_EQ(found(), "/a");
}

TEST_F(DirectoryLookup, FindsNothingInAFileOfOneLineAndForgetsTheEarlierOne) {
  write_file(file(), "/a\n\n");
  const char *const buffer = get_korvalen_dir();
  ASSERT_STREQ(buffer, "/a");
  for (const char *text : {"/opt/korvalen/key_files/\n", "/opt/korvalen/key_files/", ""}) {
    write_file(file(), text);
    EXPECT_EQ(found(), "null") << '"' << text << '"';
    EXPECT_STREQ(buffer, "") << '"' << text << '"';
  }
}

TEST_F(DirectoryLookup, KeepsTheEarlierTextWithoutAFile) {
  EXPECT_EQ(found(), "");
  write_file(file(), "/a\n\n");
  EXPECT_EQ(found(), "/a");
  support::fs::remove(file());
  EXPECT_EQ(found(), "/a");
}

TEST_F(DirectoryLookup, TakesADirectoryOf2999BytesAndNoneOf3000) {
  const std::string longest(2999, 'd');
  write_file(file(), longest + "\n\n");
  EXPECT_EQ(found(), longest);
  write_file(file(), longest + "d\n\n");
  const char *const buffer = get_korvalen_dir();
  EXPECT_EQ(buffer, nullptr);
  support::fs::remove(file());
  EXPECT_EQ(found(), "");
}

TEST_F(DirectoryLookup, MeasuresTheDirectoryWithoutItsTail) {
  const std::string longest(2999, 'd');
  write_file(file(), longest + "/key_files/\n\n");
  EXPECT_EQ(found(), longest);
  write_file(file(), longest + "d/key_files/\n\n");
  EXPECT_EQ(found(), "null");
}

TEST_F(DirectoryLookup, IsNotLogged) {
  write_file(file(), "/a\n\n");
  EXPECT_EQ(found(), "/a");
  EXPECT_EQ(logged(), "");
}

TEST_F(DirectoryLookup, SaysNothingWhateverItFinds) {
  const auto call = [] { return support::call([] { return get_korvalen_dir() != nullptr ? 1 : 0; }); };
  EXPECT_THAT(call(), Ended(1, "", "")) << "no file";
  write_file(file(), "/opt/korvalen/key_files/\n");
  EXPECT_THAT(call(), Ended(0, "", "")) << "one line";
  write_file(file(), std::string(3000, 'd') + "\n\n");
  EXPECT_THAT(call(), Ended(0, "", "")) << "a line that is too long";
  write_file(file(), "/opt/korvalen/key_files/\n\n");
  EXPECT_THAT(call(), Ended(1, "", "")) << "two lines";
  unsetenv("KORVALEN_INIT_DIR");
  EXPECT_THAT(call(), Ended(1, "", "")) << "no variable";
}

// In a fresh process, since the buffer's first state cannot be had again.
TEST(DirectoryLookupDeathTest, FindsNothingAtFirst) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("KORVALEN_INIT_DIR");
        setenv("windir", "/nowhere", 1);
        const char *const directory = get_korvalen_dir();
        std::exit(directory != nullptr && *directory == '\0' ? 0 : 1);
      },
      testing::ExitedWithCode(0), "^$");
}

// The caller's buffer lies on the heap and is as large as promised, no byte more.
struct BufferLookup : Configuration {
  BufferLookup() : buffer_(new char[3000]) { enter("as it was"); }

  void enter(const std::string &text) { std::memcpy(buffer_.get(), text.c_str(), text.size() + 1); }
  int find() { return find_korvalen_dir(buffer_.get()); }
  std::string buffer() const { return buffer_.get(); }

private:
  std::unique_ptr<char[]> buffer_;
};

TEST_F(BufferLookup, FindsTheFirstLineLessItsTail) {
  use_init();
  write_file(file(), "C:\\korvalen\\key_files\\\nsecond\n");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), "C:\\korvalen\\");
  EXPECT_EQ(logged(), "aConfigDir : ~/init\ntheKorvalenDir : C:\\korvalen\\\n");
}

TEST_F(BufferLookup, KeepsAnyOtherTail) {
  use_init();
  for (const char *line : {"/opt/korvalen/auxiliary/key_files/", "/opt/key_files", "key_files\\"}) {
    write_file(file(), line);
    EXPECT_EQ(find(), 1) << line;
    EXPECT_EQ(buffer(), line);
  }
}

TEST_F(BufferLookup, LooksBelowADirectoryThatEndsInASlash) {
  use_init("KORVALEN_INIT_DIR", "init/");
  write_file(file(), "/a\n");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(logged(), "aConfigDir : ~/init\ntheKorvalenDir : /a\n");
}

TEST_F(BufferLookup, LeavesNothingOfTheRootInTheLog) {
  setenv("KORVALEN_INIT_DIR", "/", 1);
  EXPECT_EQ(find(), 0);
  EXPECT_EQ(logged(), "aConfigDir : \n");
}

TEST_F(BufferLookup, PrefersTheInitDirectoryThenTheSecondVariable) {
  use_init();
  use_init("windir", "other");
  use_init("OTHER_DIR", "third");
  write_file(file(), "/a\n");
  write_file(path("other/Korvalen_configuration.ini"), "/b\n");
  enter("OTHER_DIR");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), "/a");
  unsetenv("KORVALEN_INIT_DIR");
  enter("OTHER_DIR");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), "/b");
}

TEST_F(BufferLookup, ReadsTheVariableThatTheBufferNamesLast) {
  use_init("OTHER_DIR");
  write_file(file(), "/c\n");
  enter("OTHER_DIR");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), "/c");
}

TEST_F(BufferLookup, FindsNothingWithoutAVariable) {
  for (const char *text : {"OTHER_DIR", ""}) {
    enter(text);
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(buffer(), text);
  }
  EXPECT_EQ(logged(), "");
}

TEST_F(BufferLookup, FindsNothingWithoutAFileOrWithoutALine) {
  use_init();
  EXPECT_EQ(find(), 0);
  write_file(file(), "");
  EXPECT_EQ(find(), 0);
  EXPECT_EQ(buffer(), "as it was");
  EXPECT_EQ(logged(), "aConfigDir : ~/init\naConfigDir : ~/init\n");
}

TEST_F(BufferLookup, TakesADirectoryOf2999BytesAndNoneOf3000) {
  use_init();
  const std::string longest(2999, 'd');
  write_file(file(), longest + "\n");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), longest);
  enter("as it was");
  forget_log();
  write_file(file(), longest + "d\n");
  EXPECT_EQ(find(), 0);
  EXPECT_EQ(buffer(), "as it was");
  EXPECT_EQ(logged(), "aConfigDir : ~/init\n");
}

TEST_F(BufferLookup, MeasuresTheDirectoryWithoutItsTail) {
  use_init();
  const std::string longest(2999, 'd');
  write_file(file(), longest + "key_files\\\n");
  EXPECT_EQ(find(), 1);
  EXPECT_EQ(buffer(), longest);
}

TEST_F(BufferLookup, SaysNothingWhateverItFinds) {
  const auto call = [this] { return support::call([this] { return find(); }); };
  EXPECT_THAT(call(), Ended(0, "", "")) << "no variable";
  use_init();
  EXPECT_THAT(call(), Ended(0, "", "")) << "no file";
  write_file(file(), "");
  EXPECT_THAT(call(), Ended(0, "", "")) << "no line";
  write_file(file(), std::string(3000, 'd') + "\n");
  EXPECT_THAT(call(), Ended(0, "", "")) << "a line that is too long";
  write_file(file(), "/a\n");
  EXPECT_THAT(call(), Ended(1, "", "")) << "a line";
}

// Decodes into a block of the promised size, no byte more.
std::string decoded(const std::string &line) {
  const std::unique_ptr<char[]> out(new char[std::max<std::size_t>(line.size() + 1, 1002)]);
  EXPECT_EQ(decode_configuration_value(line.c_str(), out.get()), 1);
  return out.get();
}

std::string repeated(std::size_t count, const std::string &text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i)
    result += text;
  return result;
}

TEST(Decoding, TurnsCodesIntoCharacters) {
  struct decoding {
    const char *line;
    const char *expected;
  };
  const decoding cases[] = {
      {"NAME=65, 66, 0", "NAME=AB;"},
      {"NAME=1, 0", "NAME=\x01;"},
      // Not lists of codes.
      {"", ""},
      {"NAME=text", "NAME=text"},
      {"NAME=65,66,0", "NAME=65,66,0"},
      {"NAME=65,  0", "NAME=65,  0"},
      {"N=0, 65", "N=0, 65"},
      // Without a name, or with an odd one.
      {"65, 66, 0", "AB;"},
      {", 0", ";"},
      {"=65, 0", "=A;"},
      {", 0 name=", ", 0 name=;"},
      {"A, 0=66", "A, 0=B;"},
      // What stands between the codes, and where they end.
      {"N=65;66\t67\n68 69=70,,71, 0", "N=ABCDEFG;"},
      {"N=65, 0, 66", "N=A;"},
      {"N=0, 65, 0", "N=;"},
      {"N=, 0", "N=;"},
      {"N=65, 012, 66", "N=A\x0c"
                        "B;"},
      {"N=65, 066", "N=AB;"},
      // Numbers.
      {"N=321, 577, 0", "N=AA;"},
      {"N=-191, 0", "N=A;"},
      {"N=255, 0", "N=\xff;"},
      {"N=65, 256, 66, 0", "N=A;"},
      {"N=65x, x66, 67, 0", "N=A;"},
      {"N=+65, 0x42, 0", "N=A;"},
  };
  for (const decoding &c : cases)
    EXPECT_EQ(decoded(c.line), c.expected) << '"' << c.line << '"';
}

TEST(Decoding, SaysNothing) {
  for (const std::string line : {"", "NAME=text", "NAME=65, 66, 0", "N=65x, x66, 256, 0"})
    EXPECT_THAT(support::call([&line] { return decoded(line).empty() ? 0 : 1; }),
                Ended(line.empty() ? 0 : 1, "", ""))
        << '"' << line << '"';
}

TEST(DecodingLongLines, StopsAt1000Characters) {
  EXPECT_EQ(decoded("N=" + repeated(998, "65, ") + "0"), "N=" + std::string(998, 'A') + ";");
  EXPECT_EQ(decoded("N=" + repeated(999, "65, ") + "0"), "N=" + std::string(998, 'A') + ";");
  EXPECT_EQ(decoded(repeated(2000, "65, ") + "0"), std::string(1000, 'A') + ";");
}

TEST(DecodingLongLines, TakesOneCodeAfterANamePartOf999Bytes) {
  const std::string name = std::string(998, 'n') + "=";
  EXPECT_EQ(decoded(name + "65, 66, 0"), name + "A;");
}

TEST(DecodingLongLines, TakesNoCodeAfterALongerNamePart) {
  for (const std::size_t size : {1000u, 1001u, 1002u, 5000u}) {
    const std::string name = std::string(size - 1, 'n') + "=";
    EXPECT_EQ(decoded(name + "65, 66, 0"), name + ";") << size;
  }
}

TEST(DecodingLongLines, EndsANamePartThatIsTheWholeLineWhereThereIsRoom) {
  for (const std::size_t size : {4u, 999u, 1000u}) {
    const std::string line = ", 0" + std::string(size - 4, 'n') + "=";
    EXPECT_EQ(decoded(line), line + ";") << size;
  }
}

TEST(DecodingLongLines, LeavesTheEndOutWhereThereIsNoRoom) {
  for (const std::size_t size : {1001u, 1002u, 3000u}) {
    const std::string line = ", 0" + std::string(size - 4, 'n') + "=";
    EXPECT_EQ(decoded(line), line) << size;
  }
}

TEST(DecodingLongLines, EndsANamePartThatOneByteFollows) {
  for (const std::size_t size : {999u, 1000u, 1001u, 2000u}) {
    const std::string name = ", 0" + std::string(size - 4, 'n') + "=";
    EXPECT_EQ(decoded(name + "0"), name + ";") << size;
  }
}

TEST(DecodingLongLines, CopiesALineThatIsNoListWhateverItsLength) {
  for (const std::size_t size : {1001u, 1002u, 100'000u}) {
    const std::string line(size, 'n');
    EXPECT_TRUE(decoded(line) == line) << size;
  }
}

} // namespace
