#include "installer/command_line.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using namespace korvalen;

namespace {

// The arguments of a main, and what is read from them.
struct command_line {
  std::vector<std::string> texts;
  std::vector<char *> argv;
  install_request request{};

  explicit command_line(std::vector<std::string> arguments) : texts(std::move(arguments)) {
    texts.insert(texts.begin(), "korvalen_installer");
    for (std::string &text : texts)
      argv.push_back(text.data());
    // As in a main.
    argv.push_back(nullptr);
    request = read_command_line(argc(), argv.data());
  }
  int argc() const { return static_cast<int>(texts.size()); }
  command_line(const command_line &) = delete;
  command_line &operator=(const command_line &) = delete;
};

std::string script_path(const std::vector<std::string> &arguments) {
  return uninstall_script_path(command_line(arguments).request).get();
}

std::string init_dir(const std::vector<std::string> &arguments) {
  return init_directory(command_line(arguments).request);
}

// Empty when the arguments are not refused.
std::string refusal(const std::vector<std::string> &arguments) {
  command_line line(arguments);
  const owned_string text = find_refusal(line.argc(), line.argv.data());
  return text ? text.get() : "";
}

// The refusal of the request alone, as it is read from the arguments.
std::string request_refusal(const std::vector<std::string> &arguments) {
  const owned_string text = find_refusal(command_line(arguments).request);
  return text ? text.get() : "";
}

// Empty when the arguments are not answered.
std::string answer(const std::vector<std::string> &arguments) {
  command_line line(arguments);
  const char *const text = find_answer(line.argc(), line.argv.data());
  return text == nullptr ? "" : text;
}

std::string product_refusal(const std::string &text, const std::string &reason) {
  return "korvalen_installer: product directory \"" + text + "\" refused: " + reason;
}

std::string envi_refusal(const std::string &text, const std::string &reason) {
  return "korvalen_installer: ENVI directory \"" + text + "\" refused: " + reason;
}

std::string dash_refusal(const std::string &argument, const std::string &text) {
  return "korvalen_installer: " + argument + " \"" + text + "\" refused: it begins with \"-\"";
}

// A path of exactly this many bytes, in components of at most 200.
std::string path_of(std::size_t bytes) {
  std::string path;
  for (std::size_t i = 0; i < bytes; ++i)
    path += i % 200 == 0 && i + 1 < bytes ? '/' : 'd';
  return path;
}

std::string path_with(int components) {
  std::string path;
  for (int i = 0; i < components; ++i)
    path += "/d";
  return path;
}

constexpr const char *empty = "it is empty";
constexpr const char *dash = "it begins with \"-\"";
constexpr const char *control = "it holds a control character";
constexpr const char *shell = "it holds a character that a shell acts on";
constexpr const char *script = "the path of its uninstall script is too long";
constexpr const char *too_long = "it is longer than 1,000 bytes or deeper than 100 directories";
constexpr const char *too_long_below =
    "directories below it would be longer than 1,000 bytes or deeper than 100 directories";

constexpr const char *help =
    "usage: korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]]\n"
    "       korvalen_installer --help | --version\n"
    "\n"
    "PRODUCT_DIR  the directory into which Korvalen was unpacked\n"
    "ENVI_DIR     the ENVI installation; without it, or when it is empty or holds\n"
    "             NotOK, no ENVI is touched\n"
    "LAYOUT       any text, even an empty one, chooses the local layout; without it,\n"
    "             or when it holds NotOK, the system layout\n"
    "\n"
    "What else begins with - is refused. The manual: man korvalen_installer\n";

class CommandLineInScratch : public support::scratch_test {};

} // namespace

TEST(CommandLine, HasAProductDirectoryAloneInTheSystemLayout) {
  const command_line line({"/opt/k"});
  EXPECT_EQ(line.request.product_dir, line.argv[1]);
  EXPECT_EQ(line.request.envi_dir, nullptr);
  EXPECT_FALSE(line.request.local_layout);
}

TEST(CommandLine, NeverTestsTheProductDirectoryForNotOK) {
  const command_line line({"/opt/NotOK"});
  EXPECT_STREQ(line.request.product_dir, "/opt/NotOK");
  EXPECT_EQ(refusal({"/opt/NotOK"}), "");
}

TEST(CommandLine, TakesAnEnviDirectoryUnlessItHoldsNotOK) {
  struct row {
    const char *argument;
    bool given;
  };
  constexpr row rows[] = {
      {"/opt/envi", true}, {"NotOK", false},          {"/opt/NotOK/envi", false},
      {"xNotOKx", false},  {"/opt/notok/envi", true}, {"Not OK", true},
      {"NotO", true},
  };
  for (const row &r : rows) {
    const command_line line({"/opt/k", r.argument});
    EXPECT_EQ(line.request.envi_dir, r.given ? line.argv[2] : nullptr) << r.argument;
  }
}

TEST(CommandLine, TakesAnEmptyEnviDirectoryAsPresent) {
  const command_line line({"/opt/k", ""});
  EXPECT_STREQ(line.request.envi_dir, "");
  EXPECT_EQ(refusal({"/opt/k", ""}), "");
}

TEST(CommandLine, ChoosesTheLocalLayoutByAnyThirdArgumentWithoutNotOK) {
  struct row {
    const char *argument;
    bool local;
  };
  constexpr row rows[] = {{"x", true}, {"", true}, {"notok", true}, {"NotOK", false}, {"aNotOKb", false}};
  for (const row &r : rows)
    EXPECT_EQ(command_line({"/opt/k", "/opt/envi", r.argument}).request.local_layout, r.local) << r.argument;
}

TEST(CommandLine, ChoosesTheLocalLayoutAlsoWhenTheEnviDirectoryIsNotGiven) {
  const command_line line({"/opt/k", "NotOK", "x"});
  EXPECT_EQ(line.request.envi_dir, nullptr);
  EXPECT_TRUE(line.request.local_layout);
}

TEST(CommandLine, IgnoresAFourthArgument) {
  const command_line line({"/opt/k", "/opt/envi", "NotOK", "x"});
  EXPECT_FALSE(line.request.local_layout);
  EXPECT_EQ(refusal({"/opt/k", "/opt/envi", "NotOK", ";"}), "");
}

TEST(UninstallScriptPath, LiesInTheSystemsDirectoryInTheSystemLayout) {
  EXPECT_EQ(script_path({"/opt/k"}), "/etc/quorin/korvalen_uninstall.sh");
  EXPECT_EQ(script_path({"/opt/k", "/opt/envi", "NotOK"}), "/etc/quorin/korvalen_uninstall.sh");
}

TEST(UninstallScriptPath, LiesInTheProductsParentInTheLocalLayout) {
  EXPECT_EQ(script_path({"/opt/k", "NotOK", "x"}), "/opt/k/..//korvalen_uninstall.sh");
  EXPECT_EQ(script_path({"/opt/k/", "NotOK", "x"}), "/opt/k/..//korvalen_uninstall.sh");
  EXPECT_EQ(script_path({"/opt/k//", "NotOK", "x"}), "/opt/k//..//korvalen_uninstall.sh");
  EXPECT_EQ(script_path({"/", "NotOK", "x"}), "/..//korvalen_uninstall.sh");
}

TEST(InitDirectory, IsTheSystemsOrTheProductDirectoryAsGiven) {
  EXPECT_EQ(init_dir({"/opt/k"}), "/etc/quorin");
  EXPECT_EQ(init_dir({"/opt/k", "/opt/envi", "NotOK"}), "/etc/quorin");
  EXPECT_EQ(init_dir({"/opt/k", "/opt/envi", "x"}), "/opt/k");
  EXPECT_EQ(init_dir({"/opt/k/", "/opt/envi", "x"}), "/opt/k/");
}

TEST(InitDirectory, IsExportedWithoutOneTrailingSlash) {
  EXPECT_EQ(exported_init_directory(command_line({"/opt/k/", "/e"}).request), "/etc/quorin");
  EXPECT_EQ(exported_init_directory(command_line({"/opt/k", "/e", "x"}).request), "/opt/k");
  EXPECT_EQ(exported_init_directory(command_line({"/opt/k/", "/e", "x"}).request), "/opt/k");
  EXPECT_EQ(exported_init_directory(command_line({"/opt/k//", "/e", "x"}).request), "/opt/k/");
  EXPECT_EQ(exported_init_directory(command_line({"/", "/e", "x"}).request), "");
}

TEST(Refusal, IsNotMadeOfOrdinaryArguments) {
  EXPECT_EQ(refusal({"/opt/k"}), "");
  EXPECT_EQ(refusal({"opt/k", "opt/envi", "x"}), "");
  EXPECT_EQ(refusal({"/opt/k/", "/opt/envi/", "x"}), "");
}

TEST(Refusal, AllowsBlanksBytesBeyondAsciiAndWhatNoShellActsOn) {
  for (const char *const text : {"/opt/my product", " ", "/opt/k-1", "/opt/\xc3\xa9t\xc3\xa9",
                                 "/opt/\xff\x80", "/opt/#~!%^{}],.:=@+_"})
    EXPECT_EQ(refusal({text, text, "x"}), "") << text;
}

TEST(Refusal, NamesAnEmptyProductDirectory) {
  EXPECT_EQ(refusal({""}), product_refusal("", empty));
  EXPECT_EQ(refusal({"", "/opt/envi", "x"}), product_refusal("", empty));
}

TEST(Refusal, NamesADirectoryThatBeginsWithADash) {
  for (const char *const text : {"--help", "-", "-k"}) {
    EXPECT_EQ(refusal({text}), product_refusal(text, dash));
    EXPECT_EQ(refusal({"/opt/k", text}), envi_refusal(text, dash));
  }
}

TEST(Refusal, NamesADirectoryThatHoldsACharacterThatAShellActsOn) {
  constexpr std::string_view refused = ";&|<>()$\\\"'*?[`";
  for (const char character : refused) {
    for (const std::string &text : {std::string("/opt/a") + character + "b", std::string(1, character)}) {
      EXPECT_EQ(refusal({text}), product_refusal(text, shell));
      EXPECT_EQ(refusal({"/opt/k", text}), envi_refusal(text, shell));
    }
  }
}

TEST(Refusal, NamesADirectoryThatHoldsAControlCharacterInOneLine) {
  std::string controls = "\x7f";
  for (char character = '\1'; character < ' '; ++character)
    controls += character;
  for (const char character : controls) {
    const std::string text = std::string("/opt/a") + character + "b";
    EXPECT_EQ(refusal({text}), product_refusal("/opt/a?b", control)) << static_cast<int>(character);
    EXPECT_EQ(refusal({"/opt/k", text}), envi_refusal("/opt/a?b", control)) << static_cast<int>(character);
  }
}

TEST(Refusal, NamesTheProductDirectoryFirst) {
  EXPECT_EQ(refusal({"-k", "-e"}), product_refusal("-k", dash));
}

TEST(Refusal, DoesNotTestAnEnviDirectoryThatIsNotUsed) {
  for (const std::string &unused :
       {std::string("-NotOK"), std::string("/opt;NotOK"), std::string("NotOK\n"), "NotOK" + path_of(1001)})
    EXPECT_EQ(refusal({"/opt/k", unused}), "");
}

TEST(Refusal, TestsOfTheLayoutOnlyHowItBegins) {
  for (const char *const layout : {";\n$-", "", "x-", " -x"})
    EXPECT_EQ(refusal({"/opt/k", "/opt/envi", layout}), "") << layout;
}

TEST(Refusal, NamesAnyArgumentAfterTheFirstThatBeginsWithADash) {
  for (const char *const text : {"-", "--dry-run", "-h", "-NotO", "--help", "--version"}) {
    EXPECT_EQ(refusal({"/opt/k", text}), dash_refusal("ENVI directory", text));
    EXPECT_EQ(refusal({"/opt/k", "/opt/envi", text}), dash_refusal("layout", text));
    EXPECT_EQ(refusal({"/opt/k", "NotOK", text}), dash_refusal("layout", text));
    EXPECT_EQ(refusal({"/opt/k", "", text}), dash_refusal("layout", text));
    EXPECT_EQ(refusal({"/opt/k", "NotOK", "NotOK", text}), dash_refusal("argument 4", text));
    EXPECT_EQ(refusal({"/opt/k", "/opt/envi", "x", "", text}), dash_refusal("argument 5", text));
    EXPECT_EQ(refusal({"/opt/k", "a", "b", "c", "d", "e", "f", "g", "h", text}),
              dash_refusal("argument 10", text));
  }
}

TEST(Refusal, SparesADashOnlyInASecondOrThirdArgumentThatHoldsNotOK) {
  EXPECT_EQ(refusal({"/opt/k", "-NotOK", "--NotOK-"}), "");
  EXPECT_EQ(refusal({"/opt/k", "-NotOK", "--dry-run"}), dash_refusal("layout", "--dry-run"));
  EXPECT_EQ(refusal({"/opt/k", "-NotOK", "-NotOK", "-NotOK"}), dash_refusal("argument 4", "-NotOK"));
  EXPECT_EQ(refusal({"-NotOK"}), product_refusal("-NotOK", dash));
}

TEST(Refusal, NamesTheFirstOfSeveralArguments) {
  EXPECT_EQ(refusal({"-k", "/opt/envi", "-x"}), product_refusal("-k", dash));
  EXPECT_EQ(refusal({"/opt/k", "/opt/$envi", "-x"}), envi_refusal("/opt/$envi", shell));
  EXPECT_EQ(refusal({"/opt/k", "/opt/envi", "-x", "-y"}), dash_refusal("layout", "-x"));
}

TEST(Refusal, IsOneLineWhateverAFurtherArgumentHolds) {
  EXPECT_EQ(refusal({"/opt/k", "NotOK", "-\n-"}), dash_refusal("layout", "-?-"));
}

TEST(Refusal, OfARequestAloneKnowsNothingOfFurtherArguments) {
  EXPECT_EQ(request_refusal({"/opt/k", "NotOK", "-x", "-y"}), "");
  EXPECT_EQ(request_refusal({"/opt/k", "-e", "-x"}), envi_refusal("-e", dash));
}

TEST(Answer, TellsTheArgumentsAndTheManualOrTheVersion) {
  EXPECT_EQ(answer({"--help"}), help);
  EXPECT_EQ(answer({"--version"}), "korvalen_installer 1.0.0\n");
}

TEST(Answer, IsGivenToTheOnlyArgumentAndToNothingElse) {
  const std::vector<std::vector<std::string>> unanswered = {
      {},
      {""},
      {"/opt/k"},
      {"-h"},
      {"--hel"},
      {"--helpx"},
      {"--version "},
      {"--help", "x"},
      {"--version", "--help"},
      {"/opt/k", "--help"},
  };
  for (const std::vector<std::string> &arguments : unanswered)
    EXPECT_EQ(answer(arguments), "") << testing::PrintToString(arguments);
}

TEST(Refusal, NamesAProductDirectoryOfMoreThanThousandBytesThatTheRunWouldMake) {
  EXPECT_EQ(refusal({path_of(1000), "NotOK", "x"}), "");
  EXPECT_EQ(refusal({path_of(1000) + "/", "NotOK", "x"}), "");
  EXPECT_EQ(refusal({path_of(1001), "NotOK", "x"}), product_refusal(path_of(1001), too_long));
  EXPECT_EQ(refusal({path_of(1001) + "/", "NotOK", "x"}), product_refusal(path_of(1001) + "/", too_long));
  EXPECT_EQ(refusal({path_of(1001) + "//", "NotOK", "x"}), product_refusal(path_of(1001) + "//", too_long));
}

TEST(Refusal, NamesAProductDirectoryOfMoreThanHundredComponentsThatTheRunWouldMake) {
  EXPECT_EQ(refusal({path_with(100), "NotOK", "x"}), "");
  EXPECT_EQ(refusal({path_with(100) + "//", "NotOK", "x"}), "");
  EXPECT_EQ(refusal({path_with(101), "NotOK", "x"}), product_refusal(path_with(101), too_long));
  EXPECT_EQ(refusal({path_with(101).substr(1), "NotOK", "x"}),
            product_refusal(path_with(101).substr(1), too_long));
  EXPECT_EQ(refusal({path_with(101) + "/", "NotOK", "x"}), product_refusal(path_with(101) + "/", too_long));
  EXPECT_EQ(refusal({path_with(101) + "//", "NotOK", "x"}), product_refusal(path_with(101) + "//", too_long));
}

TEST(Refusal, IsNotMadeOfTheRootAlone) {
  for (const char *const root : {"/", "//", "///"}) {
    EXPECT_EQ(refusal({root, "NotOK", "x"}), "") << root;
    EXPECT_EQ(refusal({"/opt/k", root}), "") << root;
  }
}

TEST(Refusal, AllowsAnyProductDirectoryThatTheRunDoesNotMake) {
  EXPECT_EQ(refusal({path_of(3500)}), "");
  EXPECT_EQ(refusal({path_with(101), "NotOK", "NotOK"}), "");
}

// Only slashes at the end make the script's path that long without a directory that is too long to make.
TEST(Refusal, NamesAProductDirectoryWhoseUninstallScriptPathDoesNotFit) {
  const std::string fitting = "/k" + std::string(2972, '/');
  EXPECT_EQ(script_path({fitting, "NotOK", "x"}).size(), 2999U);
  EXPECT_EQ(refusal({fitting, "NotOK", "x"}), "");
  EXPECT_EQ(refusal({fitting + "/", "NotOK", "x"}), product_refusal(fitting + "/", script));
  EXPECT_EQ(refusal({fitting + "/"}), "");
}

// "/idl80/help/online_help/Subsystems/Korvalen", of 43 bytes and 5 components, is made below it.
TEST(Refusal, NamesAnEnviDirectoryOfMoreThanAThousandBytesOrHundredComponents) {
  EXPECT_EQ(refusal({"/opt/k", path_of(1000)}), "");
  EXPECT_EQ(refusal({"/opt/k", path_of(1000) + "//"}), "");
  EXPECT_EQ(refusal({"/opt/k", path_of(1001)}), envi_refusal(path_of(1001), too_long));
  EXPECT_EQ(refusal({"/opt/k", path_with(100)}), "");
  EXPECT_EQ(refusal({"/opt/k", path_with(101)}), envi_refusal(path_with(101), too_long));
  for (const std::string &text : {path_of(1001) + "/", path_of(1001) + "//", path_with(101) + "/"})
    EXPECT_EQ(refusal({"/opt/k", text}), envi_refusal(text, too_long));
}

TEST_F(CommandLineInScratch, RefusesAnEnviDirectoryBelowWhichADirectoryWouldBeTooLong) {
  const std::string envi = path(path_of(956 - scratch().string().size()).substr(1)) + "e";
  ASSERT_EQ(envi.size(), 957U);
  std::filesystem::create_directories(envi + "/idl86");
  std::filesystem::create_directories(envi + "e/idl86");
  EXPECT_EQ(refusal({"/opt/k", envi}), "");
  EXPECT_EQ(refusal({"/opt/k", envi + "/"}), "");
  EXPECT_EQ(refusal({"/opt/k", envi + "e"}), envi_refusal(envi + "e", too_long_below));
  EXPECT_EQ(refusal({"/opt/k", envi + "e/"}), envi_refusal(envi + "e/", too_long_below));
}

TEST_F(CommandLineInScratch, RefusesAnEnviDirectoryBelowWhichADirectoryWouldBeTooDeep) {
  const std::string above = scratch().string();
  const auto components = static_cast<int>(std::count(above.begin(), above.end(), '/'));
  const std::string deep = above + path_with(95 - components);
  std::filesystem::create_directories(deep + "/idl86");
  std::filesystem::create_directories(deep + "/d/idl86");
  EXPECT_EQ(refusal({"/opt/k", deep}), "");
  EXPECT_EQ(refusal({"/opt/k", deep + "/d"}), envi_refusal(deep + "/d", too_long_below));
}

TEST_F(CommandLineInScratch, MeasuresBelowTheIdlDirectoryThatIsThere) {
  const std::string envi = path(path_of(956 - scratch().string().size()).substr(1)) + "e";
  ASSERT_EQ(envi.size(), 957U);
  std::filesystem::create_directories(envi + "/idl810");
  EXPECT_EQ(refusal({"/opt/k", envi}), envi_refusal(envi, too_long_below));
}

TEST_F(CommandLineInScratch, IsReadWithoutTouchingAnything) {
  std::filesystem::create_directories("k");
  std::filesystem::create_directories("envi/idl86");
  const support::tree before = support::snapshot(scratch());
  EXPECT_EQ(refusal({path("k"), path("envi"), "x"}), "");
  EXPECT_EQ(refusal({path("k;"), path("envi"), "x"}), product_refusal(path("k;"), shell));
  EXPECT_EQ(support::snapshot(scratch()), before);
}
