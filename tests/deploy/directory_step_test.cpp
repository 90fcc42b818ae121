#include "korvalen/deploy/directory_step.h"

#include "support/recording.h"

using namespace korvalen;
using support::file_names;
using support::snapshot;
using support::write_file;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;
constexpr const char *on_install[] = {"a.sav", "b.sav"};
constexpr const char *on_uninstall[] = {"b.sav", "a.sav"};

struct DirectoryStep : support::recording_test {
  DirectoryStep() {
    write_file(path("source/from/quorin_core.sav"), "core");
    write_file(path("source/from/new.sav"), "new", 0600);
    write_file(path("target/save/a.sav"), "");
    write_file(path("target/save/b.sav"), "");
  }

  void run(const directory_step &step, bool is_uninstall) const {
    run_directory_step(step, path("source").c_str(), path("target/").c_str(), is_uninstall);
  }
};

TEST_F(DirectoryStep, DeletesMakesTheDirectoryAndCopiesInThisOrder) {
  run({.source = "from",
       .target = "deep/to",
       .core_file = core_file_removal::on_install,
       .stale_on_install = {delete_file_in_save, on_install},
       .stale_on_uninstall = {delete_file_in_save, on_uninstall},
       .logs_creation = true},
      install);
  EXPECT_EQ(logged(), "Delete  ~/source/from/quorin_core.sav\n"
                      "Delete  ~/target/save/a.sav\n"
                      "Delete  ~/target/save/b.sav\n"
                      "fkorvCreateDir  = ~/target/deep/to\n"
                      "fdfDirFiles  = ~/source/from/*.*\n"
                      "aNumber  = 1\n"
                      "fdfCopyFile  = ~/source/from/new.sav\n"
                      "INTO  = ~/target/deep/to/new.sav\n"
                      "add_korvalen_install_files : ~/target/deep/to/new.sav\n");
  EXPECT_EQ(snapshot(path("target")), (support::tree{{"deep", {"directory", 0755, ""}},
                                                     {"deep/to", {"directory", 0755, ""}},
                                                     {"deep/to/new.sav", {"file", 0755, "new"}},
                                                     {"save", {"directory", 0755, ""}}}));
}

TEST_F(DirectoryStep, OnlyDeletesWhenUninstalling) {
  run({.source = "from",
       .target = "save",
       .core_file = core_file_removal::on_install,
       .stale_on_install = {delete_file_in_save, on_install},
       .stale_on_uninstall = {delete_file_in_save, on_uninstall},
       .logs_creation = true},
      uninstall);
  EXPECT_EQ(logged(), "Delete  ~/target/save/b.sav\n"
                      "Delete  ~/target/save/a.sav\n");
  EXPECT_EQ(file_names(snapshot(path("source"))), "from/new.sav\nfrom/quorin_core.sav\n");
  EXPECT_EQ(snapshot(path("target")), (support::tree{{"save", {"directory", 0755, ""}}}));
}

TEST_F(DirectoryStep, WithoutAProbeCopiesTheCoreFile) {
  run({.source = "from", .target = "to"}, install);
  EXPECT_EQ(file_names(snapshot(path("target"))), "save/a.sav\nsave/b.sav\nto/new.sav\nto/quorin_core.sav\n");
  EXPECT_EQ(file_names(snapshot(path("source"))), "from/new.sav\nfrom/quorin_core.sav\n");
}

TEST_F(DirectoryStep, WithAnUnconditionalProbeRemovesTheCoreFileFromTheSourceInBothModes) {
  for (const bool mode : {install, uninstall}) {
    write_file(path("source/from/quorin_core.sav"), "core");
    forget_log();
    run({.source = "from", .target = "to", .core_file = core_file_removal::always}, mode);
    EXPECT_EQ(logged().substr(0, logged().find('\n') + 1), "Delete  ~/source/from/quorin_core.sav\n");
    EXPECT_EQ(file_names(snapshot(path("source"))), "from/new.sav\n");
  }
}

TEST_F(DirectoryStep, RemovesItsTargetWhenUninstallingOnlyIfItSaysSoAndItIsEmpty) {
  support::fs::create_directory(path("target/empty"));
  run({.source = "from", .target = "empty"}, uninstall);
  EXPECT_TRUE(support::fs::exists(path("target/empty")));
  run({.source = "from", .target = "empty", .removes_target_on_uninstall = true}, uninstall);
  EXPECT_FALSE(support::fs::exists(path("target/empty")));
  run({.source = "from", .target = "save", .removes_target_on_uninstall = true}, uninstall);
  EXPECT_EQ(file_names(snapshot(path("target"))), "save/a.sav\nsave/b.sav\n");
}

TEST_F(DirectoryStep, OfAMissingSourceStillMakesTheTarget) {
  create_and_copy(path("nothing").c_str(), path("target/made/here").c_str());
  EXPECT_EQ(support::mode_of(path("target/made")), 0755u);
  EXPECT_EQ(support::mode_of(path("target/made/here")), 0755u);
  EXPECT_EQ(logged(), "fdfDirFiles  = ~/nothing/*.*\naNumber  = 0\n");
}

} // namespace
