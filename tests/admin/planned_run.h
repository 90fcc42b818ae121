// Plans of the real program, held against what an installation then does.
#pragma once

#include "admin/confinement.h"
#include "admin/disk_state.h"
#include "admin/parsed_json.h"
#include "installer/installation.h"
#include "korvalen/files/file_copy.h"
#include "run/whole_run.h"
#include "support/programs.h"
#include "support/surroundings.h"

#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

namespace admin_tests {

using admin_json::json;
using admin_json::parsed_json;

inline void must(long result, const std::string &what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), "test set-up (as root): " + what);
}

// What happened to the entries below some directories, one line a path, in the words of a plan.
struct found_entry {
  struct stat status;
  std::string bytes;
};
using found_entries = std::map<std::string, found_entry>;

inline found_entries entries_below(const std::set<std::string> &directories) {
  found_entries found;
  const auto add = [&found](const fs::path &path) {
    found_entry one{};
    must(lstat(path.c_str(), &one.status), "cannot look up " + path.string());
    one.bytes = bytes_of(path, one.status);
    found[path.string()] = one;
  };
  for (const std::string &directory : directories) {
    if (!fs::exists(directory))
      continue;
    add(directory);
    for (const fs::directory_entry &one : fs::recursive_directory_iterator(directory))
      add(one.path());
  }
  return found;
}

inline std::string told(const std::string &change, const found_entry &shown, const std::string &path) {
  const mode_t mode = shown.status.st_mode;
  char text[80];
  std::snprintf(text, sizeof text, " %s %04o %u:%u ",
                S_ISDIR(mode)   ? "directory"
                : S_ISLNK(mode) ? "link"
                                : "file",
                mode & 07777, shown.status.st_uid, shown.status.st_gid);
  return change + text + path;
}

inline std::string change_between(const found_entry &before, const found_entry &after) {
  const struct stat &a = before.status;
  const struct stat &b = after.status;
  if ((a.st_mode & S_IFMT) != (b.st_mode & S_IFMT))
    return "type";
  if (before.bytes != after.bytes)
    return "content";
  if (a.st_mode != b.st_mode)
    return "mode";
  return a.st_uid != b.st_uid || a.st_gid != b.st_gid ? "owner" : "";
}

inline std::vector<std::string> changes_between(const found_entries &before, const found_entries &after) {
  std::map<std::string, std::string> changes;
  for (const auto &[path, entry] : before)
    if (const auto now = after.find(path); now == after.end())
      changes[path] = told("removed", entry, path);
    else if (const std::string change = change_between(entry, now->second); !change.empty())
      changes[path] = told(change, now->second, path);
  for (const auto &[path, entry] : after)
    if (!before.contains(path))
      changes[path] = told("new", entry, path);
  std::vector<std::string> lines;
  for (const auto &[path, line] : changes)
    lines.push_back(line);
  return lines;
}

// The product and ENVI lie in host; both mounts and links that a test makes end with it.
class planned_run : public whole_runs::whole_run {
protected:
  ~planned_run() override {
    for (auto point = mounts_.rbegin(); point != mounts_.rend(); ++point)
      umount2(point->c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
  }

  void mount_at(const std::string &point, const char *source, const char *type, unsigned long flags,
                const char *options = nullptr) {
    must(mount(source, point.c_str(), type, flags, options), "cannot mount " + point);
    mounts_.push_back(point);
  }
  void mount_memory(const std::string &point, const char *options = "mode=0755") {
    fs::create_directories(point);
    mount_at(point, "memory", "tmpfs", 0, options);
  }
  void bind(const std::string &from, const std::string &to) { mount_at(to, from.c_str(), nullptr, MS_BIND); }
  void make_read_only(const std::string &point) const {
    must(mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), "cannot remount");
  }

  // The product and the ENVI of every test: a file for three of the directories, and one stale file.
  void make_host() {
    make_envi();
    for (const char *directory : {"save", "extensions", "custom_code", "idl86/help"})
      fs::create_directories(envi() + "/" + directory);
    ship_three();
    support::write_file(envi() + "/extensions/korvalen_menu.sav", "stale");
  }
  void ship_three() const {
    ship("envi/save/k.sav");
    ship("envi/extensions/menu.sav");
    ship("idl/help/page.html");
  }

  // What everything runs under: the disk's own root directory unless a test sets another.
  std::string root() const { return root_; }
  void set_root(const std::string &directory) { root_ = directory; }
  std::string envi_dir = envi();

  support::outcome plan(std::vector<std::string> options = {}) const {
    std::vector<std::string> arguments = {support::admin_path, "plan"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {product(), envi_dir});
    if (!root_.empty())
      arguments.insert(arguments.begin(), {"chroot", root_});
    return support::run(arguments);
  }

  // The installation itself, on the disk.
  support::outcome install_for_real() const {
    return support::call([this] {
      const std::optional<support::other_root> other =
          root_.empty() ? std::nullopt : std::optional<support::other_root>(std::in_place, root_);
      korvalen::admin::set_surroundings();
      fs::create_directories(path("cwd"));
      fs::current_path(path("cwd"));
      korvalen::set_install_waits(false);
      std::string product_dir = product();
      const std::string target = envi_dir;
      return korvalen::install({product_dir.data(), target.c_str(), false});
    });
  }

  std::set<std::string> watched() const { return {root_ + host(), root_ + "/etc/quorin"}; }

  // Plans, then installs; returns what happened on the disk, without the root directory.
  std::vector<std::string> expect_true_plan() {
    const disk_state untouched = state_of_all({root_ + host(), root_ + "/etc"});
    const std::string mounts = support::read_file("/proc/self/mountinfo");
    const support::outcome planned = plan({"--json"});
    EXPECT_EQ(differences(untouched, state_of_all({root_ + host(), root_ + "/etc"})), "");
    EXPECT_EQ(support::read_file("/proc/self/mountinfo"), mounts) << "the plan's mounts are seen outside";
    EXPECT_EQ(planned.err, "");

    const found_entries before = entries_below(watched());
    const support::outcome installed = install_for_real();
    std::vector<std::string> happened = changes_between(before, entries_below(watched()));
    for (std::string &line : happened)
      line = whole_runs::replaced(line, " " + root_ + "/", " /");
    told_ = parsed_json(planned.out);
    expect_same(told_, planned.status, installed, happened);
    for (std::string &line : happened)
      line = whole_runs::replaced(whole_runs::replaced(line, envi(), "ENVI"), product(), "PRODUCT");
    return happened;
  }

  // What the plan before the installation told.
  const json &last_plan() const { return told_; }

  static void expect_same(const json &planned, int status, const support::outcome &installed,
                          const std::vector<std::string> &happened) {
    ASSERT_TRUE(planned.is_object() && planned.contains("installer")) << planned.dump(1);
    std::vector<std::string> promised;
    for (const json &one : planned["changes"])
      promised.push_back(one["change"].get<std::string>() + " " + one["type"].get<std::string>() + " " +
                         one["mode"].get<std::string>() + " " + one["owner"].get<std::string>() + " " +
                         one["path"].get<std::string>());
    EXPECT_EQ(promised, happened) << "the plan's changes, and those of the installation";
    EXPECT_EQ(planned["installer"]["status"], installed.status);
    EXPECT_EQ(planned["installer"]["output"], installed.out);
    EXPECT_EQ(planned["installer"]["errors"], installed.err);
    EXPECT_EQ(status, installed.status != 0 ? 1 : happened.empty() ? 0 : 2) << planned.value("error", "");
  }

  // The same with something in the way that the process brings upon itself before it becomes the program.
  support::outcome plan_under(const std::function<void()> &hindrance,
                              const char *option = "--color=never") const {
    return support::call([&] {
      hindrance();
      execl(support::admin_path, support::admin_path, "plan", option, product().c_str(), envi_dir.c_str(),
            nullptr);
      return 127;
    });
  }

  // The line with which a plan is refused, the host's directory written as "~"; the disk stays as it is.
  std::string refusal() const {
    return refusal_of([this](const char *option) { return plan({option}); });
  }
  std::string refusal_under(const std::function<void()> &hindrance) const {
    return refusal_of([&](const char *option) { return plan_under(hindrance, option); });
  }

  std::string refusal_of(const std::function<support::outcome(const char *)> &planned) const {
    const disk_state before = state_of_all({root_ + host(), root_ + "/etc"});
    const support::outcome in_words = planned("--color=never");
    const support::outcome in_json = planned("--json");
    EXPECT_EQ(differences(before, state_of_all({root_ + host(), root_ + "/etc"})), "");
    if (in_words.status != 1)
      return "not refused: " + in_words.err;
    EXPECT_EQ(in_words.out, "");
    EXPECT_EQ(in_json.err, "");
    EXPECT_EQ(in_json.status, 1);
    const json object = parsed_json(in_json.out);
    EXPECT_TRUE(object.is_object() && object["changes"].empty()) << in_json.out;
    const std::string error = without_random_names(object.is_object() ? object.value("error", "") : "");
    EXPECT_EQ(without_random_names(in_words.err), "korvalen_admin: " + error + "\n");
    return whole_runs::replaced(error, host(), "~");
  }

  static std::string without_random_names(std::string text) {
    const std::string name = "korvalen_plan.";
    if (const std::size_t at = text.find(name); at != std::string::npos)
      text.replace(at + name.size(), 6, "*");
    return text;
  }

private:
  std::vector<std::string> mounts_;
  std::string root_;
  json told_;
};

} // namespace admin_tests
