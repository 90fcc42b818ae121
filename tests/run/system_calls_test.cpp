// One run in the system layout, as the system sees it.

#include "run/whole_run.h"

#include <algorithm>
#include <regex>
#include <sstream>

using namespace whole_runs;
using support::read_file;
using support::write_file;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::Le;

namespace {

using texts = std::vector<std::string>;

texts lines_of(const std::string &text) {
  texts result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    result.push_back(line);
  return result;
}

// The same on every architecture: mkdir("/a", 000) for mkdirat(AT_FDCWD, "/a", 000), and so on.
std::string plain_call(const std::string &line) {
  static const std::regex call(R"(^f?(mkdir|chmod|open)(?:at)?\((?:AT_FDCWD(?:<[^>]*>)?, )?)");
  return std::regex_replace(line, call, "$1(");
}

texts groups_of(const texts &calls, const std::string &pattern) {
  const std::regex expression(pattern);
  texts result;
  std::smatch match;
  for (const std::string &line : calls)
    if (std::regex_search(line, match, expression))
      result.push_back(match[1]);
  return result;
}

class SystemCalls : public whole_run {
protected:
  SystemCalls() { make_envi(); }

  // Runs the tool under strace with these options.
  support::outcome trace(const texts &options) const {
    // A leak cannot be looked for in a traced process.
    texts command = {
        "strace", "-E",  "ASAN_OPTIONS=detect_leaks=0", "-o", path("trace"), "-e", "signal=none", "-qqq",
        "-s",     "9999"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), {support::installer_path, product(), envi()});
    return support::run(command);
  }

  // The calls of the tool itself that change files, one a line, with the paths of the two trees shortened.
  texts traced_calls() const {
    EXPECT_THAT(trace({"-y", "-e", "trace=mkdir,mkdirat,chmod,fchmodat,open,openat,write,writev,exit_group"}),
                Ended(0, installed, ""));
    return shortened_trace();
  }

  texts shortened_trace() const {
    const std::string text =
        replaced(replaced(read_file(path("trace")), product(), "PRODUCT"), envi(), "ENVI");
    texts calls;
    for (const std::string &line : lines_of(text))
      calls.push_back(plain_call(line));
    return calls;
  }
};

} // namespace

TEST_F(SystemCalls, RunTheDocumentedCommandForEachListingAndNothingElse) {
  EXPECT_THAT(trace({"-f", "-e", "trace=execve"}), Ended(0, installed, ""));
  const texts calls = shortened_trace();
  EXPECT_THAT(
      groups_of(calls, R"re("-c", (?:"--", )?"(.*)"\], .* = 0$)re"),
      ElementsAre(
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/custom_code/*.*>./.korvalen_ls_temp_txt 2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/extensions/*.*>./.korvalen_ls_temp_txt 2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/resource/langcat/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/resource/templates/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  "
          "PRODUCT/auxiliary/envi_extensions_54/envi/resource/templates/tasks/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/resource/bitmaps/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/resource/filterfuncs/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/save/*.*>./.korvalen_ls_temp_txt 2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/classic/save_add/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/classic/filt_func/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/envi/classic/save/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/idl/lib/hook/*.*>./.korvalen_ls_temp_txt 2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/idl/bin/bin.linux.x86_64/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/idl/help/*.*>./.korvalen_ls_temp_txt 2>/dev/null",
          "ls  PRODUCT/auxiliary/envi_extensions_54/idl/help/Korvalen/*.*>./.korvalen_ls_temp_txt "
          "2>/dev/null"));

  texts programs = {"korvalen_installer"};
  for (int listing = 0; listing < 15; ++listing)
    programs.insert(programs.end(), {"sh", "ls"});
  EXPECT_EQ(groups_of(calls, R"re(execve\("[^"]*/([^/"]+)".* = 0$)re"), programs);
}

TEST_F(SystemCalls, MakeEveryDirectoryWithModeZeroAndSetItTo0755AtOnce) {
  const texts calls = traced_calls();
  const texts made = groups_of(calls, R"re(^mkdir\("(.*)", 0+\) += 0$)re");
  EXPECT_THAT(made, ElementsAre("/etc/quorin/", "ENVI/custom_code/", "ENVI/extensions/", "ENVI/resource/",
                                "ENVI/resource/langcat/", "ENVI/resource/templates/",
                                "ENVI/resource/templates/tasks/", "ENVI/resource/templates/tasks/Korvalen/",
                                "ENVI/resource/bitmaps/", "ENVI/resource/filterfuncs/", "ENVI/save/",
                                "ENVI/classic/", "ENVI/classic/save_add/", "ENVI/classic/filt_func/",
                                "ENVI/classic/save/", "ENVI/idl86/lib/", "ENVI/idl86/lib/hook/",
                                "ENVI/idl86/bin/bin.linux.x86_64/", "ENVI/idl86/help/",
                                "ENVI/idl86/help/online_help/", "ENVI/idl86/help/online_help/Subsystems/",
                                "ENVI/idl86/help/online_help/Subsystems/Korvalen/"));
  EXPECT_EQ(groups_of(calls, "^(mkdir)").size(), made.size());
  for (std::size_t i = 0; i + 1 < calls.size(); ++i) {
    const texts directory = groups_of({calls[i]}, R"re(^mkdir\("(.*)", 0+\))re");
    const texts set = groups_of({calls[i + 1]}, R"re(^chmod\("(.*)", 0755\) += 0$)re");
    EXPECT_TRUE(directory.empty() || set == directory) << calls[i] << "\n" << calls[i + 1];
  }
}

TEST_F(SystemCalls, WriteAtMostFourKilobytesAtATimeToATarget) {
  write_file(source("envi/save/k.sav"), std::string(10'000, 'k'));
  write_file(source("envi/save/exact.sav"), std::string(8'192, 'k'));
  const texts calls = traced_calls();
  EXPECT_THAT(groups_of(calls, R"re(^write\(\d+<ENVI/save/k.sav>, .*, \d+\) += (\d+)$)re"),
              ElementsAre("4096", "4096", "1808"));
  EXPECT_THAT(groups_of(calls, R"re(^write\(\d+<ENVI/save/exact.sav>, .*, \d+\) += (\d+)$)re"),
              ElementsAre("4096", "4096"));
  std::vector<int> sizes;
  for (const std::string &size : groups_of(calls, R"re(^writev?\(\d+<(?:ENVI|/etc)/.* += (\d+)$)re"))
    sizes.push_back(std::stoi(size));
  EXPECT_GT(sizes.size(), 50U);
  EXPECT_THAT(sizes, Each(Le(4096)));
}

TEST_F(SystemCalls, CloseTheSourceThenTheTargetAndThenRecordIt) {
  write_file(source("envi/save/k.sav"), "k");
  EXPECT_THAT(trace({"-y", "-e", "trace=close"}), Ended(0, installed, ""));
  const texts closed = groups_of(shortened_trace(), R"re(^close\(\d+<(.*)>\) += 0$)re");
  const auto first =
      std::find(closed.begin(), closed.end(), "PRODUCT/auxiliary/envi_extensions_54/envi/save/k.sav");
  ASSERT_GE(closed.end() - first, 3);
  EXPECT_THAT(texts(first, first + 3), ElementsAre("PRODUCT/auxiliary/envi_extensions_54/envi/save/k.sav",
                                                   "ENVI/save/k.sav", "/etc/quorin/korvalen_uninstall.sh"));
}

TEST_F(SystemCalls, FlushEachBackupThenRenameItAndThenFlushItsDirectory) {
  EXPECT_THAT(trace({"-y", "-e", "trace=fsync,fdatasync,rename,renameat,renameat2"}),
              Ended(0, installed, ""));
  texts calls;
  for (const std::string &line : shortened_trace())
    calls.push_back(std::regex_replace(
        line,
        std::regex(R"(^(fsync|rename)(?:at2?)?\((?:\d+<)?(?:AT_FDCWD(?:<[^>]*>)?, )?"?([^">]+).* = 0$)"),
        "$1 $2"));
  texts expected;
  for (const char *script :
       {"bin/envi", "bin/envi_rt", "bin/envitaskengine", "idl86/bin/idl", "idl86/bin/idlde"}) {
    const std::string backup = "ENVI/" + std::string(script) + "_original";
    const std::string directory = backup.substr(0, backup.rfind('/'));
    expected.insert(expected.end(),
                    {"fsync " + backup + ".new", "rename " + backup + ".new", "fsync " + directory});
  }
  EXPECT_EQ(calls, expected);
}

TEST_F(SystemCalls, OpenTheUninstallScriptForAppendingOnceForEachLine) {
  unpack_samples();
  const texts calls = traced_calls();
  texts appended;
  for (std::size_t i = 0; i + 1 < calls.size(); ++i)
    if (calls[i].starts_with(
            R"(open("/etc/quorin/korvalen_uninstall.sh", O_WRONLY|O_CREAT|O_APPEND, 0666) )"))
      for (const std::string &line : groups_of(
               {calls[i + 1]}, R"re(^write\(\d+</etc/quorin/korvalen_uninstall.sh>, "(.*)\\n", \d+\) )re"))
        appended.push_back(line);
  EXPECT_EQ(appended.size(), 27U);
  EXPECT_THAT(appended, ElementsAreArray(lines_of(recorded())));
  EXPECT_EQ(groups_of(calls, R"re(^write\(\d+<(/etc/quorin/korvalen_uninstall.sh)>)re").size(),
            appended.size());
}

TEST_F(SystemCalls, EndWithTheModeOfTheUninstallScript) {
  const texts calls = traced_calls();
  ASSERT_GE(calls.size(), 2U);
  EXPECT_THAT(groups_of({calls[calls.size() - 2]},
                        R"re(^(chmod\("/etc/quorin/korvalen_uninstall.sh", 0705\)) += 0$)re"),
              ElementsAre(R"(chmod("/etc/quorin/korvalen_uninstall.sh", 0705))"));
  EXPECT_THAT(groups_of({calls.back()}, R"re(^(exit_group\(0\)))re"), ElementsAre("exit_group(0)"));
}

TEST_F(SystemCalls, ThatFailToOpenARestoredScriptForWritingLeaveItRestored) {
  for (const std::string &script : {envi() + "/bin/envi", envi() + "/idl86/bin/idl"}) {
    SCOPED_TRACE(script);
    const std::string original = read_file(script);
    write_file(script + "_original", original, 0644);
    // The first opening restores the script, the second reads it, the third is to write it.
    EXPECT_THAT(trace({"-P", script, "-e", "trace=openat", "-e", "inject=openat:error=EACCES:when=3"}),
                Ended(0, installed, ""));
    EXPECT_THAT(groups_of(lines_of(read_file(path("trace"))), R"((O_\w+).* (?:= \d+|\(INJECTED\))$)"),
                ElementsAre("O_WRONLY", "O_RDONLY", "O_WRONLY"));
    EXPECT_EQ(read_file(script), original);
  }
}
