#include "korvalen/deploy/stale_files.h"

#include "korvalen/records/install_log.h"
#include "support/child.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <iostream>
#include <ostream>

using namespace korvalen;
using support::Ended;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

struct member {
  const char *name;
  void (*delete_file)(const char *base_dir, const char *file_name);
  const char *directory;
};

void PrintTo(const member &m, std::ostream *out) {
  *out << m.name;
}

struct StaleFile : support::recording_test, testing::WithParamInterface<member> {
  std::string directory() const { return path("base/") + GetParam().directory; }
  void remove(const std::string &base, const char *name = "stale.sav") const {
    GetParam().delete_file(base.c_str(), name);
  }
};

INSTANTIATE_TEST_SUITE_P(
    Members, StaleFile,
    testing::Values(member{"custom_code", delete_file_in_custom_code, "custom_code"},
                    member{"extensions", delete_file_in_extensions, "extensions"},
                    member{"classic_save_add", delete_file_in_classic_save_add, "classic/save_add"},
                    member{"lib_hook", delete_file_in_lib_hook, "lib/hook"},
                    member{"bin_linux_x86_64", delete_file_in_bin_linux_x86_64, "bin/bin.linux.x86_64"},
                    member{"save", delete_file_in_save, "save"},
                    member{"save_add", delete_file_in_save_add, "save_add"},
                    member{"bin_x86_64", delete_file_in_bin_x86_64, "bin/bin.x86_64"},
                    member{"bin_x86", delete_file_in_bin_x86, "bin/bin.x86"}),
    [](const auto &instance) { return instance.param.name; });

TEST_P(StaleFile, OfTheMembersDirectoryGoesAndNoOther) {
  for (const char *sub_path : {"custom_code", "extensions", "classic/save_add", "lib/hook",
                               "bin/bin.linux.x86_64", "save", "save_add", "bin/bin.x86_64", "bin/bin.x86"})
    write_file(path("base/") + sub_path + "/stale.sav", "");
  write_file(directory() + "/other.sav", "");
  support::tree expected = snapshot(path("base"));
  expected.erase(std::string(GetParam().directory) + "/stale.sav");

  remove(path("base"));
  EXPECT_EQ(snapshot(path("base")), expected);
  EXPECT_EQ(logged(), "Delete  ~/base/" + std::string(GetParam().directory) + "/stale.sav\n");
  EXPECT_EQ(recorded(), "");
}

TEST_P(StaleFile, ThatIsMissingIsPassedOver) {
  create_directories(directory());
  remove(path("base"));
  remove(path("no_base"));
  EXPECT_EQ(logged(), "");
}

TEST_P(StaleFile, IsFoundBelowABaseThatEndsInASlash) {
  write_file(directory() + "/stale.sav", "");
  remove(path("base/"));
  EXPECT_EQ(logged(), "Delete  ~/base/" + std::string(GetParam().directory) + "/stale.sav\n");
  EXPECT_FALSE(support::fs::exists(directory() + "/stale.sav"));
}

TEST_P(StaleFile, IsFoundBelowABaseThatLosesOnlyOneOfTwoSlashes) {
  write_file(directory() + "/stale.sav", "");
  remove(path("base//"));
  EXPECT_EQ(logged(), "Delete  ~/base//" + std::string(GetParam().directory) + "/stale.sav\n");
  EXPECT_FALSE(support::fs::exists(directory() + "/stale.sav"));
}

// The scratch directory is made the root, so that nobody's files are at stake.
TEST_P(StaleFile, IsFoundBelowTheRootWhichKeepsItsSlash) {
  const std::string sub_path = GetParam().directory;
  write_file(path(sub_path + "/stale.sav"), "");
  {
    const support::other_root scratch_is_root(scratch());
    remove("/");
  }
  EXPECT_EQ(logged(), "Delete  //" + sub_path + "/stale.sav\n");
  EXPECT_FALSE(support::fs::exists(path(sub_path + "/stale.sav")));
}

struct StaleFileKinds : support::recording_test {
  void remove(const char *name) const { delete_file_in_custom_code(path("base").c_str(), name); }
};

TEST_F(StaleFileKinds, AReadOnlyFileGoes) {
  write_file(path("base/custom_code/a.sav"), "", 0);
  remove("a.sav");
  EXPECT_FALSE(support::fs::exists(path("base/custom_code/a.sav")));
}

// Another name of the same file shows the mode that the removed one had last.
TEST_F(StaleFileKinds, AFileIsMadeWritableBeforeItGoes) {
  write_file(path("base/custom_code/a.sav"), "", 0400);
  support::fs::create_hard_link(path("base/custom_code/a.sav"), path("other_name"));
  remove("a.sav");
  EXPECT_FALSE(support::fs::exists(path("base/custom_code/a.sav")));
  EXPECT_EQ(support::mode_of(path("other_name")), 0755u);
}

TEST_F(StaleFileKinds, AnEmptyDirectoryGoes) {
  create_directories(path("base/custom_code/a.sav"));
  remove("a.sav");
  EXPECT_EQ(snapshot(path("base")), (support::tree{{"custom_code", {"directory", 0755, ""}}}));
  EXPECT_EQ(logged(), "Delete  ~/base/custom_code/a.sav\n");
}

TEST_F(StaleFileKinds, ADirectoryWithContentsStaysWithAnotherModeAndIsLoggedAllTheSame) {
  write_file(path("base/custom_code/a.sav/inside"), "");
  support::fs::permissions(path("base/custom_code/a.sav"), support::fs::perms(0700));
  remove("a.sav");
  EXPECT_EQ(snapshot(path("base/custom_code")),
            (support::tree{{"a.sav", {"directory", 0755, ""}}, {"a.sav/inside", {"file", 0644, ""}}}));
  EXPECT_EQ(logged(), "Delete  ~/base/custom_code/a.sav\n");
}

TEST_F(StaleFileKinds, ALinkGoesAndItsTargetStaysAsItWas) {
  write_file(path("target"), "", 0600);
  create_directories(path("base/custom_code"));
  support::fs::create_symlink(path("target"), path("base/custom_code/a.sav"));
  remove("a.sav");
  EXPECT_EQ(snapshot(path("base")), (support::tree{{"custom_code", {"directory", 0755, ""}}}));
  EXPECT_EQ(support::mode_of(path("target")), 0600u);
}

TEST_F(StaleFileKinds, ALinkToNothingCountsAsMissing) {
  create_directories(path("base/custom_code"));
  support::fs::create_symlink("nowhere", path("base/custom_code/a.sav"));
  remove("a.sav");
  EXPECT_TRUE(support::fs::is_symlink(path("base/custom_code/a.sav")));
  EXPECT_EQ(logged(), "");
}

TEST_F(StaleFileKinds, AFileThatMayNotBeRemovedIsLoggedAllTheSameAndNothingIsPrinted) {
  write_file(path("base/custom_code/a.sav"), "");
  EXPECT_THAT(support::call_as_other_user([this] {
                remove("a.sav");
                return 0;
              }),
              Ended(0, "", ""));
  EXPECT_THAT(support::call_as_other_user([this] {
                set_install_log(&std::cout);
                remove("a.sav");
                return 0;
              }),
              Ended(0, "Delete  " + path("base/custom_code/a.sav") + "\n", ""));
  EXPECT_TRUE(support::fs::exists(path("base/custom_code/a.sav")));
}

struct StaleList : support::recording_test {};

TEST_F(StaleList, IsWorkedOffInItsOrderWithNamesThatStandTwice) {
  for (const char *name : {"a", "b", "c"})
    write_file(path("base/save/") + name, "");
  create_directories(path("base/save/full/of"));
  constexpr const char *names[] = {"c", "full", "a", "c", "none", "full"};
  delete_stale_files({delete_file_in_save, names}, path("base").c_str());
  EXPECT_EQ(logged(), "Delete  ~/base/save/c\n"
                      "Delete  ~/base/save/full\n"
                      "Delete  ~/base/save/a\n"
                      "Delete  ~/base/save/full\n");
  EXPECT_EQ(file_names(snapshot(path("base"))), "save/b\n");
}

TEST_F(StaleList, WithoutNamesNeedsNoOperation) {
  delete_stale_files({}, path("base").c_str());
  EXPECT_EQ(logged(), "");
}

TEST_F(StaleFileKinds, AnyPathIsRemovedOnceAndLoggedOnce) {
  write_file(path("a"), "");
  delete_if_present(path("a").c_str());
  delete_if_present(path("a").c_str());
  EXPECT_FALSE(support::fs::exists(path("a")));
  EXPECT_EQ(logged(), "Delete  ~/a\n");
}

} // namespace
