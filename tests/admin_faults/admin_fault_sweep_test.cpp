#include "admin_faults/admin_sweep.h"
#include "support/findings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using faults::admin_scenario;
using faults::install_command;
using faults::uninstall_command;

faults::strides every = {12007, 1201};

// Kills the processes that this one started, and waits until they are gone.
void kill_children() {
  const std::string own = std::to_string(getpid());
  std::ifstream file("/proc/" + own + "/task/" + own + "/children");
  for (pid_t child = 0; file >> child;) {
    kill(child, SIGKILL);
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  }
}

void expect_all_or_nothing(const admin_scenario &what) {
  if (!faults::can_enter_own_host())
    GTEST_SKIP() << "this system grants no mount namespace";
  const faults::tally result = faults::sweep(what, every);
  faults::print_table(std::cout, what, result);
  EXPECT_EQ(support::listed(result.findings), "");
}

} // namespace

TEST(AdminFaultSweep, AFirstInstallationIsAllOrNothingWhereverItIsDisturbed) {
  expect_all_or_nothing({.name = "a first installation", .done = {}, .command = install_command});
}

TEST(AdminFaultSweep, AnUpgradeIsAllOrNothingWhereverItIsDisturbed) {
  expect_all_or_nothing({.name = "an upgrade",
                         .done = {install_command},
                         .change = faults::upgrade_product,
                         .command = install_command});
}

TEST(AdminFaultSweep, AnUninstallIsAllOrNothingWhereverItIsDisturbed) {
  expect_all_or_nothing({.name = "an uninstall", .done = {install_command}, .command = uninstall_command});
}

TEST(AdminFaultSweep, AKilledInstallationIsTakenBackWhereverThatIsDisturbed) {
  expect_all_or_nothing({.name = "an uninstall after a killed installation",
                         .done = {},
                         .killed = {{install_command, 70}},
                         .command = uninstall_command});
}

TEST(AdminFaultSweep, AKilledUpgradeIsTakenBackByAnInstallationWhereverThatIsDisturbed) {
  expect_all_or_nothing({.name = "an install after a killed upgrade",
                         .done = {install_command},
                         .change = faults::upgrade_product,
                         .killed = {{install_command, 50}},
                         .command = install_command});
}

TEST(AdminFaultSweep, ATakingBackThatWasKilledIsDoneAgainWhereverThatIsDisturbed) {
  expect_all_or_nothing({.name = "an uninstall after a killed uninstall after a killed installation",
                         .done = {},
                         .killed = {{install_command, 80}, {uninstall_command, 60}},
                         .command = uninstall_command});
}

TEST(AdminFaultSweep, AKilledUninstallIsFinishedWhereverThatIsDisturbed) {
  expect_all_or_nothing({.name = "an uninstall after a killed uninstall",
                         .done = {install_command},
                         .killed = {{uninstall_command, 50}},
                         .command = uninstall_command});
}

TEST(AdminFaultSweep, AnInstallationOverAKilledUninstallIsAllOrNothingWhereverItIsDisturbed) {
  expect_all_or_nothing({.name = "an install after a killed uninstall",
                         .done = {install_command},
                         .killed = {{uninstall_command, 50}},
                         .command = install_command});
}

TEST(FamilyRun, OutlivesAProgramThatIsKilledWhileItIsStoppedAtACall) {
  long seen = 0;
  faults::program tool = faults::administration(faults::verify_command);
  tool.directory = "/";
  const faults::family_outcome outcome =
      faults::run_family(tool, {3, faults::blow::fails, EIO}, [&](const faults::family_call &) {
        if (++seen == 3)
          kill_children();
      });
  EXPECT_EQ(seen, 3);
  EXPECT_EQ(outcome.signal, SIGKILL);
}

// admin_fault_sweep [--all | --every N]: every disturbance, or every N-th, instead of a few of them. Those in
// rehearsals, which touch nothing, are made ten times less often unless it is every one.
int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::string_view option = argc > 1 ? argv[1] : "";
  const long number = option == "--all" ? 1 : option == "--every" && argc == 3 ? std::atol(argv[2]) : 0;
  if (argc > 1 && number < 1) {
    std::cerr << "usage: admin_fault_sweep [--all | --every N]\n";
    return 2;
  }
  if (number > 0)
    every = {number == 1 ? 1 : 10 * number + 1, number};
  return RUN_ALL_TESTS();
}
