// The state directory: what is on record of the installations, and what is needed to undo them.
#pragma once

#include "admin/records.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace korvalen::admin {

inline constexpr const char *store_directory = "/var/lib/korvalen";

enum class access { look, share, change };

class store {
public:
  // Opens the state directory. Throws a failure where it is a link, another's, or can be written by others.
  // To change, it is made if it is missing, with its parts, and locked for this process alone; to share, it
  // is locked against those who change. Whoever has to wait waits for a minute, and then is told who works.
  // Without one, to look or to share, everything is as on a host that never had an installation.
  explicit store(access wanted);

  [[nodiscard]] receipt read_receipt() const;
  // Nothing where no run was interrupted.
  [[nodiscard]] std::optional<journal> read_journal() const;

  // Who changes something now, if anybody does; asked of one that is opened to look.
  [[nodiscard]] std::optional<std::string> who_works() const;

  // Written beside, flushed, renamed, the directory flushed: what stands there is whole at every moment.
  void write(const receipt &record) const;
  void write(const journal &record) const;
  // And what was written beside and never renamed.
  void remove_journal() const;

  // The path of kept bytes, and a free one for what a run puts aside of a path.
  static std::string kept_path(std::uint64_t number);
  static std::string aside_path(std::uint64_t run, const std::string &path);
  // An empty directory for a run to work in, made anew.
  static std::string make_run_directory();
  static void remove_run_directory();

  // The first number above all those in use.
  static std::uint64_t next_kept();
  // Removes kept bytes that are not among those needed.
  static void remove_kept_but(const std::set<std::uint64_t> &needed);
  // Whoever asked to keep something asks this last: what was kept is on disk then.
  static void flush_kept();
  // The same for what was put aside.
  static void flush_aside();

  // The open directory, which holds the lock.
  [[nodiscard]] const descriptor &directory() const { return directory_; }

private:
  [[nodiscard]] std::optional<std::string> read(const char *name) const;
  void write(const char *name, const std::string &text) const;
  void write_beside(const std::string &beside, const std::string &text) const;
  void flush() const;

  descriptor directory_;
};

// The numbers of kept bytes that a receipt needs.
std::set<std::uint64_t> kept_by(const receipt &record);

} // namespace korvalen::admin
