// Whole runs of korvalen_admin, each with an /etc and a /var/lib of its own.
#pragma once

#include "admin/exact_tree.h"
#include "admin/parsed_json.h"
#include "run/whole_run.h"
#include "support/programs.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace admin_runs {

using admin_json::json;
using admin_json::parsed_json;
using whole_runs::replaced;

inline const std::string state_dir = "/var/lib/korvalen";
inline const std::string receipt_file = state_dir + "/receipt.json";
inline const std::string run_file = state_dir + "/run.json";

inline void must(long result, const std::string &what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), "test set-up (as root): " + what);
}

// Waits until it is so, for half a minute at most; false when it did not become so.
inline bool comes_true(const std::function<bool()> &so) {
  for (int tries = 0; tries < 30'000; ++tries) {
    if (so())
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

inline bool appears(const std::string &path) {
  return comes_true([&] { return access(path.c_str(), F_OK) == 0; });
}

// A program that runs beside the test. It is killed with this object, if it has not ended.
class running_program {
public:
  running_program(const std::vector<std::string> &arguments, const std::string &output)
      : output_(output), out_(creat((output + ".out").c_str(), 0644)),
        err_(creat((output + ".err").c_str(), 0644)), process_(fork()) {
    must(process_, "fork");
    setpgid(process_, process_);
    if (process_ == 0)
      become(arguments);
  }
  ~running_program() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      finish();
    }
    close(out_);
    close(err_);
  }
  running_program(const running_program &) = delete;
  running_program &operator=(const running_program &) = delete;

  pid_t process() const { return process_; }
  void kill(int signal) const { must(::kill(process_, signal), "kill"); }
  // With all that it started and that stayed in its group, as a terminal does it.
  void kill_group(int signal) const { must(::kill(-process_, signal), "kill"); }

  support::outcome finish() {
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    support::outcome result{support::read_file(output_ + ".out"), support::read_file(output_ + ".err")};
    (WIFEXITED(status) ? result.status : result.signal) =
        WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    return result;
  }

private:
  [[noreturn]] void become(const std::vector<std::string> &arguments) const {
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
      argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(out_, STDOUT_FILENO);
    dup2(err_, STDERR_FILENO);
    alarm(110);
    execv(argv[0], argv.data());
    _exit(127);
  }

  std::string output_;
  int out_;
  int err_;
  pid_t process_;
};

// The product and ENVI lie in host. Nothing of the machine is written to but the test's scratch directory.
class admin_run : public whole_runs::whole_run {
protected:
  admin_run() { mount_memory("/var/lib"); }
  ~admin_run() override {
    for (auto point = mounts_.rbegin(); point != mounts_.rend(); ++point)
      umount2(point->c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
  }

  void mount_memory(const std::string &point, const std::string &options = "mode=0755") {
    fs::create_directories(point);
    must(mount("memory", point.c_str(), "tmpfs", 0, options.c_str()), "cannot mount over " + point);
    mounts_.push_back(point);
  }

  static support::outcome admin(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), support::admin_path);
    return support::run(arguments, 110);
  }
  // With this product and this ENVI.
  support::outcome command(const std::string &name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), name);
    options.insert(options.end(), {product(), envi()});
    return admin(options);
  }
  json told(const std::string &name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), "--json");
    return parsed_json(command(name, options).out);
  }
  std::unique_ptr<running_program> start(const std::string &name, const std::string &output = "run") const {
    return std::make_unique<running_program>(
        std::vector<std::string>{support::admin_path, name, product(), envi()}, path(output));
  }

  // Ends the test where the command did not end so: what follows would make no sense.
  static void expect_status(const support::outcome &ended, int status) {
    if (ended.status != status)
      throw std::runtime_error("korvalen_admin ended with " + testing::PrintToString(ended));
  }

  // Everything that a run may touch, the directories above it included.
  exact_tree everything(file_times times = file_times::compared) const {
    return exact({host(), "/etc"}, times);
  }

  // A product and an ENVI with a file of every step's kind: one that is new, one that is replaced, one that
  // is stale, and the launch scripts.
  void make_host() const {
    make_envi();
    for (const char *directory : {"save", "extensions", "custom_code", "idl86/help"})
      fs::create_directories(envi() + "/" + directory);
    support::write_file(envi() + "/save/k.sav", "the host's own", 0640);
    support::write_file(envi() + "/extensions/korvalen_menu.sav", "stale");
    ship("envi/save/k.sav");
    ship("envi/save/quorin_core_tasks.sav");
    ship("envi/extensions/menu.sav");
    ship("envi/resource/langcat/words.cat");
    ship("idl/help/page.html");
  }

  std::string in_envi(const std::string &name) const { return envi() + "/" + name; }
  std::string short_text(std::string text) const {
    return replaced(replaced(std::move(text), envi(), "ENVI"), product(), "PRODUCT");
  }

private:
  std::vector<std::string> mounts_;
};

} // namespace admin_runs
