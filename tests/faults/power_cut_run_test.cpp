// The installer on the samples, with the power cut at every call.
#include "faults/own_mounts.h"
#include "faults/recorded_run.h"
#include "faults/scenario.h"
#include "support/files.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string_view>

namespace {

using faults::demand;
using faults::recorded_call;
using faults::recording;

class PowerCutOfARun : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    has_mounts_ = faults::can_enter_own_mounts() && faults::enter_own_mounts(false);
  }

  void SetUp() override {
    if (!has_mounts_)
      GTEST_SKIP() << "this system grants no mount namespace";
    samples_ = faults::sample_trees();
    faults::set_tree(samples_);
  }

  static faults::program installer() {
    return faults::installer(
        {"an installation", {"/mnt/opt/product", "/mnt/opt/envi54", "local"}, "opt/korvalen_uninstall.sh"});
  }

  // One more run on the tree as it stands.
  static recording install() {
    recording run = faults::record_run(installer(), faults::own_root);
    if (run.status != 0 || run.calls.empty())
      throw std::runtime_error("set-up: the installation fails");
    return run;
  }

  // One demand for each launch script: its original bytes, at the paths that these endings make of its own.
  std::vector<demand> originals(const std::vector<std::string> &endings,
                                demand::rule how = demand::rule::any_holds) const {
    std::vector<demand> wanted;
    for (const std::string script : faults::launch_scripts) {
      wanted.push_back({samples_.at(script).content, {}, how});
      for (const std::string &ending : endings)
        wanted.back().paths.push_back(script + ending);
    }
    return wanted;
  }

  // What a run afterwards believes: a backup if there is one, else the script.
  std::vector<demand> believed() const {
    return originals({"_original", ""}, demand::rule::first_there_holds);
  }

private:
  static inline bool has_mounts_ = false;
  support::tree samples_;
};

std::string losses(const recording &run, const std::vector<demand> &wanted) {
  constexpr std::size_t shown = 40;
  const std::vector<faults::loss> all = faults::cut_at_every_call(run.start, run.calls, wanted);
  std::string text;
  for (std::size_t i = 0; i < std::min(shown, all.size()); ++i)
    text += all[i].text + "\n";
  if (all.size() > shown)
    text += "... and " + std::to_string(all.size() - shown) + " more\n";
  return text;
}

using names = std::set<std::string>;

const names all_scripts = {"opt/envi54/bin/envi", "opt/envi54/bin/envi_rt", "opt/envi54/bin/envitaskengine",
                           "opt/envi54/idl86/bin/idl", "opt/envi54/idl86/bin/idlde"};

// The launch scripts that a cut may lose; the demands are in the order of the scripts.
names scripts_at_risk(const recording &run, const std::vector<demand> &wanted) {
  names at_risk;
  for (const faults::loss &one : faults::cut_at_every_call(run.start, run.calls, wanted))
    at_risk.insert(faults::launch_scripts[one.broken]);
  return at_risk;
}

bool is_file(const recording &run, faults::inode what) {
  const auto writes_it = [what](const faults::change &one) {
    const auto *const bytes = std::get_if<faults::bytes_changed>(&one);
    return bytes != nullptr && bytes->file == what;
  };
  return run.start.files.contains(what) ||
         std::any_of(run.calls.begin(), run.calls.end(), [&](const recorded_call &call) {
           return std::any_of(call.changes.begin(), call.changes.end(), writes_it);
         });
}

// The run as it would be without its flushes of files, or without those of directories.
recording without_flushes(const recording &run, bool of_files) {
  recording without = run;
  for (recorded_call &call : without.calls)
    std::erase_if(call.changes, [&](const faults::change &one) {
      const auto *const flush = std::get_if<faults::flushed>(&one);
      return flush != nullptr && is_file(run, flush->what) == of_files;
    });
  return without;
}

constexpr std::string_view detour = ".new"; // the ending of a backup that is not finished

bool names_finished_backup(const faults::change &one) {
  const auto *const name = std::get_if<faults::name_changed>(&one);
  return name != nullptr && name->name.ends_with("_original");
}

void name_finished(faults::change &one) {
  if (auto *const name = std::get_if<faults::name_changed>(&one);
      name != nullptr && name->name.ends_with(detour))
    name->name.erase(name->name.size() - detour.size());
}

// The run as it would be if the backups were made under their final names and not renamed to them.
recording without_detour(const recording &run) {
  recording straight = run;
  for (recorded_call &call : straight.calls)
    if (std::any_of(call.changes.begin(), call.changes.end(), names_finished_backup))
      call.changes.clear();
    else
      std::for_each(call.changes.begin(), call.changes.end(), name_finished);
  return straight;
}

// What is below the directory of the runs, in the form in which the model gives it.
std::map<std::string, std::string> files_left() {
  std::map<std::string, std::string> files;
  for (const auto &[path, e] : support::snapshot(faults::own_root))
    if (e.kind == "file")
      files[path] = e.content;
  return files;
}

std::map<std::string, std::string> files_told(const recording &run) {
  faults::disk all = run.start;
  for (const recorded_call &call : run.calls)
    for (const faults::change &one : call.changes)
      faults::apply(all, one);
  return faults::files_on(all);
}

} // namespace

TEST_F(PowerCutOfARun, LeavesEveryOriginalInItsScriptOrItsBackupAtEveryCallOfAFirstInstallation) {
  const recording run = install();
  EXPECT_EQ(losses(run, originals({"", "_original"})), "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfARun, IsRecordedWithoutBeingChanged) {
  ASSERT_EQ(faults::run_traced(installer(), {}).status, 0);
  const std::map<std::string, std::string> unrecorded = files_left();
  faults::set_tree(faults::sample_trees());
  install();
  EXPECT_EQ(files_left(), unrecorded);
}

// By induction, this holds over any number of installations that are cut: one that finds a backup never
// writes it.
TEST_F(PowerCutOfARun,
       LeavesNoBackupThatALaterRunWouldTakeForTheOriginalWronglyAtEveryCallOfAFirstInstallation) {
  EXPECT_EQ(losses(install(), believed()), "");
}

TEST_F(PowerCutOfARun, LeavesEveryBackupWholeAtEveryCallOfARepeatedInstallation) {
  install();
  const recording run = install();
  EXPECT_EQ(losses(run, originals({"_original"})), "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfARun, WouldLoseEveryOriginalThatARepeatedInstallationHadNoBackupOf) {
  install();
  EXPECT_EQ(scripts_at_risk(install(), originals({""})), all_scripts);
}

TEST_F(PowerCutOfARun, WouldLoseEveryOriginalIfItsBackupWereNotFlushed) {
  const recording run = without_flushes(install(), true);
  EXPECT_EQ(scripts_at_risk(run, originals({"", "_original"})), all_scripts);
}

TEST_F(PowerCutOfARun, WouldLoseEveryOriginalIfTheDirectoryOfItsBackupWereNotFlushed) {
  const recording run = without_flushes(install(), false);
  EXPECT_EQ(scripts_at_risk(run, originals({"", "_original"})), all_scripts);
}

TEST_F(PowerCutOfARun, WouldLeaveWrongBackupsIfTheyWereMadeUnderTheirFinalNames) {
  EXPECT_EQ(scripts_at_risk(without_detour(install()), believed()), all_scripts);
}
