// Modes of what is placed, and runs by a user who may not do everything.

#include "run/whole_run.h"

#include <cerrno>
#include <sys/stat.h>
#include <system_error>

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

void set_mode(const std::string &path, mode_t mode) {
  if (chmod(path.c_str(), mode) != 0)
    throw std::system_error(errno, std::generic_category(), "test set-up: " + path);
}

void give_to_root(const std::string &path) {
  if (chown(path.c_str(), 0, 0) != 0)
    throw std::system_error(errno, std::generic_category(), "test set-up: " + path);
}

class Permissions : public whole_run {
protected:
  Permissions() {
    make_envi();
    ship("envi/custom_code/first.sav");
    ship("envi/save/k.sav");
  }

  // Everything belongs to the other user, who may still not read or write everything.
  void give_all_to_other_user() const {
    give_to_other_user(host());
    give_to_other_user(".");
  }

  support::outcome install_locally_as_other_user() const {
    return install_as_other_user({product(), envi(), "x"});
  }

  std::string local_script() const { return host() + "/korvalen_uninstall.sh"; }
};

} // namespace

TEST_F(Permissions, OfPlacedFilesAndDirectoriesDoNotDependOnTheMask) {
  umask(0077);
  const support::outcome run = install({product(), envi()});
  umask(022);
  EXPECT_THAT(run, Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/save")), "new file 755 k.sav\n");
  EXPECT_EQ(changes({}, snapshot(envi() + "/resource")),
            "new directory 755 bitmaps\nnew directory 755 filterfuncs\nnew directory 755 langcat\n"
            "new directory 755 templates\nnew directory 755 templates/tasks\n"
            "new directory 755 templates/tasks/Korvalen\n");
  EXPECT_EQ(support::mode_of("/etc/quorin"), 0755U);
  EXPECT_EQ(support::mode_of(script_in_etc), 0705U);
  EXPECT_EQ(support::mode_of(envi() + "/bin/envi"), 0755U);
  // These two have the mode of a new file.
  EXPECT_EQ(support::mode_of(configuration_in_etc), 0600U);
  EXPECT_EQ(support::mode_of(envi() + "/bin/envi_original"), 0600U);
}

TEST_F(Permissions, GiveNobodyMoreThanThePlacedFilesNeedUnderAnOpenMask) {
  umask(0);
  const support::outcome run = install({product(), envi()});
  umask(022);
  EXPECT_THAT(run, Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/save")), "new file 755 k.sav\n");
  EXPECT_EQ(support::mode_of(envi() + "/classic/save_add"), 0755U);
  EXPECT_EQ(support::mode_of("/etc/quorin"), 0755U);
  EXPECT_EQ(support::mode_of(script_in_etc), 0705U);
  EXPECT_EQ(support::mode_of(envi() + "/idl86/bin/idl"), 0755U);
}

TEST_F(Permissions, OfLaunchScriptsBecome0755WhateverTheyWere) {
  const std::vector<std::pair<std::string, mode_t>> scripts = {{"bin/envi", 0700},
                                                               {"bin/envi_rt", 0444},
                                                               {"bin/envitaskengine", 0},
                                                               {"idl86/bin/idl", 06755},
                                                               {"idl86/bin/idlde", 0777}};
  for (const auto &[name, mode] : scripts)
    set_mode(envi() + "/" + name, mode);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  for (const auto &[name, mode] : scripts) {
    EXPECT_EQ(support::mode_of(envi() + "/" + name), 0755U) << name;
    EXPECT_EQ(support::mode_of(envi() + "/" + name + "_original"), 0644U) << name;
  }
}

TEST_F(Permissions, OfExistingDirectoriesChangeOnlyWhereSomethingIsCopied) {
  for (const char *directory : {"save", "extensions"}) {
    fs::create_directory(envi() + "/" + directory);
    set_mode(envi() + "/" + directory, 0700);
  }
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(support::mode_of(envi() + "/save"), 0755U);
  EXPECT_EQ(support::mode_of(envi() + "/extensions"), 0700U);
}

TEST_F(Permissions, ThatForbidABackupEndTheRunAndLeaveTheScript) {
  give_all_to_other_user();
  give_to_root(envi() + "/bin");
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(255, progress, copy_error(envi() + "/bin/envi", envi() + "/bin/envi_original")));
  EXPECT_EQ(changes({}, snapshot(envi() + "/bin")),
            "new file 755 envi\nnew file 755 envi_rt\nnew file 755 envitaskengine\n");
  EXPECT_EQ(read_file(envi() + "/bin/envi"), envi_script("envi"));
}

TEST_F(Permissions, ThatForbidWritingAScriptEndTheRunAndLeaveScriptAndBackup) {
  give_all_to_other_user();
  give_to_root(envi() + "/bin/envi_rt");
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(255, progress, copy_error(envi() + "/bin/envi_rt_original", envi() + "/bin/envi_rt")));
  EXPECT_EQ(read_file(envi() + "/bin/envi"), patched_envi_script("envi", product()));
  EXPECT_EQ(read_file(envi() + "/bin/envi_rt"), envi_script("envi_rt"));
  EXPECT_EQ(read_file(envi() + "/bin/envi_rt_original"), envi_script("envi_rt"));
  EXPECT_EQ(read_file(envi() + "/bin/envitaskengine"), envi_script("envitaskengine"));
}

TEST_F(Permissions, ThatForbidReadingAScriptLeaveItAndTheRunGoesOn) {
  give_all_to_other_user();
  for (const char *name : {"/bin/envi", "/idl86/bin/idl"}) {
    give_to_root(envi() + name);
    set_mode(envi() + name, 0711);
  }
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(0,
                    progress + "WRONG size envi script 2 :: " + envi() +
                        "/bin/envi\nWRONG size envi script 4 : " + envi() + "/idl86/bin/idl\nDone\n\n",
                    ""));
  EXPECT_EQ(
      changes({}, snapshot(envi() + "/bin")),
      "new file 711 envi\nnew file 755 envi_rt\nnew file 644 envi_rt_original\nnew file 755 envitaskengine\n"
      "new file 644 envitaskengine_original\n");
  EXPECT_EQ(read_file(envi() + "/bin/envi"), envi_script("envi"));
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idl"), idl_script("idl"));
  EXPECT_EQ(read_file(envi() + "/save/k.sav"), "envi/save/k.sav\n");
}

TEST_F(Permissions, ThatForbidWritingInATargetDirectoryEndTheRun) {
  fs::create_directory(envi() + "/save");
  give_all_to_other_user();
  give_to_root(envi() + "/save");
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(255, progress, copy_error(source("envi/save/k.sav"), envi() + "/save/k.sav")));
  EXPECT_EQ(read_file(local_script()),
            "rm " + product() + "/Korvalen_configuration.ini\nrm " + envi() + "/custom_code/first.sav\n");
}

TEST_F(Permissions, ThatForbidMakingATargetDirectoryEndTheRun) {
  give_all_to_other_user();
  give_to_root(envi());
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(255, progress,
                    copy_error(source("envi/custom_code/first.sav"), envi() + "/custom_code/first.sav")));
  EXPECT_FALSE(fs::exists(envi() + "/custom_code"));
}

TEST_F(Permissions, ThatForbidReadingAProductFileEndTheRun) {
  give_all_to_other_user();
  give_to_root(source("envi/save/k.sav"));
  set_mode(source("envi/save/k.sav"), 0600);
  EXPECT_THAT(install_locally_as_other_user(),
              Ended(255, progress, copy_error(source("envi/save/k.sav"), envi() + "/save/k.sav")));
  EXPECT_FALSE(fs::exists(envi() + "/save/k.sav"));
}
