// What confined code has, what it leaves behind, and what its caller gets of it.

#include "admin/confinement.h"
#include "admin/failure.h"
#include "support/child.h"
#include "support/files.h"
#include "support/surroundings.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace korvalen::admin;
using support::call;
using support::Ended;
using support::read_file;
using support::write_file;
namespace fs = std::filesystem;

namespace {

constexpr auto moment = 300'000; // microseconds

class Confinement : public support::scratch_test {
protected:
  // The disk itself is the root directory: what the code does can be seen.
  outcome confine(const std::function<int()> &code) const { return run_confined("/", scratch(), code); }

  std::string error_of(const std::string &root, const std::string &directory) const {
    try {
      run_confined(root, directory, [] { return 0; });
    } catch (const failure &problem) {
      return problem.what();
    }
    return "no failure";
  }
};

// Goes on when its parent has ended, and writes.
void leave_somebody_behind() {
  if (fork() > 0)
    return;
  setsid();
  signal(SIGHUP, SIG_IGN);
  write_file("begun", "");
  usleep(moment);
  write_file("late", "");
  _exit(0);
}

void wait_for_file(const std::string &path) {
  for (int i = 0; i < 1000 && !fs::exists(path); ++i)
    usleep(10'000);
}

unsigned held_powers() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct held[2]{};
  syscall(SYS_capget, &header, held);
  return held[0].effective | held[0].permitted | held[0].inheritable | held[1].permitted;
}

int count_of_open_files() {
  int count = 0;
  for (int file = 0; file < 1024; ++file)
    count += fcntl(file, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

} // namespace

TEST_F(Confinement, TellsTheStatusAndAllThatWasPrinted) {
  const outcome ended = confine([] {
    std::cout << "out";
    std::fputs("more", stdout);
    std::cerr << std::string(100'000, 'e');
    return 7;
  });
  EXPECT_EQ(ended.status, 7);
  EXPECT_EQ(ended.output, "outmore");
  EXPECT_EQ(ended.errors, std::string(100'000, 'e'));
}

TEST_F(Confinement, TellsTheStatusOfCodeThatEndsTheProcess) {
  const outcome ended = confine([]() -> int {
    std::cout << "last words";
    std::exit(255);
  });
  EXPECT_EQ(ended.status, 255);
  EXPECT_EQ(ended.output, "last words");
}

TEST_F(Confinement, TellsADeathByASignal) {
  EXPECT_EQ(confine([]() -> int {
              signal(SIGSEGV, SIG_DFL);
              return system("kill -9 $$") == 9 ? 3 : 4;
            }).status,
            3);
  EXPECT_EQ(confine([]() -> int { __builtin_trap(); }).status, 128 + SIGILL);
}

TEST_F(Confinement, TellsTheStatusWhereTheCallerIgnoresTheEndsOfItsChildren) {
  EXPECT_THAT(call([&] {
                signal(SIGCHLD, SIG_IGN);
                return confine([] { return system("exit 7") / 256; }).status;
              }),
              Ended(7, "", ""));
}

TEST_F(Confinement, DoesNotRunWhatTheCallerDoesAtItsEnd) {
  EXPECT_THAT(call([&] {
                std::atexit([] { write_file("ends", fs::exists("ends") ? "twice" : "once"); });
                return confine([]() -> int { std::exit(0); }).status;
              }),
              Ended(0, "", ""));
  EXPECT_EQ(read_file("ends"), "once");
}

TEST_F(Confinement, DoesNotPrintWhatTheCallerHasYetToPrint) {
  EXPECT_THAT(call([&] {
                std::printf("callers ");
                const outcome ended = confine([] { return std::printf("codes ") - 6; });
                std::printf("%s", ended.output.c_str());
                return ended.status;
              }),
              Ended(0, "callers codes ", ""));
}

TEST_F(Confinement, GivesTheSurroundingsOfEveryRunAndNoOthers) {
  setenv("KORVALEN_INIT_DIR", "/somewhere", 1);
  write_file("input", "of the caller");
  const int previous_input = dup(STDIN_FILENO);
  dup2(open("input", O_RDONLY), STDIN_FILENO);
  umask(0777);
  const outcome ended =
      confine([] { return system("env | sort | grep -v ^PWD= | grep -v ^_=; umask; pwd; wc -c"); });
  unsetenv("KORVALEN_INIT_DIR");
  umask(022);
  dup2(previous_input, STDIN_FILENO);
  EXPECT_EQ(ended.output,
            "LC_ALL=C.UTF-8\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\n0022\n" + scratch().string() + "\n0\n");
}

TEST_F(Confinement, LeavesNoFilesOpenButTheThree) {
  const int open_one = open(".", O_RDONLY);
  EXPECT_EQ(confine(count_of_open_files).status, 3);
  close(open_one);
}

TEST_F(Confinement, LeavesThePowersOverFilesOnly) {
  const outcome ended = confine([] {
    std::cout << std::hex << held_powers();
    return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0);
  });
  EXPECT_EQ(ended.output, "1b") << "chown 1, dac_override 2, fowner 8, fsetid 10";
  EXPECT_EQ(ended.status, 1) << "new privileges can be had";
}

TEST_F(Confinement, GivesNoPowersThatTheCallerLacks) {
  EXPECT_THAT(call([&] {
                __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
                const unsigned few = 1U << CAP_SETPCAP | 1U << CAP_DAC_OVERRIDE;
                const __user_cap_data_struct wanted[2] = {{few, few, 0}, {0, 0, 0}};
                syscall(SYS_capset, &header, wanted);
                drop_powers();
                std::cout << std::hex << held_powers();
                return 0;
              }),
              Ended(0, "2", ""));
}

TEST_F(Confinement, EndsAllThatTheCodeLeftBehind) {
  EXPECT_EQ(confine([] {
              leave_somebody_behind();
              wait_for_file("begun");
              return 0;
            }).status,
            0);
  usleep(2 * moment);
  EXPECT_EQ(support::file_names(support::snapshot(scratch())), "begun\n");
}

TEST_F(Confinement, EndsWithItsParentAndSoDoesWhatTheCodeStarted) {
  {
    const support::other_program parent([&] {
      confine([] {
        leave_somebody_behind();
        sleep(60);
        return 0;
      });
    });
    wait_for_file("begun");
  }
  usleep(2 * moment);
  EXPECT_EQ(support::file_names(support::snapshot(scratch())), "begun\n");
}

namespace {

int generation = 0;
int slow_generation = 0;

void be_slow_in_one_generation() {
  if (++generation != slow_generation)
    return;
  write_file("born", "");
  usleep(moment);
}

class LateConfinement : public Confinement, public testing::WithParamInterface<int> {};

} // namespace

TEST_P(LateConfinement, RunsNothingWhenTheParentDiedBeforeTheChildCouldAskToDieWithIt) {
  {
    const support::other_program parent([&] {
      slow_generation = GetParam();
      pthread_atfork(nullptr, nullptr, be_slow_in_one_generation);
      confine([] {
        write_file("ran", "");
        return 0;
      });
    });
    wait_for_file("born");
  }
  usleep(2 * moment);
  EXPECT_EQ(support::file_names(support::snapshot(scratch())), "born\n");
}

INSTANTIATE_TEST_SUITE_P(InGeneration, LateConfinement, testing::Values(1, 2),
                         testing::PrintToStringParamName());

TEST_F(Confinement, NeedsARootAndADirectory) {
  EXPECT_EQ(error_of("/nowhere", "/"), "cannot enter /nowhere: No such file or directory");
  EXPECT_EQ(error_of("/", "/nowhere"), "cannot enter /nowhere: No such file or directory");
}

namespace {

struct refusal {
  const char *name;
  long number;
  std::uint32_t limit; // of the call's first argument
  const char *text;
};

void PrintTo(const refusal &one, std::ostream *out) {
  *out << one.name;
}

const refusal refusals[] = {
    {"AFileInMemory", SYS_memfd_create, UINT32_MAX, "cannot make a file in memory: Operation not permitted"},
    {"APipe", SYS_pipe2, UINT32_MAX, "cannot make a pipe: Operation not permitted"},
    {"AChild", SYS_clone, UINT32_MAX, "cannot make a child process: Operation not permitted"},
    {"StandardError", SYS_dup2, UINT32_MAX, "cannot replace standard error: Operation not permitted"},
    {"ToDieWithTheParent", SYS_prctl, PR_SET_PDEATHSIG,
     "cannot ask to die with the parent: Operation not permitted"},
    {"AProcessNamespace", SYS_unshare, UINT32_MAX,
     "cannot make a private process namespace: Operation not permitted"},
    {"ASession", SYS_setsid, UINT32_MAX, "cannot make a session: Operation not permitted"},
    {"ARootDirectory", SYS_chroot, UINT32_MAX, "cannot enter /: Operation not permitted"},
    {"ToCloseFiles", SYS_close_range, UINT32_MAX, "cannot close files: Operation not permitted"},
    {"ToTellThePowers", SYS_capget, UINT32_MAX, "cannot tell the capabilities: Operation not permitted"},
    {"ToDropPowers", SYS_capset, UINT32_MAX, "cannot drop capabilities: Operation not permitted"},
};

class RefusedConfinement : public Confinement, public testing::WithParamInterface<refusal> {};

} // namespace

TEST_P(RefusedConfinement, IsAFailureWithTheReasonAndRunsNothing) {
  EXPECT_THAT(call([&] {
                support::fail_system_call(GetParam().number, EPERM, GetParam().limit);
                try {
                  confine([] {
                    write_file("ran", "");
                    return 0;
                  });
                } catch (const failure &problem) {
                  std::cout << problem.what() << '\n';
                }
                return 0;
              }),
              Ended(0, std::string(GetParam().text) + "\n", ""));
  EXPECT_FALSE(fs::exists("ran"));
}

INSTANTIATE_TEST_SUITE_P(Of, RefusedConfinement, testing::ValuesIn(refusals),
                         [](const testing::TestParamInfo<refusal> &one) { return one.param.name; });
