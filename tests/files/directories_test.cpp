#include "korvalen/files/directories.h"

#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"
#include "support/library.h"
#include "support/recording.h"
#include "support/surroundings.h"
#include "support/variables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace korvalen;
using support::captured_stderr;
using support::files_left_open;
using support::lines_of;
using support::mode_of;
using support::other_user;
using support::read_file;
using support::write_file;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

namespace fs = std::filesystem;

constexpr const char *listing_file = ".korvalen_ls_temp_txt";

class RemoveFile : public support::scratch_test {};
class RemoveDir : public support::scratch_test {};

class Listing : public support::scratch_test {
protected:
  Listing() {
    write_file("d/b.pro", "");
    write_file("d/a.sav", "");
    write_file("d/README", "");
  }

  static std::vector<std::string> names(const std::string &pattern) {
    std::int32_t count = -1;
    const std::vector<std::string> result = lines_of(fdfDirFiles(pattern.c_str(), &count));
    EXPECT_EQ(static_cast<std::size_t>(count), result.size());
    return result;
  }
};

// A current directory that everybody may write to but in which only owners may remove, with the test acting
// as a user who owns neither the directory nor what stands in the listing's place.
class SharedListing : public Listing {
protected:
  SharedListing() { fs::permissions(scratch(), fs::perms(01777)); }

  // Whether the listing was refused, without a count.
  static bool is_refused() {
    const other_user nobody;
    std::int32_t count = 17;
    return fdfDirFiles("d/*.*", &count) == nullptr && count == 17;
  }
};

class CopyDirFiles : public support::recording_test {
protected:
  CopyDirFiles() {
    write_file("src/a.sav", "a", 0600);
    write_file("src/b.pro", "b", 0444);
    write_file("src/README", "r");
  }

  // What is left to see of a tree's files: the mode and the content of each.
  static std::string file(const char *name) {
    std::ostringstream text;
    text << std::oct << mode_of(name) << ' ' << read_file(name);
    return text.str();
  }
};
using CopyDirFilesDeathTest = CopyDirFiles;

class CreateDir : public support::scratch_test {};

void make_fifo(const char *name) {
  if (mkfifo(name, 0666) != 0)
    throw std::runtime_error("test set-up: no FIFO");
}

void make_socket(const char *name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, name);
  const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool bound = bind(end, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  close(end);
  if (!bound)
    throw std::runtime_error("test set-up: no socket");
}

} // namespace

TEST_F(RemoveFile, RemovesAFileThatIsReadOnly) {
  write_file("file", "a", 0444);
  EXPECT_TRUE(fdfRemoveFile("file"));
  EXPECT_FALSE(fs::exists("file"));
}

TEST_F(RemoveFile, RemovesAnEmptyDirectory) {
  fs::create_directory("directory");
  EXPECT_TRUE(fdfRemoveFile("directory"));
  EXPECT_FALSE(fs::exists("directory"));
}

TEST_F(RemoveFile, SetsTheModeOfWhatItCannotRemove) {
  write_file("directory/file", "a");
  fs::permissions("directory", fs::perms(0700));
  EXPECT_FALSE(fdfRemoveFile("directory"));
  EXPECT_EQ(mode_of("directory"), 0755U);
  EXPECT_EQ(read_file("directory/file"), "a");
}

TEST_F(RemoveFile, IsFalseForAMissingFileWithoutAWord) {
  const captured_stderr errors;
  EXPECT_FALSE(fdfRemoveFile("missing"));
  EXPECT_EQ(errors.text(), "");
}

TEST_F(RemoveFile, IsFalseForAUserWithoutRights) {
  write_file("file", "a", 0600);
  {
    const other_user nobody;
    EXPECT_FALSE(fdfRemoveFile("file"));
  }
  EXPECT_EQ(read_file("file"), "a");
  EXPECT_EQ(mode_of("file"), 0600U);
}

TEST_F(RemoveFile, RemovesALinkAndLeavesTheModeOfItsTarget) {
  write_file("target", "a", 0600);
  fs::create_symlink("target", "link");
  fs::create_symlink("nowhere", "dangling");
  EXPECT_TRUE(fdfRemoveFile("link"));
  EXPECT_TRUE(fdfRemoveFile("dangling"));
  EXPECT_FALSE(fs::is_symlink("link"));
  EXPECT_FALSE(fs::is_symlink("dangling"));
  EXPECT_EQ(mode_of("target"), 0600U);
}

TEST_F(RemoveDir, RemovesAnEmptyDirectory) {
  fs::create_directory("directory");
  EXPECT_TRUE(fdfRemoveDir("directory"));
  EXPECT_FALSE(fs::exists("directory"));
}

TEST_F(RemoveDir, LeavesEverythingElseAloneModesIncluded) {
  write_file("directory/file", "a", 0600);
  fs::permissions("directory", fs::perms(0700));
  const support::tree before = support::snapshot(scratch());
  EXPECT_FALSE(fdfRemoveDir("directory"));
  EXPECT_FALSE(fdfRemoveDir("directory/file"));
  EXPECT_FALSE(fdfRemoveDir("missing"));
  EXPECT_EQ(support::snapshot(scratch()), before);
}

TEST_F(Listing, YieldsBareNamesInTheOrderOfLs) {
  EXPECT_THAT(names(path("d/*.*")), ElementsAre("a.sav", "b.pro"));
  EXPECT_THAT(names("d/*"), UnorderedElementsAre("README", "a.sav", "b.pro"));
  EXPECT_THAT(names("d/a.sav"), ElementsAre("a.sav"));
}

TEST_F(Listing, LeavesItsTemporaryFileBehind) {
  names("d/*.*");
  EXPECT_EQ(read_file(listing_file), "d/a.sav\nd/b.pro\n");
}

TEST_F(Listing, YieldsNamesWithoutADirectoryForABarePattern) {
  write_file("x.sav", "");
  EXPECT_THAT(names("*.sav"), ElementsAre("x.sav"));
}

TEST_F(Listing, YieldsAnEmptyArrayAndAnEmptyTemporaryFileWhenNothingMatches) {
  const captured_stderr errors;
  for (const char *const pattern : {"d/*.xml", "missing/*.*", "d/[x", "d/a.sav/*"}) {
    write_file(listing_file, "old\n");
    EXPECT_THAT(names(pattern), IsEmpty()) << pattern;
    EXPECT_EQ(read_file(listing_file), "") << pattern;
  }
  EXPECT_EQ(errors.text(), "");
}

TEST_F(Listing, ReplacesTheTemporaryFileOfTheOneBefore) {
  write_file(listing_file, "old\nolder\noldest\n", 0400);
  names("d/a.*");
  EXPECT_EQ(read_file(listing_file), "d/a.sav\n");
  EXPECT_EQ(mode_of(listing_file), 0644U);
  names("d/b.*");
  EXPECT_EQ(read_file(listing_file), "d/b.pro\n");
}

TEST_F(Listing, YieldsTheContentsOfAMatchingDirectory) {
  write_file("d/sub.d/inner", "");
  EXPECT_THAT(names("d/*.d"), ElementsAre("inner"));
  EXPECT_THAT(names("d/*.*"), ElementsAre("a.sav", "b.pro", "", "sub.d:", "inner"));
}

TEST_F(Listing, MeansEveryDirectoryNameItself) {
  const std::vector<std::string> directories = {
      "a b",         "it's",       "say \"hi\"", "tab\there", "back\\slash", "$HOME", "$(touch ran)",
      "`touch ran`", ";touch ran", "&touch ran", "-dash",     "#hash",       "~",     "{a,b}",
      "12",          "*",          "?",          "[ab]",      "\xc3\xa9",    "\xff",  "a",
  };
  for (std::size_t i = 0; i < directories.size(); ++i)
    write_file(directories[i] + "/" + std::to_string(i) + ".sav", "");
  for (std::size_t i = 0; i < directories.size(); ++i) {
    EXPECT_THAT(names(directories[i] + "/*.sav"), ElementsAre(std::to_string(i) + ".sav")) << directories[i];
    EXPECT_THAT(names(path(directories[i]) + "/*.*"), ElementsAre(std::to_string(i) + ".sav"));
  }
  EXPECT_FALSE(fs::exists("ran"));
}

TEST_F(Listing, MeansEveryFileNameItself) {
  const std::vector<std::string> files = {
      "a b.x", "it's.x", "say \"hi\".x", "back\\slash.x", "$HOME.x", "$(touch ran).x", "`touch ran`.x",
      ";t.x",  "&t.x",   "-l.x",         "#hash.x",       "~.x",     "{a,b}.x",        "12",
  };
  for (const std::string &file : files)
    write_file(file, "");
  for (const std::string &file : files) {
    EXPECT_THAT(names(file), ElementsAre(file));
    EXPECT_THAT(names(path(file)), ElementsAre(file));
  }
  EXPECT_FALSE(fs::exists("ran"));
}

// A listing has one line for a name, so a name of two lines is two names.
TEST_F(Listing, YieldsEachLineOfANameThatHoldsANewline) {
  write_file("d/two\nlines.x", "");
  EXPECT_THAT(names("d/*.x"), ElementsAre("two", "lines.x"));
}

TEST_F(Listing, YieldsNamesThatBeginWithADashForABarePattern) {
  write_file("-l.x", "");
  write_file("z.x", "");
  EXPECT_THAT(names("./*.x"), ElementsAre("-l.x", "z.x"));
  EXPECT_THAT(names("*.x"), ElementsAre("-l.x", "z.x"));
}

TEST_F(Listing, YieldsPlainNamesHoweverTheEnvironmentTellsLsToQuote) {
  const support::free_variables freed({"QUOTING_STYLE"});
  write_file("d/it's a name.x", "");
  for (const char *const style : {"shell-always", "c", "escape", "locale", ""}) {
    setenv("QUOTING_STYLE", style, 1);
    EXPECT_THAT(names("d/*.x"), ElementsAre("it's a name.x")) << style;
    EXPECT_STREQ(std::getenv("QUOTING_STYLE"), style) << "the variable is the caller's again";
  }
}

TEST_F(Listing, TellsLsToQuoteNothingWhereTheEnvironmentIsSilent) {
  const support::free_variables freed({"QUOTING_STYLE", "PATH"});
  write_file("bin/ls", "#!/bin/sh\necho \"$QUOTING_STYLE\" \"$OTHER\"\n", 0755);
  setenv("PATH", path("bin").c_str(), 1);
  setenv("OTHER", "kept", 1);
  EXPECT_THAT(names("d/*.x"), ElementsAre("literal kept"));
  EXPECT_EQ(std::getenv("QUOTING_STYLE"), nullptr);
  unsetenv("OTHER");
}

TEST_F(Listing, OverrulesEachQuotingStyleOfAnEnvironmentThatHoldsTwo) {
  write_file("d/a name.x", "");
  char first[] = "QUOTING_STYLE=c";
  char path_variable[] = "PATH=/usr/bin:/bin";
  char second[] = "QUOTING_STYLE=shell-always";
  char *variables[] = {first, path_variable, second, nullptr};
  char **const previous = environ;
  environ = variables;
  const std::vector<std::string> listed = names("d/*.x");
  char **const left = environ;
  environ = previous;
  EXPECT_THAT(listed, ElementsAre("a name.x"));
  EXPECT_EQ(left, variables);
  EXPECT_THAT(variables, ElementsAre(first, path_variable, second, nullptr));
}

TEST_F(Listing, WorksInAnEnvironmentWithoutAnyVariable) {
  char **const previous = environ;
  environ = nullptr;
  const std::vector<std::string> listed = names("d/*.sav");
  char **const left = environ;
  environ = previous;
  EXPECT_THAT(listed, ElementsAre("a.sav"));
  EXPECT_EQ(left, nullptr);
}

TEST_F(Listing, ReplacesALinkInItsPlaceAndLeavesTheLinksTargetAlone) {
  write_file("foreign", "foreign", 0600);
  for (const char *const target : {"foreign", "nowhere"}) {
    fs::remove(listing_file);
    fs::create_symlink(target, listing_file);
    EXPECT_THAT(names("d/*.*"), ElementsAre("a.sav", "b.pro")) << target;
    EXPECT_FALSE(fs::is_symlink(listing_file)) << target;
  }
  EXPECT_EQ(read_file("foreign"), "foreign");
  EXPECT_EQ(mode_of("foreign"), 0600U);
  EXPECT_FALSE(fs::exists("nowhere"));
}

TEST_F(Listing, ReplacesAFifoASocketAndAnEmptyDirectoryInItsPlace) {
  make_fifo(listing_file);
  EXPECT_THAT(names("d/*.*"), ElementsAre("a.sav", "b.pro"));
  fs::remove(listing_file);
  make_socket(listing_file);
  EXPECT_THAT(names("d/*.*"), ElementsAre("a.sav", "b.pro"));
  fs::remove(listing_file);
  fs::create_directory(listing_file);
  EXPECT_THAT(names("d/*.*"), ElementsAre("a.sav", "b.pro"));
  EXPECT_TRUE(fs::is_regular_file(listing_file));
}

TEST_F(Listing, YieldsNothingWhenADirectoryWithEntriesStandsInItsPlace) {
  write_file(std::string(listing_file) + "/somebodys", "work");
  const captured_stderr errors;
  EXPECT_THAT(names("d/*.*"), IsEmpty());
  EXPECT_EQ(read_file(std::string(listing_file) + "/somebodys"), "work");
}

TEST_F(Listing, IsNullAndLeavesTheCountInADirectoryThatMayNotBeWritten) {
  const captured_stderr errors;
  std::int32_t count = 17;
  {
    const other_user nobody;
    EXPECT_EQ(fdfDirFiles("d/*.*", &count), nullptr);
  }
  EXPECT_EQ(count, 17);
  EXPECT_FALSE(fs::exists(listing_file));
  const std::string said = errors.text();
  EXPECT_TRUE(said.ends_with("./.korvalen_ls_temp_txt: Permission denied\n")) << said;
  EXPECT_EQ(said.find('\n'), said.size() - 1) << "only the shell says something: " << said;
}

TEST_F(Listing, LeavesNoFileOpen) {
  for (const char *pattern : {"d/*.*", "missing/*.*"})
    EXPECT_EQ(files_left_open([&] { names(pattern); }), 0) << pattern;
  fs::remove(listing_file);
  write_file(std::string(listing_file) + "/somebodys", "work");
  const captured_stderr errors;
  EXPECT_EQ(files_left_open([] { names("d/*.*"); }), 0) << "a directory in its place";
  const other_user nobody;
  std::int32_t count = 0;
  EXPECT_EQ(files_left_open([&] { EXPECT_FALSE(fdfDirFiles("d/*.*", &count)); }), 0) << "refused";
}

TEST_F(SharedListing, WorksAndReplacesTheUsersOwnFile) {
  const other_user nobody;
  EXPECT_THAT(names("d/a.*"), ElementsAre("a.sav"));
  EXPECT_THAT(names("d/b.*"), ElementsAre("b.pro"));
}

TEST_F(SharedListing, IsRefusedForAnotherUsersFile) {
  write_file(listing_file, "d/stale.sav\n", 0644);
  const captured_stderr errors;
  EXPECT_TRUE(is_refused());
  EXPECT_EQ(read_file(listing_file), "d/stale.sav\n");
}

// Some systems let nobody open such a file to create it; the listing is then refused. It is never stale.
TEST_F(SharedListing, NeverYieldsWhatAnotherUsersWritableFileHeld) {
  write_file(listing_file, "d/stale.sav\n", 0666);
  ASSERT_EQ(chown(listing_file, 65533, 65533), 0);
  const captured_stderr errors;
  const other_user nobody;
  std::int32_t count = 17;
  const line_array listed = fdfDirFiles("d/*.*", &count);
  if (listed)
    EXPECT_THAT(lines_of(listed), ElementsAre("a.sav", "b.pro"));
  else
    EXPECT_EQ(count, 17);
}

TEST_F(SharedListing, IsRefusedForAnotherUsersLinkWhoseTargetStaysAsItIs) {
  write_file("writable", "somebody's", 0666);
  for (const char *const target : {"writable", "nowhere"}) {
    fs::remove(listing_file);
    fs::create_symlink(target, listing_file);
    EXPECT_TRUE(is_refused()) << target;
    EXPECT_TRUE(fs::is_symlink(listing_file)) << target;
  }
  EXPECT_EQ(read_file("writable"), "somebody's");
  EXPECT_EQ(mode_of("writable"), 0666U);
  EXPECT_FALSE(fs::exists("nowhere"));
}

TEST_F(SharedListing, IsRefusedForAnotherUsersFifoWithoutHanging) {
  make_fifo(listing_file);
  EXPECT_TRUE(is_refused());
  EXPECT_TRUE(fs::is_fifo(listing_file));
}

TEST_F(SharedListing, IsRefusedForAnotherUsersSocketAndDirectory) {
  const captured_stderr errors;
  make_socket(listing_file);
  EXPECT_TRUE(is_refused());
  EXPECT_TRUE(fs::is_socket(listing_file));
  fs::remove(listing_file);
  fs::create_directory(listing_file);
  EXPECT_TRUE(is_refused());
  EXPECT_TRUE(fs::is_directory(listing_file));
}

TEST_F(CopyDirFiles, MakesAMissingTargetAndCopiesEveryMatchWithMode0755AndARecord) {
  umask(077);
  EXPECT_EQ(fdfCopyDirFiles("src", "dst", "*.*"), 2);
  EXPECT_EQ(mode_of("dst"), 0755U);
  EXPECT_EQ(file("dst/a.sav"), "755 a");
  EXPECT_EQ(file("dst/b.pro"), "755 b");
  EXPECT_FALSE(fs::exists("dst/README"));
  EXPECT_EQ(recorded(), "rm dst/a.sav\nrm dst/b.pro\n");
  EXPECT_EQ(file("src/a.sav"), "600 a");
  EXPECT_EQ(file("src/b.pro"), "444 b");
}

TEST_F(CopyDirFiles, ComposesTheSamePathsWithAndWithoutTrailingSlashes) {
  struct row {
    const char *source;
    const char *target;
  };
  for (const row &r : {row{"src/", "dst"}, row{"src", "dst/"}, row{"src", "dst"}, row{"src/", "dst/"}}) {
    fs::remove_all("dst");
    init_korvalen_install_files("");
    forget_log();
    EXPECT_EQ(fdfCopyDirFiles(path(r.source).c_str(), path(r.target).c_str(), "a.*"), 1);
    EXPECT_EQ(logged(), "fdfDirFiles  = ~/src/a.*\n"
                        "aNumber  = 1\n"
                        "fdfCopyFile  = ~/src/a.sav\n"
                        "INTO  = ~/dst/a.sav\n"
                        "add_korvalen_install_files : ~/dst/a.sav\n");
    EXPECT_EQ(recorded(), "rm ~/dst/a.sav\n");
    EXPECT_EQ(file("dst/a.sav"), "755 a");
  }
}

TEST_F(CopyDirFiles, LogsTheListingAndThenEachCopy) {
  EXPECT_EQ(fdfCopyDirFiles("src", "dst", "*.*"), 2);
  EXPECT_EQ(logged(), "fdfDirFiles  = src/*.*\n"
                      "aNumber  = 2\n"
                      "fdfCopyFile  = src/a.sav\n"
                      "INTO  = dst/a.sav\n"
                      "add_korvalen_install_files : dst/a.sav\n"
                      "fdfCopyFile  = src/b.pro\n"
                      "INTO  = dst/b.pro\n"
                      "add_korvalen_install_files : dst/b.pro\n");
}

TEST_F(CopyDirFiles, LeavesAMadeTargetWithMode0WhenNothingMatches) {
  const captured_stderr errors;
  EXPECT_EQ(fdfCopyDirFiles("src", "dst", "*.xml"), 0);
  EXPECT_EQ(mode_of("dst"), 0U);
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), "fdfDirFiles  = src/*.xml\naNumber  = 0\n");
  EXPECT_EQ(errors.text(), "");
}

TEST_F(CopyDirFiles, SetsTheModeOfAnExistingTargetOnlyWhenSomethingIsCopied) {
  fs::create_directory("dst");
  fs::permissions("dst", fs::perms(0700));
  EXPECT_EQ(fdfCopyDirFiles("src", "dst", "*.xml"), 0);
  EXPECT_EQ(mode_of("dst"), 0700U);
  EXPECT_EQ(fdfCopyDirFiles("src", "dst", "README"), 1);
  EXPECT_EQ(mode_of("dst"), 0755U);
  EXPECT_EQ(file("dst/README"), "755 r");
}

TEST_F(CopyDirFiles, OverwritesReadOnlyFilesInAReadOnlyDirectory) {
  write_file("dst/b.pro", "older and longer", 0444);
  fs::permissions("dst", fs::perms(0555));
  fs::permissions(scratch(), fs::perms(0777));
  ASSERT_EQ(chown("dst", 65534, 65534), 0);
  ASSERT_EQ(chown("dst/b.pro", 65534, 65534), 0);
  fs::permissions("src/b.pro", fs::perms(0444));
  std::int32_t copied = -1;
  {
    const other_user nobody;
    copied = fdfCopyDirFiles("src", "dst", "b.*");
  }
  EXPECT_EQ(copied, 1);
  EXPECT_EQ(mode_of("dst"), 0755U);
  EXPECT_EQ(file("dst/b.pro"), "755 b");
}

TEST_F(CopyDirFiles, CopiesNamesAndDirectoriesThatAShellWouldActOn) {
  write_file("a $HOME/it's; here.sav", "x");
  EXPECT_EQ(fdfCopyDirFiles("a $HOME", "b `c`", "*.*"), 1);
  EXPECT_EQ(file("b `c`/it's; here.sav"), "755 x");
  EXPECT_EQ(recorded(), "rm b `c`/it's; here.sav\n");
}

TEST_F(CopyDirFiles, CopiesNothingWhenTheListingCannotBeWritten) {
  fs::create_directory("dst");
  const captured_stderr errors;
  {
    const other_user nobody;
    EXPECT_EQ(fdfCopyDirFiles("src", "dst", "*.*"), 0);
  }
  EXPECT_TRUE(fs::is_empty("dst"));
  EXPECT_EQ(logged(), "fdfDirFiles  = src/*.*\naNumber  = 0\n");
}

TEST_F(CopyDirFiles, LeavesNoFileOpen) {
  for (const char *pattern : {"*.*", "*.*", "*.xml"})
    EXPECT_EQ(files_left_open([&] { fdfCopyDirFiles("src", "dst", pattern); }), 0) << pattern;
  EXPECT_EQ(recorded(), "rm dst/a.sav\nrm dst/b.pro\nrm dst/a.sav\nrm dst/b.pro\n");
}

TEST_F(CopyDirFilesDeathTest, EndsWith255AtASourceThatCannotBeOpened) {
  fs::create_symlink("nowhere", "src/b.lnk");
  const double seconds = support::seconds_taken([] {
    EXPECT_EXIT(fdfCopyDirFiles("src/", "dst/", "*.*"), ExitedWithCode(255),
                Eq("ERROR while copying src/b.lnk\n"
                   " to dst/b.lnk\n"
                   "\n"
                   "Please check path and privileges!\n"
                   "\n"));
  });
  EXPECT_GE(seconds, 4.0);
  EXPECT_EQ(recorded(), "rm dst/a.sav\n") << "what was placed before is recorded";
  EXPECT_EQ(file("dst/a.sav"), "755 a");
  EXPECT_FALSE(fs::exists("dst/b.pro"));
}

TEST_F(CopyDirFilesDeathTest, SetsTheModesBeforeItEndsAtASourceThatCannotBeOpened) {
  fs::create_symlink("nowhere", "src/b.lnk");
  write_file("dst/b.lnk", "placed earlier", 0600);
  fs::permissions("dst", fs::perms(0700));
  EXPECT_EXIT(fdfCopyDirFiles("src", "dst", "*.lnk"), ExitedWithCode(255),
              Eq("ERROR while copying src/b.lnk\n to dst/b.lnk\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(mode_of("dst"), 0755U);
  EXPECT_EQ(file("dst/b.lnk"), "755 placed earlier");
}

TEST_F(CopyDirFilesDeathTest, LogsASourceThatCannotBeOpenedBeforeItEnds) {
  fs::create_symlink("nowhere", "src/x.lnk");
  EXPECT_EXIT(
      {
        std::ofstream log("log");
        set_install_log(&log);
        fdfCopyDirFiles("src", "dst", "*.lnk");
      },
      ExitedWithCode(255),
      Eq("ERROR while copying src/x.lnk\n to dst/x.lnk\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(read_file("log"), "fdfDirFiles  = src/*.lnk\n"
                              "aNumber  = 1\n"
                              "fdfCopyFile  = src/x.lnk\n"
                              "INTO  = dst/x.lnk\n"
                              "\nerrno : 2\n"
                              "FILE NOT FOUND : src/x.lnk\n");
}

TEST_F(CopyDirFilesDeathTest, EndsWith255AtATargetThatCannotBeCreated) {
  fs::create_directories("dst/a.sav");
  EXPECT_EXIT(fdfCopyDirFiles("src", "dst", "*.*"), ExitedWithCode(255),
              Eq("ERROR while copying src/a.sav\n to dst/a.sav\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(recorded(), "");
}

TEST_F(CopyDirFilesDeathTest, EndsWith255WhenTheTargetCannotBeMade) {
  EXPECT_EXIT(
      fdfCopyDirFiles("src", "missing/dst", "*.*"), ExitedWithCode(255),
      Eq("ERROR while copying src/a.sav\n to missing/dst/a.sav\n\nPlease check path and privileges!\n\n"));
  EXPECT_FALSE(fs::exists("missing"));
}

// `ls` tells the directory's contents, which are not in the source directory itself.
TEST_F(CopyDirFilesDeathTest, EndsWith255AtAMatchingDirectoryThatIsListedAlone) {
  write_file("src/sub.d/inner", "i");
  EXPECT_EXIT(fdfCopyDirFiles("src", "dst", "*.d"), ExitedWithCode(255),
              Eq("ERROR while copying src/inner\n to dst/inner\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(recorded(), "");
}

// Among others, a blank line and a heading come before its contents.
TEST_F(CopyDirFilesDeathTest, EndsWith255AtAMatchingDirectoryAfterTheFilesAreCopied) {
  write_file("src/sub.d/inner", "i");
  EXPECT_EXIT(fdfCopyDirFiles("src", "dst", "*.*"), ExitedWithCode(255),
              Eq("ERROR while copying src/\n to dst/\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(recorded(), "rm dst/a.sav\nrm dst/b.pro\n");
  EXPECT_EQ(file("dst/b.pro"), "755 b");
}

TEST_F(CreateDir, MakesEveryMissingLevelAndThenChangesNothing) {
  fs::create_directories("opt");
  fs::permissions("opt", fs::perms(0710));
  const support::other_root root(scratch());
  EXPECT_TRUE(fkorvCreateDir("/opt/a/b/c"));
  for (const char *const made : {"/opt/a", "/opt/a/b", "/opt/a/b/c"})
    EXPECT_EQ(mode_of(made), 0755U) << made;
  fs::permissions("/opt/a/b", fs::perms(0700));
  const support::tree before = support::snapshot("/");
  EXPECT_TRUE(fkorvCreateDir("/opt/a/b/c"));
  EXPECT_EQ(support::snapshot("/"), before);
  EXPECT_EQ(mode_of("/opt"), 0710U);
}

TEST_F(CreateDir, MakesARelativePathFromTheRoot) {
  fs::create_directory("elsewhere");
  const support::other_root root(scratch());
  fs::current_path("/elsewhere");
  EXPECT_TRUE(fkorvCreateDir("rel/dir"));
  EXPECT_EQ(mode_of("/rel"), 0755U);
  EXPECT_EQ(mode_of("/rel/dir"), 0755U);
  EXPECT_TRUE(fs::is_empty("/elsewhere"));
}

TEST_F(CreateDir, MakesEachLevelWithMode0755WhateverTheUmask) {
  for (const mode_t mask : {0U, 0077U, 0777U}) {
    umask(mask);
    const std::string made = path("mask" + std::to_string(mask));
    EXPECT_TRUE(fkorvCreateDir((made + "/b/").c_str()));
    EXPECT_EQ(mode_of(made), 0755U) << mask;
    EXPECT_EQ(mode_of(made + "/b"), 0755U) << mask;
  }
}

TEST_F(CreateDir, IsFalseForAPathWithoutComponents) {
  for (const char *const nothing : {"", "/", "///"})
    EXPECT_FALSE(fkorvCreateDir(nothing)) << nothing;
}

TEST_F(CreateDir, MakesPathsWithDoubledAndTrailingSlashes) {
  EXPECT_TRUE(fkorvCreateDir((path("a") + "//b///").c_str()));
  EXPECT_TRUE(fs::is_directory("a/b"));
}

TEST_F(CreateDir, FollowsALinkToADirectory) {
  fs::create_directory("real");
  fs::create_symlink("real", "link");
  EXPECT_TRUE(fkorvCreateDir(path("link/a").c_str()));
  EXPECT_EQ(mode_of("real/a"), 0755U);
}

TEST_F(CreateDir, IsFalseBelowAFileWhichStaysAsItIs) {
  write_file("file", "a", 0600);
  EXPECT_FALSE(fkorvCreateDir(path("file").c_str()));
  EXPECT_FALSE(fkorvCreateDir(path("file/a").c_str()));
  EXPECT_EQ(read_file("file"), "a");
  EXPECT_EQ(mode_of("file"), 0600U);
}

TEST_F(CreateDir, KeepsTheLevelsAboveTheOneThatCannotBeMade) {
  const captured_stderr errors;
  EXPECT_FALSE(fkorvCreateDir((path("a/b/") + std::string(256, 'x') + "/c").c_str()));
  EXPECT_EQ(mode_of("a"), 0755U);
  EXPECT_TRUE(fs::is_empty("a/b"));
  EXPECT_EQ(errors.text(), "");
}

TEST_F(CreateDir, IsFalseForAUserWithoutRights) {
  {
    const other_user nobody;
    EXPECT_FALSE(fkorvCreateDir(path("a/b").c_str()));
  }
  EXPECT_FALSE(fs::exists("a"));
}

TEST_F(CreateDir, MakesTheFirstHundredLevels) {
  const support::other_root root(scratch());
  std::string deep;
  for (int i = 0; i < 101; ++i)
    deep += "/d";
  EXPECT_TRUE(fkorvCreateDir(deep.c_str()));
  EXPECT_TRUE(fs::is_directory(deep.substr(0, 200)));
  EXPECT_FALSE(fs::exists(deep));
}
