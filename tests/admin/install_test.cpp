#include "admin/admin_run.h"
#include "admin/rehearsal.h"
#include "support/disturbance.h"

#include <sys/stat.h>
#include <sys/syscall.h>

using namespace admin_runs;
using support::Ended;
using support::read_file;
using support::write_file;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Install : public admin_run {
protected:
  Install() { make_host(); }

  void bind_read_only(const std::string &directory) {
    must(mount(directory.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), "cannot bind");
    must(mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
         "cannot remount");
    bound_.push_back(directory);
  }
  ~Install() override {
    for (const std::string &directory : bound_)
      umount2(directory.c_str(), MNT_DETACH);
  }

  // Refused with this beginning, nothing touched; forced, it is done; taken back, all is as before.
  void expect_refused_unless_forced(const std::string &code, const std::string &named,
                                    file_times times = file_times::compared) const {
    const exact_tree before = everything(times);
    const support::outcome refused = command("install");
    EXPECT_EQ(refused.status, 1) << refused;
    EXPECT_THAT(refused.err, StartsWith("korvalen_admin: refused because of " + code + named));
    EXPECT_THAT(refused.err, testing::EndsWith("; or give --force " + code + "\n"));
    EXPECT_EQ(differences(before, everything(times)), "");
    EXPECT_FALSE(fs::exists(receipt_file));

    expect_status(command("install", {"--force", code}), 0);
    expect_status(command("verify"), 0);
    expect_status(command("uninstall"), 0);
    EXPECT_EQ(differences(before, everything(times)), "");
  }

private:
  std::vector<std::string> bound_;
};

// Every time that a change of any kind would move.
std::map<std::string, std::string> times_of(const std::vector<std::string> &directories) {
  std::map<std::string, std::string> times;
  for (const auto &[path, line] : exact(directories)) {
    struct stat status {};
    must(lstat(path.c_str(), &status), "cannot look up " + path);
    times[path] = std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec);
  }
  return times;
}

TEST_F(Install, IsRehearsedWithoutItsWaits) {
  write_file(in_envi("bin/envi_original"), "of an older release\n");
  const korvalen::admin::target target{product(), envi(), false};
  const auto note_the_wait = [this] { write_file(path("waited"), ""); };
  const support::outcome ended = support::call([&] {
    support::disturb({SYS_clock_nanosleep, 0, [](int) { return true; }, note_the_wait});
    return korvalen::admin::install_at_once(target, {in_envi("bin/envi_original")});
  });
  EXPECT_FALSE(fs::exists(path("waited")));
  EXPECT_THAT(ended, Ended(0, whole_runs::installed, ""));
  EXPECT_EQ(read_file(in_envi("bin/envi")), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(in_envi("bin/envi_original")), envi_script("envi")) << "the stale backup was taken";
}

TEST_F(Install, RefusesAMissingScript) {
  fs::remove(in_envi("bin/envi_rt"));
  expect_refused_unless_forced("missing-script", ": " + in_envi("bin/envi_rt") + "; ");
}

TEST_F(Install, RefusesAnEnviWithoutIdl) {
  fs::remove_all(in_envi("idl86"));
  expect_refused_unless_forced("no-idl", ": " + envi() + "; ");
}

TEST_F(Install, RefusesWhatIsNotTheUnpackedProduct) {
  fs::remove_all(product() + "/auxiliary");
  write_file(product() + "/setup.exe", "not unpacked");
  expect_refused_unless_forced("not-deployed", ": " + product() + "/auxiliary/envi_extensions_54; ");
}

TEST_F(Install, RefusesAnEmptyBackupOfAPatchedScript) {
  write_file(in_envi("bin/envi"), patched_envi_script("envi", "/old"), 0755);
  write_file(in_envi("bin/envi_original"), "");
  expect_refused_unless_forced("empty-backup", ": " + in_envi("bin/envi_original") + "; ");
}

TEST_F(Install, RefusesAScriptThatStopsAtUnsetVariables) {
  write_file(in_envi("bin/envi"), "#!/bin/sh\nset -eu\nif [ -n \"$1\" ]; then\n  :\nfi\n", 0755);
  expect_refused_unless_forced("nounset", ": " + in_envi("bin/envi") + "; ");
}

TEST_F(Install, RefusesACoreFileThatAReadOnlyProductHolds) {
  ship("envi/extensions/quorin_core.sav");
  bind_read_only(product());
  expect_refused_unless_forced("quorin-core", ": " + source("envi/extensions/quorin_core.sav") + "; ");
}

TEST_F(Install, RefusesAFileWithANameThatItDoesNotFind) {
  fs::create_hard_link(in_envi("save/k.sav"), path("cwd/elsewhere"));
  const exact_tree before = everything();
  const support::outcome refused = command("install");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err,
              StartsWith("korvalen_admin: refused because of second-name: " + in_envi("save/k.sav") + "; "));
  EXPECT_EQ(differences(before, everything()), "");
  expect_status(command("install", {"--force", "second-name"}), 0);
  EXPECT_EQ(read_file(path("cwd/elsewhere")), "envi/save/k.sav\n") << "what the warning warns of";
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Install, RefusesWhatTheInstallerComplainsOf) {
  write_file(in_envi("idl86/bin/idl"), "", 0755);
  expect_refused_unless_forced(
      "installer-complains",
      "; the installer says \"WRONG size envi script 4 : " + in_envi("idl86/bin/idl") + "\": ",
      file_times::left_out);
}

TEST_F(Install, ShowsWhatTheInstallerWouldPrintWhereItRefuses) {
  write_file(in_envi("idl86/bin/idl"), "", 0755);
  const json refused = told("install");
  EXPECT_EQ(refused["installer"]["output"], "\n   Installing ENVI extensions... WRONG size envi script 4 : " +
                                                in_envi("idl86/bin/idl") + "\nDone\n\n");
  EXPECT_EQ(refused["changes"], json::array());
  EXPECT_THAT(command("install").out, HasSubstr("\nThe installer would print:\n"));
}

TEST_F(Install, LetsOneCodeThroughAndNoOther) {
  fs::remove(in_envi("bin/envi_rt"));
  write_file(in_envi("bin/envi"), "#!/bin/sh -u\nif [ -n \"$1\" ]; then\n  :\nfi\n", 0755);
  EXPECT_THAT(command("install", {"--force", "missing-script"}).err,
              StartsWith("korvalen_admin: refused because of nounset"));
  EXPECT_THAT(command("install", {"--force", "nounset"}).err,
              StartsWith("korvalen_admin: refused because of missing-script"));
  expect_status(command("install", {"--force", "nounset", "--force", "missing-script"}), 0);
}

TEST_F(Install, SaysAtItsEndThatItStands) {
  EXPECT_THAT(command("install").out, testing::EndsWith("\nEverything is installed and on record.\n"));
}

TEST_F(Install, ThatWasForcedAndStandsMayBeGivenAgain) {
  write_file(in_envi("bin/envi"), "#!/bin/sh -u\nif [ -n \"$1\" ]; then\n  :\nfi\n", 0755);
  expect_status(command("install", {"--force", "nounset"}), 0);
  EXPECT_THAT(command("install").out, HasSubstr("Nothing to do: everything is installed and on record.\n"));
}

// The original of a file that was edited since would otherwise be lost without a word.
TEST_F(Install, NamesTheFilesThatWereChangedSinceTheFirstOne) {
  write_file(in_envi("save/k.sav"), "the host's");
  expect_status(command("install"), 0);
  write_file(in_envi("save/k.sav"), "edited", 0755);
  fs::remove(in_envi("extensions/menu.sav"));
  const json planned = told("plan");
  std::vector<std::string> changed;
  for (const json &one : planned["warnings"])
    if (one["code"] == "found-changed")
      changed.push_back(one["path"]);
  EXPECT_EQ(changed, std::vector<std::string>{in_envi("save/k.sav")})
      << "what was not there before is lost to nobody";
  fs::remove(in_envi("save/k.sav"));
  EXPECT_THAT(command("plan").out, HasSubstr("warning [found-changed] " + in_envi("save/k.sav") + "\n"));
}

TEST_F(Install, NamesNoBackupAmongTheChangedFilesWhateverNameEnviIsGivenBy) {
  fs::create_directory_symlink(envi(), path("current"));
  expect_status(admin({"install", product(), path("current")}), 0);
  write_file(in_envi("bin/envi"), "#!/bin/sh\nexec upgraded\n", 0755);
  write_file(in_envi("bin/envi_original"), "edited\n");
  for (const std::string &name : {envi(), path("current")}) {
    const std::string told = admin({"plan", product(), name}).out;
    EXPECT_THAT(told, HasSubstr("[stale-backup]")) << name;
    EXPECT_THAT(told, testing::Not(HasSubstr("[found-changed]"))) << name;
  }
}

TEST_F(Install, NamesDirectoriesThatDoNotExist) {
  EXPECT_THAT(admin({"install", path("none"), envi()}).err,
              HasSubstr("the product directory does not exist: nothing of this directory would be deployed"));
  EXPECT_THAT(admin({"plan", product(), path("none")}).out,
              HasSubstr("the ENVI directory does not exist: there is no IDL directory"));
  EXPECT_THAT(admin({"install", product(), path("none")}).err,
              HasSubstr("the ENVI directory does not exist: there is no such launch script"));
  EXPECT_THAT(command("plan").out, testing::Not(HasSubstr("does not exist")));
}

TEST_F(Install, CannotBeForcedPastAnInstallerThatWouldFail) {
  write_file("/etc/quorin", "in the way");
  const exact_tree before = everything();
  std::vector<std::string> all;
  for (const char *code : {"not-deployed", "no-idl", "missing-script", "empty-backup", "nounset",
                           "quorin-core", "second-name", "installer-complains"})
    all.insert(all.end(), {"--force", code});
  const support::outcome refused = command("install", all);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "korvalen_admin: the installer would end with status 1: Error: cannot create configuration file "
            "/etc/quorin/Korvalen_configuration.ini\n");
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Install, TakesNoOtherCodes) {
  for (const char *code : {"stale-backup", "blanks", "", "all", "root", "NOUNSET"}) {
    EXPECT_EQ(command("install", {"--force", code}).status, 1) << code;
    EXPECT_FALSE(fs::exists(state_dir)) << code;
  }
}

TEST_F(Install, NeedsRoot) {
  fs::copy_file(support::admin_path, path("korvalen_admin"));
  for (const char *name : {"install", "uninstall", "plan"})
    EXPECT_THAT(support::run(support::as_other_user({path("korvalen_admin"), name, product(), envi()})).err,
                StartsWith("korvalen_admin: " + std::string(name) + " needs root"));
  EXPECT_FALSE(fs::exists(state_dir));
}

TEST_F(Install, WritesNothingWhereThereIsNothingToDo) {
  for (int run = 0; run < 2; ++run)
    expect_status(command("install"), 0);
  const auto before = times_of({host(), "/etc", "/var/lib"});
  const json nothing = told("install");
  EXPECT_EQ(nothing["status"], 0) << nothing.dump(1);
  EXPECT_EQ(nothing["changes"], json::array());
  EXPECT_EQ(times_of({host(), "/etc", "/var/lib"}), before);
  EXPECT_THAT(command("install").out, HasSubstr("Nothing to do: everything is installed and on record.\n"));
}

TEST_F(Install, TellsTheChangesThatThePlanTold) {
  const json planned = told("plan");
  const json done = told("install");
  EXPECT_EQ(planned["status"], 2);
  EXPECT_EQ(done["status"], 0);
  EXPECT_EQ(planned["changes"], done["changes"]);
  EXPECT_EQ(planned["warnings"], done["warnings"]);
  EXPECT_EQ(planned["installer"], done["installer"]);
}

TEST_F(Install, KeepsTheFirstOriginalOfAScriptThatWasEditedAfterwards) {
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  const std::string edited = patched_envi_script("envi", "/etc/quorin") + "# edited\n";
  write_file(in_envi("bin/envi"), edited, 0755);
  const json again = told("install");
  EXPECT_EQ(again["status"], 0) << again.dump(1);
  ASSERT_EQ(again["warnings"].size(), 1U) << again.dump(1);
  EXPECT_EQ(again["warnings"][0]["code"], "edited-script");
  EXPECT_EQ(again["warnings"][0]["path"], in_envi("bin/envi"));
  EXPECT_EQ(again["warnings"][0]["refuses"], false);
  EXPECT_EQ(read_file(in_envi("bin/envi")), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(state_dir + "/aside/2.envi"), edited);
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_EQ(read_file(state_dir + "/aside/2.envi"), edited) << "what was put aside stays";
}

} // namespace
