#include "admin/warnings.h"

#include "admin/merging.h"
#include "korvalen/envi/idl_directory.h"

#include <algorithm>
#include <sstream>
#include <tuple>
#include <utility>

namespace korvalen::admin {

namespace {

struct warning_kind {
  std::string_view code;
  bool refuses;
  std::string_view text; // what is so, and what to do
};

constexpr warning_kind kinds[] = {
    {"blanks", false,
     "the path holds blanks, and the uninstall script and the launch scripts hold it without quotes; "
     "move it to a path without blanks, or never run the uninstall script"},
    {"changed-since", false,
     "it was changed since the installation and stays as it is; what was there before it stays in "
     "/var/lib/korvalen/kept; to have that back, move it away and give the command again"},
    {"edited-script", false,
     "the patched script was edited since; an uninstall will bring back the script as it was before "
     "the first installation, and the edited one is put aside in /var/lib/korvalen/aside"},
    {"empty-backup", true,
     "the backup holds no line, and the installer would empty the script, which was patched already; "
     "put the host's own script there and remove the backup"},
    {"found-changed", false,
     "it was changed or removed since the installation on record; from this run on, an uninstall will bring "
     "back what stands here now, not what was here before; to keep that, put the product's own file here "
     "first, until verify finds no difference"},
    {"higher-idl", false,
     "an IDL of a higher version lies beside the one that is taken, which is always the lowest; "
     "nothing is installed into this one"},
    {"installed-before", false,
     "the script was patched before, by an installation that is not on record; an uninstall will "
     "bring back that earlier installation, not the script as it was before it"},
    {"installer-complains", true, "see what the installer prints, and mend the cause"},
    {"missing-script", true,
     "there is no such launch script; the installer brings it back from its backup, or else makes an "
     "ENVI script of its block alone and passes an IDL script over; check the ENVI directory, or put "
     "the host's own script there"},
    {"no-idl", true,
     "there is no IDL directory (idl80 to idl1919) in the ENVI directory, so nothing would be "
     "deployed; check the ENVI directory"},
    {"not-deployed", true,
     "nothing of this directory would be deployed; check that the product directory is the unpacked "
     "product, and what stands in the way in ENVI"},
    {"not-empty", false, "the installation made this directory, and it stays, for something else lies in it"},
    {"nounset", true,
     "the script runs under set -u, and the block, which reads a variable that may be unset, would "
     "stop it; take the option out of the script"},
    {"quorin-core", true,
     "the file belongs into no ENVI, cannot be removed from the product and would be deployed; make "
     "the product directory writable, or remove the file there"},
    {"second-name", true,
     "the file has further names outside the directories that were searched, and they would change "
     "with it; find them with find -samefile, and give the file a copy of its own"},
    {"shared-file", false,
     "the installer's uninstall script would have kept this file, which other products share; here "
     "it is taken back like all others"},
    {"stale-backup", false,
     "the script holds no block and differs from its backup: ENVI was upgraded; korvalen_admin "
     "install keeps the new script as the original, a plain run of the installer would bring the old "
     "one back"},
};

// The path that was given may be the one with the blanks, or with the backup beside it.
void make_real(warning &one) {
  if (one.path.empty())
    return;
  const std::string real = real_path_or_place(one.path);
  if (real != one.path)
    one.text = "given as \"" + one.path + "\": " + one.text;
  one.path = real;
}

class collection {
public:
  void add(std::string_view code, const std::string &path, const std::string &detail = "") {
    found_.push_back(warning_of(code, path, detail));
  }

  bool has(std::string_view code, const std::string &path) const {
    return std::any_of(found_.begin(), found_.end(),
                       [&](const warning &one) { return one.code == code && one.path == path; });
  }

  // By their codes and real paths.
  std::vector<warning> sorted() && {
    for (warning &one : found_)
      make_real(one);
    std::sort(found_.begin(), found_.end(), [](const warning &a, const warning &b) {
      return std::tie(a.code, a.path, a.text) < std::tie(b.code, b.path, b.text);
    });
    return std::move(found_);
  }

private:
  std::vector<warning> found_;
};

// Whether the words after an interpreter or the command `set` stop the shell at unset variables.
bool sets_nounset(std::istringstream words) {
  bool names_option = false; // the word before was -o
  for (std::string word; words >> word; names_option = word == "-o") {
    const bool is_option = word.starts_with('-') && !word.starts_with("--");
    if (is_option && word.find('u') != std::string::npos)
      return true;
    if (names_option && word.starts_with("nounset"))
      return true;
  }
  return false;
}

bool is_nounset_line(const std::string &line, bool is_first) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command != "set" && !(is_first && command.starts_with("#!")))
    return false;
  return sets_nounset(std::move(words));
}

// Only what stands before the block counts, for the block comes before the first line with "if [".
bool stops_at_block(const std::string &script) {
  std::istringstream lines(script);
  bool is_first = true;
  for (std::string line; std::getline(lines, line); is_first = false) {
    if (holds_block(line) || line.find("if [") != std::string::npos)
      return false;
    if (is_nounset_line(line, is_first))
      return true;
  }
  return false;
}

// A patched script that is neither as an installation left it nor as this one would leave it.
bool is_edited(const recorded_path &known, const rehearsal &made) {
  const state present = hashed_state_of(made.seen->disk(), known.path);
  const state left = hashed_state_of(made.seen->inside(), known.path);
  return !is_same(present, known.after) && !is_same(present, left);
}

void look_at_block(const launch_script &script, const receipt &record, const rehearsal &made,
                   collection &found) {
  const recorded_path *const known = find_path(record, real_script_path(script));
  if (known == nullptr)
    found.add("installed-before", script.path);
  else if (is_edited(*known, made))
    found.add("edited-script", script.path);
}

// A slip in the argument is the likely cause.
std::string no_envi_note(const std::string &directory) {
  return real_path(directory) ? "" : "the ENVI directory does not exist: ";
}

void look_at_script(const launch_script &script, const receipt &record, const rehearsal &made,
                    collection &found) {
  const tree &disk = made.seen->disk();
  if (!follow(disk, script.path))
    found.add("missing-script", script.path, no_envi_note(parent_of(parent_of(script.path))));
  const auto &stale = made.stale_backups;
  if (std::find(stale.begin(), stale.end(), script.backup) != stale.end())
    found.add("stale-backup", script.path);
  const auto text = read_small(disk, script.path, script_limit);
  if (!text || !holds_block(*text))
    return;
  if (const auto backup = read_small(disk, script.backup, script_limit); backup == "")
    found.add("empty-backup", script.backup);
  look_at_block(script, record, made, found);
}

bool is_of_script(const std::vector<launch_script> &scripts, const std::string &path) {
  return std::any_of(scripts.begin(), scripts.end(), [&](const launch_script &script) {
    if (path == real_script_path(script))
      return true;
    return path.starts_with(real_place(script.backup));
  });
}

// What an earlier run left is found otherwise, and is taken for the host's own.
void look_for_changed(const target &host, const receipt &record, const rehearsal &made, collection &found) {
  const std::vector<launch_script> scripts = launch_scripts_of(host);
  for (const change &touched : made.found.touched) {
    const recorded_path *const known = find_path(record, touched.path);
    if (known == nullptr || kind_of(touched) == change_kind::none || is_of_script(scripts, touched.path))
      continue;
    const state present = hashed_state_of(made.seen->disk(), touched.path);
    if (!is_same(present, known->after) && !is_same(present, known->before))
      found.add("found-changed", touched.path);
  }
}

bool holds_files(const tree &in, const std::string &directory) {
  const std::vector<std::string> names = names_in(in, directory);
  return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
    const std::string path = joined(directory, name);
    return !S_ISDIR(look_up(in, path).value_or(no_file).st_mode) || holds_files(in, path);
  });
}

bool deploys_any(const tree &in, const deployment &step) {
  const std::vector<std::string> names = names_in(in, step.source);
  return std::any_of(names.begin(), names.end(), is_deployed_name);
}

bool has_deployed_any(const tree &in, const deployment &step) {
  const std::vector<std::string> names = names_in(in, step.source);
  return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
    const std::string target = joined(step.target, name);
    return is_deployed_name(name) && follow(in, target);
  });
}

void look_at_deployments(const target &host, const tree &after, collection &found) {
  if (!holds_files(after, extensions_dir_of(host)))
    return found.add("not-deployed", extensions_dir_of(host),
                     real_path(host.product_dir) ? "" : "the product directory does not exist: ");
  for (const deployment &step : deployments_of(host)) {
    if (deploys_any(after, step) && !has_deployed_any(after, step))
      found.add("not-deployed", step.source);
    const std::string core_file = joined(step.source, "quorin_core.sav");
    const std::string deployed = joined(step.target, "quorin_core.sav");
    if (step.loses_core_file && follow(after, core_file) && follow(after, deployed))
      found.add("quorin-core", core_file);
  }
}

bool has_blank(std::string_view text) {
  return text.find_first_of(" \t") != std::string_view::npos;
}

void look_for_blanks(const target &host, const rehearsal &made, collection &found) {
  if (has_blank(host.product_dir))
    found.add("blanks", host.product_dir);
  if (host.envi_dir && has_blank(*host.envi_dir))
    found.add("blanks", *host.envi_dir);
  // What is copied is recorded with its name.
  for (const deployment &step : deployments_of(host))
    for (const std::string &name : names_in(made.seen->inside(), step.source))
      if (is_deployed_name(name) && has_blank(name))
        found.add("blanks", joined(step.target, name));
}

void look_for_higher_idl(const target &host, collection &found) {
  const auto taken = idl_dir_of(host);
  if (!taken)
    return found.add("no-idl", *host.envi_dir, no_envi_note(*host.envi_dir));
  for (const owned_string &other : find_idl_directories(host.envi_dir->c_str()))
    if (*taken != other.get())
      found.add("higher-idl", other.get());
}

bool is_explained(const std::string &line, const target &host, const collection &found) {
  const std::vector<launch_script> scripts = launch_scripts_of(host);
  return std::any_of(scripts.begin(), scripts.end(), [&](const launch_script &script) {
    if (!line.ends_with(": " + script.path))
      return false;
    return found.has("missing-script", script.path) || found.has("empty-backup", script.backup);
  });
}

void look_at_output(const target &host, const outcome &installer, collection &found) {
  std::istringstream output(installer.output);
  for (std::string line; std::getline(output, line);) {
    const std::size_t start = line.find("WRONG");
    if (start != std::string::npos && !is_explained(line, host, found))
      found.add("installer-complains", "", "the installer says \"" + line.substr(start) + "\": ");
  }
  const std::string first = installer.errors.substr(0, installer.errors.find('\n'));
  if (installer.status == 0 && !installer.errors.empty())
    found.add("installer-complains", "", "the installer says \"" + first + "\": ");
}

} // namespace

warning warning_of(std::string_view code, const std::string &path, const std::string &detail) {
  const auto *const kind = std::find_if(std::begin(kinds), std::end(kinds),
                                        [code](const warning_kind &one) { return one.code == code; });
  return {std::string(code), path, kind->refuses, detail + std::string(kind->text)};
}

std::vector<std::string> refusing_codes() {
  std::vector<std::string> codes;
  for (const warning_kind &kind : kinds)
    if (kind.refuses)
      codes.emplace_back(kind.code);
  return codes;
}

std::vector<warning> find_warnings(const target &host, const rehearsal &made, const receipt &record) {
  collection found;
  const tree &after = made.seen->inside();
  for (const launch_script &script : launch_scripts_of(host)) {
    look_at_script(script, record, made, found);
    const auto patched = script.is_envis ? read_small(after, script.path, script_limit) : std::nullopt;
    if (patched && stops_at_block(*patched))
      found.add("nounset", script.path);
  }
  if (host.envi_dir)
    look_for_higher_idl(host, found);
  const bool has_idl = idl_dir_of(host).has_value();
  if (has_idl && made.installer.status == 0)
    look_at_deployments(host, after, found);
  look_for_blanks(host, made, found);
  look_for_changed(host, record, made, found);
  for (const std::string &path : made.found.with_unseen_names)
    found.add("second-name", path);
  look_at_output(host, made.installer, found);
  return std::move(found).sorted();
}

} // namespace korvalen::admin
