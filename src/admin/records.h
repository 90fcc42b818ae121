// The files of the state directory: JSON with a checksum, from which nothing is believed unseen.
#pragma once

#include "admin/state.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace korvalen::admin {

// Which product is installed into which ENVI, and how.
struct installation {
  std::uint64_t id = 0;
  std::string product_dir;             // as given
  std::optional<std::string> envi_dir; // as given
  std::string real_product_dir;
  std::optional<std::string> real_envi_dir;
  bool local_layout = false;
  std::vector<std::string>
      directories;         // what lies below them belongs to it: the init and the product directory
  bool is_leaving = false; // what an uninstall left, as it was changed since, is all that there is of it
};

struct recorded_path {
  std::string path;
  state before;
  state after;
  std::set<std::uint64_t> used_by;        // installations
  std::optional<std::uint64_t> kept = {}; // the bytes and attributes of `before`; names of one file share one
};

struct receipt {
  std::uint64_t run = 0; // the last run that was committed
  std::vector<installation> installations;
  std::vector<recorded_path> paths; // sorted
};

// A path that a run changes, or may have begun to change.
struct journaled_path {
  std::string path;
  state found;
  state after;
  std::optional<std::uint64_t> kept = {};       // the bytes and attributes of `found`
  std::optional<std::uint64_t> after_kept = {}; // the bytes of `after`
  std::string source = {};                      // or the file of the product that has them
};

// What is needed to take an interrupted run back.
struct journal {
  std::uint64_t run = 0;
  std::vector<journaled_path> paths; // sorted
};

// Whether nothing that belongs to the state differs. Both have their hashes.
bool is_same(const state &a, const state &b);

std::string text_of(const receipt &record);
std::string text_of(const journal &record);

// Throw a failure that names the file for a text that is cut off, has a wrong checksum, is of a later
// version, or holds a path that is not absolute and plain.
receipt receipt_from(const std::string &text, const std::string &name);
journal journal_from(const std::string &text, const std::string &name);

} // namespace korvalen::admin
