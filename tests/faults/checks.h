// What must hold wherever a run is disturbed.
#pragma once

#include "faults/scenario.h"

#include <span>
#include <string>
#include <vector>

namespace faults {

enum class rule {
  ends_by_itself, // no crash: the only signal that ends the tool is the one that was sent to kill it
  ends_in_time,   // no hang
  known_status,   // 0, 1 or 255; the run after it 0
  originals_kept, // each launch script's original text stands as the script itself or as its backup
  records_kept,   // what is placed and not on the kept-file list stands in the uninstall script
  converges,      // after one more run everything is as after one undisturbed run
};

// One place where a rule does not hold.
struct breach {
  rule broken;
  std::string path;
  std::string what;
  const support::entry *expected = nullptr; // of a path that does not converge; null is absent
  const support::entry *actual = nullptr;
  bool written = false; // of an unrecorded file: by the disturbed run, not by an earlier one
};

// The disturbed call.
struct disturbed_call {
  const scenario &during;
  const undisturbed &ground;
  const disturbance &how;
  bool kills() const { return how.error == 0; }
  const file_call &call() const { return ground.calls[static_cast<std::size_t>(how.at_call - 1)]; }
};

// A breach that the documented behaviour makes unavoidable, as narrow as it can be told from others.
struct documented_exception {
  const char *reason;
  rule broken;
  bool (*covers)(const breach &found, const disturbed_call &at);
};

std::span<const documented_exception> documented_exceptions();

// The exception that covers a breach, or null.
const documented_exception *exception_for(const breach &found, const disturbed_call &at);

// Judges how a run ended: the disturbed one, or the one after it.
std::vector<breach> check_disturbed_end(const traced_outcome &outcome, bool was_killed);
std::vector<breach> check_second_end(const traced_outcome &outcome);

// Judge the trees that a run left behind. What they return points into the trees.
std::vector<breach> check_originals(const support::tree &left, const undisturbed &ground);
std::vector<breach> check_records(const support::tree &left, const std::set<std::string> &written,
                                  const scenario &what, const undisturbed &ground);
std::vector<breach> check_convergence(const support::tree &left, const undisturbed &ground);

// Whether a file is neither as it was before the run nor as an undisturbed one leaves it. The documented
// behaviour has this until the next run.
bool is_incomplete(const support::tree &left, const undisturbed &ground, const std::string &path);

// Tells trees apart by what makes them differ from one of them.
std::string difference_key(const support::tree &left, const support::tree &wanted);

} // namespace faults
