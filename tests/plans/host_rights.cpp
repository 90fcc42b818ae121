// Owners, modes, access control lists and files that not even root may write.
#include "plans/host_changes.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace plans {

namespace fs = std::filesystem;

namespace {

// Where a run writes, and the places beside it.
std::string a_place(host &made) {
  const std::string places[] = {made.envi, made.envi, made.product, made.disk.directory + "/outside"};
  return places[made.d.below(std::size(places))];
}

std::string a_directory(host &made) {
  switch (made.d.below(6)) {
  case 0:
    return made.envi;
  case 1:
    return made.product;
  case 2:
    return made.disk.directory + "/host";
  case 3:
    if (fs::is_directory("/etc/quorin"))
      return fs::canonical("/etc/quorin").string();
    [[fallthrough]];
  default:
    const std::string found = any_of(made, directories_below(a_place(made)));
    return found.empty() ? made.envi : found;
  }
}

// Half of the time a directory.
std::string a_path(host &made) {
  const std::string file = made.d.chance(50) ? any_of(made, files_below(a_place(made))) : "";
  return file.empty() ? a_directory(made) : file;
}

void give_away(host &made) {
  for (std::size_t i = 5 + made.d.below(40); i > 0; --i) {
    const auto owner = static_cast<uid_t>(made.d.chance(50) ? 0 : 1 + made.d.below(70'000));
    const auto group = static_cast<gid_t>(made.d.below(70'000));
    const std::string path = a_path(made);
    must(lchown(path.c_str(), owner, group), "chown " + path);
  }
}

void set_modes(host &made) {
  static const std::vector<mode_t> of_files = {0444, 0700, 0, 0755, 0600, 04755, 02755, 0777, 01644, 06711};
  static const std::vector<mode_t> of_directories = {0700, 02755, 0, 01777, 02770, 0555, 0750, 0755};
  for (std::size_t i = 5 + made.d.below(40); i > 0; --i) {
    const std::string path = a_path(made);
    must(chmod(path.c_str(), made.d.one_of(fs::is_directory(path) ? of_directories : of_files)),
         "chmod " + path);
  }
}

// What is made in them gets their group.
void set_group_directories(host &made) {
  for (std::size_t i = 2 + made.d.below(6); i > 0; --i) {
    const std::string path = a_directory(made);
    must(lchown(path.c_str(), 0, static_cast<gid_t>(1 + made.d.below(999))), "chown " + path);
    must(chmod(path.c_str(), 02775), "chmod " + path);
  }
}

void set_lists(host &made) {
  static const std::vector<std::string> entries = {"u:1234:rwx", "g:99:r--", "u:77:---,g:88:rwx",
                                                   "o::rwx",     "u::r--",   "g::rwx"};
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i)
    must_run({"setfacl", "-m", made.d.one_of(entries), a_path(made), a_path(made), a_path(made)});
}

void set_default_lists(host &made) {
  static const std::vector<std::string> entries = {"u:1234:rwx", "g:99:rwx,o::---", "u::rw-,g::---,o::r--",
                                                   "u:5:rwx,m::r--", "o::rwx"};
  for (std::size_t i = 1 + made.d.below(3); i > 0; --i)
    must_run({"setfacl", "-d", "-m", made.d.one_of(entries), a_directory(made), a_directory(made),
              fs::canonical(made.envi + "/bin").string()});
}

constexpr host_change changes[] = {
    {"foreign owners", 40, give_away},
    {"odd modes", 45, set_modes},
    {"setgid directories", 20, set_group_directories},
    {"access control lists", 20, set_lists},
    {"default access control lists", 25, set_default_lists},
};

} // namespace

std::span<const host_change> right_changes() {
  return changes;
}

} // namespace plans
