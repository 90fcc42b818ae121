#include "admin/admin_run.h"

#include <sys/xattr.h>

using namespace admin_runs;
using support::Ended;
using support::read_file;
using support::write_file;

namespace {

class Inverse : public admin_run {
protected:
  static void own(const std::string &path, uid_t user, gid_t group, mode_t mode) {
    must(lchown(path.c_str(), user, group), "chown " + path);
    must(chmod(path.c_str(), mode), "chmod " + path);
  }
  static void attribute(const std::string &path, const char *name, const std::string &value) {
    must(setxattr(path.c_str(), name, value.data(), value.size(), 0), "setxattr " + path);
  }
  // An access control list that gives user 1234 the right to read, beside owner, group and others.
  static std::string list_for_a_user() {
    const auto entry = [](int tag, int permissions, int id) {
      std::string bytes;
      for (const int half : {tag, permissions, id & 0xffff, id >> 16 & 0xffff}) {
        bytes += static_cast<char>(half & 0xff);
        bytes += static_cast<char>(half >> 8 & 0xff);
      }
      return bytes;
    };
    return std::string("\x02\0\0\0", 4) + entry(1, 6, -1) + entry(2, 4, 1234) + entry(4, 4, -1) +
           entry(16, 4, -1) + entry(32, 0, -1);
  }
  std::string other_product() const { return path("host/other"); }
  std::string other_envi() const { return path("host/envi55"); }
  void make_other_product() const {
    write_file(other_product() + "/auxiliary/envi_extensions_54/envi/save/k.sav", "the other's");
    write_file(other_product() + "/auxiliary/envi_extensions_54/envi/save/other.sav", "the other's");
    write_file(other_product() + "/auxiliary/envi_extensions_54/idl/help/page.html", "the other's");
  }
  void make_other_envi() const {
    make_envi(other_envi());
    write_file(other_envi() + "/save/k.sav", "the second host's own");
  }
};

TEST_F(Inverse, InstallingAndUninstallingGivesTheTreeBefore) {
  make_host();
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "envi/save/k.sav\n");
  EXPECT_EQ(read_file(in_envi("bin/envi")), patched_envi_script("envi", "/etc/quorin"));
  const support::outcome ended = command("uninstall");
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(run_file));
  EXPECT_TRUE(fs::is_empty(state_dir + "/kept"));
  EXPECT_TRUE(fs::is_empty(state_dir + "/aside"));
}

TEST_F(Inverse, HoldsForTheSamplesInTheLocalLayout) {
  unpack_samples();
  const exact_tree before = everything();
  expect_status(command("install", {"--local"}), 0);
  expect_status(command("verify", {"--local"}), 0);
  expect_status(command("uninstall", {"--local"}), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsWithoutAnEnvi) {
  make_host();
  const exact_tree before = everything();
  expect_status(admin({"install", product()}), 0);
  EXPECT_TRUE(fs::exists(whole_runs::configuration_in_etc));
  expect_status(admin({"verify", product()}), 0);
  expect_status(admin({"uninstall", product()}), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsAfterTwoProductsWhoeverGoesFirst) {
  make_host();
  make_other_product();
  const exact_tree before = everything();
  for (const bool first_goes_first : {true, false}) {
    expect_status(admin({"install", product(), envi()}), 0);
    expect_status(admin({"install", other_product(), envi()}), 0);
    const std::string first = first_goes_first ? product() : other_product();
    expect_status(admin({"uninstall", first, envi()}), 0);
    EXPECT_NE(differences(before, everything()), "") << "the other product went too";
    expect_status(admin({"verify", first_goes_first ? other_product() : product(), envi()}), 0);
    expect_status(admin({"uninstall", first_goes_first ? other_product() : product(), envi()}), 0);
    EXPECT_EQ(differences(before, everything()), "") << "the first went first: " << first_goes_first;
  }
}

TEST_F(Inverse, HoldsAfterAProductWasUpgradedInPlace) {
  make_host();
  const exact_tree envi_before = exact({envi(), "/etc"});
  expect_status(command("install"), 0);
  write_file(source("envi/save/k.sav"), "changed");
  write_file(source("envi/save/added.sav"), "added");
  fs::remove(source("envi/extensions/menu.sav"));
  write_file(source("envi/extensions/other_menu.sav"), "other");
  const exact_tree product_before = exact({product()});
  expect_status(command("install"), 0);
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "changed");
  EXPECT_TRUE(fs::exists(in_envi("extensions/menu.sav")))
      << "the installer removes no file of an older product";
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(envi_before, exact({envi(), "/etc"})), "");
  EXPECT_EQ(differences(product_before, exact({product()})), "");
}

TEST_F(Inverse, OfAnInstallationOverAPlainOneIsThePlainOne) {
  make_host();
  expect_status(install({product(), envi()}), 0);
  write_file(source("envi/save/k.sav"), "changed");
  const exact_tree before = everything(file_times::left_out);
  const json told_by = told("install");
  EXPECT_EQ(told_by["status"], 0) << told_by.dump(1);
  EXPECT_EQ(told_by["warnings"][0]["code"], "installed-before") << told_by.dump(1);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything(file_times::left_out)), "");
}

TEST_F(Inverse, AfterAnUpgradeOfEnviAndASecondInstallationLeavesTheNewScript) {
  make_host();
  const std::string script = in_envi("bin/envi_rt");
  exact_tree before = everything();
  expect_status(command("install"), 0);
  write_file(script, "#!/bin/sh\n# the new release\nexec envi_rt\n", 0755);
  before[script] = exact({script})[script];
  const json told_by = told("install");
  EXPECT_EQ(told_by["status"], 0) << told_by.dump(1);
  EXPECT_EQ(told_by["warnings"][0]["code"], "stale-backup") << told_by.dump(1);
  EXPECT_EQ(read_file(script + "_original"), "#!/bin/sh\n# the new release\nexec envi_rt\n");
  EXPECT_EQ(read_file(script),
            whole_runs::envi_block("/etc/quorin") + "#!/bin/sh\n# the new release\nexec envi_rt\n");
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, AfterAnUpgradeOfEnviAloneLeavesTheNewScriptAndSaysSo) {
  make_host();
  const std::string script = in_envi("bin/envi_rt");
  exact_tree before = everything();
  expect_status(command("install"), 0);
  write_file(script, "#!/bin/sh\n# the new release\nexec envi_rt\n", 0755);
  before[script] = exact({script})[script];
  const json told_by = told("uninstall");
  EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
  EXPECT_EQ(told_by["warnings"][0]["code"], "changed-since") << told_by.dump(1);
  EXPECT_EQ(told_by["warnings"][0]["path"], script);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, OfTwoEnvisOverOneInitDirectoryHoldsWhoeverGoesFirst) {
  make_host();
  make_other_envi();
  const exact_tree before = everything();
  for (const auto &[first, second] : {std::pair(envi(), other_envi()), std::pair(other_envi(), envi())}) {
    expect_status(admin({"install", product(), envi()}), 0);
    expect_status(admin({"install", product(), other_envi()}), 0);
    expect_status(admin({"verify", product(), envi()}), 0);
    expect_status(admin({"uninstall", product(), first}), 0);
    expect_status(admin({"verify", product(), second}), 0);
    EXPECT_TRUE(fs::exists(whole_runs::configuration_in_etc)) << "the second one needs it";
    expect_status(admin({"uninstall", product(), second}), 0);
    EXPECT_EQ(differences(before, everything()), "") << first << " went first";
  }
}

TEST_F(Inverse, OfTheSystemLayoutAndThenTheLocalOneOnOneEnviHolds) {
  make_host();
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  expect_status(command("install", {"--local"}), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_FALSE(fs::exists("/etc/quorin"));
  expect_status(command("verify", {"--local"}), 0);
  EXPECT_EQ(read_file(in_envi("bin/envi")), patched_envi_script("envi", product()));
  expect_status(command("uninstall", {"--local"}), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, KnowsAnEnviByAnyOfItsNames) {
  make_host();
  fs::create_directory_symlink(envi(), path("host/current"));
  fs::create_directory_symlink(product(), path("host/korvalen_now"));
  const exact_tree before = everything();
  expect_status(admin({"install", path("host/korvalen_now"), path("host/current")}), 0);
  expect_status(admin({"verify", product(), envi()}), 0);
  expect_status(admin({"install", product(), envi()}), 0);
  EXPECT_EQ(parsed_json(read_file(receipt_file))["content"]["installations"].size(), 1U);
  expect_status(admin({"uninstall", product(), path("host/current")}), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, TakesALinkThatLeadsToAnotherEnviNowForThatOne) {
  make_host();
  make_other_envi();
  fs::create_directory_symlink(envi(), path("host/current"));
  expect_status(admin({"install", product(), path("host/current")}), 0);
  const exact_tree first = exact({envi()});
  fs::remove(path("host/current"));
  fs::create_directory_symlink(other_envi(), path("host/current"));
  const exact_tree second_before = exact({other_envi()});

  EXPECT_EQ(admin({"verify", product(), path("host/current")}).status, 1) << "nothing is installed there";
  expect_status(admin({"install", product(), path("host/current")}), 0);
  expect_status(admin({"uninstall", product(), path("host/current")}), 0);
  EXPECT_EQ(differences(second_before, exact({other_envi()})), "");
  EXPECT_EQ(differences(first, exact({envi()})), "") << "the first ENVI was not meant";
  expect_status(admin({"verify", product(), envi()}), 0);
}

TEST_F(Inverse, TakesRelativePathsAndSlashes) {
  make_host();
  const exact_tree before = everything();
  expect_status(admin({"install", "../host/korvalen//", ".././host/envi54///"}), 0);
  expect_status(admin({"uninstall", path("cwd/../host/./korvalen"), path("cwd/../host/envi54/")}), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, MakesTheNamesOfOneFileNamesOfOneFileAgain) {
  make_host();
  fs::create_hard_link(in_envi("save/k.sav"), in_envi("save/copy.sav"));
  fs::create_hard_link(in_envi("save/k.sav"), in_envi("zz_third"));
  // A stale name goes, and its second name stays just as it is: the removal sets mode 0755 first.
  own(in_envi("extensions/korvalen_menu.sav"), 0, 0, 0755);
  fs::create_hard_link(in_envi("extensions/korvalen_menu.sav"), in_envi("zz_menu"));
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_FALSE(fs::exists(in_envi("extensions/korvalen_menu.sav")));
  EXPECT_EQ(read_file(in_envi("zz_third")), "envi/save/k.sav\n");
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsForAnEnviThatIsNamedByALinkAndLacksTheDirectoryOfItsScripts) {
  make_host();
  fs::remove_all(in_envi("idl86/bin"));
  fs::create_directory_symlink(envi(), path("host/current"));
  const exact_tree before = everything();
  expect_status(admin({"install", "--force", "missing-script", product(), path("host/current")}), 0);
  const support::outcome ended = admin({"uninstall", product(), path("host/current")});
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsWhereTheDirectoryOfTheScriptsIsALinkToNothing) {
  make_host();
  fs::remove_all(in_envi("idl86/bin"));
  fs::create_symlink("nowhere", in_envi("idl86/bin"));
  const exact_tree before = everything();
  expect_status(command("install", {"--force", "missing-script"}), 0);
  const support::outcome ended = command("uninstall");
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, BringsTheTimeBackOfAFileThatItsOwnBytesWerePlacedOver) {
  make_host();
  write_file(in_envi("save/k.sav"), "envi/save/k.sav\n", 0755);
  const timespec long_ago[] = {{1'000'000'000, 7}, {1'000'000'000, 7}};
  must(utimensat(AT_FDCWD, in_envi("save/k.sav").c_str(), long_ago, 0), "utimensat");
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, BringsAttributesAndNamesBackOfAStaleFileThatIsPlacedAgainAsItWas) {
  make_host();
  const std::string menu = in_envi("extensions/korvalen_menu.sav");
  ship("envi/extensions/korvalen_menu.sav");
  write_file(menu, "envi/extensions/korvalen_menu.sav\n", 0755);
  attribute(menu, "user.note", "by the host");
  fs::create_hard_link(menu, in_envi("aa_before"));
  fs::create_hard_link(menu, in_envi("zz_behind"));
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_EQ(fs::hard_link_count(menu), 1U) << "the host's own file was to be removed";
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, LeavesNamesThatNobodyLooksForTheFileThatTheyWere) {
  make_host();
  const std::string menu = in_envi("extensions/korvalen_menu.sav");
  ship("envi/extensions/korvalen_menu.sav");
  write_file(menu, "envi/extensions/korvalen_menu.sav\n", 0755);
  fs::create_hard_link(menu, in_envi("zz_behind"));
  fs::create_hard_link(menu, path("host/unseen"));
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, TakesADirectoryAwayWithAPlacedFileThatIsNamedLikeABackup) {
  make_host();
  ship("envi/resource/langcat/words.cat_original");
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_TRUE(fs::exists(in_envi("resource/langcat/words.cat_original")));
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsWhereTwoDeployedNamesAreOneFile) {
  make_host();
  ship("envi/extensions/k.sav");
  fs::create_hard_link(in_envi("save/k.sav"), in_envi("extensions/k.sav"));
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_EQ(read_file(in_envi("save/k.sav")), read_file(in_envi("extensions/k.sav")));
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, BringsAttributesOwnersAndOddModesBack) {
  make_host();
  for (const char *name : {"save/k.sav", "extensions/korvalen_menu.sav", "bin/envi"}) {
    own(in_envi(name), 1234, 4321, 0640);
    attribute(in_envi(name), "user.note", "by the host");
    attribute(in_envi(name), "system.posix_acl_access", list_for_a_user());
  }
  own(in_envi("bin/envi_rt"), 7, 8, 06755);
  own(in_envi("save"), 12, 34, 02775);
  own(in_envi("extensions"), 0, 34, 01777);
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_FALSE(fs::exists(in_envi("extensions/korvalen_menu.sav")));
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, LeavesALaunchScriptThatIsALinkALink) {
  make_host();
  fs::create_directory(path("host/scripts"));
  fs::rename(in_envi("bin/envi"), path("host/scripts/real_envi"));
  fs::create_symlink("../../scripts/real_envi", in_envi("bin/envi"));
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_TRUE(fs::is_symlink(in_envi("bin/envi")));
  EXPECT_EQ(read_file(path("host/scripts/real_envi")), patched_envi_script("envi", "/etc/quorin"));
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, BringsAStaleNameBackThatWasAnEmptyDirectory) {
  make_host();
  fs::remove(in_envi("extensions/korvalen_menu.sav"));
  fs::create_directory(in_envi("extensions/korvalen_menu.sav"));
  own(in_envi("extensions/korvalen_menu.sav"), 5, 6, 0751);
  attribute(in_envi("extensions/korvalen_menu.sav"), "user.note", "by the host");
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_FALSE(fs::exists(in_envi("extensions/korvalen_menu.sav")));
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, HoldsForWhatIsLeftWhenTheProductIsGone) {
  make_host();
  const exact_tree before = exact({envi(), "/etc"});
  expect_status(command("install"), 0);
  fs::remove_all(product());
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, exact({envi(), "/etc"})), "");
}

TEST_F(Inverse, HoldsForWhatIsLeftWhenEnviIsGone) {
  make_host();
  const exact_tree before = exact({product(), "/etc"});
  expect_status(command("install"), 0);
  fs::remove_all(envi());
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, exact({product(), "/etc"})), "");
  EXPECT_FALSE(fs::exists(envi()));
}

TEST_F(Inverse, AfterTheUninstallScriptLeavesOnlyWhatThatTook) {
  make_host();
  const exact_tree before = exact({envi(), "/etc"});
  expect_status(command("install"), 0);
  expect_status(support::run({"sh", whole_runs::script_in_etc}), 0);
  EXPECT_FALSE(fs::exists(product())) << "the script takes the product with it";
  const json told_by = told("uninstall");
  EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
  EXPECT_EQ(differing_paths(before, exact({envi(), "/etc"})), in_envi("save/k.sav") + "\n")
      << "the host's own file, which the script removed in its new form, is changed since";
}

class InverseOfWhatChanged : public Inverse {
protected:
  // One file that the host had and one that it had not are edited, and an uninstall leaves them.
  void leave_edited_files() {
    make_host();
    before_ = everything();
    expect_status(command("install"), 0);
    installed_ = read_file(kept_file());
    write_file(kept_file(), "edited");
    write_file(whole_runs::configuration_in_etc, "edited too");
    const json told_by = told("uninstall");
    EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
    EXPECT_EQ(codes(told_by), "changed-since changed-since not-empty ") << told_by.dump(1);
  }
  std::string kept_file() const { return in_envi("save/k.sav"); }
  static std::string codes(const json &told_by) {
    std::string text;
    for (const json &warning : told_by["warnings"])
      if (warning["code"] != "shared-file")
        text += warning["code"].get<std::string>() + " ";
    return text;
  }
  std::string differing() const { return differing_paths(before_, everything(file_times::compared)); }
  std::string left_paths() const {
    return "/etc/quorin\n/etc/quorin/Korvalen_configuration.ini\n" + kept_file() + "\n";
  }
  static json installations() { return parsed_json(read_file(receipt_file))["content"]["installations"]; }

  exact_tree before_;
  std::string installed_;
};

TEST_F(InverseOfWhatChanged, LeavesItOnRecordHoweverOftenItIsRepeated) {
  leave_edited_files();
  for (int i = 0; i < 2; ++i) {
    const json told_by = told("uninstall");
    EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
    EXPECT_EQ(told_by["changes"], json::array());
    EXPECT_EQ(codes(told_by), "changed-since changed-since not-empty ") << told_by.dump(1);
    EXPECT_EQ(differing(), left_paths());
  }
}

TEST_F(InverseOfWhatChanged, IsToldWithWhatToDo) {
  leave_edited_files();
  const json left = told("uninstall");
  std::set<std::string> texts;
  for (const json &warning : left["warnings"])
    if (warning["code"] == "changed-since")
      texts.insert(warning["text"]);
  EXPECT_THAT(texts, testing::ElementsAre(
                         "it was changed since the installation and stays as it is; what was there before it "
                         "stays in /var/lib/korvalen/kept; to have that back, move it away and give the "
                         "command again"));
}

TEST_F(InverseOfWhatChanged, IsToldByVerify) {
  leave_edited_files();
  const json told_by = told("verify");
  EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
  std::string paths;
  for (const json &change : told_by["changes"])
    paths += change["path"].get<std::string>() + "\n";
  EXPECT_EQ(paths, "/etc/quorin/Korvalen_configuration.ini\n" + kept_file() + "\n");
  EXPECT_THAT(command("verify").out,
              testing::HasSubstr("An uninstall left this, as it was changed since the installation"));
}

TEST_F(InverseOfWhatChanged, IsToldByVerifyAlsoWhereItIsAsInstalledAgain) {
  make_host();
  expect_status(command("install"), 0);
  const std::string installed = read_file(kept_file());
  write_file(kept_file(), "edited", 0755);
  EXPECT_EQ(told("uninstall")["status"], 2);
  write_file(kept_file(), installed, 0755);
  EXPECT_THAT(command("verify"),
              Ended(2, "\nAn uninstall left this, as it was changed since the installation.\n", ""));
}

TEST_F(InverseOfWhatChanged, IsCompleteOnceTheFilesAreMovedAway) {
  leave_edited_files();
  fs::remove(kept_file());
  fs::remove(whole_runs::configuration_in_etc);
  EXPECT_EQ(told("uninstall", {"--plan"})["status"], 2);
  const support::outcome ended = command("uninstall");
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(differing(), "");
  EXPECT_TRUE(fs::is_empty(state_dir + "/kept"));
  EXPECT_EQ(installations(), json::array());
}

TEST_F(InverseOfWhatChanged, IsCompleteOnceTheFilesAreAsInstalledOrAsBefore) {
  leave_edited_files();
  write_file(kept_file(), installed_, 0755);
  fs::remove_all("/etc/quorin");
  EXPECT_EQ(told("verify")["status"], 2) << "only a part of it stands";
  const support::outcome ended = command("uninstall");
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(differing(), "");
  EXPECT_THAT(command("uninstall"), Ended(0, "\nNothing is installed.\n", ""));
}

TEST_F(InverseOfWhatChanged, OfThatAndANewInstallationLeavesTheEditedFiles) {
  leave_edited_files();
  const exact_tree left = everything();
  expect_status(command("install"), 0);
  EXPECT_EQ(command("verify").status, 0);
  EXPECT_EQ(installations().size(), 1U);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(left, everything()), "");
}

TEST_F(InverseOfWhatChanged, DoesNotKeepAnotherProductFromGoing) {
  leave_edited_files();
  make_other_product();
  const exact_tree left = exact({envi(), "/etc"});
  expect_status(admin({"install", other_product(), envi()}), 0);
  expect_status(admin({"uninstall", other_product(), envi()}), 0);
  EXPECT_EQ(differences(left, exact({envi(), "/etc"})), "");
}

// Nothing changes on disk then, but what was only left is an installation again.
TEST_F(Inverse, OfWhichEverythingWasLeftIsOnRecordAgainAfterAnInstallation) {
  make_host();
  expect_status(admin({"install", product()}), 0);
  const std::string script = "/etc/quorin/korvalen_uninstall.sh";
  const std::string configuration = whole_runs::configuration_in_etc;
  for (const std::string &file : {configuration, script}) {
    fs::rename(file, fs::path("/etc") / fs::path(file).filename());
    write_file(file, "edited");
  }
  expect_status(admin({"uninstall", product()}), 2);
  for (const std::string &file : {configuration, script})
    fs::rename(fs::path("/etc") / fs::path(file).filename(), file);
  EXPECT_EQ(admin({"verify", product()}).status, 2) << "it is still what an uninstallation left";
  expect_status(admin({"install", product()}), 0);
  expect_status(admin({"verify", product()}), 0);
}

TEST_F(Inverse, IsDoneOnce) {
  make_host();
  expect_status(command("install"), 0);
  expect_status(command("uninstall"), 0);
  const exact_tree after = exact({host(), "/etc", state_dir});
  EXPECT_THAT(command("uninstall"), Ended(0, "\nNothing is installed.\n", ""));
  EXPECT_EQ(differences(after, exact({host(), "/etc", state_dir})), "");
}

TEST_F(Inverse, OnAHostThatNeverHadOneIsNothing) {
  make_host();
  const exact_tree before = everything();
  EXPECT_THAT(command("uninstall"), Ended(0, "\nNothing is installed.\n", ""));
  EXPECT_THAT(command("uninstall", {"--plan"}), Ended(0, "\nNothing is installed.\n", ""));
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(state_dir));
}

TEST_F(Inverse, OfAnotherInstallationThanTheOneOnRecordNamesThatOne) {
  make_host();
  expect_status(command("install"), 0);
  const exact_tree before = everything();
  EXPECT_THAT(admin({"uninstall", product() + "n", envi()}),
              Ended(1, "",
                    "korvalen_admin: no such installation is on record; on record: " + product() + " in " +
                        envi() + "\n"));
  EXPECT_THAT(command("uninstall", {"--local"}).err, testing::HasSubstr("on record: " + product()));
  EXPECT_THAT(admin({"uninstall", product(), envi() + "5"}),
              Ended(0, "\nNothing is installed; on record: " + product() + " in " + envi() + ".\n", ""));
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Inverse, OfAnotherInstallationNamesEachOnRecordAsItWasGiven) {
  make_host();
  expect_status(admin({"install", product()}), 0);
  expect_status(admin({"install", "--local", product(), envi()}), 0);
  EXPECT_THAT(admin({"uninstall", product() + "n", envi()}),
              Ended(1, "",
                    "korvalen_admin: no such installation is on record; on record: " + product() + "; " +
                        product() + " in " + envi() + " (--local)\n"));
}

TEST_F(Inverse, OfAPlainInstallationBesideAnotherOnRecordNamesThatOneToo) {
  make_host();
  fs::create_directories(path("host/second"));
  whole_runs::copy_tree(envi(), path("host/second/envi54"));
  expect_status(install({product(), path("host/second/envi54")}), 0);
  expect_status(admin({"install", "--local", product(), envi()}), 0);
  EXPECT_THAT(admin({"uninstall", product(), path("host/second/envi54")}).err,
              testing::HasSubstr("so it cannot be taken back exactly; run its uninstall script with sh, and "
                                 "put each launch script's backup NAME_original back in its place; on "
                                 "record: " +
                                 product() + " in " + envi() + " (--local)\n"));
}

TEST_F(Inverse, OfAPlainInstallationIsLeftToTheAdministrator) {
  make_host();
  expect_status(install({product(), envi()}), 0);
  const exact_tree before = everything();
  EXPECT_THAT(
      command("uninstall"),
      Ended(1, "",
            "korvalen_admin: this installation is not on record, so it cannot be taken back exactly; run "
            "its uninstall script with sh, and put each launch script's backup NAME_original back in its "
            "place\n"));
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(state_dir));
}

TEST_F(Inverse, OfAPlainInstallationWithoutEnviIsLeftToTheAdministrator) {
  make_host();
  expect_status(install({product()}), 0);
  EXPECT_EQ(admin({"uninstall", product()}).status, 1);
  fs::remove_all("/etc/quorin");
  EXPECT_EQ(admin({"uninstall", product()}).status, 0);
}

TEST_F(Inverse, LeavesADirectoryThatHoldsMoreAndPlansJustThat) {
  make_host();
  expect_status(command("install"), 0);
  const std::string mine = in_envi("resource/langcat/mine.cat");
  write_file(mine, "the administrator's");
  const json planned = told("uninstall", {"--plan"});
  const json done = told("uninstall");
  EXPECT_EQ(planned["status"], 2) << planned.dump(1);
  EXPECT_EQ(done["status"], 0) << done.dump(1);
  EXPECT_EQ(planned["changes"], done["changes"]);
  EXPECT_EQ(planned["warnings"], done["warnings"]);
  std::vector<std::string> not_empty;
  for (const json &one : done["warnings"])
    if (one["code"] == "not-empty")
      not_empty.push_back(one["path"]);
  EXPECT_EQ(not_empty, (std::vector<std::string>{in_envi("resource"), in_envi("resource/langcat")}));
  EXPECT_EQ(read_file(mine), "the administrator's");
  EXPECT_EQ(done.dump().find("words.cat\",\"change\":\"new"), std::string::npos);
  EXPECT_FALSE(fs::exists(in_envi("resource/langcat/words.cat")));
}

TEST_F(Inverse, IsPlannedWithoutTouchingAnything) {
  make_host();
  expect_status(command("install"), 0);
  const exact_tree before = exact({host(), "/etc", state_dir});
  const json planned = told("uninstall", {"--plan"});
  EXPECT_EQ(differences(before, exact({host(), "/etc", state_dir})), "");
  const json done = told("uninstall");
  EXPECT_EQ(planned["status"], 2);
  EXPECT_EQ(done["status"], 0);
  EXPECT_EQ(planned["changes"], done["changes"]);
  EXPECT_EQ(planned["warnings"], done["warnings"]);
}

} // namespace
