// What a file system may hold after the power was cut, told from the calls that a program made before.
//
// The model assumes nothing that the calls do not promise:
// - A file that was written, emptied or cut since its last flush may hold any bytes at all.
// - What stands under a name may be anything that stood there since its directory's last flush: the newest,
// the
//   durable one, one in between, or nothing where there once was nothing. Each name goes its own way. So a
//   rename is two changes of names, and a cut may show one without the other.
// - A flush of a file makes its bytes durable and none of its names. A flush of a directory makes all of its
// names
//   durable, and neither its own name in its parent nor the bytes and names behind its names.
// Modes, owners, times and extended attributes are not modelled.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace faults {

// A file, a directory or a link, whatever its names. A number is never used again for another one.
using inode = long;
inline constexpr inode nothing = 0;
inline constexpr inode root_directory = 1;

// The bytes that the file holds from now on.
struct bytes_changed {
  inode file;
  std::string bytes;
};

// What stands under a name from now on.
struct name_changed {
  inode directory;
  std::string name;
  inode stands;
};

// A flush of a file or a directory. One of a whole file system is one for each inode in it.
struct flushed {
  inode what;
};

using change = std::variant<bytes_changed, name_changed, flushed>;

// A call that succeeded, and what it changed, if anything.
struct recorded_call {
  std::string text; // for people
  std::vector<change> changes;
};

struct file_state {
  std::string bytes; // as the program sees them
  bool durable;      // else a cut may leave any others
};

struct directory_entry {
  inode directory;
  std::string name;
  auto operator<=>(const directory_entry &) const = default;
};

// A file system in use. An inode that is not among the files is a directory or a link; a name that is not
// among the names has never stood for anything.
struct disk {
  std::map<inode, file_state> files;
  std::map<directory_entry, std::vector<inode>> names; // all that a cut may show there; the last one stands
};

void apply(disk &all, const change &made);

// Every file that the program sees and its bytes, by its path below the root directory.
std::map<std::string, std::string> files_on(const disk &all);

// What a cut must leave. Paths are relative to the root directory, without links and dots.
struct demand {
  enum class rule {
    any_holds,        // at least one of the paths holds the bytes
    first_there_holds // the first of the paths that stands holds them, and one does stand
  };
  std::string bytes;
  std::vector<std::string> paths;
  rule how = rule::any_holds;
};

// How a cut now may break the demand: what it may show under each of the paths looked at. None when every
// state that it may leave meets the demand.
std::optional<std::string> find_loss(const disk &all, const demand &wanted);

struct loss {
  std::size_t calls_made; // before the power is cut
  std::size_t broken;     // the index of the demand
  std::string text;       // for people: after which call, and what is left
};

// Cuts the power before the first of the calls and after each one.
std::vector<loss> cut_at_every_call(disk start, const std::vector<recorded_call> &calls,
                                    const std::vector<demand> &wanted);

} // namespace faults
