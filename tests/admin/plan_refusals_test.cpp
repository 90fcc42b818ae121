// Where no plan can be made, one line says why, and nothing is left behind.

#include "admin/planned_run.h"

#include "admin/scratch.h"

#include <csignal>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

using namespace admin_tests;
using support::fail_system_call;
using support::write_file;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::string placed = "new file 0755 0:0 ENVI/save/k.sav";
const std::string advice =
    "; a rehearsal needs CAP_SYS_ADMIN and overlays in a mount namespace (Linux 5.12 or later): "
    "in a container, grant that, or run korvalen_installer without a rehearsal";

class PlanRefusals : public planned_run {
protected:
  PlanRefusals() {
    make_host();
    mount_memory("/var/tmp", "mode=1777");
  }

  // What the machine says of its memory, in kilobytes.
  void pretend_memory(unsigned long kilobytes) {
    write_file(path("meminfo"), "MemTotal: 8000000 kB\nMemFree: 1 kB\nMemAvailable:   " +
                                    std::to_string(kilobytes) + " kB\nBuffers: 5 kB\n");
    bind(path("meminfo"), "/proc/meminfo");
  }
  void ship_megabytes(std::size_t count) const {
    write_file(source("envi/save/large.sav"), std::string(count << 20U, 'x'));
  }

  static std::vector<std::string> names_in_var_tmp() {
    std::vector<std::string> names;
    for (const fs::directory_entry &one : fs::directory_iterator("/var/tmp"))
      names.push_back(one.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
};

struct refused_call {
  const char *name;
  long number;
  int error;
  std::string text;
};

void PrintTo(const refused_call &one, std::ostream *out) {
  *out << one.name;
}

std::string bare(const std::string &reason) {
  return "~/korvalen cannot be rehearsed: / is a mount of its own that cannot be covered (" + reason + ")";
}

const refused_call refused_calls[] = {
    {"ANamespaceOfMounts", SYS_unshare, EPERM,
     "cannot make a private mount namespace: Operation not permitted" + advice},
    {"TheWayBack", SYS_setns, EPERM, "cannot enter a mount namespace: Operation not permitted" + advice},
    {"TheWayBackToTheRoot", SYS_chroot, EPERM,
     "cannot enter a mount namespace: Operation not permitted" + advice},
    {"Mounts", SYS_mount, EPERM, "cannot make the mount of /proc private: Operation not permitted" + advice},
    {"ToOpenAFileSystem", SYS_fsopen, EPERM,
     bare("the kernel has no overlay file system: Operation not permitted")},
    {"ToOpenAFileSystemAtAll", SYS_fsopen, ENOSYS,
     bare("the kernel has no overlay file system: Function not implemented")},
    {"ToConfigureAFileSystem", SYS_fsconfig, EPERM, bare("cannot set lowerdir: Operation not permitted")},
    {"ToMountAFileSystem", SYS_fsmount, EPERM, bare("the kernel mounts no overlay: Operation not permitted")},
    {"ToCopyMounts", SYS_open_tree, ENOSYS,
     "cannot copy the mount of /dev/null: Function not implemented" + advice},
    {"ToMoveMounts", SYS_move_mount, EPERM,
     "cannot mount over /proc/view/dev/null: Operation not permitted" + advice},
    {"AttributesOfMounts", SYS_mount_setattr, ENOSYS,
     "cannot set the attributes of a mount: Function not implemented" + advice},
    {"AFileInMemory", SYS_memfd_create, EPERM, "cannot make a file in memory: Operation not permitted"},
    {"AChild", SYS_clone, EAGAIN, "cannot make a child process: Resource temporarily unavailable"},
    {"ASession", SYS_setsid, EPERM, "cannot make a session: Operation not permitted"},
    {"ToSeeTheRoomLeft", SYS_statfs, EIO, "cannot look up /proc/scratch: Input/output error"},
};

class RefusedCall : public PlanRefusals, public testing::WithParamInterface<refused_call> {};

} // namespace

TEST_P(RefusedCall, RefusesThePlanWithTheReason) {
  EXPECT_EQ(refusal_under([] { fail_system_call(GetParam().number, GetParam().error); }), GetParam().text);
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, RefusedCall, testing::ValuesIn(refused_calls),
                         [](const testing::TestParamInfo<refused_call> &one) { return one.param.name; });

TEST_F(PlanRefusals, WithoutRootSaysThatItIsNeeded) {
  EXPECT_EQ(refusal_under([] {
              must(setgid(65534), "cannot set the group");
              must(setuid(65534), "cannot set the user");
            }),
            "plan needs root: it looks at the disk as the installer would");
}

TEST_F(PlanRefusals, WithoutThePowerToMountSaysThatItIsNeeded) {
  EXPECT_EQ(refusal_under([] { must(prctl(PR_CAPBSET_DROP, CAP_SYS_ADMIN), "cannot drop a power"); }),
            "cannot enter a mount namespace: Operation not permitted" + advice);
}

TEST_F(PlanRefusals, WithoutTheProcessesNameThem) {
  EXPECT_EQ(refusal_under([] {
              must(unshare(CLONE_NEWNS), "cannot make a mount namespace");
              must(umount2("/proc", MNT_DETACH), "cannot unmount /proc");
            }),
            "cannot open /proc/self/ns/mnt: No such file or directory" + advice);
}

TEST_F(PlanRefusals, OfRelativeArgumentsInADeletedDirectoryNameIt) {
  envi_dir = "envi";
  EXPECT_EQ(refusal_under([] {
              fs::create_directory("gone");
              fs::current_path("gone");
              fs::remove("../gone");
            }),
            "cannot tell the current directory: No such file or directory");
}

TEST_F(PlanRefusals, WithoutAListOfMountsNameIt) {
  EXPECT_EQ(refusal_under([this] {
              must(unshare(CLONE_NEWNS), "cannot make a mount namespace");
              write_file(path("nothing"), "");
              const std::string list = "/proc/" + std::to_string(getpid()) + "/mountinfo";
              must(mount(path("nothing").c_str(), list.c_str(), nullptr, MS_BIND, nullptr),
                   "cannot hide the mounts");
            }),
            "/proc/self/mountinfo lists no mount; is /proc mounted?" + advice);
}

TEST_F(PlanRefusals, WithoutAPlaceForTheScratchDirectoryNameIt) {
  pretend_memory(0);
  mount_memory("/var");
  EXPECT_EQ(refusal(), "cannot make a scratch directory in /var/tmp: No such file or directory");
}

TEST_F(PlanRefusals, OfAScratchDirectoryThatCannotBeLockedGiveTheReason) {
  pretend_memory(0);
  EXPECT_EQ(refusal_under([] { fail_system_call(SYS_flock, ENOLCK); }),
            "cannot lock /var/tmp/korvalen_plan.*: No locks available");
}

TEST_F(PlanRefusals, DoNotHitAPlanWithLittleMemoryWhichUsesTheDisk) {
  pretend_memory(0);
  EXPECT_THAT(expect_true_plan(), Contains(placed));
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

TEST_F(PlanRefusals, DoNotHitAPlanOfAProductThatWouldFillTheMemory) {
  pretend_memory(8 << 10);
  ship_megabytes(3);
  EXPECT_THAT(expect_true_plan(), Contains("new file 0755 0:0 ENVI/save/large.sav"));
}

TEST_F(PlanRefusals, OfAScratchDirectoryOnDiskThatRunsFullAreClear) {
  pretend_memory(0);
  ship_megabytes(3);
  mount_memory("/var/tmp", "size=3m");
  EXPECT_EQ(refusal(),
            "the scratch directory for the rehearsal is full: free some memory, or some space in /var/tmp");
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

TEST_F(PlanRefusals, OfAScratchDirectoryInMemoryThatRunsFullAreClear) {
  pretend_memory(8 << 10);
  write_file(envi() + "/bin/envi", envi_script("envi") + std::string(3'400'000, '#'), 0755);
  EXPECT_EQ(refusal(),
            "the scratch directory for the rehearsal is full: free some memory, or some space in /var/tmp");
}

TEST_F(PlanRefusals, OfAScratchDirectoryWithoutRoomForFilesAreClear) {
  pretend_memory(0);
  mount_memory("/var/tmp", "nr_inodes=1050");
  EXPECT_EQ(refusal(),
            "the scratch directory for the rehearsal is full: free some memory, or some space in /var/tmp");
}

TEST_F(PlanRefusals, OfAScratchDirectoryWithoutAnyRoomAreClear) {
  pretend_memory(0);
  mount_memory("/var/tmp", "nr_inodes=9");
  EXPECT_EQ(refusal(),
            "cannot make the directory /var/tmp/korvalen_plan.*/run: No space left on device" + advice);
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

TEST_F(PlanRefusals, OfFilesThatAreCutShortNameOne) {
  ship_megabytes(3);
  EXPECT_EQ(refusal_under([] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{1 << 20, 1 << 20};
              must(setrlimit(RLIMIT_FSIZE, &limit), "cannot limit the size of files");
            }),
            "the scratch directory for the rehearsal is full: ~/envi54/save/large.sav was cut short");
}

TEST_F(PlanRefusals, LeaveNoPlanThatCannotBeWritten) {
  for (const char *option : {"--json", "--color=never"}) {
    const auto ended = support::call([&] {
      dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
      execl(support::admin_path, support::admin_path, "plan", option, product().c_str(), envi().c_str(),
            nullptr);
      return 127;
    });
    EXPECT_THAT(
        ended,
        support::Ended(1, "",
                       "korvalen_admin: cannot write to standard output: No space left on device; without "
                       "that, the status would be 2\n"));
  }
}

namespace {

struct surroundings {
  const char *name;
  void (*set)();
};

void PrintTo(const surroundings &one, std::ostream *out) {
  *out << one.name;
}

const surroundings harmless[] = {
    {"AClosedInput", [] { close(STDIN_FILENO); }},
    {"AClosedErrorOutput", [] { close(STDERR_FILENO); }},
    {"ANarrowUmask", [] { umask(0777); }},
    {"IgnoredEndsOfChildren", [] { signal(SIGCHLD, SIG_IGN); }},
    {"ADeletedCurrentDirectory",
     [] {
       fs::create_directory("gone");
       fs::current_path("gone");
       fs::remove("../gone");
     }},
    {"AnUnreadableCurrentDirectory",
     [] {
       fs::create_directory("secret");
       fs::current_path("secret");
       chmod(".", 0);
     }},
    {"OpenFiles", [] { dup2(open("/", O_RDONLY), 50); }},
    {"OtherVariables",
     [] {
       setenv("LC_ALL", "C", 1);
       setenv("KORVALEN_INIT_DIR", "/x", 1);
       setenv("PATH", "/nowhere", 1);
       setenv("LD_BIND_NOW", "1", 1);
       setenv("IFS", "/", 1);
     }},
};

class Surroundings : public PlanRefusals, public testing::WithParamInterface<surroundings> {};

} // namespace

TEST_P(Surroundings, MakeNoDifferenceToAPlan) {
  for (const unsigned long memory : {8'000'000UL, 0UL}) {
    pretend_memory(memory);
    const auto usual = plan_under([] {}, "--json");
    const auto here = plan_under(GetParam().set, "--json");
    EXPECT_EQ(here.status, 2);
    EXPECT_EQ(here.err, "");
    EXPECT_EQ(here.out, usual.out);
    EXPECT_THAT(here.out, HasSubstr(envi() + "/save/k.sav"));
  }
}

INSTANTIATE_TEST_SUITE_P(With, Surroundings, testing::ValuesIn(harmless),
                         [](const testing::TestParamInfo<surroundings> &one) { return one.param.name; });

namespace {

// A directory that a plan could have left, with what a plan leaves in one.
std::string leave_scratch(const std::string &name) {
  const std::string left = "/var/tmp/korvalen_plan." + name;
  write_file(left + "/0/upper/etc/file", "bytes");
  fs::create_directories(left + "/0/work/work");
  chmod((left + "/0/work/work").c_str(), 0);
  return left;
}

} // namespace

TEST_F(PlanRefusals, DoNotLeaveWhatAKilledPlanLeftOnDisk) {
  leave_scratch("killed");
  EXPECT_EQ(plan().status, 2);
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

TEST_F(PlanRefusals, LeaveTheScratchDirectoriesOfRunningPlansAndOfOthers) {
  const std::string running = leave_scratch("running");
  const int lock = open(running.c_str(), O_RDONLY | O_DIRECTORY);
  must(flock(lock, LOCK_EX), "cannot lock");
  must(chown(leave_scratch("somebodys").c_str(), 65534, 65534), "cannot chown");
  fs::create_directory("/var/tmp/other");
  fs::create_symlink("/var/tmp/other", "/var/tmp/korvalen_plan.link");
  write_file("/var/tmp/korvalen_plan.file", "");
  EXPECT_EQ(plan().status, 2);
  close(lock);
  EXPECT_THAT(names_in_var_tmp(), ElementsAre("korvalen_plan.file", "korvalen_plan.link",
                                              "korvalen_plan.running", "korvalen_plan.somebodys", "other"));
  EXPECT_TRUE(fs::exists(running + "/0/upper/etc/file"));
}

TEST_F(PlanRefusals, OfAKilledPlanLeaveADirectoryThatTheNextPlanRemoves) {
  pretend_memory(0);
  {
    const support::other_program killed([] {
      const korvalen::admin::disk_scratch held;
      pause();
    });
    for (int i = 0; i < 1000 && names_in_var_tmp().empty(); ++i)
      usleep(10'000);
    EXPECT_EQ(plan().status, 2);
    EXPECT_EQ(names_in_var_tmp().size(), 1U) << "the running plan's directory is gone";
  }
  EXPECT_EQ(plan().status, 2);
  EXPECT_THAT(names_in_var_tmp(), IsEmpty());
}

TEST_F(PlanRefusals, DoNotHitADirectoryWithMoreNamesThanACommandTakes) {
  const rlimit small_stack{512 << 10, RLIM_INFINITY};
  must(setrlimit(RLIMIT_STACK, &small_stack), "cannot limit the arguments of a command");
  for (int i = 0; i < 600; ++i)
    ship("envi/resource/bitmaps/" + std::string(240, 'n') + std::to_string(i) + ".bmp");
  const auto happened = expect_true_plan();
  EXPECT_THAT(happened, Contains(placed));
  std::vector<std::string> warned;
  for (const json &one : last_plan()["warnings"])
    warned.push_back(one["code"].get<std::string>() + " " + one.value("path", ""));
  EXPECT_THAT(warned, Contains("not-deployed " + source("envi/resource/bitmaps")));
}
