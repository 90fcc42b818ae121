#include "faults/scenario.h"

#include "faults/own_mounts.h"
#include "support/programs.h"

#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <system_error>

namespace faults {

namespace fs = std::filesystem;
using support::entry;
using support::tree;

namespace {

const fs::path current_dir = fs::path(own_root) / "cwd";

int opened(int file, const char *what) {
  if (file < 0)
    throw std::system_error(errno, std::generic_category(), std::string("set-up: ") + what);
  return file;
}

// The key of a tree for a path as the tool writes it, with doubled and trailing slashes and "..". What is
// mounted in another place, such as /etc, has the key that it has below the root.
std::string below_root(const std::string &path) {
  std::string key = (current_dir / path).lexically_normal().lexically_relative(own_root).string();
  if (key.ends_with('/'))
    key.pop_back();
  return key.starts_with("../") ? key.substr(3) : key;
}

void add_below(tree &all, const char *directory, const tree &below) {
  all[directory] = {"directory", 0755, ""};
  for (const auto &[path, e] : below)
    all[std::string(directory) + "/" + path] = e;
}

void expect(bool holds, const scenario &what, const char *sentence) {
  if (!holds)
    throw std::runtime_error(std::string("set-up: ") + what.name + ": " + sentence);
}

tree run_once(const program &tool, const scenario &what, const call_observer &observer) {
  const traced_outcome outcome = run_traced(tool, {}, observer);
  expect(outcome.status == 0 && outcome.calls > 0, what, "the undisturbed run fails");
  return support::snapshot(own_root);
}

bool starts_window(const file_call &call, const std::set<std::string> &recorded,
                   const std::vector<copy_to_record> &windows) {
  return call.creates && recorded.contains(call.path) &&
         (windows.empty() || windows.back().path != call.path);
}

std::vector<copy_to_record> find_windows(const std::vector<file_call> &calls, const scenario &what,
                                         const std::set<std::string> &recorded) {
  std::vector<copy_to_record> windows;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const auto number = static_cast<long>(i + 1);
    if (starts_window(calls[i], recorded, windows))
      windows.push_back({calls[i].path, number, 0});
    else if (calls[i].name == "write" && calls[i].path == what.uninstall_script && !windows.empty() &&
             windows.back().recorded == 0)
      windows.back().recorded = number;
  }
  return windows;
}

} // namespace

std::string backup_of(const std::string &launch_script) {
  return launch_script + "_original";
}

const entry *find(const tree &where, const std::string &path) {
  const auto found = where.find(path);
  return found == where.end() ? nullptr : &found->second;
}

std::set<std::string> recorded_files(const tree &where, const char *uninstall_script) {
  std::set<std::string> files;
  const entry *const script = find(where, uninstall_script);
  std::istringstream lines(script == nullptr ? "" : script->content);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("rm /"))
      files.insert(below_root(line.substr(3)));
  return files;
}

tree sample_trees() {
  tree all;
  all["cwd"] = {"directory", 0755, ""};
  all["etc"] = {"directory", 0755, ""};
  all["opt"] = {"directory", 0775, ""}; // another mode than the one that the tool gives
  add_below(all, product_dir, support::snapshot(fs::path(support::samples_path) / "product"));
  add_below(all, envi_dir, support::snapshot(fs::path(support::samples_path) / "envi54"));
  return all;
}

program installer(const scenario &what) {
  program tool;
  tool.file = opened(open(STATIC_INSTALLER_PATH, O_RDONLY | O_CLOEXEC), STATIC_INSTALLER_PATH);
  tool.arguments = {"korvalen_installer"};
  tool.arguments.insert(tool.arguments.end(), what.arguments.begin(), what.arguments.end());
  tool.directory = current_dir;
  tool.output = opened(memfd_create("output", MFD_CLOEXEC), "output");
  return tool;
}

undisturbed go_undisturbed(const scenario &what, const program &tool, const tree &samples) {
  undisturbed result{samples, samples, {}, {}, {}};
  if (what.repeated) {
    set_tree(samples);
    result.start = run_once(tool, what, {});
  }
  set_tree(result.start);
  result.end = run_once(tool, what, [&](file_call call) {
    call.path = below_root(call.path);
    result.calls.push_back(std::move(call));
  });
  expect(run_once(tool, what, {}) == result.end, what, "a second undisturbed run changes something");
  expect(!what.repeated || result.start == result.end, what, "a repeated run changes something");

  result.windows = find_windows(result.calls, what, recorded_files(result.end, what.uninstall_script));
  expect(!result.windows.empty() && result.windows.back().recorded != 0, what, "nothing is recorded");
  return result;
}

} // namespace faults
