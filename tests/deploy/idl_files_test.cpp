#include "korvalen/deploy/idl_files.h"

#include "support/child.h"
#include "support/recording.h"

#include <string>
#include <vector>

using namespace korvalen;
using support::file_names;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

constexpr const char *all_hooks[] = {
    "korvalen_batch_init.sav",
    "korvalen_envi_management_exec_batch_from_param_to_spawn.sav",
    "korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav",
    "korvalen_run_single_dataset_batch.sav",
    "korvalen_run_tds_list.sav",
    "quorin_core_essentials.sav",
};

constexpr const char *all_libraries[] = {
    "libKorvalen_general_dll.so",
    "libKorvalen_general_dll.dlm",
    "libKorvalenIDLExtensions.so",
    "libKorvalenIDLExtensions.dlm",
};

struct IdlFiles : support::recording_test {
  int deploy(bool mode) const {
    return copy_files_in_envi_dir_idl(path("source").c_str(), path("idl").c_str(), mode);
  }

  void add_all(const std::string &base, const std::string &content) const {
    for (const char *name : all_hooks)
      write_file(path(base + "/lib/hook/" + name), content);
    for (const char *name : all_libraries)
      write_file(path(base + "/bin/bin.linux.x86_64/" + name), content);
  }
};

TEST_F(IdlFiles, InstalledFromAnEmptySourceMakeFourDirectoriesAndNothingElse) {
  create_directories(path("source"));
  EXPECT_EQ(deploy(install), 1);
  const support::entry directory = {"directory", 0755, ""};
  EXPECT_EQ(snapshot(path("idl")), (support::tree{{"bin", directory},
                                                  {"bin/bin.linux.x86_64", directory},
                                                  {"help", directory},
                                                  {"help/online_help", directory},
                                                  {"help/online_help/Subsystems", directory},
                                                  {"help/online_help/Subsystems/Korvalen", directory},
                                                  {"lib", directory},
                                                  {"lib/hook", directory}}));
  EXPECT_EQ(recorded(), "");
}

TEST_F(IdlFiles, InstalledFromAMissingSourceMakeTheSameDirectories) {
  EXPECT_EQ(deploy(install), 1);
  const support::tree without_source = snapshot(path("idl"));
  support::fs::remove_all(path("idl"));
  create_directories(path("source"));
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("idl")), without_source);
}

TEST_F(IdlFiles, WithoutADirectoryThatCannotBeMadeGetTheOthersAllTheSame) {
  create_directories(path("source"));
  write_file(path("idl/help"), "x");
  EXPECT_THAT(support::call([this] { return deploy(install); }), support::Ended(1, "", ""));
  const support::entry directory = {"directory", 0755, ""};
  EXPECT_EQ(snapshot(path("idl")), (support::tree{{"bin", directory},
                                                  {"bin/bin.linux.x86_64", directory},
                                                  {"help", {"file", 0644, "x"}},
                                                  {"lib", directory},
                                                  {"lib/hook", directory}}));
  EXPECT_EQ(recorded(), "");
}

TEST_F(IdlFiles, AreInstalledAfterTheStaleOnesOfEachStepWereDeleted) {
  add_all("idl", "old");
  write_file(path("source/lib/hook/quorin_core.sav"), "core");
  write_file(path("source/lib/hook/korvalen_run_tds_list.sav"), "new");
  write_file(path("source/bin/bin.linux.x86_64/libKorvalen_general_dll.so"), "new");
  write_file(path("source/help/a.pdf"), "new");
  write_file(path("source/help/Korvalen/b.html"), "new");
  EXPECT_EQ(deploy(install), 1);

  EXPECT_EQ(logged(),
            "Delete  ~/source/lib/hook/quorin_core.sav\n"
            "Delete  ~/idl/lib/hook/quorin_core_essentials.sav\n"
            "Delete  ~/idl/lib/hook/korvalen_batch_init.sav\n"
            "Delete  ~/idl/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn.sav\n"
            "Delete  ~/idl/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav\n"
            "Delete  ~/idl/lib/hook/korvalen_run_single_dataset_batch.sav\n"
            "Delete  ~/idl/lib/hook/korvalen_run_tds_list.sav\n"
            "fdfDirFiles  = ~/source/lib/hook/*.*\n"
            "aNumber  = 1\n"
            "fdfCopyFile  = ~/source/lib/hook/korvalen_run_tds_list.sav\n"
            "INTO  = ~/idl/lib/hook/korvalen_run_tds_list.sav\n"
            "add_korvalen_install_files : ~/idl/lib/hook/korvalen_run_tds_list.sav\n"
            "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
            "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm\n"
            "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalenIDLExtensions.so\n"
            "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalenIDLExtensions.dlm\n"
            "fdfDirFiles  = ~/source/bin/bin.linux.x86_64/*.*\n"
            "aNumber  = 1\n"
            "fdfCopyFile  = ~/source/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
            "INTO  = ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
            "add_korvalen_install_files : ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
            "fdfDirFiles  = ~/source/help/*.*\n"
            "aNumber  = 1\n"
            "fdfCopyFile  = ~/source/help/a.pdf\n"
            "INTO  = ~/idl/help/a.pdf\n"
            "add_korvalen_install_files : ~/idl/help/a.pdf\n"
            "fdfDirFiles  = ~/source/help/Korvalen/*.*\n"
            "aNumber  = 1\n"
            "fdfCopyFile  = ~/source/help/Korvalen/b.html\n"
            "INTO  = ~/idl/help/online_help/Subsystems/Korvalen/b.html\n"
            "add_korvalen_install_files : ~/idl/help/online_help/Subsystems/Korvalen/b.html\n");
  EXPECT_EQ(recorded(), "rm ~/idl/lib/hook/korvalen_run_tds_list.sav\n"
                        "rm ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
                        "rm ~/idl/help/a.pdf\n"
                        "rm ~/idl/help/online_help/Subsystems/Korvalen/b.html\n");
}

TEST_F(IdlFiles, LeaveNoOlderLibraryBesideTheNewOne) {
  add_all("idl", "old");
  write_file(path("source/bin/bin.linux.x86_64/libKorvalenIDLExtensions.so"), "new");
  write_file(path("idl/bin/bin.linux.x86_64/foreign.so"), "foreign");
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("idl/bin/bin.linux.x86_64")),
            (support::tree{{"foreign.so", {"file", 0644, "foreign"}},
                           {"libKorvalenIDLExtensions.so", {"file", 0755, "new"}}}));
}

TEST_F(IdlFiles, AreUninstalledByDeletingTheLibrariesAndTheTwoRunHooks) {
  add_all("idl", "placed");
  write_file(path("idl/help/a.pdf"), "placed");
  create_directories(path("idl/help/online_help/Subsystems/Korvalen"));
  write_file(path("source/lib/hook/quorin_core.sav"), "core");
  write_file(path("source/help/a.pdf"), "new");
  EXPECT_EQ(deploy(uninstall), 1);

  EXPECT_EQ(logged(), "Delete  ~/source/lib/hook/quorin_core.sav\n"
                      "Delete  ~/idl/lib/hook/korvalen_run_single_dataset_batch.sav\n"
                      "Delete  ~/idl/lib/hook/korvalen_run_tds_list.sav\n"
                      "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n"
                      "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm\n"
                      "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalenIDLExtensions.so\n"
                      "Delete  ~/idl/bin/bin.linux.x86_64/libKorvalenIDLExtensions.dlm\n");
  const support::entry directory = {"directory", 0755, ""};
  const support::entry placed = {"file", 0644, "placed"};
  EXPECT_EQ(snapshot(path("idl")),
            (support::tree{
                {"bin", directory},
                {"bin/bin.linux.x86_64", directory},
                {"help", directory},
                {"help/a.pdf", placed},
                {"help/online_help", directory},
                {"help/online_help/Subsystems", directory},
                {"lib", directory},
                {"lib/hook", directory},
                {"lib/hook/korvalen_batch_init.sav", placed},
                {"lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn.sav", placed},
                {"lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav", placed},
                {"lib/hook/quorin_core_essentials.sav", placed}}));
  EXPECT_EQ(file_names(snapshot(path("source"))), "help/a.pdf\n");
  EXPECT_EQ(recorded(), "");
}

TEST_F(IdlFiles, WhenUninstalledLeaveHelpPagesThatAreNotTheirs) {
  write_file(path("idl/help/online_help/Subsystems/Korvalen/own.html"), "");
  EXPECT_THAT(support::call([this] { return deploy(uninstall); }), support::Ended(1, "", ""));
  EXPECT_EQ(file_names(snapshot(path("idl"))), "help/online_help/Subsystems/Korvalen/own.html\n");
  EXPECT_EQ(logged(), "");
}

TEST_F(IdlFiles, OfTheProductsHelpGoIntoTheOnlineHelpOnly) {
  write_file(path("source/help/a.pdf"), "");
  write_file(path("source/help/README"), "");
  write_file(path("source/help/Korvalen/b.html"), "");
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(file_names(snapshot(path("idl"))), "help/a.pdf\n"
                                               "help/online_help/Subsystems/Korvalen/b.html\n");
  EXPECT_FALSE(support::fs::exists(path("idl/help/Korvalen")));
}

TEST_F(IdlFiles, ThatOutliveTheProductAreCopiedButNotRecorded) {
  for (const char *name : all_hooks)
    write_file(path("source/lib/hook/") + name, "new");
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(file_names(snapshot(path("idl/lib/hook"))),
            "korvalen_batch_init.sav\n"
            "korvalen_envi_management_exec_batch_from_param_to_spawn.sav\n"
            "korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav\n"
            "korvalen_run_single_dataset_batch.sav\n"
            "korvalen_run_tds_list.sav\n"
            "quorin_core_essentials.sav\n");
  EXPECT_EQ(recorded(),
            "rm ~/idl/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav\n"
            "rm ~/idl/lib/hook/korvalen_run_single_dataset_batch.sav\n"
            "rm ~/idl/lib/hook/korvalen_run_tds_list.sav\n");
}

TEST_F(IdlFiles, HaveTheSameTargetsBelowADirectoryThatEndsInASlash) {
  add_all("source", "new");
  EXPECT_EQ(deploy(install), 1);
  const std::string log = logged();
  const support::tree tree = snapshot(path("idl"));
  support::fs::remove_all(path("idl"));
  forget_log();
  EXPECT_EQ(copy_files_in_envi_dir_idl(path("source/").c_str(), path("idl/").c_str(), install), 1);
  EXPECT_EQ(logged(), log);
  EXPECT_EQ(snapshot(path("idl")), tree);
}

TEST_F(IdlFiles, ThatAreStaleAndCannotBeRemovedAreLoggedAllTheSame) {
  create_directories(path("idl/lib/hook/korvalen_run_tds_list.sav/inside"));
  EXPECT_THAT(support::call([this] { return deploy(uninstall); }), support::Ended(1, "", ""));
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(logged(), "Delete  ~/idl/lib/hook/korvalen_run_tds_list.sav\n");
  EXPECT_TRUE(support::fs::exists(path("idl/lib/hook/korvalen_run_tds_list.sav/inside")));
}

} // namespace
