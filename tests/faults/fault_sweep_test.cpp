#include "faults/own_mounts.h"
#include "faults/sweep.h"
#include "support/findings.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string_view>

namespace {

long stride = 97;

const faults::scenario first_installation = {
    "a first installation", {"/mnt/opt/product", "/mnt/opt/envi54", "local"}, "opt/korvalen_uninstall.sh"};

const faults::scenario repeated_installation = {"a repeated installation",
                                                {"/mnt/opt/product", "/mnt/opt/envi54", "local"},
                                                "opt/korvalen_uninstall.sh",
                                                true};

const faults::scenario system_layout = {"the product alone, in the system layout",
                                        {"/mnt/opt/product"},
                                        "etc/quorin/korvalen_uninstall.sh",
                                        false,
                                        true};

void expect_nothing_lost(const faults::scenario &what) {
  if (!faults::can_enter_own_mounts())
    GTEST_SKIP() << "this system grants no mount namespace";
  const faults::tally result = faults::sweep(what, stride);
  faults::print_table(std::cout, what, result);
  EXPECT_EQ(support::listed(result.findings), "");
}

} // namespace

TEST(FaultSweep, NothingIsLostWhereverAFirstInstallationIsDisturbed) {
  expect_nothing_lost(first_installation);
}

TEST(FaultSweep, NothingIsLostWhereverARepeatedInstallationIsDisturbed) {
  expect_nothing_lost(repeated_installation);
}

TEST(FaultSweep, NothingIsLostWhereverTheSystemLayoutIsDisturbed) {
  expect_nothing_lost(system_layout);
}

// fault_sweep [--all]: every disturbance instead of a few of them.
int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const bool all = argc == 2 && std::string_view(argv[1]) == "--all";
  if (argc > 1 && !all) {
    std::cerr << "usage: fault_sweep [--all]\n";
    return 2;
  }
  if (all)
    stride = 1;
  return RUN_ALL_TESTS();
}
