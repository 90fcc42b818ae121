// The system calls by which a program changes files, told by what they change.
#pragma once

#include "faults/tracee.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace faults {

enum class effect {
  opens,       // and may make or empty a file
  writes,      // through a descriptor
  truncates,   // by a path
  makes,       // a name for something new
  names,       // and removes names of what stood before
  flushes,     // one file or directory
  flushes_all, // of a file system, or of all where it has no descriptor
  harmless,    // nothing that a power cut could lose
  waits,
};

// What the system knows a file by. A removed file's number may be used again.
struct file_key {
  dev_t device = 0;
  ino_t number = 0;
  auto operator<=>(const file_key &) const = default;
};

struct seen_file {
  bool is_there = false;
  file_key key;
  mode_t mode = 0;
};

// What stands at a path, and what a link there leads to.
seen_file look_at(const std::filesystem::path &path);
seen_file look_behind(const std::filesystem::path &path);

// A path that a call names, as this process can look at it while the program is stopped.
struct named_path {
  std::filesystem::path path;
  seen_file directory; // that the name stands in
  seen_file before;    // what the path led to before the call
};

// A call that a program is about to make.
struct started_call {
  effect does;
  std::string text;                 // for people: its name and its paths
  std::filesystem::path descriptor; // of what it is about; empty for a call that has none
  seen_file subject;                // what that is open on
  std::vector<named_path> paths;
  std::uint64_t open_flags = 0;
};

// A seccomp filter that stops at these calls, of whatever program.
std::vector<sock_filter> changing_call_filter();

// The call that a program which the filter stopped is about to make.
started_call start_of_call(pid_t program);

// The path by which this process reaches what a descriptor of the program is open on.
std::filesystem::path descriptor_path(pid_t program, std::uint64_t descriptor);

} // namespace faults
