#include "admin/verify.h"

#include "admin/merging.h"
#include "admin/plan.h"
#include "admin/restoring.h"
#include "admin/store.h"

#include <cerrno>

namespace korvalen::admin {

namespace {

// Empty where it can be read.
std::string compare(const recorded_path &one, std::vector<change> &differences) {
  try {
    const state present = present_state(one.path).value_or(state{});
    if (!is_same(present, one.after))
      differences.push_back({one.path, one.after, present});
    return "";
  } catch (const failure &problem) {
    return one.path + " cannot be read: " + problem.what();
  }
}

const char *finding_of(const installation &known, int status) {
  if (status == 0)
    return "Everything is as it should be";
  if (known.is_leaving)
    return "An uninstall left this, as it was changed since the installation";
  return "The installation was changed since";
}

void refuse_unfinished(const store &kept) {
  if (!kept.read_journal())
    return;
  if (const auto worker = kept.who_works())
    throw failure(*worker + " is at work with " + store_directory + "; try again when it has ended");
  // It may have ended meanwhile.
  if (kept.read_journal())
    throw failure(
        "interrupted: an installation was not finished; give the command install or uninstall, which takes "
        "it back first");
}

} // namespace

void verify(const command &given, report &told) {
  const store kept(access::look);
  refuse_unfinished(kept);
  const receipt record = kept.read_receipt();
  const installation *const known = find_installation(record, installation_of(given.host));
  if (known == nullptr)
    throw failure("no such installation is on record; korvalen_admin install makes one");

  std::string unreadable;
  for (const recorded_path &one : record.paths) {
    if (!one.used_by.contains(known->id))
      continue;
    const std::string problem = compare(one, told.changes);
    if (unreadable.empty())
      unreadable = problem;
  }
  told.changes_are = tense::are;
  told.status = changes_something(told.changes) || known->is_leaving ? 2 : 0;
  if (!unreadable.empty())
    throw failure(unreadable);
  told.notes.emplace_back(finding_of(*known, told.status));
}

} // namespace korvalen::admin
