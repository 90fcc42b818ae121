#include "faults/power_cut.h"

#include <algorithm>
#include <string_view>

namespace faults {

namespace {

std::vector<inode> may_stand(const disk &all, const directory_entry &entry) {
  const auto found = all.names.find(entry);
  return found == all.names.end() ? std::vector<inode>{nothing} : found->second;
}

void change_bytes(disk &all, const bytes_changed &made) {
  all.files[made.file] = {made.bytes, false};
}

void change_name(disk &all, const name_changed &made) {
  const directory_entry entry = {made.directory, made.name};
  std::vector<inode> &standing = all.names.try_emplace(entry, 1, nothing).first->second;
  std::erase(standing, made.stands);
  standing.push_back(made.stands);
}

void flush(disk &all, inode what) {
  if (const auto file = all.files.find(what); file != all.files.end())
    file->second.durable = true;
  for (auto &[entry, standing] : all.names)
    if (entry.directory == what)
      standing.erase(standing.begin(), standing.end() - 1);
}

// The search for a state that breaks a demand. It decides only what it comes upon, so paths that share a
// directory see one and the same of it.
struct search {
  const disk &all;
  const demand &wanted;
  std::map<directory_entry, inode> decided;
  std::vector<std::string> shown; // of each path so far
};

bool breaks_below(search &state, std::size_t path, inode directory, std::string_view rest);

bool breaks_from(search &state, std::size_t path) {
  return path == state.wanted.paths.size() ||
         breaks_below(state, path, root_directory, state.wanted.paths[path]);
}

// This path fails the demand. Unless that decides, it is for the next one to fail it too.
bool fails(search &state, std::size_t path, const char *how, bool decides) {
  state.shown.push_back(state.wanted.paths[path] + " " + how);
  if (decides || breaks_from(state, path + 1))
    return true;
  state.shown.pop_back();
  return false;
}

bool breaks_at(search &state, std::size_t path, inode found, std::string_view rest) {
  const bool decides = state.wanted.how == demand::rule::first_there_holds;
  if (found == nothing)
    return fails(state, path, "may be missing", false);
  if (!rest.empty())
    return breaks_below(state, path, found, rest);
  const auto file = state.all.files.find(found);
  if (file == state.all.files.end())
    return fails(state, path, "may be no file", decides);
  if (!file->second.durable)
    return fails(state, path, "may hold anything", decides);
  return file->second.bytes != state.wanted.bytes && fails(state, path, "may hold other bytes", decides);
}

bool breaks_below(search &state, std::size_t path, inode directory, std::string_view rest) {
  const std::size_t end = std::min(rest.find('/'), rest.size());
  const directory_entry entry = {directory, std::string(rest.substr(0, end))};
  const std::string_view below = rest.substr(std::min(end + 1, rest.size()));
  if (const auto known = state.decided.find(entry); known != state.decided.end())
    return breaks_at(state, path, known->second, below);
  for (const inode candidate : may_stand(state.all, entry)) {
    state.decided[entry] = candidate;
    if (breaks_at(state, path, candidate, below))
      return true;
  }
  state.decided.erase(entry);
  return false;
}

void add_files_below(const disk &all, inode directory, const std::string &prefix,
                     std::map<std::string, std::string> &found) {
  for (auto entry = all.names.lower_bound({directory, ""});
       entry != all.names.end() && entry->first.directory == directory; ++entry) {
    const inode stands = entry->second.back();
    const std::string path = prefix + entry->first.name;
    if (const auto file = all.files.find(stands); file != all.files.end())
      found[path] = file->second.bytes;
    else if (stands != nothing)
      add_files_below(all, stands, path + "/", found);
  }
}

} // namespace

void apply(disk &all, const change &made) {
  if (const auto *const bytes = std::get_if<bytes_changed>(&made))
    change_bytes(all, *bytes);
  else if (const auto *const name = std::get_if<name_changed>(&made))
    change_name(all, *name);
  else
    flush(all, std::get<flushed>(made).what);
}

std::map<std::string, std::string> files_on(const disk &all) {
  std::map<std::string, std::string> found;
  add_files_below(all, root_directory, "", found);
  return found;
}

std::optional<std::string> find_loss(const disk &all, const demand &wanted) {
  search state = {all, wanted, {}, {}};
  if (!breaks_from(state, 0))
    return std::nullopt;
  std::string text;
  for (const std::string &one : state.shown)
    text += (text.empty() ? "" : ", ") + one;
  return text;
}

std::vector<loss> cut_at_every_call(disk start, const std::vector<recorded_call> &calls,
                                    const std::vector<demand> &wanted) {
  std::vector<loss> losses;
  for (std::size_t made = 0; made <= calls.size(); ++made) {
    if (made > 0)
      for (const change &one : calls[made - 1].changes)
        apply(start, one);
    const std::string when =
        made == 0 ? "before any call" : "after call " + std::to_string(made) + ", " + calls[made - 1].text;
    for (std::size_t i = 0; i < wanted.size(); ++i)
      if (const auto lost = find_loss(start, wanted[i]))
        losses.push_back({made, i, when + ": " + *lost});
  }
  return losses;
}

} // namespace faults
