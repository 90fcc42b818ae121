#include "plans/random_disk.h"

#include "plans/host_changes.h"
#include "run/random_host.h"

#include <cstdlib>
#include <sys/stat.h>

namespace plans {

namespace fs = std::filesystem;
using whole_runs::dice;

namespace {

// The same path in another form: relative, with components that go.
std::string written_otherwise(dice &d, const std::string &path, const std::string &directory) {
  std::string text = path;
  if (d.chance(40) && path.starts_with(directory + "/"))
    text = (d.chance(30) ? "./" : "") + path.substr(directory.size() + 1);
  if (d.chance(30))
    text.insert(text.rfind('/') == std::string::npos ? 0 : text.rfind('/'),
                text.starts_with('/') ? "//." : "");
  if (d.chance(30))
    text += d.chance(50) ? "/" : "/.//";
  return text;
}

void choose_arguments(host &made) {
  random_disk &disk = made.disk;
  disk.plan_directory = made.d.chance(50) ? disk.directory + "/host" : disk.directory;
  if (disk.local_layout)
    disk.plan_arguments.emplace_back("--local");
  disk.plan_arguments.push_back(written_otherwise(made.d, disk.product, disk.plan_directory));
  if (!disk.envi.empty())
    disk.plan_arguments.push_back(written_otherwise(made.d, disk.envi, disk.plan_directory));
}

void note_directories(random_disk &disk) {
  for (const std::string &directory :
       {disk.product, disk.local_layout ? disk.product : "/etc/quorin", disk.envi}) {
    std::error_code problem;
    const fs::path real = fs::canonical(directory, problem);
    if (!problem)
      disk.directories.push_back(real.string());
  }
}

} // namespace

std::string elsewhere_of(const random_disk &disk) {
  return disk.directory + "/elsewhere";
}

std::vector<std::string> places_of(const random_disk &disk) {
  return {disk.directory + "/host", disk.directory + "/outside", elsewhere_of(disk), "/etc"};
}

random_disk make_random_disk(unsigned seed, const std::string &directory) {
  host made{dice(~seed), {}, {}, {}, {}, 0};
  random_disk &disk = made.disk;
  disk.directory = directory;
  made.product = disk.product = directory + "/host/korvalen";
  made.envi = disk.envi = directory + "/host/envi54";
  disk.local_layout = made.d.chance(45);
  for (const char *const part : {"host", "outside", "elsewhere", "store", "cwd", "setup"})
    fs::create_directory(directory + "/" + part);
  made.idl = made.envi + "/" + whole_runs::make_random_host(seed, made.product, made.envi).idl;

  for (const auto &changes : {content_changes(), history_changes(), link_changes(), right_changes(),
                              mount_changes(), naming_changes(), last_history_changes()})
    for (const host_change &change : changes)
      if (made.d.chance(change.percent)) {
        change.make(made);
        disk.features.insert(change.name);
      }
  choose_arguments(made);
  note_directories(disk);
  return disk;
}

std::string described(const random_disk &disk, const char *what_was_done) {
  std::string text = "of a host with";
  for (const std::string &feature : disk.features)
    text += "\n  " + feature;
  text += "\n" + std::string(what_was_done) + " with";
  for (const std::string &argument : disk.plan_arguments)
    text += " " + argument;
  return text;
}

} // namespace plans
