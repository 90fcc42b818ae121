// Running again, and running the uninstall script.

#include "run/whole_run.h"

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

class SecondRun : public whole_run {};
class Uninstalling : public whole_run {};

} // namespace

TEST_F(SecondRun, LeavesTheSameTreesAsTheFirstInTheSystemLayout) {
  unpack_samples();
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  const support::tree once = snapshot(scratch());
  const support::tree etc_once = snapshot("/etc");
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(changes(once, snapshot(scratch())), "");
  EXPECT_EQ(changes(etc_once, snapshot("/etc")), "");
}

TEST_F(SecondRun, LeavesTheSameTreesAsTheFirstInTheLocalLayout) {
  unpack_samples();
  EXPECT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  const support::tree once = snapshot(scratch());
  EXPECT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  EXPECT_EQ(changes(once, snapshot(scratch())), "");
}

TEST_F(Uninstalling, RemovesExactlyWhatWasRecorded) {
  unpack_samples();
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  const support::tree before = snapshot(envi());
  const support::tree host_before = snapshot(host());
  const support::outcome run = support::run({"sh", script_in_etc});
  // Placed by one step and deleted as stale by a later one.
  EXPECT_THAT(run, Ended(0, "",
                         "rm: cannot remove '" + envi() +
                             "/extensions/korvalen_core_extensions.sav': No such file or directory\n"));
  EXPECT_EQ(changes(before, snapshot(envi())), R"(gone file classic/filt_func/korvalen_sensor.flt
gone file classic/save/korvalen_classic_core.sav
gone file classic/save_add/korvalen_classic.sav
gone file classic/save_add/korvalen_classic_menu.sav
gone file custom_code/korvalen_modeling.sav
gone file custom_code/korvalen_standard_modeling.sav
gone file custom_code/quorin_core_tools_custom_code_extension.sav
gone file extensions/korvalen_menu.sav
gone file extensions/korvalen_standard.sav
gone file idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm
gone file idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.so
gone file idl86/help/korvalen_routines.html
gone file idl86/help/online_help/Subsystems/Korvalen/index.html
gone file idl86/help/online_help/Subsystems/Korvalen/tools.html
gone file idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav
gone file idl86/lib/hook/korvalen_run_single_dataset_batch.sav
gone file resource/bitmaps/korvalen_16.bmp
gone file resource/bitmaps/korvalen_32.bmp
gone file resource/filterfuncs/korvalen_speckle_filter.pro
gone file resource/langcat/korvalen_menu_eng.cat
gone file resource/templates/korvalen_report.tpl
gone file resource/templates/tasks/Korvalen/korvalen_coherence.task
gone file resource/templates/tasks/Korvalen/korvalen_geocode.task
gone file save/korvalen_modeling.sav
)");
  EXPECT_EQ(changes({}, snapshot("/etc/quorin")), "new file 705 korvalen_uninstall.sh\n");
  EXPECT_FALSE(fs::exists(product()));
}

TEST_F(Uninstalling, RunsTheScriptItselfAsItsOwnerAndInTheLocalLayout) {
  unpack_samples();
  write_file(host() + "/other/file.txt", "another product's\n");
  EXPECT_THAT(install({product(), "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_THAT(support::run({"sh", "-c", host() + "/korvalen_uninstall.sh"}), Ended(0, "", ""));
  EXPECT_FALSE(fs::exists(product()));
  EXPECT_EQ(read_file(host() + "/other/file.txt"), "another product's\n");
}

TEST_F(Uninstalling, AfterARunThatEndedPartWayRemovesWhatWasPlacedUpToThen) {
  make_envi();
  ship("envi/custom_code/first.sav");
  ship("envi/save/sub.d/inner.sav");
  EXPECT_THAT(install({product(), envi()}),
              Ended(255, progress, copy_error(source("envi/save/inner.sav"), envi() + "/save/inner.sav")));
  EXPECT_THAT(support::run({"sh", script_in_etc}), Ended(0, "", ""));
  EXPECT_FALSE(fs::exists(envi() + "/custom_code/first.sav"));
  EXPECT_FALSE(fs::exists(configuration_in_etc));
  EXPECT_TRUE(fs::exists(product()));
}
