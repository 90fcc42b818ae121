#include "plans/inverse_case.h"

#include "plans/plan_report.h"
#include "plans/random_disk.h"
#include "plans/snapshot.h"
#include "support/private_etc.h"
#include "support/process.h"
#include "support/programs.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace plans {

namespace fs = std::filesystem;

namespace {

const std::string state_dir = "/var/lib/korvalen";

// An install waits for three seconds, and many are at work side by side.
constexpr int longest_command = 300;

struct inverse_case {
  random_disk disk;
  disk_state before;
  std::set<std::string> left_out; // paths of which nothing is promised
  std::set<std::string> forced;
  case_result result;

  void find(const std::string &text) { result.findings.push_back(text); }
  void count(const std::string &name) { result.counted.insert(name); }
};

struct ended_command {
  support::outcome outcome;
  plan_report told;
};

// A file that is removed and made again as it was loses the names that nobody looks for.
std::string not_as_before(const inverse_case &one) {
  disk_state before = one.before;
  disk_state after = look_at(places_of(one.disk));
  for (disk_state *const state : {&before, &after})
    std::erase_if(*state, [&](const auto &item) { return one.left_out.contains(item.first); });
  return not_come_back(before, after, elsewhere_of(one.disk));
}

ended_command run(inverse_case &one, const std::string &command) {
  std::vector<std::string> arguments = {support::admin_path, command, "--json"};
  for (const std::string &code : command == "install" ? one.forced : std::set<std::string>())
    arguments.insert(arguments.end(), {"--force", code});
  arguments.insert(arguments.end(), one.disk.plan_arguments.begin(), one.disk.plan_arguments.end());
  fs::current_path(one.disk.plan_directory);
  ended_command ended{support::run(arguments, longest_command), {}};
  fs::current_path("/");
  ended.told = parse_report(ended.outcome.out, command);
  if (ended.outcome.status != ended.told.status || !ended.outcome.err.empty())
    one.find(command + " ended with status " + std::to_string(ended.outcome.status) + ", signal " +
             std::to_string(ended.outcome.signal) + ", saying " + ended.outcome.err);
  return ended;
}

bool lies_below(const std::string &path, const std::vector<std::string> &directories) {
  return std::any_of(directories.begin(), directories.end(),
                     [&](const std::string &directory) { return path.starts_with(directory + "/"); });
}

// Names of a file where nobody looks for them change with it, and stay so: that was warned of and forced.
void leave_out_unseen_names(inverse_case &one, const plan_report &told) {
  std::set<file_identity> files;
  for (const told_warning &warning : told.warnings)
    if (const auto file = one.before.find(warning.path);
        warning.code == "second-name" && file != one.before.end())
      files.insert(file->second.identity);
  std::set<std::string> seen;
  for (const announced_change &change : told.changes)
    seen.insert(change.path);
  for (const auto &[path, file] : one.before)
    if (files.contains(file.identity) && !lies_below(path, one.disk.directories) && !seen.contains(path))
      one.left_out.insert(path);
  if (!one.left_out.empty())
    one.count("names that nobody looks for");
}

// All that an administrator may force is forced.
ended_command install(inverse_case &one) {
  ended_command ended = run(one, "install");
  if (!ended.told.error.starts_with("refused because of "))
    return ended;
  for (const told_warning &warning : ended.told.warnings)
    if (warning.refuses)
      one.forced.insert(warning.code);
  if (const std::string traces = not_as_before(one); !traces.empty())
    one.find("the refused installation left traces:\n" + traces);
  one.count("forced");
  ended = run(one, "install");
  leave_out_unseen_names(one, ended.told);
  return ended;
}

struct refusal {
  const char *reason;
  const char *text;                          // part of the error
  const char *only_of_a_host_with = nullptr; // a feature
};

constexpr const char *frozen_files = "frozen files";

// What the installer refuses, or cannot do, and what cannot be rehearsed.
constexpr refusal refusals[] = {
    {"a mount cannot be covered", "is a mount of its own that cannot be covered"},
    {"an overlay does not tell second names", "which its file system does not let an overlay tell"},
    {"two mounts of one directory", "they are mounts of the same directory"},
    {"the installer would fail", "the installer would end with status "},
    {"the installer refuses an argument", "\" refused: it holds "},
    {"two mounts of one directory", "in the rehearsal; everything was taken back",
     "a mount that is seen twice"},
    {"frozen files", "Operation not permitted; mend that", frozen_files},
};

void count_refusal(inverse_case &one, const std::string &error) {
  for (const refusal &known : refusals)
    if (error.find(known.text) != std::string::npos &&
        (known.only_of_a_host_with == nullptr || one.disk.features.contains(known.only_of_a_host_with)))
      return one.count(std::string("refused: ") + known.reason);
  one.find("refused without a known reason: " + error);
}

void expect_host_before(inverse_case &one, const std::string &when) {
  if (const std::string differ = not_as_before(one); !differ.empty())
    one.find(when + ":\n" + differ);
}

// What nobody needs any more is not kept.
void expect_empty_state(inverse_case &one, const std::string &when) {
  for (const char *const name : {"/kept", "/aside", "/run", "/run.json"})
    if (fs::exists(state_dir + name) &&
        (!fs::is_directory(state_dir + name) || !fs::is_empty(state_dir + name)))
      one.find(when + " something is left in " + state_dir + name);
}

std::string described(const ended_command &ended) {
  std::string text = "status " + std::to_string(ended.told.status) + ", " + ended.told.error;
  for (const told_warning &warning : ended.told.warnings)
    text += "\n  " + warning.code + " " + warning.path;
  for (const announced_change &change : ended.told.changes)
    text += "\n  " + change.what.change + " " + change.path;
  return text;
}

// What not even root may change can be changed from now on.
void thaw(const std::string &directory) {
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(directory)) {
    if (found.is_symlink() || !(found.is_regular_file() || found.is_directory()))
      continue;
    const int file = open(found.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    int flags = 0;
    if (ioctl(file, FS_IOC_GETFLAGS, &flags) == 0 && (flags & (FS_IMMUTABLE_FL | FS_APPEND_FL)) != 0) {
      flags &= ~(FS_IMMUTABLE_FL | FS_APPEND_FL);
      ioctl(file, FS_IOC_SETFLAGS, &flags);
    }
    close(file);
  }
}

// An installer that meets frozen directories may leave there what nobody can take away before that is mended.
bool is_stopped_by_frozen_files(const inverse_case &one, const ended_command &ended) {
  return one.disk.features.contains(frozen_files) && ended.told.status == 1 &&
         ended.told.error.find("Operation not permitted; mend that") != std::string::npos;
}

ended_command uninstall(inverse_case &one) {
  const ended_command ended = run(one, "uninstall");
  if (!is_stopped_by_frozen_files(one, ended))
    return ended;
  one.count("taken away after frozen files were thawed");
  thaw(one.disk.directory + "/host");
  return run(one, "uninstall");
}

void take_away(inverse_case &one) {
  if (const ended_command ended = run(one, "verify"); ended.told.status != 0)
    one.find("verify after the installation: " + described(ended));
  const ended_command ended = uninstall(one);
  if (ended.told.status != 0)
    one.find("uninstall: " + described(ended));
  expect_host_before(one, "after the uninstall the host is not as before");
  expect_empty_state(one, "after the uninstall");
}

void install_and_take_away(inverse_case &one) {
  const ended_command ended = install(one);
  if (ended.told.status == 1) {
    count_refusal(one, ended.told.error);
    if (is_stopped_by_frozen_files(one, ended)) {
      thaw(one.disk.directory + "/host");
      run(one, "uninstall");
    }
    expect_host_before(one, "the installation failed and left the host otherwise");
    expect_empty_state(one, "after the failed installation");
  } else if (ended.told.status == 0) {
    one.count(ended.told.changes.empty() ? "installed, nothing to be changed" : "installed");
    take_away(one);
  } else {
    one.find("install: " + described(ended));
  }
}

void mount_memory(const std::string &point) {
  if (mount("plans", point.c_str(), "tmpfs", 0, "mode=0755") != 0)
    throw std::system_error(errno, std::generic_category(), "set-up: mount " + point);
}

} // namespace

case_result run_inverse_case(unsigned seed, const std::string &directory) {
  const support::private_etc etc;
  umask(022);
  mount_memory("/var/lib");
  fs::create_directory(directory);
  // Every fourth host lies where the directory does, the others lie in memory.
  if (seed % 4 != 0)
    mount_memory(directory);
  inverse_case one;
  one.disk = make_random_disk(seed, directory);
  one.before = look_at(places_of(one.disk));
  install_and_take_away(one);
  if (!one.result.findings.empty())
    one.find(described(one.disk, "installed"));
  for (const std::string &feature : one.disk.features)
    one.count("hosts: " + feature);
  return one.result;
}

} // namespace plans
