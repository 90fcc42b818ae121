// Hosts that random ones led to: each once made a plan differ from what happens, or be refused for nothing.

#include "plans/plan_report.h"
#include "run/whole_run.h"
#include "support/programs.h"

#include <unistd.h>

using namespace whole_runs;
using plans::plan_report;

namespace {

class RehearsalCorners : public whole_run {
protected:
  plan_report plan() const {
    return plans::parse_report(support::run({support::admin_path, "plan", "--json", product(), envi()}).out);
  }

  void give_second_name(const std::string &file, const std::string &name) const {
    fs::create_directories(fs::path(name).parent_path());
    fs::create_hard_link(file, name);
  }
};

} // namespace

TEST_F(RehearsalCorners, AnInstallationThatWouldEndEarlyIsNotTakenForAFullScratchDirectory) {
  make_envi();
  support::write_file(source("envi/custom_code/old.files/inner.sav"), "ends the installer");
  ship("envi/save/never_copied.sav");
  support::write_file(envi() + "/save/never_copied.sav", "of another length");
  const plan_report told = plan();
  EXPECT_EQ(told.error, "the installer would end with status 255: ERROR while copying " +
                            source("envi/custom_code/inner.sav"));
  EXPECT_TRUE(told.installer.has_value());
}

TEST_F(RehearsalCorners, AScriptThatIsDeployedBeforeItIsPatchedIsNotTakenForCutShort) {
  make_envi();
  give_second_name(envi() + "/idl86/bin/idl", source("envi/save/idl.sav"));
  const plan_report told = plan();
  EXPECT_EQ(told.error, "");
  EXPECT_EQ(told.status, 2);
}

TEST_F(RehearsalCorners, AScriptThatIsDeployedOverBeforeItIsPatchedIsNotTakenForCutShort) {
  make_envi();
  give_second_name(envi() + "/idl86/bin/idl", envi() + "/save/idl.sav");
  ship("envi/save/idl.sav");
  const plan_report told = plan();
  EXPECT_EQ(told.error, "");
  EXPECT_EQ(told.status, 2);
}

TEST_F(RehearsalCorners, AFileThatIsDeployedBeforeItIsDeployedOverIsNotTakenForCutShort) {
  make_envi();
  ship("envi/custom_code/first.sav");
  ship("envi/save/second.sav");
  give_second_name(source("envi/custom_code/first.sav"), envi() + "/save/second.sav");
  const plan_report told = plan();
  EXPECT_EQ(told.error, "");
  EXPECT_EQ(told.status, 2);
}

TEST_F(RehearsalCorners, ALinkThatIsDeployedBeforeItsTargetIsDeletedIsNotTakenForCutShort) {
  make_envi();
  fs::create_directories(envi() + "/classic/save_add");
  support::write_file(envi() + "/classic/save_add/envi_korvalen_itools.sav", "stale");
  fs::create_directories(source("envi/save"));
  fs::create_symlink(envi() + "/classic/save_add/envi_korvalen_itools.sav", source("envi/save/link.sav"));
  const plan_report told = plan();
  EXPECT_EQ(told.error, "");
  EXPECT_EQ(told.status, 2);
}
