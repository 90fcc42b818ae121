// Random hosts: what `korvalen_admin plan` announces is what `korvalen_installer` then does.

#include "plans/plan_case.h"
#include "plans/property.h"

#include <gtest/gtest.h>

TEST(PlanProperty, APlanSaysExactlyWhatTheInstallerThenDoesToARandomHost) {
  plans::expect_of_random_hosts({.default_cases = 200,
                                 .run_case = plans::run_case,
                                 .wanted_counts = {
                                     "plans with status 0",
                                     "plans with status 1",
                                     "plans with status 2",
                                     "installations that ended with status 0",
                                     "installations that ended with status 1",
                                     "installations that ended with status 255",
                                     "changes: new file",
                                     "changes: new directory",
                                     "changes: removed file",
                                     "changes: removed directory",
                                     "changes: removed link",
                                     "changes: type file",
                                     "changes: content file",
                                     "changes: mode file",
                                     "changes: mode directory",
                                     "changes: owner file",
                                     "changed files of several names",
                                     "warnings of further names",
                                     "stale backups",
                                     "differences that patch",
                                     "refused: a mount cannot be covered",
                                     "refused: two mounts of one directory",
                                     "refused: the installer refuses an argument",
                                 }});
}
