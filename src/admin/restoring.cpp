#include "admin/restoring.h"

#include "admin/copies.h"
#include "admin/records.h"
#include "admin/store.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace korvalen::admin {

namespace {

// A path, taken apart: the directory stays the same one whatever is renamed meanwhile.
struct place {
  explicit place(const restored_path &path);
  const restored_path &one;
  descriptor directory;
  std::string name;
  std::string beside;
};

std::string beside_name(std::uint64_t number) {
  return ".korvalen-" + std::to_string(number);
}

place::place(const restored_path &path)
    : one(path), directory(open_parent(path.path)), name(name_of(path.path)),
      beside(beside_name(path.number)) {}

// Whether the reason in errno is that the directory is not there, or only behind a link.
bool is_not_there() {
  return is_one_of(errno, {ENOENT, ENOTDIR, ELOOP});
}

[[noreturn]] void fail_at(const place &at, const char *what) {
  fail(std::string("cannot ") + what + " " + at.one.path);
}

std::optional<struct stat> look(const place &at, const std::string &name) {
  struct stat status {};
  if (fstatat(at.directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return status;
  if (errno != ENOENT)
    fail_at(at, "look up");
  return std::nullopt;
}

// False for a directory that holds something.
bool remove_name(const place &at, const std::string &name) {
  const auto status = look(at, name);
  if (!status || unlinkat(at.directory.get(), name.c_str(), S_ISDIR(status->st_mode) ? AT_REMOVEDIR : 0) == 0)
    return true;
  if (!is_one_of(errno, {ENOTEMPTY, EEXIST}))
    fail_at(at, "remove");
  return false;
}

descriptor open_kept(const place &at) {
  if (!at.one.kept)
    return {};
  return open_for_reading(store::kept_path(*at.one.kept));
}

// Owner first, which takes upper bits away; the list of rights before the mode, which is its mask.
void give_rights(const place &at, const descriptor &file, const descriptor &kept) {
  const state &wanted = at.one.wanted;
  if (fchown(file.get(), wanted.owner, wanted.group) != 0)
    fail_at(at, "set the owner of");
  if (kept)
    copy_attributes(kept, file);
  if (fchmod(file.get(), wanted.mode) != 0)
    fail_at(at, "set the mode of");
}

void make_file(const place &at) {
  const descriptor kept = open_kept(at);
  if (!kept)
    throw failure("nothing is kept of " + at.one.path);
  const descriptor file(openat(at.directory.get(), at.beside.c_str(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file)
    fail_at(at, "make");
  copy_bytes(kept, file, at.one.path);
  give_rights(at, file, kept);
  if (fsync(file.get()) != 0)
    fail_at(at, "flush");
}

// Another name of a file that stands already. The directory of the twin is no link either.
bool make_second_name(const place &at) {
  if (at.one.twin.empty())
    return false;
  const std::string name = name_of(at.one.twin);
  const descriptor directory = open_parent(at.one.twin);
  if (directory && linkat(directory.get(), name.c_str(), at.directory.get(), at.beside.c_str(), 0) == 0)
    return true;
  // A file of its own comes back only where there can be no second name.
  if (!is_not_there() && !is_one_of(errno, {EXDEV, EMLINK, EPERM}))
    fail_at(at, "make the second name");
  return false;
}

void make_directory(const place &at) {
  if (mkdirat(at.directory.get(), at.beside.c_str(), 0700) != 0)
    fail_at(at, "make the directory");
  const descriptor directory(
      openat(at.directory.get(), at.beside.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory)
    fail_at(at, "open the directory");
  give_rights(at, directory, open_kept(at));
}

void make_link(const place &at) {
  const state &wanted = at.one.wanted;
  if (symlinkat(wanted.target.c_str(), at.directory.get(), at.beside.c_str()) != 0 ||
      fchownat(at.directory.get(), at.beside.c_str(), wanted.owner, wanted.group, AT_SYMLINK_NOFOLLOW) != 0)
    fail_at(at, "make the link");
}

void make_beside(const place &at) {
  switch (at.one.wanted.type) {
  case file_type::directory:
    return make_directory(at);
  case file_type::link:
    return make_link(at);
  case file_type::file:
    if (!make_second_name(at))
      make_file(at);
    return;
  default:
    throw failure(at.one.path + " was neither a file, a directory nor a link, and cannot be made again");
  }
}

// Takes the place of what stands there, at one moment also where a directory and a file change places.
restored take_place(const place &at) {
  const auto there = look(at, at.name);
  const bool wants_directory = at.one.wanted.type == file_type::directory;
  if (!there || (S_ISDIR(there->st_mode) != 0) == wants_directory) {
    if (renameat(at.directory.get(), at.beside.c_str(), at.directory.get(), at.name.c_str()) != 0)
      fail_at(at, "rename to");
    return restored::done;
  }
  if (renameat2(at.directory.get(), at.beside.c_str(), at.directory.get(), at.name.c_str(),
                RENAME_EXCHANGE) != 0)
    fail_at(at, "rename to");
  if (remove_name(at, at.beside))
    return restored::done;
  // Somebody's files lie in the directory that stood there: it goes back.
  if (renameat2(at.directory.get(), at.beside.c_str(), at.directory.get(), at.name.c_str(),
                RENAME_EXCHANGE) != 0)
    fail_at(at, "rename to");
  remove_name(at, at.beside);
  return restored::not_empty;
}

restored bring_back(const place &at, bool may_remove_first) {
  try {
    make_beside(at);
  } catch (const failure &problem) {
    remove_name(at, at.beside);
    if (!may_remove_first || !is_one_of(problem.reason(), {ENOSPC, EDQUOT}) || !remove_name(at, at.name))
      throw;
    make_beside(at);
  }
  return take_place(at);
}

// A directory that stands keeps what lies in it.
restored change_rights(const place &at) {
  const descriptor directory(
      openat(at.directory.get(), at.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!directory)
    fail_at(at, "open the directory");
  give_rights(at, directory, open_kept(at));
  return restored::done;
}

} // namespace

std::optional<state> present_state(const std::string &path) {
  const descriptor directory = open_parent(path);
  if (!directory) {
    if (is_not_there())
      return std::nullopt;
    fail("cannot look up " + path);
  }
  return hashed_state_of(open_tree_at(""), path);
}

bool is_behind_link(const std::string &path) {
  const descriptor directory = open_parent(path);
  return !directory && errno == ELOOP;
}

void remove_beside(const std::string &path, std::uint64_t number) {
  const descriptor directory = open_parent(path);
  const std::string name = beside_name(number);
  if (directory && unlinkat(directory.get(), name.c_str(), 0) != 0 && errno == EISDIR)
    unlinkat(directory.get(), name.c_str(), AT_REMOVEDIR);
}

restored restore(const restored_path &one, bool may_remove_first) {
  const place at(one);
  if (!at.directory) {
    if (is_not_there())
      return restored::no_directory;
    fail("cannot open the directory of " + one.path);
  }
  remove_name(at, at.beside);
  if (one.wanted.type == file_type::absent)
    return remove_name(at, at.name) ? restored::done : restored::not_empty;
  const auto there = look(at, at.name);
  if (there && S_ISDIR(there->st_mode) && one.wanted.type == file_type::directory)
    return change_rights(at);
  return bring_back(at, may_remove_first);
}

namespace {

bool is_directory(const state &one) {
  return one.type == file_type::directory;
}

bool is_absent(const state &one) {
  return one.type == file_type::absent;
}

using phase = bool (*)(const state &wanted, const state &present);

// New files go first and then the new directories that held them, which frees space and names; then
// directories and what lay in them come back.
constexpr phase phases[] = {
    [](const state &wanted, const state &present) { return is_absent(wanted) && !is_directory(present); },
    [](const state &wanted, const state &present) { return is_absent(wanted) && is_directory(present); },
    [](const state &wanted, const state &present) { return is_directory(wanted) && !is_directory(present); },
    [](const state &wanted, const state &) { return !is_absent(wanted) && !is_directory(wanted); },
    [](const state &wanted, const state &present) { return is_directory(wanted) && is_directory(present); },
};
constexpr std::size_t deepest_first = 1; // what lies below goes before what holds it

std::pair<time_t, long> modified(const descriptor &file) {
  struct stat status {};
  checked(fstat(file.get(), &status), "cannot look up a file that is to come back");
  return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

struct restoring {
  bool may_remove_first;
  const std::function<void(const wanted_path &, const state &present)> &before_change;
  std::map<std::uint64_t, std::string> standing; // by kept number, a name of the file that stands as wanted
  restored_paths result;
};

std::optional<struct stat> present_status(const std::string &path) {
  const std::string name = name_of(path);
  const descriptor directory = open_parent(path);
  struct stat status {};
  if (directory && fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return status;
  if (!is_not_there())
    fail("cannot look up " + path);
  return std::nullopt;
}

// The type alone, without a look into a file.
state present_type(const std::string &path) {
  const auto status = present_status(path);
  if (!status)
    return {};
  return {S_ISDIR(status->st_mode) ? file_type::directory : file_type::file};
}

// What a run wrote with the bytes that it found has lost its time, and maybe attributes.
void bring_attributes_back(const wanted_path &one) {
  if (!one.kept || one.wanted.type != file_type::file)
    return;
  const descriptor kept = open_for_reading(store::kept_path(*one.kept));
  const descriptor directory = open_parent(one.path);
  const descriptor file(
      openat(directory.get(), name_of(one.path).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file)
    fail("cannot open " + one.path);
  if (modified(kept) != modified(file))
    copy_attributes(kept, file);
}

void note_standing(restoring &all, const wanted_path &one) {
  if (one.kept && one.wanted.type == file_type::file)
    all.standing.try_emplace(*one.kept, one.path);
}

// What the other names of a file are linked to, wherever it comes in the order: a name that stands as wanted.
// Of several that are files of their own it is that of the most names, which may have some that nobody knows.
void note_standing_names(restoring &all, const std::vector<wanted_path> &paths) {
  std::map<std::uint64_t, std::size_t> names;
  for (const wanted_path &one : paths)
    if (one.kept)
      ++names[*one.kept];
  std::map<std::uint64_t, nlink_t> most;
  for (const wanted_path &one : paths) {
    if (!one.kept || names[*one.kept] < 2 || one.wanted.type != file_type::file)
      continue;
    const std::optional<state> present = present_state(one.path);
    const auto status = present_status(one.path);
    if (!present || !status || !is_same(*present, one.wanted) || status->st_nlink <= most[*one.kept])
      continue;
    most[*one.kept] = status->st_nlink;
    all.standing[*one.kept] = one.path;
  }
}

std::optional<std::pair<dev_t, ino_t>> file_at(const std::string &path) {
  const auto status = present_status(path);
  if (!status)
    return std::nullopt;
  return std::pair(status->st_dev, status->st_ino);
}

bool is_same_file(const std::string &path, const std::string &other) {
  const auto one = file_at(path);
  const auto two = file_at(other);
  return one && one == two;
}

// A name may stand as wanted and be a file of its own since it was removed and made again.
void join_names(restoring &all, const wanted_path &one) {
  const auto twin = one.kept ? all.standing.find(*one.kept) : all.standing.end();
  if (twin != all.standing.end() && !is_same_file(twin->second, one.path))
    restore({one.path, one.wanted, one.kept, one.number, twin->second}, all.may_remove_first);
}

void change_path(restoring &all, const wanted_path &one, const state &present) {
  all.before_change(one, present);
  const auto twin = one.kept ? all.standing.find(*one.kept) : all.standing.end();
  const restored done =
      restore({one.path, one.wanted, one.kept, one.number, twin == all.standing.end() ? "" : twin->second},
              all.may_remove_first);
  if (done == restored::not_empty)
    all.result.not_empty.push_back(one.path);
  if (done == restored::no_directory)
    all.result.homeless.push_back(one.path);
  if (done == restored::done)
    note_standing(all, one);
}

void visit(restoring &all, const wanted_path &one, phase is_now) {
  try {
    if (!is_now(one.wanted, present_type(one.path)))
      return;
    const std::optional<state> present = present_state(one.path);
    if (!present && is_behind_link(one.path))
      throw failure("cannot bring back " + one.path + ": a link stands in its way");
    if (present && is_same(*present, one.wanted)) {
      remove_beside(one.path, one.number);
      bring_attributes_back(one);
      join_names(all, one);
      note_standing(all, one);
    } else if (present || !is_absent(one.wanted)) {
      change_path(all, one, present.value_or(state{}));
    }
  } catch (const failure &problem) {
    all.result.problems.emplace_back(problem.what());
  }
}

} // namespace

restored_paths
restore_all(const std::vector<wanted_path> &paths, bool may_remove_first,
            const std::function<void(const wanted_path &, const state &present)> &before_change) {
  restoring all{may_remove_first, before_change, {}, {}};
  note_standing_names(all, paths);
  for (std::size_t number = 0; number < std::size(phases); ++number)
    for (std::size_t i = 0; i < paths.size(); ++i)
      visit(all, paths[number == deepest_first ? paths.size() - 1 - i : i], phases[number]);
  return std::move(all.result);
}

} // namespace korvalen::admin
