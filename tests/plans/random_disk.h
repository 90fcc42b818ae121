// Random hosts as they stand in the field: a product, an ENVI, and all that makes them differ from freshly
// unpacked ones. The same for the same seed.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace plans {

struct random_disk {
  std::string directory; // of everything but /etc, to be removed by whoever asked for it
  std::string product;   // absolute and plain, as are all paths
  std::string envi;      // empty where none is given
  bool local_layout = false;

  // The plan's own arguments mean the same, in this current directory.
  std::string plan_directory;
  std::vector<std::string> plan_arguments;

  std::vector<std::string> directories; // the real ones of ENVI, product and init directory, if they exist
  std::set<std::string> features;       // what was done to the host

  // Where the same directory is mounted twice: the second path of all that lies below the first.
  std::pair<std::string, std::string> second_mount;

  // What may keep a plan from being made.
  bool has_mount_that_cannot_be_covered = false;
  bool has_mount_without_second_names = false;
};

// What the host is like, and the arguments that it was planned or installed with.
std::string described(const random_disk &disk, const char *what_was_done);

// Names below it are not looked for by anybody; links never lead there.
std::string elsewhere_of(const random_disk &disk);

// The directories in which an installation may change something.
std::vector<std::string> places_of(const random_disk &disk);

// The host with this seed, in an empty directory and in /etc. The caller has an /etc and mounts of its own.
// Throws when the set-up breaks.
random_disk make_random_disk(unsigned seed, const std::string &directory);

} // namespace plans
