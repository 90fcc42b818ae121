#include "admin_faults/admin_sweep.h"

#include "faults/own_mounts.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace faults {

namespace {

struct way {
  const char *name;
  blow how;
  int number = 0; // of the error, or of the signal
  lasting how_long = lasting::no;
  bool only_in_children = false; // elsewhere it is the same as another way
};

constexpr way ways[] = {
    {"all processes killed", blow::kills_all},
    {"the first process killed", blow::kills_first, 0, lasting::no, true},
    {"the calling child process killed", blow::kills_caller, 0, lasting::no, true},
    {"the process between these two killed", blow::kills_others, 0, lasting::no, true},
    {"SIGHUP to all processes", blow::asks_to_end, SIGHUP},
    {"SIGINT to all processes", blow::asks_to_end, SIGINT},
    {"SIGTERM to all processes", blow::asks_to_end, SIGTERM},
    {"EACCES", blow::fails, EACCES},
    {"ENOSPC", blow::fails, ENOSPC},
    {"EIO", blow::fails, EIO},
    {"EINTR", blow::fails, EINTR},
    {"ENOSPC for all that takes space from there on", blow::fails, ENOSPC, lasting::calls_that_take_space},
    {"EIO for every call from there on", blow::fails, EIO, lasting::all_calls},
};

constexpr const char *crashes = "crashes";
constexpr const char *hangs = "hangs";
constexpr const char *wrong_status = "wrong statuses";
constexpr const char *lost = "files of the host lost or not as before after one uninstall";
constexpr const char *not_converged = "not installed as undisturbed after one install";
constexpr const char *leftovers = "leftovers after the next command";
// No breach of a rule.
constexpr const char *put_aside =
    "what a failed call of the installer made differ from the rehearsal is put aside";
constexpr const char *separated =
    "a second name that half an uninstall made a file of its own is left alone by an install";
constexpr const char *rules[] = {crashes, hangs, wrong_status, lost, not_converged, leftovers};

constexpr const char *call_count = "file calls of the command";
constexpr const char *rehearsal_count = "of them in the rehearsal";
constexpr const char *child_count = "of them of child processes";
constexpr const char *repair_count = "states repaired by install and by uninstall (others were seen before)";
constexpr const char *done_status = "status 0: done";
constexpr const char *nothing_done_status = "status 1: everything as before";
constexpr const char *half_done_status = "status 1: half done, and the next command goes on from there";
constexpr const char *taken_back_status = "status 1: what was killed before is taken back";
constexpr const char *late_status = "status 1: done, but something failed after that";
constexpr const char *killed_end = "killed";

struct finding {
  const char *rule;
  std::string text;
};

using findings = std::vector<finding>;

struct sweeper {
  const admin_scenario &what;
  const admin_ground &ground;
  std::set<std::size_t> repaired; // trees, by their hashes, that the next commands were seen to repair
  tally &result;
};

const family_call &call_at(const admin_ground &ground, long number) {
  return ground.calls[static_cast<std::size_t>(number - 1)];
}

host_tree host_of(const host_tree &all) {
  return part_not_below(all, state_dir);
}

bool is_same_host(const host_tree &a, const host_tree &b) {
  return host_of(a) == host_of(b);
}

std::size_t key_of(const host_tree &tree) {
  std::ostringstream text;
  for (const auto &[path, e] : tree) {
    text << path << '\0' << e.kind << e.mode << ' ' << e.owner << ' ' << e.group << ' ' << e.modified << ' '
         << e.first_name << '\0' << e.content.size() << ' ' << e.content;
    for (const auto &[name, value] : e.attributes)
      text << name << '\0' << value << '\0';
  }
  return std::hash<std::string>()(text.str());
}

std::string receipt_of(const host_tree &tree) {
  const auto found = tree.find(std::string(state_dir) + "/korvalen/receipt.json");
  return found == tree.end() ? "" : found->second.content;
}

bool is_interrupted(const host_tree &tree) {
  return tree.contains(std::string(state_dir) + "/korvalen/run.json");
}

bool has_installation(const host_tree &tree) {
  return receipt_of(tree).find("\"installations\":[{") != std::string::npos;
}

// When a call of the installer fails, what it writes may differ from what it wrote in the rehearsal: nobody
// can know then whose bytes those are, and they are put aside. A kill leaves a beginning of them, which is
// known.
bool is_put_aside_rightly(const sweeper &all, const std::string &path, const family_disturbance &how) {
  const bool may_fail_installer = how.how_long != lasting::no || call_at(all.ground, how.at_call).is_childs;
  return how.how == blow::fails && may_fail_installer && path.find("/aside/") != std::string::npos;
}

// What stands in the state directory and may not when no command is running.
findings leftovers_in(const sweeper &all, const host_tree &tree, const family_disturbance &how) {
  std::set<std::string> expected = {"korvalen", "korvalen/receipt.json", "korvalen/kept", "korvalen/aside"};
  const std::string receipt = receipt_of(tree);
  constexpr std::string_view key = "\"kept\":";
  for (std::size_t at = receipt.find(key); at != std::string::npos; at = receipt.find(key, at + 1))
    expected.insert("korvalen/kept/" + std::to_string(std::stoul(receipt.substr(at + key.size()))));
  findings found;
  for (const auto &[path, entry] : part_below(tree, state_dir))
    if (!expected.contains(path.substr(std::string(state_dir).size() + 1)))
      found.push_back({is_put_aside_rightly(all, path, how) ? put_aside : leftovers, path + " is left over"});
  return found;
}

// An installation over half an uninstall may find that a name of a file came back and the other did not: it
// leaves the first to the host, as a file of its own, until they come back together.
bool is_only_separated(host_tree wanted, host_tree left) {
  if (is_same_host(wanted, left))
    return false;
  for (host_tree *const one : {&wanted, &left}) {
    one->erase(second_name);
    for (auto &[path, entry] : *one)
      entry.first_name.clear();
  }
  return is_same_host(wanted, left);
}

struct next_command {
  const char *command;
  const host_tree &wanted;
  const char *rule; // that another end breaks
};

// Runs the command to its end on what stands there. Returns what stands there then.
host_tree go_on(const sweeper &all, const family_disturbance &how, const next_command &next,
                findings &found) {
  const program tool = administration(next.command);
  const family_outcome outcome = run_family(tool, {});
  const std::string then = std::string("then ") + next.command + ": ";
  if (outcome.status != 0)
    found.push_back({next.rule, then + "status " + std::to_string(outcome.status) + ", " + printed_by(tool)});
  const host_tree left = look_at_host(own_root);
  if (!is_same_host(next.wanted, left))
    found.push_back({next.rule, then + differences(host_of(next.wanted), host_of(left))});
  for (const finding &one : leftovers_in(all, left, how))
    found.push_back({one.rule, then + one.text});
  return left;
}

// One more install, and one uninstall after it.
void repair_by_install(sweeper &all, const family_disturbance &how, findings &found) {
  const host_tree &installed = all.ground.installed;
  const host_tree &before = all.ground.before;
  const host_tree left = go_on(all, how, {install_command, installed, not_converged}, found);
  if (found.size() == 1 && found.back().rule == not_converged && is_only_separated(installed, left))
    found.back().rule = separated;
  if (!all.repaired.insert(key_of(left)).second)
    return;
  go_on(all, how, {verify_command, left, not_converged}, found);
  go_on(all, how, {uninstall_command, before, lost}, found);
}

// That, and one uninstall alone.
findings repair(sweeper &all, const family_disturbance &how, const host_tree &left) {
  findings found;
  repair_by_install(all, how, found);
  set_host(own_root, left);
  go_on(all, how, {uninstall_command, all.ground.before, lost}, found);
  return found;
}

bool is_wanted_end(const sweeper &all, const host_tree &left) {
  const bool installs = all.what.command == std::string(install_command);
  return is_same_host(installs ? all.ground.installed : all.ground.before, left) &&
         has_installation(left) == installs;
}

// Without what was made beside a path and never renamed to it.
host_tree without_beginnings(host_tree tree) {
  std::erase_if(tree, [](const auto &one) { return one.first.find("/.korvalen-") != std::string::npos; });
  return tree;
}

// How the command ended, or nothing if its status is not the truth.
const char *name_of_end(const sweeper &all, const family_disturbance &how, int status,
                        const host_tree &left) {
  const bool done = is_wanted_end(all, left);
  if (status == 0)
    return done && !is_interrupted(left) ? done_status : nullptr;
  if (status != 1)
    return nullptr;
  if (is_same_host(without_beginnings(all.ground.start), without_beginnings(left)) &&
      has_installation(all.ground.start) == has_installation(left))
    return nothing_done_status;
  if (done && all.ground.commit > 0 && how.at_call >= all.ground.commit)
    return late_status;
  const bool installs = all.what.command == std::string(install_command);
  if (is_same_host(all.ground.settled, left))
    return taken_back_status;
  return is_interrupted(left) || (!installs && has_installation(left)) ? half_done_status : nullptr;
}

// The signal that may end the command; 0 is none.
int signal_of(const family_disturbance &how) {
  if (how.how == blow::fails)
    return 0;
  return how.how == blow::asks_to_end ? how.number : SIGKILL;
}

// From the journal to the receipt, an installation lets nobody end it but by force.
bool is_held(const sweeper &all, const family_disturbance &how) {
  return how.how == blow::asks_to_end && how.at_call > all.ground.journal &&
         how.at_call <= all.ground.commit && all.ground.journal > 0;
}

findings judge_end(sweeper &all, const family_disturbance &how, const family_outcome &outcome,
                   const host_tree &left) {
  if (outcome.hung)
    return {{hangs, "took too long"}};
  if (outcome.signal != 0 && outcome.signal == signal_of(how) && !is_held(all, how)) {
    ++all.result.counts[killed_end];
    return {};
  }
  if (outcome.signal != 0)
    return {{crashes, "died by signal " + std::to_string(outcome.signal)}};
  if (const char *const end = name_of_end(all, how, outcome.status, left)) {
    ++all.result.counts[end];
    return {};
  }
  return {{wrong_status, "status " + std::to_string(outcome.status) + ", but\n" +
                             differences(host_of(all.ground.start), host_of(left))}};
}

std::string place_of(const sweeper &all, const way &how, long call) {
  const family_call &at = call_at(all.ground, call);
  return "call " + std::to_string(call) + (at.is_childs ? " (child) " : " ") + at.asked.name + " " +
         at.asked.path + ", " + how.name;
}

// However many files a disturbance shows in, it counts once under each rule.
void count(const findings &found, const std::string &place, const std::string &printed, tally &result) {
  std::set<std::string> broken;
  for (const finding &one : found) {
    broken.insert(one.rule);
    if (one.rule == put_aside || one.rule == separated)
      continue;
    std::string text = place + ": " + one.rule + ": " + one.text;
    if (one.rule == wrong_status || one.rule == crashes)
      text += " printed: " + printed;
    std::replace(text.begin(), text.end(), '\n', '|');
    result.findings.push_back(text);
  }
  for (const std::string &rule : broken)
    ++result.counts[rule];
}

// Whenever something is renamed elsewhere on the machine, the program may have to look a path up again, and
// the calls behind that have other numbers; then the run is made once more.
family_outcome run_disturbed(const sweeper &all, const program &tool, const family_disturbance &disturbed) {
  constexpr int most_tries = 10;
  for (int tries = 0; tries < most_tries; ++tries) {
    set_host(own_root, all.ground.start);
    const family_outcome outcome = run_family(tool, disturbed);
    if (outcome.disturbed_number == call_at(all.ground, disturbed.at_call).asked.number)
      return outcome;
  }
  throw std::runtime_error("the runs are not alike");
}

void sweep_one(sweeper &all, const way &how, long call) {
  const program tool = administration(all.what.command);
  const family_disturbance disturbed = {call, how.how, how.number, how.how_long};
  const std::string place = place_of(all, how, call);
  const family_outcome outcome = run_disturbed(all, tool, disturbed);
  const std::string printed = printed_by(tool);
  const host_tree left = look_at_host(own_root);
  findings found = judge_end(all, disturbed, outcome, left);
  if (const std::size_t key = key_of(left); !all.repaired.contains(key)) {
    ++all.result.counts[repair_count];
    const findings remaining = repair(all, disturbed, left);
    found.insert(found.end(), remaining.begin(), remaining.end());
    if (remaining.empty())
      all.repaired.insert(key);
  }
  count(found, place, printed, all.result);
}

void count_once(const admin_ground &ground, tally &result) {
  result.counts[call_count] = static_cast<long>(ground.calls.size());
  result.counts[rehearsal_count] =
      std::count(ground.touches_nothing.begin(), ground.touches_nothing.end(), true);
  result.counts[child_count] = std::count_if(ground.calls.begin(), ground.calls.end(),
                                             [](const family_call &call) { return call.is_childs; });
}

// Calls the function with the disturbances that are to be made.
void for_each_disturbance(const admin_ground &ground, const strides &every,
                          const std::function<void(const way &, long call)> &act) {
  long in_rehearsals = 0;
  long elsewhere = 0;
  for (std::size_t i = 0; i < ground.calls.size(); ++i)
    for (const way &how : ways) {
      if (how.only_in_children && !ground.calls[i].is_childs)
        continue;
      const bool chosen = ground.touches_nothing[i] ? in_rehearsals++ % every.in_rehearsals == 0
                                                    : elsewhere++ % every.elsewhere == 0;
      if (chosen)
        act(how, static_cast<long>(i + 1));
    }
}

void sweep_share(const admin_scenario &what, const strides &every, share mine, tally &result) {
  if (!enter_own_host())
    throw std::runtime_error("set-up: no mounts of our own");
  const admin_ground ground = prepare_ground(what);
  if (mine.number == 0)
    count_once(ground, result);
  sweeper all = {what, ground, {}, result};
  long chosen = 0;
  for_each_disturbance(ground, every, [&](const way &how, long call) {
    if (chosen++ % mine.of != mine.number)
      return;
    sweep_one(all, how, call);
    ++result.counts[how.name];
  });
}

void print_row(std::ostream &out, const std::string &name, const tally &result) {
  const auto found = result.counts.find(name);
  out << "  " << std::left << std::setw(90) << name << std::right << std::setw(6)
      << (found == result.counts.end() ? 0 : found->second) << "\n";
}

} // namespace

tally sweep(const admin_scenario &what, const strides &every) {
  return in_processes([&](share mine, tally &result) { sweep_share(what, every, mine, result); });
}

void print_table(std::ostream &out, const admin_scenario &what, const tally &result) {
  out << "\n" << what.name << "\n";
  for (const char *const name : {call_count, rehearsal_count, child_count})
    print_row(out, name, result);
  out << " runs disturbed, by what was done at one call\n";
  for (const way &how : ways)
    print_row(out, how.name, result);
  print_row(out, repair_count, result);
  out << " how the disturbed runs ended\n";
  for (const char *const name :
       {killed_end, done_status, nothing_done_status, taken_back_status, half_done_status, late_status})
    print_row(out, name, result);
  out << " broken rules, by the disturbances that broke them\n";
  for (const char *const name : rules)
    print_row(out, name, result);
  out << " no broken rule\n";
  print_row(out, put_aside, result);
  print_row(out, separated, result);
}

} // namespace faults
