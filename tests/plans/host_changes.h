// What befalls hosts, one change at a time.
#pragma once

#include "plans/random_disk.h"
#include "run/random_host.h"

#include <span>
#include <string>
#include <vector>

namespace plans {

// A host that is being made.
struct host {
  whole_runs::dice d;
  random_disk disk;
  std::string product; // the directories themselves, also where the installer is given a link to them
  std::string envi;
  std::string idl;
  int numbered = 0; // how many names were made up
};

struct host_change {
  const char *name;
  std::size_t percent; // of the hosts that have it
  void (*make)(host &made);
};

// To be made in this order, from the first of the first list to the last of the last. A change that finds
// nothing to be made of does nothing.
std::span<const host_change> content_changes();
std::span<const host_change> history_changes(); // earlier installations, and upgrades of ENVI after them
std::span<const host_change> link_changes();
std::span<const host_change> right_changes();
std::span<const host_change> mount_changes();
std::span<const host_change> naming_changes(); // of the arguments
std::span<const host_change> last_history_changes();

// What the changes are made with.

void must(long result, const std::string &what); // throws: the set-up broke
void must_run(const std::vector<std::string> &command);

// Real paths, sorted, that are no links.
std::vector<std::string> files_below(const std::string &directory);
std::vector<std::string> directories_below(const std::string &directory);

// One of them at random; empty where there is none.
std::string any_of(host &made, const std::vector<std::string> &paths);

// The launch scripts' paths, whether or not they exist.
std::vector<std::string> launch_scripts_of(const host &made);

// A launch script that exists, or "".
std::string any_script(host &made);

// The directories into which files are deployed, whether or not they exist.
std::vector<std::string> targets_of(const host &made);

std::string a_source(host &made); // a directory from which files are deployed, made if it is missing
std::string init_dir_of(const host &made);
std::string new_name(host &made, const std::string &stem);

// An absolute or a relative link.
void put_link(host &made, const std::string &target, const std::string &link);

// Moves what stands at the path out of the host and leaves a link to it.
void replace_by_link(host &made, const std::string &path);

bool stands(const std::string &path); // a dangling link stands too

} // namespace plans
