#include "admin/admin_run.h"

#include <sched.h>
#include <sys/statvfs.h>

using namespace admin_runs;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

namespace {

constexpr std::size_t page = 4096;

// Disks that are full: real, small file systems.
class FullDisk : public admin_run {
protected:
  std::string filler_of(const std::string &directory) const { return directory + "/filler"; }

  // Leaves so many bytes free.
  void fill(const std::string &directory, std::size_t left = 0) const {
    struct statvfs room {};
    must(statvfs(directory.c_str(), &room), "statvfs");
    const std::size_t free = room.f_bfree * room.f_frsize;
    const int file = open(filler_of(directory).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    must(file, "open");
    const std::string bytes(page, 'f');
    for (std::size_t done = 0; done + left < free && write(file, bytes.data(), bytes.size()) > 0;
         done += page) {
    }
    close(file);
  }
  // Takes every byte that comes free until the program has ended, ahead of every other process: one that came
  // late would leave room for what is to fail.
  support::outcome finish_without_room(running_program &program, const std::string &directory) const {
    const sched_param first{1};
    must(sched_setscheduler(0, SCHED_FIFO, &first), "sched_setscheduler");
    while (kill(program.process(), 0) == 0 &&
           waitid(P_PID, static_cast<id_t>(program.process()), &ended_, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended_.si_pid == 0)
      fill(directory);
    const sched_param ordinary{0};
    must(sched_setscheduler(0, SCHED_OTHER, &ordinary), "sched_setscheduler");
    return program.finish();
  }
  exact_tree without_fillers() const {
    exact_tree tree = everything();
    for (const std::string &directory : {envi(), std::string("/etc/quorin")})
      tree.erase(filler_of(directory));
    return tree;
  }
  void expect_convergence(const exact_tree &before, const std::string &directory) const {
    fs::remove(filler_of(directory));
    expect_status(command("install"), 0);
    expect_status(command("verify"), 0);
    expect_status(command("uninstall"), 0);
    EXPECT_EQ(differences(before, everything()), "");
    EXPECT_TRUE(fs::is_empty(state_dir + "/kept"));
  }
  mutable siginfo_t ended_{};
};

TEST_F(FullDisk, OfEnviIsRefusedBeforeAnythingIsTouched) {
  mount_memory(envi(), "mode=0755,size=400k");
  make_host();
  const exact_tree before = everything();
  fill(envi(), 2 * page);
  const exact_tree full = everything();
  const support::outcome ended = command("install", {"--force", "second-name"});
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, testing::StartsWith("korvalen_admin: too little space on " + envi() + ": "));
  EXPECT_EQ(differences(full, everything()), "");
  EXPECT_FALSE(fs::exists(receipt_file));
  expect_convergence(before, envi());
}

TEST_F(FullDisk, OfEnviDuringTheRunTakesEverythingBack) {
  mount_memory(envi(), "mode=0755,size=400k");
  make_host();
  const exact_tree before = everything();
  const auto program = start("install");
  ASSERT_TRUE(appears(run_file));
  fill(envi());
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, testing::EndsWith("; everything was taken back\n"));
  EXPECT_EQ(differences(before, without_fillers()), "");
  EXPECT_FALSE(fs::exists(run_file));
  expect_convergence(before, envi());
}

TEST_F(FullDisk, OfEnviWhileTakingBackLeavesTheRestToTheNextCommand) {
  mount_memory(envi(), "mode=0755,size=2m");
  make_host();
  write_file(in_envi("save/k.sav"), std::string(600'000, 'k'), 0640);
  const exact_tree before = everything();
  const auto program = start("install");
  ASSERT_TRUE(appears(run_file));
  const support::outcome ended = finish_without_room(*program, envi());
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, testing::ContainsRegex(
                             "the interrupted run could not be taken back: cannot write " + envi() +
                             "[^:]*: No space left on device; mend that and give the command again\n"));
  EXPECT_TRUE(fs::exists(run_file));
  EXPECT_EQ(command("uninstall").status, 1) << "there is still no room";
  fs::remove(filler_of(envi()));
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
  expect_convergence(before, envi());
}

TEST_F(FullDisk, OfTheInitDirectoryIsRefusedBeforeAnythingIsTouched) {
  mount_memory("/etc/quorin", "mode=0755,size=64k");
  make_host();
  const exact_tree before = everything();
  fill("/etc/quorin", page);
  const support::outcome ended = command("install");
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, testing::StartsWith("korvalen_admin: too little space on /etc/quorin: "));
  EXPECT_EQ(differences(before, without_fillers()), "");
  expect_convergence(before, "/etc/quorin");
}

TEST_F(FullDisk, OfTheInitDirectoryDuringTheRunTakesEverythingBack) {
  mount_memory("/etc/quorin", "mode=0755,size=64k");
  make_host();
  const exact_tree before = everything();
  const auto program = start("install");
  ASSERT_TRUE(appears(run_file));
  fill("/etc/quorin");
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err, testing::EndsWith("; everything was taken back\n"));
  EXPECT_EQ(differences(before, without_fillers()), "");
  expect_convergence(before, "/etc/quorin");
}

TEST_F(FullDisk, OfTheStateDirectoryIsRefusedBeforeAnythingIsTouched) {
  mount_memory(state_dir, "mode=0755,size=400k");
  make_host();
  const exact_tree before = everything();
  for (const std::size_t left : {2U, 8U, 16U}) {
    fill(state_dir, left * page);
    const support::outcome ended = command("install");
    EXPECT_EQ(ended.status, 1) << left << ended;
    EXPECT_THAT(ended.err, testing::AnyOf(HasSubstr("too little space on the file system of " + state_dir),
                                          HasSubstr("No space left on device")))
        << left;
    EXPECT_EQ(differences(before, everything()), "") << left;
    EXPECT_FALSE(fs::exists(run_file)) << left;
    EXPECT_FALSE(fs::exists(receipt_file)) << left;
    EXPECT_TRUE(fs::is_empty(state_dir + "/kept")) << left;
    fs::remove(filler_of(state_dir));
  }
  expect_convergence(before, state_dir);
}

// Not when half of them are there, and with the numbers that tell how much is missing.
TEST_F(FullDisk, OfTheStateDirectoryIsToldBeforeAnyBytesAreKept) {
  mount_memory(state_dir, "mode=0755,size=400k");
  make_host();
  write_file(in_envi("save/k.sav"), std::string(600'000, 'k'), 0640);
  const support::outcome ended = command("install");
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_THAT(ended.err,
              testing::ContainsRegex("^korvalen_admin: too little space on the file system of " + state_dir +
                                     ": [0-9]{6} bytes are to be kept, 409600 are free\n$"));
}

TEST_F(FullDisk, OfTheStateDirectoryWhenTheRecordIsWrittenTakesEverythingBack) {
  mount_memory(state_dir, "mode=0755,size=600k");
  make_host();
  const exact_tree before = everything();
  const auto program = start("install");
  ASSERT_TRUE(appears(run_file));
  fill(state_dir, page); // for the listings of the installer
  const support::outcome ended = program->finish();
  EXPECT_EQ(ended.status, 1) << ended;
  EXPECT_EQ(ended.err,
            "korvalen_admin: cannot write /var/lib/korvalen/receipt.json.new: No space left on device; "
            "everything was taken back\n");
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(run_file));
  EXPECT_FALSE(fs::exists(receipt_file + ".new"));
  expect_convergence(before, state_dir);
}

TEST_F(FullDisk, OfEnviWhileUninstallingCanBeMendedAndRepeated) {
  mount_memory(envi(), "mode=0755,size=2m");
  make_host();
  write_file(in_envi("save/k.sav"), std::string(600'000, 'k'), 0640);
  const exact_tree before = everything();
  expect_status(command("install"), 0);
  fill(envi());
  const json failed = told("uninstall");
  EXPECT_EQ(failed["status"], 1) << failed.dump(1);
  EXPECT_EQ(failed["error"], "cannot write " + in_envi("save/k.sav") +
                                 ": No space left on device; mend that and give the command again");
  for (const json &one : failed["changes"])
    EXPECT_NE(one["path"], in_envi("save/k.sav")) << "it was not changed";
  EXPECT_FALSE(failed["changes"].empty());
  EXPECT_EQ(read_file(in_envi("save/k.sav")), "envi/save/k.sav\n")
      << "it is as before or after at every moment";
  fs::remove(filler_of(envi()));
  expect_status(command("uninstall"), 0);
  EXPECT_EQ(differences(before, everything()), "");
}

} // namespace
