#include "faults/recorded_run.h"

#include "faults/changing_calls.h"
#include "support/files.h"

#include <csignal>
#include <fcntl.h>
#include <set>
#include <stdexcept>
#include <sys/wait.h>

namespace faults {

namespace fs = std::filesystem;

namespace {

// A run as far as it has come.
struct notes {
  std::map<file_key, inode> inodes; // of what stands in the recorded directory, or stood there
  std::map<inode, dev_t> devices;   // that these numbers are on, those of removed files too
  recording recorded;
};

using changes = std::vector<change>;

inode known(const notes &all, const seen_file &file) {
  const auto found = file.is_there ? all.inodes.find(file.key) : all.inodes.end();
  return found == all.inodes.end() ? nothing : found->second;
}

inode make_known(notes &all, const seen_file &file) {
  const inode number = all.devices.empty() ? root_directory : all.devices.rbegin()->first + 1;
  all.devices[number] = file.key.device;
  return all.inodes[file.key] = number;
}

inode known_or_new(notes &all, const seen_file &file) {
  const inode number = known(all, file);
  return number == nothing ? make_known(all, file) : number;
}

void note_directory(notes &all, const fs::path &directory, inode number) {
  for (const fs::directory_entry &found : fs::directory_iterator(directory)) {
    const seen_file file = look_at(found.path());
    const inode stands = known_or_new(all, file);
    all.recorded.start.names[{number, found.path().filename()}] = {stands};
    if (S_ISREG(file.mode))
      all.recorded.start.files[stands] = {support::read_file(found.path()), true};
    else if (S_ISDIR(file.mode))
      note_directory(all, found.path(), stands);
  }
}

// The bytes that the file holds now.
void note_bytes(const notes &all, const seen_file &file, const fs::path &path, changes &made) {
  if (S_ISREG(file.mode) && known(all, file) != nothing)
    made.emplace_back(bytes_changed{known(all, file), support::read_file(path)});
}

// What stands at the path now.
void note_name(notes &all, const fs::path &path, const seen_file &directory, changes &made) {
  if (known(all, directory) == nothing)
    return;
  const seen_file now = look_at(path);
  const inode stands = now.is_there ? known_or_new(all, now) : nothing;
  made.emplace_back(name_changed{known(all, directory), path.filename(), stands});
}

// Something that was not there before the call.
void note_new(notes &all, const fs::path &path, const seen_file &directory, changes &made) {
  if (known(all, directory) == nothing)
    return;
  const seen_file file = look_at(path);
  make_known(all, file);
  note_name(all, path, directory, made);
  note_bytes(all, file, path, made);
}

void note_opened(notes &all, const started_call &call, const fs::path &descriptor, changes &made) {
  const named_path &named = call.paths.front();
  const seen_file file = look_behind(descriptor);
  if ((call.open_flags & O_TMPFILE) == O_TMPFILE) {
    if (known(all, named.before) != nothing)
      make_known(all, file);
    note_bytes(all, file, descriptor, made);
  } else if (named.before.is_there) {
    if ((call.open_flags & O_TRUNC) != 0)
      note_bytes(all, file, descriptor, made);
  } else if (!S_ISLNK(look_at(named.path).mode)) {
    note_new(all, named.path, named.directory, made);
  } else {
    // Through a link to nothing, a file is made where the link leads.
    const fs::path real = fs::canonical(named.path);
    note_new(all, real, look_behind(real.parent_path()), made);
  }
}

void note_all_flushed(const notes &all, const started_call &call, changes &made) {
  for (const auto &[number, device] : all.devices)
    if (call.descriptor.empty() || device == call.subject.key.device)
      made.emplace_back(flushed{number});
}

// What a call that succeeded changed.
changes changes_of(notes &all, pid_t program, const started_call &call, std::int64_t result) {
  changes made;
  switch (call.does) {
  case effect::opens:
    note_opened(all, call, descriptor_path(program, static_cast<std::uint64_t>(result)), made);
    break;
  case effect::writes:
    note_bytes(all, call.subject, call.descriptor, made);
    break;
  case effect::truncates:
    note_bytes(all, call.paths.front().before, call.paths.front().path, made);
    break;
  case effect::makes:
    note_new(all, call.paths.front().path, call.paths.front().directory, made);
    break;
  case effect::names:
    for (const named_path &named : call.paths)
      note_name(all, named.path, named.directory, made);
    break;
  case effect::flushes:
    if (known(all, call.subject) != nothing)
      made.emplace_back(flushed{known(all, call.subject)});
    break;
  case effect::flushes_all:
    note_all_flushed(all, call, made);
    break;
  case effect::harmless:
  case effect::waits:
    break;
  }
  return made;
}

bool is_about_known(const notes &all, const started_call &call) {
  return known(all, call.paths.empty() ? call.subject : call.paths.front().before) != nothing;
}

void note_call(notes &all, pid_t program, const started_call &call, std::int64_t result) {
  if (result < 0)
    return;
  changes made = changes_of(all, program, call, result);
  if (!made.empty() || (call.does == effect::harmless && is_about_known(all, call)))
    all.recorded.calls.push_back({call.text, std::move(made)});
}

// The programs that are running, and the calls that they are in.
struct programs {
  std::set<pid_t> met;
  std::map<pid_t, started_call> calls;
};

void at_start_of_call(programs &running, pid_t program) {
  const started_call call = start_of_call(program);
  if (call.does == effect::waits) {
    answer(program, 0);
    let_go_on(program, 0);
    return;
  }
  running.calls.insert_or_assign(program, call);
  let_finish_call(program);
}

void at_end_of_call(programs &running, pid_t program, notes &all) {
  const auto call = running.calls.find(program);
  if (call == running.calls.end())
    throw std::runtime_error("set-up: a call ended that had not begun");
  note_call(all, program, call->second, call_of(program).exit.rval);
  running.calls.erase(call);
  let_go_on(program, 0);
}

// A program that another one started stops at once, by a signal that is not for it.
void at_signal(programs &running, pid_t program, int signal) {
  const bool is_new = running.met.insert(program).second;
  let_go_on(program, is_new && signal == SIGSTOP ? 0 : signal);
}

void at_stop(programs &running, pid_t program, int status, notes &all) {
  constexpr int call_ended = SIGTRAP | 0x80;
  if (is_event(status, PTRACE_EVENT_SECCOMP))
    at_start_of_call(running, program);
  else if (WSTOPSIG(status) == call_ended)
    at_end_of_call(running, program, all);
  else if (status >> 16 != 0)
    let_go_on(program, 0);
  else
    at_signal(running, program, WSTOPSIG(status));
}

// Follows all programs to their end. Gives the status of the first one.
int follow(pid_t first, notes &all) {
  programs running = {{first}, {}};
  int end = -1;
  let_go_on(first, 0);
  int status = 0;
  for (pid_t program = 0; (program = waitpid(-1, &status, __WALL)) > 0;)
    if (WIFSTOPPED(status))
      at_stop(running, program, status, all);
    else if (program == first)
      end = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return end;
}

} // namespace

recording record_run(const program &what, const std::string &directory) {
  notes all;
  note_directory(all, directory, make_known(all, look_behind(directory)));
  const pid_t first =
      start_traced(what, changing_call_filter(),
                   PTRACE_O_EXITKILL | PTRACE_O_TRACESECCOMP | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC |
                       PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE);
  start_watching(first);
  all.recorded.status = follow(first, all);
  if (stop_watching())
    throw std::runtime_error("set-up: " + what.arguments.front() + " took too long");
  return std::move(all.recorded);
}

} // namespace faults
