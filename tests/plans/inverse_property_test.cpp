// Random hosts: after `korvalen_admin install` and `korvalen_admin uninstall` each is as before.

#include "plans/inverse_case.h"
#include "plans/property.h"

#include <gtest/gtest.h>

TEST(InverseProperty, AnUninstallGivesARandomHostExactlyAsItWasBeforeTheInstallation) {
  plans::expect_of_random_hosts({.default_cases = 80,
                                 .run_case = plans::run_inverse_case,
                                 .wanted_counts = {
                                     "installed",
                                     "installed, nothing to be changed",
                                     "forced",
                                     "refused: a mount cannot be covered",
                                     "refused: the installer would fail",
                                     "refused: the installer refuses an argument",
                                 }});
}
