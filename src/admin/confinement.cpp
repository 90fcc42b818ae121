#include "admin/confinement.h"

#include "admin/failure.h"
#include "admin/trees.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <iterator>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace korvalen::admin {

namespace {

// Not CAP_DAC_READ_SEARCH: it adds nothing to CAP_DAC_OVERRIDE but opening files by their numbers, on whose
// mount they lie or not.
constexpr int kept_powers[] = {CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_FSETID};

// What the child ends with when it could not even begin; no exit status of the installer.
constexpr int could_not_begin = 126;

descriptor memory_file(const char *name) {
  return descriptor(checked(memfd_create(name, MFD_CLOEXEC), "cannot make a file in memory"));
}

// The parent's handlers for the end of the process are not the child's, and must not run twice.
[[noreturn]] void end_at_once(int status, void * /*unused*/) {
  std::cout.flush();
  std::fflush(nullptr);
  _exit(status);
}

void die_with_parent() {
  checked(prctl(PR_SET_PDEATHSIG, SIGKILL), "cannot ask to die with the parent");
}

// A pipe of which a parent holds the one end. Its child sees in it whether the parent died before the child
// could ask to die with it.
class lifeline {
public:
  lifeline() {
    int ends[2];
    checked(pipe2(ends, O_CLOEXEC), "cannot make a pipe");
    child_end_ = descriptor(ends[0]);
    parent_end_ = descriptor(ends[1]);
  }
  void hold_in_child() {
    parent_end_ = descriptor();
    die_with_parent();
    pollfd end{child_end_.get(), 0, 0};
    if (poll(&end, 1, 0) != 0)
      _exit(could_not_begin);
  }

private:
  descriptor child_end_;
  descriptor parent_end_;
};

void enter(const child_settings &settings) {
  if (!settings.root.empty())
    checked(chroot(settings.root.c_str()), "cannot enter " + settings.root);
  checked(chdir(settings.directory.c_str()), "cannot enter " + settings.directory);
}

void replace_output(const descriptor &output, const descriptor &errors) {
  checked(dup2(errors.get(), STDERR_FILENO), "cannot replace standard error");
  checked(dup2(output.get(), STDOUT_FILENO), "cannot replace standard output");
}

void replace_input() {
  const descriptor nothing(checked(open("/dev/null", O_RDONLY), "cannot open /dev/null"));
  checked(dup2(nothing.get(), STDIN_FILENO), "cannot replace standard input");
}

void close_files(int first, unsigned last) {
  if (static_cast<unsigned>(first) <= last)
    checked(syscall(SYS_close_range, first, last, 0), "cannot close files");
}

void close_all_but(int kept_file) {
  const int kept = std::max(kept_file, STDERR_FILENO);
  close_files(STDERR_FILENO + 1, static_cast<unsigned>(kept) - 1);
  close_files(kept + 1, ~0U);
}

// No signal has a handler, so none interrupts the waiting.
int wait_for(pid_t child) {
  int status = 0;
  checked(waitpid(child, &status, 0), "cannot wait for a child process");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Another program, to which a socket leads, could change the disk in the code's place. The installer and what
// it starts have no need of sockets.
void forbid_sockets() {
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_io_uring_setup, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{std::size(filter), filter};
  checked(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), "cannot forbid sockets");
}

// A pipe through which a child tells the process of its own child.
struct announcement {
  descriptor heard;
  descriptor told;
};

announcement make_announcement() {
  int ends[2];
  checked(pipe2(ends, O_CLOEXEC), "cannot make a pipe");
  return {descriptor(ends[0]), descriptor(ends[1])};
}

// Where the child was killed, its own child dies with it, and became this process's: it is waited for, so
// that its last call meets nothing that is done from here on.
void wait_for_orphan(announcement &announced) {
  announced.told = descriptor();
  pid_t orphan = 0;
  if (read(announced.heard.get(), &orphan, sizeof orphan) != sizeof orphan)
    return;
  waitpid(orphan, nullptr, 0);
}

// The first process of a process namespace: all others die with it.
[[noreturn]] void begin_and_wait(const child_settings &settings, const descriptor &output,
                                 const descriptor &errors, lifeline &grandparent,
                                 const announcement &announced, const std::function<int()> &code) {
  int status = could_not_begin;
  try {
    replace_output(output, errors);
    grandparent.hold_in_child();
    checked(unshare(CLONE_NEWPID), "cannot make a private process namespace");
    lifeline parent;
    const pid_t child = checked(fork(), "cannot make a child process");
    if (child > 0) {
      checked(write(announced.told.get(), &child, sizeof child), "cannot tell of a child process");
      _exit(wait_for(child));
    }
    parent.hold_in_child();
    // Signals to the own group must not reach that of the parent.
    checked(setsid(), "cannot make a session");
    enter(settings);
    replace_input();
    set_surroundings();
    if (settings.drops_powers) {
      drop_powers();
      forbid_sockets();
    }
    on_exit(end_at_once, nullptr);
    close_all_but(settings.kept_file);
    status = code();
  } catch (const failure &problem) {
    dprintf(errors.get(), "%s\n", problem.what());
  }
  end_at_once(status, nullptr);
}

} // namespace

outcome run_child(const child_settings &settings, const std::function<int()> &code) {
  const descriptor output = memory_file("output");
  const descriptor errors = memory_file("errors");
  lifeline parent;
  announcement announced = make_announcement();
  // Where the caller was started with this signal ignored, the child's status would be lost.
  std::signal(SIGCHLD, SIG_DFL);
  std::cout.flush();
  std::fflush(nullptr);
  checked(prctl(PR_SET_CHILD_SUBREAPER, 1), "cannot ask for the children of a child");
  const pid_t child = checked(fork(), "cannot make a child process");
  if (child == 0)
    begin_and_wait(settings, output, errors, parent, announced, code);
  const int status = wait_for(child);
  wait_for_orphan(announced);
  outcome result;
  result.status = status;
  result.output = read_whole(output, "the output");
  result.errors = read_whole(errors, "the errors");
  if (result.status == could_not_begin)
    throw failure(result.errors.substr(0, result.errors.find('\n')));
  return result;
}

outcome run_confined(const std::string &root, const std::string &directory,
                     const std::function<int()> &code) {
  return run_child({root, directory, true}, code);
}

void set_surroundings() {
  clearenv();
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  umask(022);
}

void drop_powers() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct held[2]{};
  checked(syscall(SYS_capget, &header, held), "cannot tell the capabilities");
  unsigned kept = 0;
  for (const int power : kept_powers)
    kept |= 1U << static_cast<unsigned>(power);
  for (int power = 0; prctl(PR_CAPBSET_READ, power) >= 0; ++power)
    if (power >= 32 || (kept & (1U << static_cast<unsigned>(power))) == 0)
      checked(prctl(PR_CAPBSET_DROP, power), "cannot drop a capability");
  checked(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0), "cannot drop the ambient capabilities");
  const unsigned now = held[0].permitted & kept;
  const __user_cap_data_struct wanted[2] = {{now, now, 0}, {0, 0, 0}};
  checked(syscall(SYS_capset, &header, wanted), "cannot drop capabilities");
  checked(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "cannot forbid new privileges");
}

} // namespace korvalen::admin
