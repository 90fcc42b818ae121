#include "korvalen/deploy/old_envi_files.h"

#include "support/child.h"
#include "support/recording.h"

using namespace korvalen;
using support::file_names;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

constexpr const char *stale_files[] = {
    "save/quorin_ts51.sav",
    "save/korvalen_ts51.sav",
    "save/quorin_ts52.sav",
    "save/korvalen_ts52.sav",
    "save/quorin_core_extension.sav",
    "save/korvalen_core_extensions.sav",
    "save_add/korvalen_envi.sav",
    "save_add/envi_korvalen_itools.sav",
    "save_add/envi50_korvalen_stretch.sav",
    "save_add/envi_korvalen_stretch.sav",
    "save_add/korvalen_for_arcgis.sav",
    "save_add/evf_display_ps.sav",
    "save_add/envi_phase_analyzer.sav",
    "save_add/envi_vector_ps.sav",
};

std::string deletions() {
  std::string lines;
  for (const char *file : stale_files)
    lines.append("Delete  ~/envi/").append(file).append("\n");
  return lines;
}

struct OldEnviFiles : support::recording_test {
  int deploy(bool mode, const char *source = "source", const char *envi = "envi") const {
    return copy_files_in_envi_old_dir_envi(path(source).c_str(), path(envi).c_str(), mode);
  }
  void add_stale_files() const {
    for (const char *file : stale_files)
      write_file(path("envi/") + file, "");
  }
};

TEST_F(OldEnviFiles, AreInstalledAfterTheStaleOnesWereDeleted) {
  add_stale_files();
  write_file(path("envi/save/foreign.sav"), "");
  write_file(path("source/save_add/korvalen_envi.sav"), "new");
  write_file(path("source/save_add/README"), "new");
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(logged(), "copy_files_in_envi_old_dir_envi  = 0\n" + deletions() +
                          "fkorvCreateDir  = ~/envi/save_add\n"
                          "fdfDirFiles  = ~/source/save_add/*.*\n"
                          "aNumber  = 1\n"
                          "fdfCopyFile  = ~/source/save_add/korvalen_envi.sav\n"
                          "INTO  = ~/envi/save_add/korvalen_envi.sav\n"
                          "add_korvalen_install_files : ~/envi/save_add/korvalen_envi.sav\n");
  EXPECT_EQ(file_names(snapshot(path("envi"))), "save/foreign.sav\nsave_add/korvalen_envi.sav\n");
  EXPECT_EQ(support::mode_of(path("envi/save_add/korvalen_envi.sav")), 0755u);
  EXPECT_EQ(recorded(), "rm ~/envi/save_add/korvalen_envi.sav\n");
}

TEST_F(OldEnviFiles, AreUninstalledByDeletingTheFourteenStaleOnesOnly) {
  add_stale_files();
  write_file(path("envi/save_add/foreign.sav"), "");
  write_file(path("source/save_add/new.sav"), "new");
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(logged(), "copy_files_in_envi_old_dir_envi  = 1\n" + deletions());
  EXPECT_EQ(file_names(snapshot(path("envi"))), "save_add/foreign.sav\n");
  EXPECT_EQ(recorded(), "");
}

TEST_F(OldEnviFiles, WhenUninstalledMakeNothing) {
  create_directories(path("envi"));
  write_file(path("source/save_add/new.sav"), "new");
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(snapshot(path("envi")), support::tree{});
}

TEST_F(OldEnviFiles, OfAMissingSourceLeaveAnEmptyDirectory) {
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("envi")), (support::tree{{"save_add", {"directory", 0755, ""}}}));
}

TEST_F(OldEnviFiles, HaveTheSamePathsBelowDirectoriesThatEndInASlash) {
  write_file(path("source/save_add/a.sav"), "new");
  EXPECT_EQ(deploy(install), 1);
  const std::string log = logged();
  forget_log();
  EXPECT_EQ(deploy(install, "source/", "envi/"), 1);
  EXPECT_EQ(logged(), log);
}

struct HookFiles : support::recording_test {
  int deploy(bool mode, const char *source = "source", const char *envi = "envi") const {
    return copy_files_in_envi_hook_dir(path(source).c_str(), path(envi).c_str(), mode);
  }
};

TEST_F(HookFiles, AreInstalledInThePlaceOfAllTheProductsEarlierOnes) {
  write_file(path("envi/lib/hook/korvalen.sav"), "old", 0400);
  write_file(path("envi/lib/hook/korvalen_any.sav"), "old");
  write_file(path("envi/lib/hook/korvalen_any.pro"), "foreign");
  write_file(path("envi/lib/hook/quorin.sav"), "foreign");
  write_file(path("source/lib/hook/korvalen_new.sav"), "new");
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("envi/lib/hook")), (support::tree{{"korvalen_any.pro", {"file", 0644, "foreign"}},
                                                            {"korvalen_new.sav", {"file", 0755, "new"}},
                                                            {"quorin.sav", {"file", 0644, "foreign"}}}));
  EXPECT_EQ(recorded(), "rm ~/envi/lib/hook/korvalen_new.sav\n");
  EXPECT_EQ(logged(), "fdfDirFiles  = ~/source/lib/hook/*.*\n"
                      "aNumber  = 1\n"
                      "fdfCopyFile  = ~/source/lib/hook/korvalen_new.sav\n"
                      "INTO  = ~/envi/lib/hook/korvalen_new.sav\n"
                      "add_korvalen_install_files : ~/envi/lib/hook/korvalen_new.sav\n");
}

TEST_F(HookFiles, OfAMissingSourceLeaveAnEmptyDirectory) {
  EXPECT_EQ(deploy(install), 1);
  const support::entry directory = {"directory", 0755, ""};
  EXPECT_EQ(snapshot(path("envi")), (support::tree{{"lib", directory}, {"lib/hook", directory}}));
}

TEST_F(HookFiles, WhenUninstalledStayAsTheyAre) {
  write_file(path("envi/lib/hook/korvalen_any.sav"), "placed", 0400);
  write_file(path("source/lib/hook/korvalen_new.sav"), "new");
  const support::tree before = snapshot(scratch());
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(snapshot(scratch()), before);
  EXPECT_EQ(logged(), "");
}

TEST_F(HookFiles, HaveTheSamePathsBelowDirectoriesThatEndInASlash) {
  write_file(path("source/lib/hook/a.sav"), "new");
  EXPECT_EQ(deploy(install), 1);
  const std::string log = logged();
  forget_log();
  EXPECT_EQ(deploy(install, "source/", "envi/"), 1);
  EXPECT_EQ(logged(), log);
}

struct MatchingFiles : support::recording_test {
  int remove(const char *pattern, const char *directory = "d") const {
    return remove_matching_files(path(directory).c_str(), pattern);
  }
};

TEST_F(MatchingFiles, AreRemovedAndCounted) {
  write_file(path("d/a1.sav"), "");
  write_file(path("d/a2.sav"), "", 0);
  write_file(path("d/b1.sav"), "");
  EXPECT_EQ(remove("a*.sav"), 2);
  EXPECT_EQ(file_names(snapshot(path("d"))), "b1.sav\n");
}

TEST_F(MatchingFiles, AreFoundBelowADirectoryThatEndsInASlash) {
  write_file(path("d/a1.sav"), "");
  EXPECT_EQ(remove("a*.sav", "d/"), 1);
  EXPECT_EQ(file_names(snapshot(path("d"))), "");
}

TEST_F(MatchingFiles, AreMadeWritableBeforeTheyGo) {
  write_file(path("d/a.sav"), "", 0400);
  support::fs::create_hard_link(path("d/a.sav"), path("other_name"));
  EXPECT_EQ(remove("a.sav"), 1);
  EXPECT_EQ(support::mode_of(path("other_name")), 0755u);
}

TEST_F(MatchingFiles, WithoutAMatchAreNone) {
  write_file(path("d/a.sav"), "");
  EXPECT_EQ(remove("b*.sav"), 0);
  EXPECT_EQ(remove("*", "nothing"), 0);
  EXPECT_EQ(file_names(snapshot(path("d"))), "a.sav\n");
}

TEST_F(MatchingFiles, MayHoldABlankAndLieBelowABackslash) {
  write_file(path("x\\y z/Korvalen Tools.tbx"), "");
  write_file(path("x\\y z/Korvalen"), "");
  EXPECT_EQ(remove("Korvalen Tools.tbx", "x\\y z"), 1);
  EXPECT_EQ(file_names(snapshot(path("x\\y z"))), "Korvalen\n");
}

TEST_F(MatchingFiles, ThatCannotBeRemovedAreCountedToo) {
  create_directories(path("d/a.sav"));
  write_file(path("d/a.sav/a.sav"), "");
  EXPECT_EQ(remove("a.sav"), 1);
  EXPECT_TRUE(support::fs::exists(path("d/a.sav/a.sav")));
}

// The current directory takes no listing.
TEST_F(MatchingFiles, ThatCannotBeListedAreNone) {
  write_file(path("d/a.sav"), "");
  EXPECT_EQ(support::call_as_other_user([this] { return remove("*.sav"); }).status, 0);
  EXPECT_EQ(file_names(snapshot(path("d"))), "a.sav\n");
}

} // namespace
