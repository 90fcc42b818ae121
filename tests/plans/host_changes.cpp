#include "plans/host_changes.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace plans {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> sorted_below(const std::string &directory,
                                      bool (*wanted)(const fs::directory_entry &)) {
  std::vector<std::string> paths;
  for (const fs::directory_entry &found : fs::recursive_directory_iterator(directory))
    if (wanted(found))
      paths.push_back(found.path().string());
  std::sort(paths.begin(), paths.end());
  return paths;
}

} // namespace

void must(long result, const std::string &what) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), "set-up: " + what);
}

void must_run(const std::vector<std::string> &command) {
  const support::outcome ended = support::run(command);
  if (ended.status != 0)
    throw std::runtime_error("set-up: " + command.front() + ": " + ended.err);
}

std::vector<std::string> files_below(const std::string &directory) {
  return sorted_below(directory, [](const fs::directory_entry &found) {
    return !found.is_symlink() && found.is_regular_file();
  });
}

std::vector<std::string> directories_below(const std::string &directory) {
  return sorted_below(directory, [](const fs::directory_entry &found) {
    return !found.is_symlink() && found.is_directory();
  });
}

std::string any_of(host &made, const std::vector<std::string> &paths) {
  return paths.empty() ? "" : made.d.one_of(paths);
}

std::vector<std::string> launch_scripts_of(const host &made) {
  return {made.envi + "/bin/envi", made.envi + "/bin/envi_rt", made.envi + "/bin/envitaskengine",
          made.idl + "/bin/idl", made.idl + "/bin/idlde"};
}

std::string any_script(host &made) {
  std::vector<std::string> scripts = launch_scripts_of(made);
  std::erase_if(scripts, [](const std::string &script) { return !fs::exists(script); });
  return any_of(made, scripts);
}

std::vector<std::string> targets_of(const host &made) {
  std::vector<std::string> targets;
  for (const whole_runs::deployed_directory &step : whole_runs::deployed_directories)
    targets.push_back(step.target.starts_with("IDL/") ? made.idl + step.target.substr(3)
                                                      : made.envi + "/" + step.target);
  return targets;
}

std::string a_source(host &made) {
  const std::string source = made.product + "/auxiliary/envi_extensions_54/" +
                             made.d.one_of(whole_runs::deployed_directories).source;
  fs::create_directories(source);
  return source;
}

std::string init_dir_of(const host &made) {
  return made.disk.local_layout ? made.product : "/etc/quorin";
}

std::string new_name(host &made, const std::string &stem) {
  return stem + std::to_string(++made.numbered);
}

void put_link(host &made, const std::string &target, const std::string &link) {
  const bool is_absolute = made.d.chance(50);
  fs::create_symlink(is_absolute ? fs::path(target)
                                 : fs::path(target).lexically_relative(fs::path(link).parent_path()),
                     link);
}

void replace_by_link(host &made, const std::string &path) {
  const std::string place = made.disk.directory + "/outside/" + new_name(made, "moved");
  fs::create_directory(place);
  const std::string target = place + "/" + fs::path(path).filename().string();
  must_run({"mv", path, target});
  if (made.d.chance(20)) {
    put_link(made, target, place + "/step");
    put_link(made, place + "/step", path);
  } else {
    put_link(made, target, path);
  }
}

bool stands(const std::string &path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

} // namespace plans
