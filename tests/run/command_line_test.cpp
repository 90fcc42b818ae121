#include "support/files.h"
#include "support/process.h"

TEST(CommandLine, WithoutArgumentsPrintsTheUsageAndEndsWithOne) {
  const support::outcome run = support::run({INSTALLER_PATH});
  EXPECT_EQ(run.out, "wrong input parameter list :   korvalen_dir  envi_dir   \n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 1);
}
