#include "admin/admin_run.h"

#include <fstream>
#include <sys/file.h>

using namespace admin_runs;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

namespace {

// What happens to a run from outside, between its journal and its end.
class Interruption : public admin_run {
protected:
  Interruption() { make_host(); }
  ~Interruption() override {
    for (const std::string &directory : bound_)
      umount2(directory.c_str(), MNT_DETACH);
  }

  // Begins a run and waits until its journal stands: the installer waits for three seconds from there on.
  std::unique_ptr<running_program> begin() const {
    auto program = start("install");
    EXPECT_TRUE(appears(run_file)) << "the run did not begin";
    return program;
  }
  void forbid_writing(const std::string &directory) {
    must(mount(directory.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), "cannot bind");
    must(mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
         "cannot remount");
    bound_.push_back(directory);
  }
  void allow_writing() {
    for (const std::string &directory : bound_)
      must(umount2(directory.c_str(), MNT_DETACH), "cannot unmount");
    bound_.clear();
  }
  static void expect_no_run() {
    EXPECT_FALSE(fs::exists(run_file));
    EXPECT_FALSE(fs::exists(state_dir + "/run"));
    EXPECT_TRUE(fs::is_empty(state_dir + "/kept"));
  }
  // The children of a process, as the kernel tells them.
  static std::vector<pid_t> children_of(pid_t process) {
    const std::string name = std::to_string(process);
    std::ifstream file("/proc/" + name + "/task/" + name + "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; file >> child;)
      children.push_back(child);
    return children;
  }
  static pid_t child_of(pid_t process) {
    EXPECT_TRUE(comes_true([&] { return !children_of(process).empty(); })) << "there is no child";
    return children_of(process).at(0);
  }
  void expect_held_off(int signal) const {
    const auto program = begin();
    for (int times = 0; times < 2'000 && fs::exists(run_file); ++times) {
      program->kill_group(signal);
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    const support::outcome ended = program->finish();
    EXPECT_EQ(ended.signal, 0) << ended;
    EXPECT_EQ(ended.status, 0) << ended;
    EXPECT_EQ(command("verify").status, 0);
  }
  void expect_taken_back_after_killing(pid_t (*victim)(pid_t program)) const {
    const exact_tree before = everything();
    const auto program = begin();
    ASSERT_TRUE(appears(in_envi("bin/envi_original"))) << "the installer did not begin";
    must(::kill(victim(program->process()), SIGKILL), "kill");
    const support::outcome ended = program->finish();
    EXPECT_EQ(ended.status, 1) << ended;
    EXPECT_EQ(ended.err,
              "korvalen_admin: the installer ended with status 137: ; everything was taken back\n");
    EXPECT_EQ(differences(before, everything()), "");
    expect_no_run();
  }
  // Kills the run at once when something stands there.
  void kill_when(const std::function<bool()> &so) const {
    const auto program = begin();
    ASSERT_TRUE(comes_true(so));
    program->kill(SIGKILL);
    EXPECT_EQ(program->finish().signal, SIGKILL);
    ASSERT_TRUE(fs::exists(run_file));
  }

private:
  std::vector<std::string> bound_;
};

TEST_F(Interruption, ByAnInstallerThatFailsAfterAGoodRehearsalTakesEverythingBack) {
  const exact_tree before = everything();
  const auto program = begin();
  forbid_writing(in_envi("save"));
  const support::outcome ended = program->finish();
  allow_writing();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_EQ(ended.err, "korvalen_admin: the installer ended with status 255: ERROR while copying " +
                           source("envi/save/k.sav") + "; everything was taken back\n");
  EXPECT_EQ(differences(before, everything()), "");
  expect_no_run();
  expect_status(command("install"), 0);
}

TEST_F(Interruption, ByAFileThatAppearsInTheWayPutsItAside) {
  const exact_tree before = everything();
  const auto program = begin();
  ASSERT_TRUE(appears(in_envi("bin/envi_original")));
  write_file(in_envi("resource"), "somebody's");
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, HasSubstr("; everything was taken back\n"));
  EXPECT_THAT(ended.out, HasSubstr("What stood at " + in_envi("resource") + " is now " + state_dir +
                                   "/aside/1.resource.\n"));
  EXPECT_EQ(read_file(state_dir + "/aside/1.resource"), "somebody's");
  EXPECT_EQ(differences(before, everything()), "");
  expect_no_run();
}

TEST_F(Interruption, ByAProductThatChangesTakesEverythingBack) {
  const exact_tree before = exact({envi(), "/etc"});
  const auto program = begin();
  write_file(source("envi/save/k.sav"), "changed meanwhile");
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_EQ(ended.err, "korvalen_admin: " + in_envi("save/k.sav") +
                           " did not become what it became in the rehearsal; everything was taken back\n");
  EXPECT_EQ(differences(before, exact({envi(), "/etc"})), "");
}

TEST_F(Interruption, NamesWhatItCannotTakeBackAndTheNextCommandDoes) {
  const exact_tree before = everything();
  const auto program = begin();
  ASSERT_TRUE(appears(in_envi("bin/envi_original")));
  forbid_writing(envi());
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, HasSubstr("the interrupted run could not be taken back: cannot remove " +
                                   in_envi("bin/envi_original") + ": Read-only file system; mend that"));
  EXPECT_THAT(ended.out, HasSubstr("new       " + in_envi("bin/envi_original")));
  EXPECT_TRUE(fs::exists(run_file));
  EXPECT_EQ(command("install", {"--force", "installer-complains"}).status, 1) << "it cannot be forced";
  allow_writing();
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
  expect_no_run();
}

// The change comes while a large file is being kept, which the run looks at before and after.
TEST_F(Interruption, BySomebodysChangeAfterTheRehearsalStopsBeforeAnythingIsTouched) {
  write_file(in_envi("save/k.sav"), std::string(16U << 20U, 'k'));
  const auto program = start("install");
  ASSERT_TRUE(appears(state_dir + "/kept/1"));
  program->kill(SIGSTOP);
  ASSERT_FALSE(fs::exists(run_file)) << "the test came too late";
  write_file(in_envi("bin/envi"), "somebody's", 0755);
  const exact_tree before = everything();
  program->kill(SIGCONT);
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_EQ(ended.err,
            "korvalen_admin: " + in_envi("bin/envi") +
                " was changed by somebody else meanwhile; nothing was touched, give the command again\n");
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(receipt_file));
  expect_no_run();
}

TEST_F(Interruption, BySomethingNewAfterTheRehearsalStopsBeforeAnythingIsTouched) {
  write_file(in_envi("save/k.sav"), std::string(16U << 20U, 'k'));
  const auto program = start("install");
  ASSERT_TRUE(appears(state_dir + "/kept/1"));
  program->kill(SIGSTOP);
  ASSERT_FALSE(fs::exists(run_file)) << "the test came too late";
  write_file(in_envi("extensions/menu.sav"), "envi/extensions/menu.sav\n");
  const exact_tree before = everything();
  program->kill(SIGCONT);
  EXPECT_EQ(program->finish().err,
            "korvalen_admin: " + in_envi("extensions/menu.sav") +
                " was changed by somebody else meanwhile; nothing was touched, give the command again\n");
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Interruption, ByOtherBytesOfTheSameSizeStopsBeforeAnythingIsTouched) {
  write_file(in_envi("save/k.sav"), std::string(96U << 20U, 'k'));
  const auto program = start("install");
  // What comes before the large file is kept then.
  ASSERT_TRUE(comes_true([] {
    const fs::path kept = state_dir + "/kept";
    return fs::exists(kept) &&
           std::any_of(fs::directory_iterator(kept), {}, [](const fs::directory_entry &one) {
             return one.is_regular_file() && one.file_size() > 1U << 20U;
           });
  }));
  program->kill(SIGSTOP);
  ASSERT_FALSE(fs::exists(run_file)) << "the test came too late";
  write_file(in_envi("extensions/korvalen_menu.sav"), "STALE");
  const std::vector<std::string> places = {in_envi("extensions"), in_envi("bin"), "/etc"};
  const exact_tree before = exact(places);
  program->kill(SIGCONT);
  EXPECT_EQ(program->finish().err,
            "korvalen_admin: " + in_envi("extensions/korvalen_menu.sav") +
                " was changed by somebody else meanwhile; nothing was touched, give the command again\n");
  EXPECT_EQ(differences(before, exact(places)), "");
}

TEST_F(Interruption, ByTheKeyboardWaitsForTheEnd) {
  expect_held_off(SIGINT);
}

TEST_F(Interruption, ByTheSystemsEndWaitsForTheEnd) {
  expect_held_off(SIGTERM);
}

TEST_F(Interruption, ByALostTerminalWaitsForTheEnd) {
  expect_held_off(SIGHUP);
}

TEST_F(Interruption, DuringTheRehearsalTouchesNothing) {
  const exact_tree before = everything();
  for (int milliseconds = 1; milliseconds < 400; milliseconds = milliseconds * 2 + 1) {
    const auto program = start("install");
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    if (!fs::exists(run_file))
      program->kill(SIGTERM);
    const support::outcome ended = program->finish();
    if (ended.signal == 0) { // too late to be one: it ended as if nothing had been sent
      expect_status(ended, 0);
      expect_status(command("uninstall"), 0);
    }
    EXPECT_EQ(differences(before, everything()), "") << "after " << milliseconds << " ms";
    EXPECT_FALSE(fs::exists(run_file));
  }
}

// They die with the program, but not in the same moment: until then nobody else may begin.
TEST_F(Interruption, FindsTheLockInTheHandsOfTheProcessesThatRunTheInstaller) {
  const auto holds_lock = [](pid_t process) {
    const fs::path files = "/proc/" + std::to_string(process) + "/fd";
    return std::any_of(fs::directory_iterator(files), {}, [](const fs::directory_entry &file) {
      return fs::read_symlink(file.path()) == state_dir;
    });
  };
  const auto program = begin();
  ASSERT_TRUE(appears(in_envi("bin/envi_original"))) << "the installer did not begin";
  const pid_t above = child_of(program->process());
  EXPECT_TRUE(holds_lock(above));
  EXPECT_TRUE(holds_lock(child_of(above)));
  expect_status(program->finish(), 0);
}

TEST_F(Interruption, OfTheInstallersOwnProcessTakesEverythingBack) {
  expect_taken_back_after_killing([](pid_t program) { return child_of(child_of(program)); });
}

TEST_F(Interruption, OfTheProcessAboveTheInstallerTakesEverythingBack) {
  expect_taken_back_after_killing([](pid_t program) { return child_of(program); });
}

TEST_F(Interruption, IsNotWhatVerifyCallsARunThatIsUnderWay) {
  const auto program = begin();
  const support::outcome ended = command("verify");
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_EQ(short_text(ended.err),
            "korvalen_admin: process " + std::to_string(program->process()) + " (" + support::admin_path +
                " install PRODUCT ENVI) is at work with /var/lib/korvalen; try again when it has ended\n");
  expect_status(program->finish(), 0);
  expect_status(command("verify"), 0);
}

TEST_F(Interruption, InTheMiddleOfAFileLeavesNothingThatIsPutAside) {
  const exact_tree before = everything();
  kill_when([this] { return fs::exists(in_envi("bin/envi_rt_original")); });
  write_file(in_envi("save/k.sav"), "envi/sa");                                 // of what is placed
  write_file(in_envi("bin/envi"), read_file(in_envi("bin/envi")).substr(0, 9)); // of what is written
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_TRUE(fs::is_empty(state_dir + "/aside"));
}

TEST_F(Interruption, OfTheWholeProgramIsTakenBackByTheNextUninstallation) {
  const exact_tree before = everything();
  kill_when([this] { return fs::exists(in_envi("bin/envi_rt_original")); });
  EXPECT_NE(differences(before, everything()), "");
  EXPECT_THAT(command("verify").err, testing::StartsWith("korvalen_admin: interrupted: "));
  EXPECT_EQ(command("plan").status, 1);
  EXPECT_EQ(command("uninstall", {"--plan"}).status, 1);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
  expect_no_run();
}

TEST_F(Interruption, OfTheWholeProgramWhileItDeploysIsTakenBackByTheNextInstallation) {
  const exact_tree before = everything();
  kill_when([this] { return fs::exists(in_envi("save/quorin_core_tasks.sav")); });
  EXPECT_NE(differences(before, everything()), "");
  expect_status(command("install"), 0);
  expect_status(command("verify"), 0);
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

TEST_F(Interruption, OfASecondInstallationIsTakenBackToTheFirst) {
  expect_status(command("install"), 0);
  const exact_tree first = everything(file_times::left_out);
  write_file(source("envi/save/k.sav"), "a new release");
  kill_when([this] { return read_file(in_envi("save/k.sav")) == "a new release"; });
  expect_status(admin({"uninstall", path("host/none"), path("host/nowhere")}), 0); // of what was never there
  EXPECT_EQ(differing_paths(first, everything(file_times::left_out)), source("envi/save/k.sav") + "\n");
  expect_status(command("verify"), 0);
}

TEST_F(Interruption, OfWhoHoldsTheLockTooLongIsToldWithItsName) {
  fs::create_directory(state_dir);
  const int lock = open(state_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  must(flock(lock, LOCK_EX), "flock");
  const auto began = std::chrono::steady_clock::now();
  const auto installing = start("install", "install");
  const auto planning = start("plan", "plan");
  const auto uninstalling = start("uninstall", "uninstall");
  EXPECT_EQ(command("verify").status, 1) << "nothing is on record";
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30)) << "verify waits for nobody";
  for (running_program *const one : {installing.get(), planning.get(), uninstalling.get()}) {
    const support::outcome ended = one->finish();
    EXPECT_EQ(ended.status, 1) << ended;
    EXPECT_THAT(ended.err, testing::StartsWith("korvalen_admin: process " + std::to_string(getpid()) + " ("));
    EXPECT_THAT(ended.err, HasSubstr("admin_tests"));
    EXPECT_THAT(ended.err, HasSubstr(") is at work with /var/lib/korvalen; try again when it has ended\n"));
  }
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(60));
  close(lock);
}

TEST_F(Interruption, ByTwentyRunsAtOnceLeavesAHostThatIsTrueToItsRecord) {
  const exact_tree before = everything();
  const char *const names[] = {"install", "plan", "verify", "uninstall", "install"};
  std::vector<std::unique_ptr<running_program>> programs;
  for (std::size_t i = 0; i < 20; ++i)
    programs.push_back(start(names[i % 5], "run" + std::to_string(i)));
  for (std::size_t i = 0; i < 20; ++i) {
    const std::string name = names[i % 5];
    const support::outcome ended = programs[i]->finish();
    EXPECT_EQ(ended.signal, 0) << name << ended;
    const bool has_waited_in_vain = ended.err.find("is at work with") != std::string::npos;
    if (name == "install" || name == "uninstall")
      EXPECT_EQ(ended.status, has_waited_in_vain ? 1 : 0) << name << ended;
    else if (name == "plan")
      EXPECT_THAT(ended.status, has_waited_in_vain ? testing::AnyOf(1, 1) : testing::AnyOf(0, 2)) << ended;
    else
      EXPECT_THAT(ended.status, testing::AnyOf(0, 1, 2)) << ended;
    EXPECT_EQ(ended.err.empty(), ended.status != 1) << name << ended;
  }
  EXPECT_FALSE(fs::exists(run_file));
  if (parsed_json(read_file(receipt_file))["content"]["installations"].empty()) {
    EXPECT_EQ(differences(before, everything()), "");
  } else {
    expect_status(command("verify"), 0);
    expect_status(command("uninstall"), 0);
    EXPECT_EQ(differences(before, everything()), "");
  }
}

} // namespace
