// Which arguments the tool takes, which it refuses, and how it ends.

#include "run/whole_run.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <termios.h>

using namespace whole_runs;
using support::snapshot;

namespace {

std::string refusal(const std::string &argument, const std::string &text, const std::string &reason) {
  return "korvalen_installer: " + argument + " \"" + text + "\" refused: " + reason + "\n";
}

struct refused_text {
  std::string text;
  std::string shown;
  std::string reason;
};

const std::string begins_with_dash = "it begins with \"-\"";
const std::string holds_control = "it holds a control character";
const std::string holds_shell = "it holds a character that a shell acts on";

const std::vector<refused_text> refused_texts = {
    {"-", "-", begins_with_dash},
    {"--dry-run", "--dry-run", begins_with_dash},
    {"-rf /opt/k", "-rf /opt/k", begins_with_dash},
    {"/opt/\nk", "/opt/?k", holds_control},
    {"/opt/k\r", "/opt/k?", holds_control},
    {"\t/opt/k", "?/opt/k", holds_control},
    {"/opt/k\x01", "/opt/k?", holds_control},
    {"/opt/k\x1f", "/opt/k?", holds_control},
    {"/opt/k\x7f", "/opt/k?", holds_control},
    {"/opt/a;touch canary", "/opt/a;touch canary", holds_shell},
    {"/opt/a&touch canary", "/opt/a&touch canary", holds_shell},
    {"/opt/a|touch canary", "/opt/a|touch canary", holds_shell},
    {"/opt/a<b", "/opt/a<b", holds_shell},
    {"/opt/a>canary", "/opt/a>canary", holds_shell},
    {"/opt/(touch canary", "/opt/(touch canary", holds_shell},
    {"/opt/a)", "/opt/a)", holds_shell},
    {"/opt/$HOME", "/opt/$HOME", holds_shell},
    {"/opt/$(touch canary)", "/opt/$(touch canary)", holds_shell},
    {"/opt/`touch canary`", "/opt/`touch canary`", holds_shell},
    {"/opt/a\\b", "/opt/a\\b", holds_shell},
    {"/opt/\"a\"", "/opt/\"a\"", holds_shell},
    {"/opt/it's", "/opt/it's", holds_shell},
    {"/opt/*", "/opt/*", holds_shell},
    {"/opt/?", "/opt/?", holds_shell},
    {"/opt/[a]", "/opt/[a]", holds_shell},
};

// Both ends of what two processes talk through.
struct channel {
  int to_read;
  int to_write;
};

int must(int result, const char *what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up: ") + what);
  return result;
}

channel open_pipe() {
  int ends[2];
  must(pipe2(ends, O_CLOEXEC), "pipe");
  return {ends[0], ends[1]};
}

// A terminal that prints bytes as they are.
channel open_terminal() {
  const int master = must(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
  must(grantpt(master), "grantpt");
  must(unlockpt(master), "unlockpt");
  char name[100];
  must(-ptsname_r(master, name, sizeof name), "ptsname");
  const int terminal = must(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), "a terminal");
  termios settings{};
  must(tcgetattr(terminal, &settings), "tcgetattr");
  cfmakeraw(&settings);
  must(tcsetattr(terminal, TCSANOW, &settings), "tcsetattr");
  return {master, terminal};
}

// What is left to read when nobody writes any more; reading from a terminal then fails.
std::string read_all(int end) {
  std::string text;
  std::array<char, 4096> block;
  for (ssize_t size = 0; (size = read(end, block.data(), block.size())) > 0;)
    text.append(block.data(), static_cast<std::size_t>(size));
  return text;
}

// All that the tool says, with standard output and standard error being one.
std::string said_into(channel place, const std::vector<std::string> &arguments) {
  std::string text;
  {
    support::other_program tool([&] {
      dup2(place.to_write, STDOUT_FILENO);
      dup2(place.to_write, STDERR_FILENO);
      std::vector<char *> argv = {const_cast<char *>(support::installer_path)};
      for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
      argv.push_back(nullptr);
      execv(support::installer_path, argv.data());
    });
    close(place.to_write);
    text = read_all(place.to_read);
  }
  close(place.to_read);
  return text;
}

class CommandLineRun : public whole_run {
protected:
  CommandLineRun() {
    support::write_file(product() + "/work/README", "work\n");
    make_envi();
    before_ = everything();
  }

  support::tree everything() const {
    support::tree all = snapshot(scratch());
    all.merge(snapshot("/etc"));
    return all;
  }

  void expect_refused(const std::vector<std::string> &arguments, const std::string &err) {
    EXPECT_THAT(install(arguments), Ended(1, usage, err));
    EXPECT_EQ(support::changes(before_, everything()), "");
  }

  // A path below the scratch directory of exactly `size` bytes, in components of up to 200 bytes.
  std::string path_of_size(std::size_t size) const {
    std::string result = host();
    while (size - result.size() > 202)
      result += "/" + std::string(200, 'd');
    return result + "/" + std::string(size - result.size() - 1, 'e');
  }

  // A path below the scratch directory of exactly `depth` components.
  std::string path_of_depth(std::size_t depth) const {
    std::string result = host();
    for (auto have = static_cast<std::size_t>(std::count(result.begin(), result.end(), '/')); have < depth;
         ++have)
      result += "/d";
    return result;
  }

  support::tree before_;
};

constexpr const char *too_long_product = "it is longer than 1,000 bytes or deeper than 100 directories";
constexpr const char *too_long_envi =
    "directories below it would be longer than 1,000 bytes or deeper than 100 directories";

// What deployment makes below an ENVI directory goes 43 bytes and 5 components deeper.
const std::string deepest = "/idl86/help/online_help/Subsystems/Korvalen";
constexpr std::size_t deepest_size = 43;
constexpr std::size_t deepest_depth = 5;

} // namespace

TEST_F(CommandLineRun, WithoutArgumentsPrintsTheUsageAndTouchesNothing) {
  expect_refused({}, "");
}

TEST_F(CommandLineRun, RefusesAnEmptyProductDirectoryInEitherLayout) {
  const std::string err = refusal("product directory", "", "it is empty");
  expect_refused({""}, err);
  expect_refused({"", envi()}, err);
  expect_refused({"", "NotOK", "x"}, err);
}

TEST_F(CommandLineRun, RefusesAProductDirectoryThatAShellWouldActOn) {
  for (const auto &[text, shown, reason] : refused_texts) {
    SCOPED_TRACE(shown);
    expect_refused({text}, refusal("product directory", shown, reason));
    expect_refused({text, envi()}, refusal("product directory", shown, reason));
    expect_refused({text, "NotOK", "x"}, refusal("product directory", shown, reason));
  }
}

TEST_F(CommandLineRun, RefusesAnEnviDirectoryThatAShellWouldActOn) {
  for (const auto &[text, shown, reason] : refused_texts) {
    SCOPED_TRACE(shown);
    expect_refused({product(), text}, refusal("ENVI directory", shown, reason));
    expect_refused({product(), text, "x"}, refusal("ENVI directory", shown, reason));
  }
}

TEST_F(CommandLineRun, NamesTheProductDirectoryFirstWhenBothAreRefused) {
  expect_refused({"-p", "-e"}, refusal("product directory", "-p", begins_with_dash));
}

TEST_F(CommandLineRun, DoesNotTestAnEnviDirectoryThatCountsAsAbsent) {
  EXPECT_THAT(install({product(), "-$(touch canary)NotOK"}), Ended(0, "", ""));
  EXPECT_EQ(snapshot(".").size(), 0U);
}

TEST_F(CommandLineRun, RefusesAProductDirectoryLongerThanAThousandBytesInTheLocalLayout) {
  const std::string product = path_of_size(1001);
  expect_refused({product, "NotOK", "x"}, refusal("product directory", product, too_long_product));
}

TEST_F(CommandLineRun, TakesAProductDirectoryOfAThousandBytesInTheLocalLayout) {
  const std::string product = path_of_size(1000);
  EXPECT_THAT(install({product + "/", "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(support::read_file(product + "/Korvalen_configuration.ini"), configuration_of(product + "/"));
}

TEST_F(CommandLineRun, RefusesAProductDirectoryDeeperThanAHundredComponentsInTheLocalLayout) {
  const std::string product = path_of_depth(101);
  expect_refused({product, "NotOK", "x"}, refusal("product directory", product, too_long_product));
}

TEST_F(CommandLineRun, TakesAProductDirectoryOfAHundredComponentsInTheLocalLayout) {
  const std::string product = path_of_depth(100);
  EXPECT_THAT(install({product, "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(support::read_file(product + "/Korvalen_configuration.ini"), configuration_of(product));
}

TEST_F(CommandLineRun, RefusesAProductDirectoryWhoseUninstallScriptPathDoesNotFit) {
  // "/..//korvalen_uninstall.sh" takes 26 bytes of 2,999.
  const std::string product = path_of_size(2974);
  expect_refused({product, "NotOK", "x"},
                 refusal("product directory", product, "the path of its uninstall script is too long"));
  const std::string fitting = path_of_size(2973);
  expect_refused({fitting, "NotOK", "x"}, refusal("product directory", fitting, too_long_product));
}

TEST_F(CommandLineRun, TakesAProductDirectoryOfAnyLengthInTheSystemLayout) {
  const std::string product = path_of_size(20'000);
  EXPECT_THAT(install({product}), Ended(0, "", ""));
  EXPECT_EQ(support::read_file(configuration_in_etc), configuration_of(product));
  EXPECT_EQ(support::read_file(script_in_etc), "rm " + configuration_in_etc + "\nrm -rf " + product + "\n");
}

TEST_F(CommandLineRun, RefusesAnEnviDirectoryBelowWhichDirectoriesWouldBeLongerThanAThousandBytes) {
  const std::string envi = path_of_size(1001 - deepest_size);
  make_envi(envi);
  before_ = everything();
  expect_refused({product(), envi}, refusal("ENVI directory", envi, too_long_envi));
}

TEST_F(CommandLineRun, FillsAnEnviDirectoryBelowWhichDirectoriesAreAThousandBytesLong) {
  const std::string envi = path_of_size(1000 - deepest_size);
  make_envi(envi);
  ship("idl/help/Korvalen/index.html");
  EXPECT_THAT(install({product(), envi}), Ended(0, installed, ""));
  EXPECT_EQ((envi + deepest).size(), 1000U);
  EXPECT_EQ(support::read_file(envi + deepest + "/index.html"), "idl/help/Korvalen/index.html\n");
}

TEST_F(CommandLineRun, RefusesAnEnviDirectoryBelowWhichDirectoriesWouldBeDeeperThanAHundredComponents) {
  const std::string envi = path_of_depth(101 - deepest_depth);
  make_envi(envi);
  before_ = everything();
  expect_refused({product(), envi}, refusal("ENVI directory", envi, too_long_envi));
}

TEST_F(CommandLineRun, FillsAnEnviDirectoryBelowWhichDirectoriesAreAHundredComponentsDeep) {
  const std::string envi = path_of_depth(100 - deepest_depth);
  make_envi(envi);
  ship("idl/help/Korvalen/index.html");
  EXPECT_THAT(install({product(), envi}), Ended(0, installed, ""));
  EXPECT_EQ(support::read_file(envi + deepest + "/index.html"), "idl/help/Korvalen/index.html\n");
}

TEST_F(CommandLineRun, TakesNotOkAnywhereInTheEnviDirectoryAsNoEnviDirectory) {
  for (const std::string &text : {std::string("NotOK"), host() + "/NotOK/envi", std::string("xNotOKx")}) {
    SCOPED_TRACE(text);
    EXPECT_THAT(install({product(), text}), Ended(0, "", ""));
    EXPECT_EQ(support::changes(before_, everything()), made_in_etc);
  }
}

TEST_F(CommandLineRun, ConfiguresAndRecordsTheProductAloneForAnEnviDirectoryThatHoldsNotOk) {
  EXPECT_THAT(install({product(), "NotOK"}), Ended(0, "", ""));
  EXPECT_EQ(support::read_file(configuration_in_etc), configuration_of(product()));
  EXPECT_EQ(support::read_file(script_in_etc), "rm " + configuration_in_etc + "\nrm -rf " + product() + "\n");
}

TEST_F(CommandLineRun, TakesNotOkInOtherLettersAsAnEnviDirectory) {
  const std::string envi = host() + "/notok";
  make_envi(envi);
  EXPECT_THAT(install({product(), envi}), Ended(0, installed, ""));
}

TEST_F(CommandLineRun, SkipsAnEmptyEnviDirectory) {
  EXPECT_THAT(install({product(), ""}), Ended(0, "", ""));
  EXPECT_EQ(support::changes(before_, everything()), made_in_etc);
}

TEST_F(CommandLineRun, NeverTestsTheProductDirectoryForNotOk) {
  const std::string product = host() + "/NotOK";
  EXPECT_THAT(install({product}), Ended(0, "", ""));
  EXPECT_EQ(support::read_file(configuration_in_etc), configuration_of(product));
}

TEST_F(CommandLineRun, ChoosesTheSystemLayoutForAThirdArgumentThatHoldsNotOk) {
  for (const char *layout : {"NotOK", "xNotOKx"}) {
    SCOPED_TRACE(layout);
    EXPECT_THAT(install({product(), "NotOK", layout}), Ended(0, "", ""));
    EXPECT_EQ(support::changes(before_, everything()), made_in_etc);
  }
}

TEST_F(CommandLineRun, ChoosesTheLocalLayoutForAnyOtherThirdArgument) {
  for (const char *layout : {"x", "", "notok", "x-", "$(touch canary)"}) {
    SCOPED_TRACE(layout);
    EXPECT_THAT(install({product(), "NotOK", layout}), Ended(0, "", ""));
    EXPECT_EQ(
        support::changes(before_, everything()),
        "new file 644 host/korvalen/Korvalen_configuration.ini\nnew file 705 host/korvalen_uninstall.sh\n");
  }
}

TEST_F(CommandLineRun, IgnoresFurtherArguments) {
  EXPECT_THAT(install({product(), "NotOK", "NotOK", "x", "$(touch canary)", ""}), Ended(0, "", ""));
  EXPECT_EQ(support::changes(before_, everything()), made_in_etc);
}

TEST_F(CommandLineRun, RefusesAnArgumentThatBeginsWithADashWhateverItsPosition) {
  for (const char *option : {"--dry-run", "-", "--help", "--version"}) {
    SCOPED_TRACE(option);
    expect_refused({product(), envi(), option}, refusal("layout", option, begins_with_dash));
    expect_refused({product(), "NotOK", option}, refusal("layout", option, begins_with_dash));
    expect_refused({product(), envi(), "x", option}, refusal("argument 4", option, begins_with_dash));
    expect_refused({product(), envi(), "NotOK", "", option}, refusal("argument 5", option, begins_with_dash));
    expect_refused({option, envi()}, refusal("product directory", option, begins_with_dash));
  }
  expect_refused({product(), "NotOK", "NotOK", "-NotOK"}, refusal("argument 4", "-NotOK", begins_with_dash));
}

TEST_F(CommandLineRun, DoesNotTestALayoutThatCountsAsAbsent) {
  EXPECT_THAT(install({product(), "NotOK", "-NotOK"}), Ended(0, "", ""));
  EXPECT_EQ(support::changes(before_, everything()), made_in_etc);
}

TEST_F(CommandLineRun, AnswersAQuestionForHelpOrForTheVersionAndTouchesNothing) {
  EXPECT_THAT(install({"--help"}),
              Ended(0,
                    "usage: korvalen_installer PRODUCT_DIR [ENVI_DIR [LAYOUT]]\n"
                    "       korvalen_installer --help | --version\n"
                    "\n"
                    "PRODUCT_DIR  the directory into which Korvalen was unpacked\n"
                    "ENVI_DIR     the ENVI installation; without it, or when it is empty or holds\n"
                    "             NotOK, no ENVI is touched\n"
                    "LAYOUT       any text, even an empty one, chooses the local layout; without it,\n"
                    "             or when it holds NotOK, the system layout\n"
                    "\n"
                    "What else begins with - is refused. The manual: man korvalen_installer\n",
                    ""));
  EXPECT_THAT(install({"--version"}), Ended(0, "korvalen_installer 1.0.0\n", ""));
  EXPECT_EQ(support::changes(before_, everything()), "");
}

// Whoever reads both in one place reads what the arguments should be, and then what is wrong with these.
TEST_F(CommandLineRun, PrintsTheUsageBeforeTheRefusalOnATerminalAndIntoAPipe) {
  const std::string expected = usage + refusal("product directory", "-p", begins_with_dash);
  EXPECT_EQ(said_into(open_terminal(), {"-p"}), expected) << "on a terminal";
  EXPECT_EQ(said_into(open_pipe(), {"-p"}), expected) << "into a pipe";
}
