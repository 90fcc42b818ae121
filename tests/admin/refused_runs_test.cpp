// Whole commands to which the kernel refuses something, or whose host changes under their hands.
#include "admin/admin_run.h"
#include "admin/failure_under.h"
#include "admin/records.h"

#include <pty.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

using namespace admin_runs;
using support::disturb;
using support::Ended;
using support::fail_system_call;
using support::read_file;
using support::write_file;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class RefusedRun : public admin_run {
protected:
  RefusedRun() { make_host(); }

  // The command, run by a process that brings the hindrance upon itself first.
  support::outcome under(const std::function<void()> &hindrance, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), support::admin_path);
    arguments.insert(arguments.end(), {product(), envi()});
    return support::call([&] {
      std::vector<char *> argv;
      for (std::string &argument : arguments)
        argv.push_back(argument.data());
      argv.push_back(nullptr);
      hindrance();
      execv(argv[0], argv.data());
      return 127;
    });
  }
  // What the receipt holds, changed and written again.
  static void change_record(const std::function<void(korvalen::admin::receipt &)> &change) {
    auto record = korvalen::admin::receipt_from(read_file(receipt_file), receipt_file);
    change(record);
    write_file(receipt_file, korvalen::admin::text_of(record), 0644);
  }
  korvalen::admin::recorded_path &on_record(korvalen::admin::receipt &record, const std::string &name) const {
    for (korvalen::admin::recorded_path &one : record.paths)
      if (one.path == in_envi(name))
        return one;
    throw std::runtime_error(name + " is not on record");
  }
};

bool first(int count) {
  return count == 1;
}

TEST_F(RefusedRun, ByAnotherUserSaysThatRootIsNeeded) {
  const auto not_root = [] { fail_system_call(SYS_geteuid, EPERM); };
  EXPECT_EQ(under(not_root, {"install"}).err, "korvalen_admin: install needs root\n");
  EXPECT_EQ(under(not_root, {"uninstall"}).err, "korvalen_admin: uninstall needs root\n");
  EXPECT_EQ(under(not_root, {"plan"}).err,
            "korvalen_admin: plan needs root: it looks at the disk as the installer would\n");
  EXPECT_FALSE(fs::exists(state_dir));
}

TEST_F(RefusedRun, OfAnInstallationThatIsOnRecordSaysThatItStands) {
  const auto when_on_record = [](int) { return fs::exists(receipt_file); };
  const support::outcome ended = under([&] { disturb({SYS_fsync, EIO, when_on_record}); }, {"install"});
  EXPECT_THAT(ended.err, HasSubstr("korvalen_admin: cannot flush /var/lib/korvalen: Input/output error; the "
                                   "installation stands and is on record\n"));
  EXPECT_EQ(ended.status, 1);
  expect_status(command("verify"), 1);
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  EXPECT_EQ(differences(before, everything()), "") << "the next command takes nothing back";
  expect_status(command("verify"), 0);
}

// A journal without them could never be taken back.
TEST_F(RefusedRun, LosesNoKeptBytesAsLongAsTheJournalStands) {
  const auto before_its_end = [](int) { return fs::exists(run_file) && fs::exists(receipt_file); };
  expect_status(under([&] { disturb({SYS_unlink, EIO, before_its_end}); }, {"install"}), 0);
  expect_status(command("verify"), 0);
}

TEST_F(RefusedRun, BySomebodysChangeAfterTheJournalStandsTouchesNothing) {
  const auto change = [this] { write_file(in_envi("bin/envi"), "somebody's", 0755); };
  const support::outcome ended = under([&] { disturb({SYS_renameat, 0, first, change}); }, {"install"});
  EXPECT_EQ(ended.err,
            "korvalen_admin: " + in_envi("bin/envi") +
                " was changed by somebody else meanwhile; nothing was touched, give the command again\n");
  EXPECT_EQ(ended.status, 1);
  EXPECT_FALSE(fs::exists(run_file));
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "the host's own");
}

// What the run replaces and what it leaves there: the latter tells the beginnings of an interrupted run from
// what is somebody else's.
TEST_F(RefusedRun, WithACopyThatIsNotWhatTheRehearsalSawTouchesNothing) {
  const exact_tree before = everything();
  const std::string kept = state_dir + "/kept";
  for (const std::string &held : {read_file(in_envi("bin/envi")), std::string("KORVALEN_INIT_DIR=")}) {
    const auto copy = [&] {
      const auto copies = fs::directory_iterator(kept);
      return std::find_if(begin(copies), end(copies), [&](const fs::directory_entry &one) {
        return read_file(one.path()).find(held) != std::string::npos;
      });
    };
    const auto is_kept = [&](int) { return fs::exists(kept) && copy() != fs::directory_iterator(); };
    const auto spoil = [&] { write_file(copy()->path(), "other bytes"); };
    const support::outcome ended = under([&] { disturb({SYS_fsync, 0, is_kept, spoil}); }, {"install"});
    EXPECT_EQ(ended.err,
              "korvalen_admin: " + in_envi("bin/envi") +
                  " was changed by somebody else meanwhile; nothing was touched, give the command again\n")
        << held;
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(differences(before, everything()), "");
    EXPECT_FALSE(fs::exists(run_file));
    EXPECT_FALSE(fs::exists(receipt_file));
    EXPECT_TRUE(fs::is_empty(kept));
  }
}

TEST_F(RefusedRun, OfAReadingVerificationNamesTheFirstFileAndTheReason) {
  expect_status(command("install"), 0);
  const support::outcome ended =
      under([] { fail_system_call(SYS_openat2, EACCES, admin_tests::opened_only); }, {"verify"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, testing::ContainsRegex("^korvalen_admin: [^:]* cannot be read: cannot open [^:]*: "
                                                "Permission denied\n$"));
}

// From the first file on that comes back.
TEST_F(RefusedRun, OfAnUninstallationLeavesWhatSomebodyChangesMeanwhile) {
  expect_status(command("install"), 0);
  const auto change = [this] { write_file(in_envi("save/k.sav"), "somebody's", 0755); };
  const support::outcome ended = under([&] { disturb({SYS_renameat, 0, first, change}); }, {"uninstall"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err, "korvalen_admin: " + in_envi("save/k.sav") +
                           " was changed by somebody else meanwhile; give the command again; mend that and "
                           "give the command again\n");
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "somebody's");
}

TEST_F(RefusedRun, OfAnUninstallationLeavesWhatWasBackAndIsChangedMeanwhile) {
  expect_status(command("install"), 0);
  write_file(in_envi("save/k.sav"), "the host's own");
  must(chmod(in_envi("save/k.sav").c_str(), 0640), "chmod");
  const auto change = [this] { write_file(in_envi("save/k.sav"), "somebody's"); };
  const support::outcome ended = under([&] { disturb({SYS_renameat, 0, first, change}); }, {"uninstall"});
  EXPECT_THAT(ended.err, HasSubstr(in_envi("save/k.sav") + " was changed by somebody else meanwhile"));
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "somebody's");
}

TEST_F(RefusedRun, OfAnUninstallationLeavesADirectoryThatSomebodyFillsMeanwhile) {
  expect_status(command("install"), 0);
  const auto has_begun = [this](int) { return !fs::exists(in_envi("extensions/menu.sav")); };
  const auto fill = [this] { write_file(in_envi("resource/langcat/theirs.cat"), "somebody's"); };
  const support::outcome ended = under([&] { disturb({SYS_unlinkat, 0, has_begun, fill}); }, {"uninstall"});
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_THAT(ended.out, HasSubstr("warning [not-empty] 2 times\n    " + in_envi("resource") + "\n    " +
                                   in_envi("resource/langcat") + "\n"));
  EXPECT_THAT(ended.out, testing::Not(HasSubstr("removed   " + in_envi("resource/langcat") + "/\n")));
  EXPECT_EQ(read_file(in_envi("resource/langcat/theirs.cat")), "somebody's");
}

// The next installation would take a script that is still patched, and has no backup, for an original.
TEST_F(RefusedRun, OfAnUninstallationLeavesTheBackupsWhereAScriptCannotComeBack) {
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  const support::outcome ended = under([] { disturb({SYS_renameat, EIO, first}); }, {"uninstall"});
  EXPECT_EQ(ended.err, "korvalen_admin: cannot rename to " + in_envi("bin/envi") +
                           ": Input/output error; mend that and give the command again\n");
  EXPECT_EQ(read_file(in_envi("bin/envi")), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_TRUE(fs::exists(in_envi("bin/envi_original")));
  EXPECT_TRUE(fs::exists(in_envi("bin/envi_rt_original"))) << "they all go last";
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(RefusedRun, OfAnUninstallationTakesNoBackupBeforeTheScriptsAreOnDisk) {
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  const support::outcome ended = under([] { disturb({SYS_syncfs, EIO, first}); }, {"uninstall"});
  EXPECT_EQ(ended.err, "korvalen_admin: cannot flush the file system of /etc: Input/output error\n");
  EXPECT_EQ(read_file(in_envi("bin/envi")), envi_script("envi"));
  EXPECT_TRUE(fs::exists(in_envi("bin/envi_original")));
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(RefusedRun, OfAnUninstallationLosesNoKeptBytesWhereTheRecordCannotBeWritten) {
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  const exact_tree kept = exact({state_dir + "/kept"});
  const auto of_the_receipt = [](int) { return fs::exists(receipt_file + ".new"); };
  const support::outcome ended = under([&] { disturb({SYS_renameat, EIO, of_the_receipt}); }, {"uninstall"});
  EXPECT_EQ(ended.err, "korvalen_admin: cannot rename " + receipt_file + ".new: Input/output error\n");
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(differences(kept, exact({state_dir + "/kept"})), "");
  EXPECT_FALSE(fs::exists(receipt_file + ".new")) << "it takes up room beside what stands there";
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(RefusedRun, RemovesWhatAKilledUninstallationLeftBesideAPath) {
  expect_status(command("install"), 0);
  const json paths = parsed_json(read_file(receipt_file))["content"]["paths"];
  std::string beside;
  for (std::size_t number = 0; number < paths.size(); ++number)
    if (paths[number]["path"] == in_envi("save/k.sav"))
      beside = in_envi("save/.korvalen-" + std::to_string(number));
  write_file(beside, "the host's");
  expect_status(command("install"), 0);
  EXPECT_FALSE(fs::exists(beside));
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "envi/save/k.sav\n");
}

TEST_F(RefusedRun, IsPutOnRecordAgainWhereTheRecordKnowsLess) {
  expect_status(command("install"), 0);
  expect_status(command("install"), 0);
  const std::pair<const char *, std::function<void(korvalen::admin::receipt &)>> losses[] = {
      {"the path",
       [this](auto &record) {
         std::erase_if(record.paths, [this](const auto &one) { return one.path == in_envi("save/k.sav"); });
       }},
      {"its user", [this](auto &record) { on_record(record, "save/k.sav").used_by = {9}; }},
      {"its bytes", [this](auto &record) { on_record(record, "save/k.sav").after.hash = 1; }},
      {"a script's bytes", [this](auto &record) { on_record(record, "bin/envi").after.hash = 1; }},
      {"the installation", [](auto &record) { record.installations.clear(); }},
  };
  for (const auto &[name, lose] : losses) {
    change_record(lose);
    const support::outcome ended = command("install");
    EXPECT_EQ(ended.status, 0) << name << ended;
    EXPECT_THAT(ended.out, testing::Not(HasSubstr("Nothing to do"))) << name;
    EXPECT_THAT(ended.out, testing::Not(HasSubstr("edited-script"))) << name;
    EXPECT_EQ(command("verify").status, 0) << name;
  }
  EXPECT_THAT(command("install").out, HasSubstr("Nothing to do"));
}

TEST_F(RefusedRun, OfAPlannedUninstallationShowsDifferencesOfTextsThatAreKept) {
  write_file(in_envi("save/k.sav"), "the host's own\n", 0640);
  expect_status(command("install"), 0);
  const auto difference_of = [this](const std::string &name) {
    const json planned = told("uninstall", {"--plan"});
    for (const json &one : planned.at("changes"))
      if (one["path"] == in_envi(name))
        return one.value("diff", "none");
    return std::string("no change");
  };
  const std::string shown = "--- " + in_envi("save/k.sav") + "\n+++ " + in_envi("save/k.sav") +
                            "\n@@ -1,1 +1,1 @@\n-envi/save/k.sav\n+the host's own\n";
  EXPECT_EQ(difference_of("save/k.sav"), shown);
  EXPECT_EQ(difference_of("save/quorin_core_tasks.sav"), "none") << "it goes";
  std::uint64_t number = 0;
  change_record([&](auto &record) { number = *on_record(record, "save/k.sav").kept; });
  write_file(state_dir + "/kept/" + std::to_string(number), std::string("a\0b", 3));
  EXPECT_EQ(difference_of("save/k.sav"), "none") << "it is binary";
  change_record([&](auto &record) { on_record(record, "save/k.sav").kept.reset(); });
  EXPECT_EQ(difference_of("save/k.sav"), "none") << "nothing is kept of it";
}

TEST_F(RefusedRun, OfAPlannedUninstallationEndsWithStatusTwoWhereSomethingGoesOrStays) {
  expect_status(command("install"), 0);
  expect_status(command("uninstall", {"--plan"}), 2);
  change_record([this](auto &record) {
    std::erase_if(record.paths, [this](const auto &one) { return one.path != in_envi("save/k.sav"); });
  });
  write_file(in_envi("save/k.sav"), "somebody's");
  const support::outcome stays = command("uninstall", {"--plan"});
  EXPECT_EQ(stays.status, 2) << stays;
  EXPECT_THAT(stays.out, HasSubstr("warning [changed-since] " + in_envi("save/k.sav")));
  change_record([](auto &record) { record.paths.clear(); });
  expect_status(command("uninstall", {"--plan"}), 0);
}

TEST_F(RefusedRun, GoesWithoutAttributesOnTheScratchDirectoryAndNamesOthersReasons) {
  const support::outcome usual = under([] {}, {"plan", "--json"});
  EXPECT_EQ(under([] { fail_system_call(SYS_lgetxattr, EOPNOTSUPP); }, {"plan", "--json"}).out, usual.out);
  EXPECT_THAT(under([] { fail_system_call(SYS_lgetxattr, EIO); }, {"plan"}).err,
              StartsWith("korvalen_admin: cannot look up /proc/scratch/0/upper"));
}

TEST_F(RefusedRun, StartsWithoutANullDevice) {
  EXPECT_THAT(support::call([] {
                must(unshare(CLONE_NEWNS), "unshare");
                must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount");
                must(mount("memory", "/dev", "tmpfs", 0, ""), "mount");
                execl(support::admin_path, support::admin_path, "--version", nullptr);
                return 127;
              }),
              Ended(0, "korvalen_admin 1.0.0\n", ""));
}

TEST_F(RefusedRun, PrintsWhatItIsAskedForWithoutDoingAnything) {
  EXPECT_THAT(admin({"--version"}), Ended(0, "korvalen_admin 1.0.0\n", ""));
  const std::pair<std::vector<std::string>, const char *> rows[] = {
      {{"--help"}, "Shows beforehand what korvalen_installer would change, installs all or nothing, checks,"},
      {{"install", "--help"},
       "Install all or nothing, and put it on record\nUsage: korvalen_admin install "}};
  for (const auto &[line, beginning] : rows) {
    const support::outcome ended = admin(line);
    EXPECT_EQ(ended.status, 0) << ended;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(ended.out, StartsWith(beginning));
    EXPECT_THAT(ended.out, HasSubstr("The man page: man korvalen_admin"));
  }
  EXPECT_FALSE(fs::exists(state_dir));
}

// What the program prints on a terminal.
std::string on_a_terminal(const std::vector<std::string> &arguments, const char *no_color) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  must(child, "forkpty");
  if (child == 0) {
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
      argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    unsetenv("NO_COLOR");
    if (no_color != nullptr)
      setenv("NO_COLOR", no_color, 1);
    alarm(60);
    execv(argv[0], argv.data());
    _exit(127);
  }
  std::string text;
  char byte = 0;
  while (read(terminal, &byte, 1) == 1)
    text += byte;
  close(terminal);
  waitpid(child, nullptr, 0);
  return text;
}

TEST_F(RefusedRun, IsInColorOnATerminalUnlessTheUserWantsNone) {
  const std::vector<std::string> line = {support::admin_path, "plan", product(), envi()};
  const std::string color = "\x1b[32mnew       \x1b[0m";
  EXPECT_THAT(on_a_terminal(line, nullptr), HasSubstr(color));
  EXPECT_THAT(on_a_terminal(line, ""), HasSubstr(color));
  EXPECT_THAT(on_a_terminal(line, "1"), testing::Not(HasSubstr("\x1b[")));
}

} // namespace
