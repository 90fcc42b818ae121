// A view of the disk: what is in it, what is kept out of it, and how it ends.

#include "admin/view.h"

#include "admin/changes.h"
#include "admin/confinement.h"
#include "admin/disk_state.h"
#include "admin/scratch.h"
#include "support/child.h"
#include "support/disturbance.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>

using namespace korvalen::admin;
using admin_tests::differences;
using admin_tests::state_of_all;
using support::call;
using support::Ended;
using support::fail_system_call;
using support::read_file;
using support::write_file;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t room = 64U << 20U;
const scratch_place in_memory = {"", room};

class View : public support::scratch_test {
protected:
  // What the code changes, one line a path, the scratch directory written as "~".
  std::vector<std::string> changes_by(const std::function<int()> &code) const {
    const auto before = state_of_all({scratch()});
    const view seen(in_memory);
    const outcome ended = run_confined(seen.inside().path, scratch(), code);
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(differences(before, state_of_all({scratch()})), "");
    static const char *const words[] = {"none", "new", "removed", "type", "content", "mode", "owner"};
    std::vector<std::string> lines;
    for (const change &one : find_changes(seen, {scratch()}, hashing::where_needed).touched)
      if (lies_in(one.path, scratch().string()))
        lines.push_back(words[static_cast<std::size_t>(kind_of(one))] +
                        (" ~" + one.path.substr(scratch().string().size())));
    return lines;
  }
};

// What the view says of the first mount that it does not cover, or why there is no view; then what it leaves.
int tell_of_a_view(const scratch_place &place) {
  try {
    const view seen(place);
    std::cout << (seen.bare_mounts().empty() ? "all is covered" : seen.bare_mounts().front().reason) << '\n';
  } catch (const failure &problem) {
    std::cout << problem.what() << '\n';
  }
  return 0;
}

void tell_of(const std::function<void()> &action) {
  try {
    action();
  } catch (const failure &problem) {
    std::cout << problem.what() << '\n';
  }
}

} // namespace

TEST_F(View, TellsADirectoryThatReplacedADirectoryByWhatWasInBoth) {
  write_file("old/deep/gone", "");
  write_file("old/both", "before");
  EXPECT_THAT(changes_by([] {
                fs::remove_all("old");
                write_file("old/both", "after!");
                write_file("old/fresh", "");
                return 0;
              }),
              ElementsAre("none ~", "none ~/old", "content ~/old/both", "removed ~/old/deep",
                          "removed ~/old/deep/gone", "new ~/old/fresh"));
}

TEST_F(View, TellsADirectoryThatReplacedAFileAndAFileThatReplacedADirectory) {
  write_file("file", "");
  write_file("directory/file", "");
  EXPECT_THAT(changes_by([] {
                fs::remove("file");
                write_file("file/within", "");
                fs::remove_all("directory");
                write_file("directory", "");
                return 0;
              }),
              ElementsAre("none ~", "type ~/directory", "removed ~/directory/file", "type ~/file",
                          "new ~/file/within"));
}

TEST_F(View, TellsTheOtherNamesOfAFileThatWasWritten) {
  write_file("one", "before");
  fs::create_hard_link("one", "two");
  EXPECT_THAT(changes_by([] {
                write_file("one", "after!");
                return read_file("two") == "after!" ? 0 : 1;
              }),
              ElementsAre("none ~", "content ~/one", "content ~/two"));
}

TEST_F(View, TellsWhatWasChangedAndChangedBackAsNoChange) {
  write_file("file", "bytes", 0644);
  EXPECT_THAT(changes_by([] {
                write_file("file", "others", 0600);
                write_file("file", "bytes", 0644);
                return 0;
              }),
              ElementsAre("none ~", "none ~/file"));
}

TEST_F(View, IsAtItsEndWhereItWasAtItsBeginning) {
  const std::string mounts = read_file("/proc/self/mountinfo");
  umask(0347);
  {
    const view seen(in_memory);
    EXPECT_EQ(support::mode_of(seen.inside().path + view::run_directory()), 0755U);
  }
  EXPECT_EQ(umask(022), 0347U);
  EXPECT_EQ(read_file("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(fs::current_path(), scratch());
}

TEST_F(View, ForbidsWhatTheMountsOfTheDiskForbidAndDevices) {
  EXPECT_THAT(call([&] {
                if (unshare(CLONE_NEWNS) != 0 ||
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
                  return 125;
                fs::create_directory("m");
                mount("memory", "m", "tmpfs", 0, "");
                fs::create_directory("m/forbids");
                mount("memory", "m/forbids", "tmpfs", MS_NOEXEC | MS_NOSUID, "");
                const view seen(in_memory);
                for (const char *const point : {"m", "m/forbids"}) {
                  struct statvfs told {};
                  statvfs((seen.inside().path + path(point)).c_str(), &told);
                  std::cout << point << ((told.f_flag & ST_NODEV) != 0 ? " nodev" : "")
                            << ((told.f_flag & ST_NOEXEC) != 0 ? " noexec" : "")
                            << ((told.f_flag & ST_NOSUID) != 0 ? " nosuid" : "") << '\n';
                }
                return 0;
              }),
              Ended(0, "m nodev\nm/forbids nodev noexec nosuid\n", ""));
}

TEST_F(View, IsNotMadeWithoutRightsAndLeavesTheProcessWhereItWas) {
  const std::string mounts = read_file("/proc/self/mountinfo");
  EXPECT_THAT(call([&] {
                fail_system_call(SYS_mount_setattr, EPERM);
                tell_of_a_view(in_memory);
                return read_file("/proc/self/mountinfo") == mounts && fs::current_path() == scratch() ? 0 : 1;
              }),
              Ended(0, "cannot set the attributes of a mount: Operation not permitted\n", ""));
}

TEST_F(View, ThatCannotBeLeftEndsTheProcess) {
  EXPECT_THAT(call([&] {
                {
                  const view seen(in_memory);
                  fail_system_call(SYS_setns, EPERM);
                }
                std::cout << "went on";
                return 0;
              }),
              Ended(1, "", "korvalen_admin: cannot come back from a rehearsal: Operation not permitted\n"));
}

TEST_F(View, HasTheAccessControlListsOfTheRootOfAMount) {
  EXPECT_THAT(
      call([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
          return 125;
        fs::create_directory("m");
        mount("memory", "m", "tmpfs", 0, "mode=0755");
        // Version 2; owner rwx, user 4242 rwx, group r-x, mask rwx, others nothing.
        const unsigned char list[] = {2, 0,   0,   0,   1,   0,   7,  0, 255, 255, 255, 255, 2,   0,  7,
                                      0, 146, 16,  0,   0,   4,   0,  5, 0,   255, 255, 255, 255, 16, 0,
                                      7, 0,   255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
        if (setxattr("m", "system.posix_acl_default", list, sizeof list, 0) != 0)
          return 124;
        auto seen = std::make_unique<view>(in_memory);
        char found[100];
        const std::string inside = seen->inside().path + path("m");
        std::cout << getxattr(inside.c_str(), "system.posix_acl_default", found, sizeof found) << ' '
                  << getxattr(inside.c_str(), "system.posix_acl_access", found, sizeof found);
        return 0;
      }),
      Ended(0, "44 -1", ""));
}

namespace {

struct refusal {
  const char *name;
  long number;
  const char *text;
};

void PrintTo(const refusal &one, std::ostream *out) {
  *out << one.name;
}

class RefusedView : public View, public testing::WithParamInterface<refusal> {};

const refusal refusals[] = {
    {"ADirectory", SYS_mkdir, "cannot make the directory /proc/view: Input/output error\n"},
    {"AnOwner", SYS_chown, "cannot set the owner of /proc/scratch/0/upper: Input/output error\n"},
    {"AMode", SYS_chmod, "cannot set the mode of /proc/scratch/0/upper: Input/output error\n"},
    {"AWayIntoADirectory", SYS_chdir, "cannot enter /: Input/output error\n"},
    {"AMount", SYS_mount, "cannot make the mount of /proc private: Input/output error\n"},
    {"AnOverlay", SYS_fsopen, "the kernel has no overlay file system: Input/output error\n"},
    {"AnOption", SYS_fsconfig, "cannot set lowerdir: Input/output error\n"},
    {"AMountOfTheOverlay", SYS_fsmount, "the kernel mounts no overlay: Input/output error\n"},
    {"APlaceForTheMount", SYS_move_mount, "cannot mount over /proc/view/dev/null: Input/output error\n"},
    {"ACopyOfAMount", SYS_open_tree, "cannot copy the mount of /dev/null: Input/output error\n"},
    {"AWayBack", SYS_setns, "cannot enter a mount namespace: Input/output error\n"},
    {"ANamespace", SYS_unshare, "cannot make a private mount namespace: Input/output error\n"},
};

} // namespace

TEST_P(RefusedView, TellsTheReason) {
  EXPECT_THAT(call([] {
                fail_system_call(GetParam().number, EIO);
                return tell_of_a_view(in_memory);
              }),
              Ended(0, GetParam().text, ""));
}

INSTANTIATE_TEST_SUITE_P(Of, RefusedView, testing::ValuesIn(refusals),
                         [](const testing::TestParamInfo<refusal> &one) { return one.param.name; });

TEST_F(View, IsNotMadeWhereTheWayBackToADirectoryIsBarred) {
  for (const int barred : {1, 2}) {
    const auto tell_of_refusal = [barred] {
      support::disturb({SYS_fchdir, EACCES, [barred](int count) { return count == barred; }});
      return tell_of_a_view(in_memory);
    };
    EXPECT_THAT(call(tell_of_refusal), Ended(0, "cannot enter a mount namespace: Permission denied\n", ""))
        << (barred == 1 ? "the root" : "the current one");
  }
}

TEST_F(View, IsMadeAlsoWhereTheCurrentDirectoryCannotBeOpened) {
  EXPECT_THAT(call([] {
                // The namespace, the root and the current directory are opened.
                support::disturb({SYS_openat, EACCES, [](int count) { return count == 3; }});
                return tell_of_a_view(in_memory);
              }),
              Ended(0, "all is covered\n", ""));
}

// A directory of which the kernel notes something else than that it hides what was before it.
TEST_F(View, TellsOfADirectoryWithAnotherMarkOnlyWhatWasWritten) {
  write_file("d/before", "");
  const view seen(in_memory);
  ASSERT_EQ(run_confined(seen.inside().path, scratch(),
                         [] {
                           write_file("d/new", "");
                           return 0;
                         })
                .status,
            0);
  std::string upper;
  for (const layer &one : seen.layers())
    if (fs::exists(one.changes + path("d")))
      upper = one.changes + path("d");
  ASSERT_EQ(setxattr(upper.c_str(), "trusted.overlay.opaque", "x", 1, 0), 0);
  std::vector<std::string> touched;
  for (const change &one : find_changes(seen, {}, hashing::where_needed).touched)
    touched.push_back(one.path);
  EXPECT_THAT(touched, testing::Contains(path("d/new")));
  EXPECT_THAT(touched, testing::Not(testing::Contains(path("d/before"))));
}

TEST_F(View, TellsNoFurtherNamesOfAFileThatIsAsBefore) {
  write_file("one", "bytes");
  fs::create_hard_link("one", "two");
  const view seen(in_memory);
  ASSERT_EQ(run_confined(seen.inside().path, scratch(),
                         [] {
                           std::ofstream("one") << "bytes";
                           return 0;
                         })
                .status,
            0);
  const found_changes found = find_changes(seen, {scratch()}, hashing::where_needed);
  EXPECT_TRUE(found.of_several_names.empty()) << testing::PrintToString(found.of_several_names);
  EXPECT_TRUE(found.with_unseen_names.empty());
}

TEST_F(View, NeedsAScratchDirectoryThatIsThere) {
  EXPECT_THAT(
      call([&] {
        return tell_of_a_view({path("nowhere"), room});
      }),
      Ended(0, "cannot make the directory " + path("nowhere") + "/run: No such file or directory\n", ""));
}

TEST_F(View, OnAScratchDirectoryThatCannotBeOneLeavesTheRootBare) {
  EXPECT_THAT(call([&] {
                write_file("0", "in the way");
                return tell_of_a_view({scratch().string(), room});
              }),
              Ended(0, "cannot make the directory " + path("0") + ": File exists\n", ""));
}

TEST_F(View, OfATreeSaysWhatCannotBeRead) {
  const tree disk = open_tree_at("");
  symlink("target", "link");
  EXPECT_THAT(
      call([&] {
        tell_of([&] { open_tree_at(path("nowhere")); });
        tell_of([&] { open_for_reading(path("nowhere")); });
        tell_of([&] { read_whole(open_for_reading(scratch()), scratch()); });
        tell_of([&] { link_target(disk, scratch()); });
        tell_of([&] { look_up(disk, path(std::string(300, 'n'))); });
        std::cout << link_target(disk, path("link")) << look_up(disk, path("link/x")).has_value()
                  << look_up(disk, path("x/y")).has_value() << names_in(disk, path("link")).size() << '\n';
        return 0;
      }),
      Ended(0,
            "cannot open " + path("nowhere") + ": No such file or directory\n" + "cannot open " +
                path("nowhere") + ": No such file or directory\n" + "cannot read " + scratch().string() +
                ": Is a directory\n" + "cannot read the link " + scratch().string() + ": Invalid argument\n" +
                "cannot look up " + path(std::string(300, 'n')) + ": File name too long\n" + "target000\n",
            ""));
}

TEST_F(View, OfARootDirectoryThatIsNoMountPointNeedsItsState) {
  EXPECT_THAT(call([&] {
                write_file("var/list", "");
                const support::other_root other(scratch());
                tell_of([] { visible_mounts(); });
                return 0;
              }),
              Ended(0, "cannot open /proc/self/mountinfo: No such file or directory\n", ""));
}

namespace {

struct scratch_refusal {
  const char *name;
  long number;
  const char *text;
};

void PrintTo(const scratch_refusal &one, std::ostream *out) {
  *out << one.name;
}

class RefusedScratch : public View, public testing::WithParamInterface<scratch_refusal> {};

const scratch_refusal scratch_refusals[] = {
    {"ADirectory", SYS_mkdir, "cannot make a scratch directory in /var/tmp: Input/output error\n"},
    {"ALock", SYS_flock, "cannot lock /var/tmp/korvalen_plan.*: Input/output error\n"},
    {"ALookAtTheRoom", SYS_statfs, "cannot look up /: Input/output error\n"},
};

} // namespace

TEST_P(RefusedScratch, TellsTheReason) {
  auto ended = call([] {
    fail_system_call(GetParam().number, EIO);
    tell_of([] {
      const disk_scratch made;
      expect_room("/");
    });
    return 0;
  });
  if (const std::size_t at = ended.out.find("plan."); at != std::string::npos)
    ended.out.replace(at + 5, 6, "*");
  EXPECT_THAT(ended, Ended(0, GetParam().text, ""));
}

INSTANTIATE_TEST_SUITE_P(Of, RefusedScratch, testing::ValuesIn(scratch_refusals),
                         [](const testing::TestParamInfo<scratch_refusal> &one) { return one.param.name; });
