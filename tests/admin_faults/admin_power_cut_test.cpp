// korvalen_admin with the power cut at every call of an installation and of an uninstall.
#include "admin_faults/administration.h"
#include "faults/own_mounts.h"
#include "faults/recorded_run.h"
#include "support/files.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <functional>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>

namespace {

using faults::demand;
using faults::disk;
using faults::host_tree;
using faults::inode;
using faults::recorded_call;
using faults::recording;
using nlohmann::json;

const std::string state_dir = "var_lib/korvalen";

// A file that a command changes. The bytes of an absent one are absent.
struct changed_file {
  std::string path;
  std::optional<std::string> before;
  std::optional<std::string> after;
};

std::optional<std::string> bytes_in(const host_tree &tree, const std::string &path) {
  const auto found = tree.find(path);
  return found == tree.end() || found->second.kind != "file" ? std::nullopt
                                                             : std::optional(found->second.content);
}

std::vector<changed_file> changed_files(const host_tree &before, const host_tree &after) {
  std::set<std::string> paths;
  for (const host_tree *const tree : {&before, &after})
    for (const auto &[path, entry] : part_not_below(*tree, faults::state_dir))
      paths.insert(path);
  std::vector<changed_file> files;
  for (const std::string &path : paths)
    if (bytes_in(before, path) != bytes_in(after, path))
      files.push_back({path, bytes_in(before, path), bytes_in(after, path)});
  return files;
}

class PowerCutOfAdministration : public ::testing::Test {
protected:
  static void SetUpTestSuite() { has_host_ = faults::can_enter_own_host() && faults::enter_own_host(); }

  void SetUp() override {
    if (!has_host_)
      GTEST_SKIP() << "this system grants no mount namespace";
    faults::set_host(faults::own_root, faults::fresh_host());
    start_ = faults::look_at_host(faults::own_root);
  }

  // Records the command and learns which files it changes.
  recording record(const char *command) {
    const host_tree start = faults::look_at_host(faults::own_root);
    const faults::program tool = faults::administration(command);
    recording run = faults::record_run(tool, faults::own_root);
    if (run.status != 0)
      throw std::runtime_error(std::string("set-up: ") + command + " fails: " + faults::printed_by(tool));
    changed = changed_files(start, faults::look_at_host(faults::own_root));
    return run;
  }

  const host_tree &fresh() const { return start_; }

  static void carry_out(const char *command) {
    if (const faults::family_outcome ended = faults::administer(command); ended.status != 0)
      throw std::runtime_error(std::string("set-up: ") + command + " fails");
  }
  // Leaves what an installation leaves that is killed with all its processes while it changes the host.
  static void leave_killed_install() {
    std::vector<faults::family_call> calls;
    const host_tree start = faults::look_at_host(faults::own_root);
    faults::run_family(faults::administration(faults::install_command), {},
                       [&](const faults::family_call &call) { calls.push_back(call); });
    faults::set_host(faults::own_root, start);
    const auto journal = std::find_if(calls.begin(), calls.end(), [](const faults::family_call &call) {
      return call.asked.name == "renameat" && call.asked.path.ends_with("run.json");
    });
    const auto first = journal - calls.begin();
    const auto killed_at = first + (static_cast<std::ptrdiff_t>(calls.size()) - first) * 8 / 10;
    if (faults::run_family(faults::administration(faults::install_command),
                           {static_cast<long>(killed_at), faults::blow::kills_all})
            .signal != SIGKILL)
      throw std::runtime_error("set-up: the installation is not killed");
  }
  std::vector<changed_file> changed;

private:
  static inline bool has_host_ = false;
  host_tree start_;
};

// What a state directory that a cut may leave would make the next command do.
struct belief {
  bool is_broken = false;    // a file in it cannot be trusted, and nothing can be done
  bool takes_back = false;   // there is a run that was not committed
  bool is_on_record = false; // the receipt holds an installation
  long committed = 0;        // the last run that was
  json run;
  json receipt;
};

// What must hold of a command wherever the power is cut.
struct promise {
  host_tree host;                  // whose files' bytes are there or kept
  std::vector<changed_file> files; // those that the command changes
  long commits = 0; // the run that an installation enters into the record; 0 for other commands
  std::vector<demand> others = {}; // of what must be found too
};

std::optional<inode> entry_inode(const disk &all, const std::string &path) {
  inode directory = faults::root_directory;
  std::string_view rest = path;
  while (true) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    const auto found = all.names.find({directory, std::string(name)});
    if (found == all.names.end())
      return std::nullopt;
    directory = found->second.back();
    if (name.size() == rest.size())
      return directory;
    rest.remove_prefix(name.size() + 1);
  }
}

std::vector<inode> *candidates_at(disk &all, const std::string &path) {
  const std::size_t slash = path.rfind('/');
  const auto directory = entry_inode(all, path.substr(0, slash));
  if (!directory || *directory == faults::nothing)
    return nullptr;
  const auto found = all.names.find({*directory, path.substr(slash + 1)});
  return found == all.names.end() ? nullptr : &found->second;
}

// Every disk that differs from this one in that the path shows one of what it may show.
std::vector<disk> decided(const disk &all, const std::string &path) {
  disk one = all;
  std::vector<inode> *const shown = candidates_at(one, path);
  if (shown == nullptr || shown->size() == 1)
    return {one};
  std::vector<disk> disks;
  for (const inode candidate : std::vector<inode>(*shown)) {
    *shown = {candidate};
    disks.push_back(one);
  }
  return disks;
}

// The content of a file of the state directory; null where there is none.
json content_of(const disk &all, const std::string &path, belief &believed) {
  const auto found = entry_inode(all, path);
  if (!found || *found == faults::nothing)
    return nullptr;
  const faults::file_state &file = all.files.at(*found);
  believed.is_broken = believed.is_broken || !file.durable;
  return json::parse(file.bytes).at("content");
}

belief belief_from(const disk &all) {
  belief believed;
  const json run = content_of(all, state_dir + "/run.json", believed);
  const json receipt = content_of(all, state_dir + "/receipt.json", believed);
  const auto number = [](const json &content) {
    return content.is_null() ? 0L : content.at("run").get<long>();
  };
  believed.takes_back = number(run) > number(receipt);
  believed.is_on_record = !receipt.is_null() && !receipt.at("installations").empty();
  believed.committed = number(receipt);
  believed.run = run;
  believed.receipt = receipt;
  return believed;
}

// Where the bytes of a path are kept; empty where they are not.
std::string kept_path(const json &record, const std::string &path) {
  if (record.is_null())
    return "";
  for (const json &one : record.at("paths"))
    if (one.at("path") == "/mnt/" + path && one.contains("kept"))
      return state_dir + "/kept/" + std::to_string(one.at("kept").get<long>());
  return "";
}

// What must be found of a file that the host had.
demand demand_on(const std::string &path, const std::string &bytes, const belief &believed) {
  demand wanted{bytes, {path}, demand::rule::any_holds};
  if (const std::string kept = kept_path(believed.run, path); believed.takes_back && !kept.empty())
    wanted.paths.push_back(kept);
  if (const std::string kept = kept_path(believed.receipt, path); believed.is_on_record && !kept.empty())
    wanted.paths.push_back(kept);
  return wanted;
}

// Judges one disk, of which the state directory is decided.
std::string losses_of(const disk &all, const promise &promised) {
  const belief believed = belief_from(all);
  if (believed.is_broken)
    return "a record may hold anything\n";
  std::string text;
  const auto expect = [&](const demand &wanted) {
    if (const auto lost = find_loss(all, wanted))
      text += *lost + "\n";
  };
  const bool is_committed = promised.commits > 0 && believed.committed == promised.commits;
  for (const changed_file &file : promised.files) {
    if (const auto original = bytes_in(promised.host, file.path))
      expect(demand_on(file.path, *original, believed));
    // An installation on record stands whole, and so does the one before until then, or can be brought back.
    if (is_committed && file.after)
      expect({*file.after, {file.path}, demand::rule::any_holds});
    if (promised.commits > 0 && !is_committed && file.before)
      expect(demand_on(file.path, *file.before, believed));
  }
  for (const demand &one : promised.others)
    expect(one);
  return text;
}

// A restored file is as it was or as it is to be at every moment.
std::string half_files(disk &all, const std::vector<changed_file> &files) {
  std::string text;
  for (const changed_file &file : files) {
    const std::vector<inode> *const shown = candidates_at(all, file.path);
    for (const inode one : shown == nullptr ? std::vector<inode>{} : *shown) {
      const auto found = all.files.find(one);
      if (found != all.files.end() && (!found->second.durable || (found->second.bytes != file.before &&
                                                                  found->second.bytes != file.after)))
        text += file.path + " may be neither old nor new\n";
    }
  }
  return text;
}

struct judged {
  std::size_t points = 0; // at which the power was cut
  std::size_t states = 0; // of the state directory that these cuts may leave
  std::string losses;     // after how many calls, and what is lost
};

judged cut_everywhere(const recording &run, const promise &promised) {
  judged result;
  disk all = run.start;
  for (std::size_t made = 0; made <= run.calls.size(); ++made) {
    if (made > 0)
      for (const faults::change &one : run.calls[made - 1].changes)
        faults::apply(all, one);
    ++result.points;
    std::string text = promised.commits > 0 ? "" : half_files(all, promised.files);
    for (const disk &with_run : decided(all, state_dir + "/run.json"))
      for (const disk &one : decided(with_run, state_dir + "/receipt.json")) {
        ++result.states;
        text += losses_of(one, promised);
      }
    if (!text.empty() && result.losses.size() < 4000)
      result.losses += (made == 0 ? "before any call" : "after " + run.calls[made - 1].text) + ": " + text;
  }
  return result;
}

// The run without the flushes whose calls end so; of several only the one of that number, if it is given.
recording without(const recording &run, const std::string &call, const std::string &ending,
                  std::optional<int> number = std::nullopt) {
  recording rest = run;
  int met = 0;
  int dropped = 0;
  for (recorded_call &one : rest.calls)
    if (one.text.starts_with(call + " ") && one.text.ends_with(ending) && (!number || met++ == *number)) {
      one.changes.clear();
      ++dropped;
    }
  if (dropped == 0)
    throw std::runtime_error("set-up: no " + call + " of " + ending + " in the recording");
  return rest;
}

std::map<std::string, std::string> files_left() {
  std::map<std::string, std::string> files;
  for (const auto &[path, e] : faults::look_at_host(faults::own_root))
    if (e.kind == "file")
      files[path] = e.content;
  return files;
}

std::map<std::string, std::string> files_told(const recording &run) {
  disk all = run.start;
  for (const recorded_call &call : run.calls)
    for (const faults::change &one : call.changes)
      faults::apply(all, one);
  return faults::files_on(all);
}

} // namespace

TEST_F(PowerCutOfAdministration, LeavesEveryFileOfTheHostOrItsKeptBytesAtEveryCallOfAnInstallation) {
  const recording run = record(faults::install_command);
  const judged result = cut_everywhere(run, {fresh(), changed, 1});
  std::cout << "install: " << changed.size() << " files changed, " << result.points << " points, "
            << result.states << " states of the records\n";
  EXPECT_EQ(result.losses, "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfAdministration, LeavesEveryFileOfTheHostOrItsKeptBytesAtEveryCallOfAnUninstall) {
  record(faults::install_command);
  const recording run = record(faults::uninstall_command);
  const judged result = cut_everywhere(run, {fresh(), changed});
  std::cout << "uninstall: " << changed.size() << " files changed, " << result.points << " points, "
            << result.states << " states of the records\n";
  EXPECT_EQ(result.losses, "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfAdministration, WouldLoseFilesWithoutAnyOneOfTheFlushesOfAnInstallation) {
  const recording run = record(faults::install_command);
  const auto lose = [&](const std::string &call, const std::string &ending, std::optional<int> number) {
    return cut_everywhere(without(run, call, ending, number), {fresh(), changed, 1}).losses;
  };
  EXPECT_NE(lose("fsync", "/kept/1", {}), "") << "of a kept file";
  EXPECT_NE(lose("fsync", "/kept", {}), "") << "of the directory of kept files";
  EXPECT_NE(lose("fsync", "/run.json.new", {}), "") << "of the journal";
  EXPECT_NE(lose("fsync", "/var/lib", {}), "") << "of the state directory's own name";
  EXPECT_NE(lose("fsync", "/korvalen", 1), "") << "of the journal's name";
  EXPECT_NE(lose("syncfs", "", {}), "") << "of what the installer made";
  EXPECT_NE(lose("fsync", "/receipt.json.new", {}), "") << "of the receipt";
  EXPECT_NE(lose("fsync", "/korvalen", 2), "") << "of the receipt's name";
}

TEST_F(PowerCutOfAdministration, WouldLoseFilesWithoutAnyOneOfTheFlushesOfAnUninstall) {
  record(faults::install_command);
  const recording run = record(faults::uninstall_command);
  const auto lose = [&](const std::string &call, const std::string &ending) {
    return cut_everywhere(without(run, call, ending), {fresh(), changed}).losses;
  };
  EXPECT_NE(lose("fsync", "/.korvalen-0"), "") << "of a file that comes back";
  EXPECT_NE(lose("syncfs", ""), "") << "of the names that come back";
  EXPECT_NE(lose("fsync", "/receipt.json.new"), "") << "of the receipt";
}

namespace {

class PowerCutOfTakingBack : public PowerCutOfAdministration {
protected:
  // The next command takes the killed installation back, and puts aside what somebody wrote meanwhile.
  void SetUp() override {
    PowerCutOfAdministration::SetUp();
    if (IsSkipped())
      return;
    leave_killed_install();
    support::write_file(std::string(faults::own_root) + "/" + edited, "edited by hand\n");
  }

  promise taken_back() {
    promise promised{fresh(), changed};
    promised.others = {{"edited by hand\n", {edited, state_dir + "/aside/1.envi_rt"}}};
    return promised;
  }

  const std::string edited = "opt/envi54/bin/envi_rt";
};

class PowerCutOfUpgrade : public PowerCutOfAdministration {
protected:
  // With the product's next release over an installation.
  void SetUp() override {
    PowerCutOfAdministration::SetUp();
    if (IsSkipped())
      return;
    carry_out(faults::install_command);
    host_tree host = faults::look_at_host(faults::own_root);
    faults::upgrade_product(host);
    faults::set_host(faults::own_root, host);
    host_ = fresh();
    faults::upgrade_product(host_);
  }

  promise upgraded() const { return {host_, changed, 2}; }

private:
  host_tree host_;
};

} // namespace

TEST_F(PowerCutOfTakingBack, LeavesEveryFileOfTheHostOrItsKeptBytesAtEveryCall) {
  const recording run = record(faults::uninstall_command);
  const judged result = cut_everywhere(run, taken_back());
  std::cout << "taking back: " << changed.size() << " files changed, " << result.points << " points, "
            << result.states << " states of the records\n";
  EXPECT_EQ(result.losses, "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfTakingBack, WouldLoseFilesWithoutAnyOneOfItsFlushes) {
  const recording run = record(faults::uninstall_command);
  const auto lose = [&](const std::string &call, const std::string &ending) {
    return cut_everywhere(without(run, call, ending), taken_back()).losses;
  };
  EXPECT_NE(lose("fsync", "/aside/1.envi_rt"), "") << "of what is put aside";
  EXPECT_NE(lose("fsync", "/aside"), "") << "of its name";
  EXPECT_NE(lose("syncfs", ""), "") << "of the names that come back";
  const auto made_beside = std::find_if(run.calls.begin(), run.calls.end(), [](const recorded_call &one) {
    return one.text.starts_with("fsync ") && one.text.find("/.korvalen-") != std::string::npos;
  });
  ASSERT_NE(made_beside, run.calls.end());
  EXPECT_NE(lose("fsync", made_beside->text.substr(made_beside->text.rfind('/'))), "")
      << "of a file that comes back";
}

TEST_F(PowerCutOfTakingBack, LeavesEveryFileOfTheHostOrItsKeptBytesWhileAnInstallationFollows) {
  const recording run = record(faults::install_command);
  const promise promised{fresh(), changed_files(fresh(), faults::look_at_host(faults::own_root)), 1};
  const judged result = cut_everywhere(run, promised);
  std::cout << "repair: " << promised.files.size() << " files changed, " << result.points << " points, "
            << result.states << " states of the records\n";
  EXPECT_EQ(result.losses, "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
  EXPECT_NE(cut_everywhere(without(run, "syncfs", "", 0), promised).losses, "")
      << "the names that come back are not flushed before the journal goes";
}

TEST_F(PowerCutOfUpgrade, LeavesTheHostsFilesAndTheInstallationBeforeOrTheirKeptBytesAtEveryCall) {
  const recording run = record(faults::install_command);
  const judged result = cut_everywhere(run, upgraded());
  std::cout << "upgrade: " << changed.size() << " files changed, " << result.points << " points, "
            << result.states << " states of the records\n";
  EXPECT_EQ(result.losses, "");
  EXPECT_EQ(files_told(run), files_left()) << "the recording is not whole";
}

TEST_F(PowerCutOfUpgrade, WouldLoseFilesWithoutAnyOneOfItsFlushes) {
  const recording run = record(faults::install_command);
  const auto lose = [&](const std::string &call, const std::string &ending, std::optional<int> number) {
    return cut_everywhere(without(run, call, ending, number), upgraded()).losses;
  };
  EXPECT_NE(lose("fsync", "/kept", {}), "") << "of the directory of kept files";
  EXPECT_NE(lose("fsync", "/run.json.new", {}), "") << "of the journal";
  EXPECT_NE(lose("fsync", "/korvalen", 1), "") << "of the journal's name";
  EXPECT_NE(lose("syncfs", "", {}), "") << "of what the installer made";
  EXPECT_NE(lose("fsync", "/receipt.json.new", {}), "") << "of the receipt";
  EXPECT_NE(lose("fsync", "/korvalen", 2), "") << "of the receipt's name";
  int kept = 0;
  for (const changed_file &file : changed)
    kept += file.before.has_value() ? 1 : 0;
  EXPECT_GT(kept, 0) << "nothing of the first installation is replaced";
}
