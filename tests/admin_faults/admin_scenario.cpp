#include "admin_faults/admin_scenario.h"

#include "faults/own_mounts.h"

#include <cstddef>
#include <stdexcept>

namespace faults {

namespace {

void expect(bool holds, const admin_scenario &what, const std::string &sentence) {
  if (!holds)
    throw std::runtime_error(std::string("set-up: ") + what.name + ": " + sentence);
}

void carry_out(const admin_scenario &what, const char *command) {
  const program tool = administration(command);
  const family_outcome outcome = run_family(tool, {});
  expect(outcome.status == 0, what, std::string(command) + " fails: " + printed_by(tool));
}

std::vector<family_call> calls_of(const char *command) {
  std::vector<family_call> calls;
  run_family(administration(command), {}, [&](const family_call &call) { calls.push_back(call); });
  return calls;
}

// The last call of that name with such a path, counted from 1; 0 if there is none.
long find_call(const std::vector<family_call> &calls, const std::string &name, const std::string &path) {
  for (std::size_t i = calls.size(); i > 0; --i)
    if (calls[i - 1].asked.name == name && calls[i - 1].asked.path.ends_with(path))
      return static_cast<long>(i);
  return 0;
}

// Leaves what the killed command leaves.
void kill_in_the_middle(const admin_scenario &what, const killed_command &killed) {
  const host_tree start = look_at_host(own_root);
  const std::vector<family_call> calls = calls_of(killed.command);
  const long first = find_call(calls, "renameat", "run.json");
  const long last = static_cast<long>(calls.size());
  set_host(own_root, start);
  const family_outcome outcome = run_family(administration(killed.command),
                                            {first + (last - first) * killed.percent / 100, blow::kills_all});
  expect(outcome.signal == SIGKILL, what, std::string(killed.command) + " is not killed");
}

// A rehearsal lasts from the making of its mount namespace to the first file that is kept, or to its end.
std::vector<bool> find_rehearsals(const std::vector<family_call> &calls) {
  std::vector<bool> found;
  bool rehearses = false;
  for (const family_call &call : calls) {
    if (!call.is_childs && call.asked.name == "unshare")
      rehearses = true;
    if (!call.is_childs && (call.asked.name == "setns" || call.asked.path.find("/kept") != std::string::npos))
      rehearses = false;
    found.push_back(rehearses);
  }
  return found;
}

} // namespace

admin_ground prepare_ground(const admin_scenario &what) {
  admin_ground ground;
  set_host(own_root, fresh_host());
  ground.before = look_at_host(own_root);
  for (const char *const command : what.done)
    carry_out(what, command);
  host_tree changed = look_at_host(own_root);
  if (what.change != nullptr) {
    what.change(ground.before);
    what.change(changed);
    set_host(own_root, changed);
  }
  ground.settled = look_at_host(own_root);
  for (const killed_command &killed : what.killed)
    kill_in_the_middle(what, killed);
  ground.start = look_at_host(own_root);

  set_host(own_root, ground.start); // with times as they will be for every disturbed run
  ground.calls = calls_of(what.command);
  ground.touches_nothing = find_rehearsals(ground.calls);
  ground.journal = find_call(ground.calls, "renameat", "run.json");
  ground.commit = find_call(ground.calls, "renameat", "receipt.json");

  set_host(own_root, changed);
  carry_out(what, install_command);
  ground.installed = look_at_host(own_root);
  carry_out(what, verify_command);
  return ground;
}

} // namespace faults
