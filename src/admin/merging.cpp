#include "admin/merging.h"

#include "admin/restoring.h"

#include <algorithm>
#include <map>
#include <utility>

namespace korvalen::admin {

namespace {

using path_map = std::map<std::string, recorded_path>;

path_map map_of(const std::vector<recorded_path> &paths) {
  path_map map;
  for (const recorded_path &one : paths)
    map.emplace(one.path, one);
  return map;
}

void take_before(recorded_path &one, const journaled_path &touched) {
  one.before = touched.found;
  one.kept = touched.kept;
}

// What was found is the state before, unless it is what an earlier run left, or is about to leave again.
void merge_path(path_map &paths, const journaled_path &touched, std::uint64_t id, merge_result &result,
                const std::set<std::string> &holding_block) {
  const auto [place, is_new] = paths.try_emplace(touched.path);
  recorded_path &one = place->second;
  // What came back has its kept bytes already, maybe together with other names.
  const bool came_back = !is_new && one.kept && is_same(touched.found, one.before);
  const bool is_left_by_a_run =
      !is_new && (came_back || is_same(touched.found, one.after) || is_same(touched.found, touched.after));
  if (is_new) {
    one.path = touched.path;
    take_before(one, touched);
  } else if (!is_left_by_a_run && holding_block.contains(touched.path)) {
    result.edited_scripts.push_back(touched.path);
  } else if (!is_left_by_a_run) {
    take_before(one, touched);
  } else if (!one.kept && is_same(touched.found, one.before)) {
    one.kept = touched.kept;
  }
  one.after = touched.after;
  one.used_by.insert(id);
}

// The kept bytes of the files that the run touches.
std::set<std::uint64_t> kept_of_touched(const path_map &paths, const journal &run) {
  std::set<std::uint64_t> numbers;
  for (const journaled_path &touched : run.paths)
    if (const auto known = paths.find(touched.path); known != paths.end() && known->second.kept)
      numbers.insert(*known->second.kept);
  return numbers;
}

std::set<std::string> touched_by(const journal &run) {
  std::set<std::string> touched;
  for (const journaled_path &one : run.paths)
    touched.insert(one.path);
  return touched;
}

// A name that half an uninstall brought back, and of whose file this run touches another name, is as it
// should be: in the end both are to be names of one file again.
void keep_names_that_came_back(path_map &paths, const journal &run, std::uint64_t id) {
  const std::set<std::string> touched = touched_by(run);
  const std::set<std::uint64_t> shared = kept_of_touched(paths, run);
  for (auto &[path, one] : paths) {
    if (touched.contains(path) || !one.used_by.contains(id) || !one.kept || !shared.contains(*one.kept))
      continue;
    if (is_same(present_state(path).value_or(state{}), one.before))
      one.after = one.before;
  }
}

// Paths of the installation that this run did not touch are the host's where the host changed them.
void drop_changed(path_map &paths, const journal &run, std::uint64_t id) {
  const std::set<std::string> touched = touched_by(run);
  std::erase_if(paths, [&](const auto &entry) {
    const recorded_path &one = entry.second;
    if (touched.contains(one.path) || !one.used_by.contains(id))
      return false;
    const std::optional<state> present = present_state(one.path);
    return !present || !is_same(*present, one.after);
  });
}

bool stands_as_left(const recorded_path &one) {
  return is_same(present_state(one.path).value_or(state{}), one.after);
}

// A directory that an earlier run made is needed by whoever has something in it.
void use_directories(path_map &paths, const journal &run, std::uint64_t id) {
  for (const journaled_path &touched : run.paths) {
    if (touched.after.type == file_type::absent)
      continue;
    for (std::string above = parent_of(touched.path); above != "/"; above = parent_of(above)) {
      const auto known = paths.find(above);
      if (known != paths.end() && !known->second.used_by.contains(id) && stands_as_left(known->second))
        known->second.used_by.insert(id);
    }
  }
}

// What an uninstall left is the host's to whoever touches it next.
void take_over(path_map &paths, const journal &run, const std::vector<installation> &installations) {
  for (const journaled_path &touched : run.paths)
    for (const installation &owner : installations)
      if (owner.is_leaving)
        paths.at(touched.path).used_by.erase(owner.id);
}

void add_users(path_map &paths, const std::vector<installation> &installations) {
  for (auto &[path, one] : paths)
    for (const installation &owner : installations)
      if (!owner.is_leaving && belongs_to(owner, path) && !one.used_by.empty())
        one.used_by.insert(owner.id);
}

bool is_gone(const std::string &directory) {
  return !real_path(directory);
}

// A directory that is gone is known by the name that it was given by.
bool is_same_directory(const std::string &real, const std::string &given, const std::string &wanted_real,
                       const std::string &wanted_given) {
  return real == wanted_real || (given == wanted_given && is_gone(wanted_given));
}

bool is_same_envi(const installation &one, const installation &wanted) {
  if (!one.envi_dir || !wanted.envi_dir)
    return one.envi_dir == wanted.envi_dir;
  return is_same_directory(*one.real_envi_dir, *one.envi_dir, *wanted.real_envi_dir, *wanted.envi_dir);
}

std::string real_or_given(const std::string &path) {
  return real_path(path).value_or(path);
}

} // namespace

installation installation_of(const target &host) {
  installation one;
  one.product_dir = host.product_dir;
  one.real_product_dir = real_or_given(host.product_dir);
  one.envi_dir = host.envi_dir;
  if (host.envi_dir)
    one.real_envi_dir = real_or_given(*host.envi_dir);
  one.local_layout = host.local_layout;
  one.directories.push_back(one.real_product_dir);
  if (!host.local_layout)
    one.directories.push_back(real_or_given(init_dir_of(host)));
  return one;
}

const installation *find_installation(const receipt &record, const installation &wanted) {
  const auto found =
      std::find_if(record.installations.begin(), record.installations.end(), [&](const installation &one) {
        return is_same_envi(one, wanted) && one.local_layout == wanted.local_layout &&
               is_same_directory(one.real_product_dir, one.product_dir, wanted.real_product_dir,
                                 wanted.product_dir);
      });
  return found == record.installations.end() ? nullptr : &*found;
}

const recorded_path *find_path(const receipt &record, const std::string &path) {
  const auto found =
      std::lower_bound(record.paths.begin(), record.paths.end(), path,
                       [](const recorded_path &one, const std::string &name) { return one.path < name; });
  return found == record.paths.end() || found->path != path ? nullptr : &*found;
}

bool belongs_to(const installation &owner, const std::string &path) {
  return std::any_of(owner.directories.begin(), owner.directories.end(),
                     [&](const std::string &directory) { return lies_in(path, directory); });
}

merge_result merge(const receipt &record, const installation &made, const journal &run,
                   const std::set<std::string> &holding_block) {
  merge_result result;
  result.record.run = run.run;
  result.record.installations = record.installations;
  installation entered = made;
  if (const installation *const known = find_installation(record, made)) {
    entered.id = known->id;
    std::erase_if(result.record.installations, [&](const installation &one) { return one.id == known->id; });
  } else {
    for (const installation &one : record.installations)
      entered.id = std::max(entered.id, one.id);
    ++entered.id;
  }
  result.record.installations.push_back(entered);

  path_map paths = map_of(record.paths);
  keep_names_that_came_back(paths, run, entered.id);
  drop_changed(paths, run, entered.id);
  for (const journaled_path &touched : run.paths)
    merge_path(paths, touched, entered.id, result, holding_block);
  take_over(paths, run, result.record.installations);
  use_directories(paths, run, entered.id);
  add_users(paths, result.record.installations);
  for (auto &[path, one] : paths)
    result.record.paths.push_back(std::move(one));
  return result;
}

} // namespace korvalen::admin
