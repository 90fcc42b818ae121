// A plan tells what an installation then does, whatever is mounted where; or it says why it cannot tell.

#include "admin/planned_run.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>

using namespace admin_tests;
using support::write_file;
using testing::Contains;
using testing::IsSupersetOf;
using whole_runs::copy_tree;

namespace {

const std::string placed = "new file 0755 0:0 ENVI/save/k.sav";
const std::string removed = "removed file 0644 0:0 ENVI/extensions/korvalen_menu.sav";
const std::vector<std::string> both = {placed, removed};

class PlanOverMounts : public planned_run {
protected:
  // A directory of ENVI, put aside and mounted again where it was.
  void put_in_memory(const std::string &directory, const char *options = "mode=0755") {
    fs::copy(directory, path("aside"), fs::copy_options::recursive);
    mount_memory(directory, options);
    fs::copy(path("aside"), directory, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    fs::remove_all(path("aside"));
  }
};

void set_flags(const std::string &path, int flags) {
  const int file = open(path.c_str(), O_RDONLY);
  must(ioctl(file, FS_IOC_SETFLAGS, &flags), "cannot set the flags of " + path);
  close(file);
}

// While one lives, nobody can change the file.
struct immutable {
  explicit immutable(std::string path) : path_(std::move(path)) { set_flags(path_, FS_IMMUTABLE_FL); }
  ~immutable() { set_flags(path_, 0); }
  immutable(const immutable &) = delete;
  immutable &operator=(const immutable &) = delete;

private:
  std::string path_;
};

// The owner and user 4242 may do everything, others nothing.
void set_acl(const std::string &path, const char *list) {
  struct entry {
    std::uint16_t tag, rights;
    std::uint32_t id;
  };
  constexpr std::uint32_t nobodys = 0xffffffff;
  const struct {
    std::uint32_t version = 2;
    entry entries[5] = {{1, 7, nobodys}, {2, 7, 4242}, {4, 5, nobodys}, {16, 7, nobodys}, {32, 0, nobodys}};
  } acl;
  must(setxattr(path.c_str(), list, &acl, sizeof acl, 0), "cannot set an access control list");
}

} // namespace

TEST_F(PlanOverMounts, WithNoneOfTheirOwnIsTrue) {
  make_host();
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, OfAWholeEnviInMemoryIsTrue) {
  mount_memory(envi());
  make_host();
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, OfAnEnviBoundFromElsewhereIsTrue) {
  fs::create_directory(path("elsewhere"));
  fs::create_directory(envi());
  bind(path("elsewhere"), envi());
  make_host();
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, WithinMountsIsTrue) {
  mount_memory(envi());
  make_host();
  put_in_memory(envi() + "/save");
  put_in_memory(envi() + "/idl86");
  put_in_memory(envi() + "/idl86/help");
  fs::create_directory(path("bound"));
  fs::create_directory(envi() + "/idl86/help/online_help");
  bind(path("bound"), envi() + "/idl86/help/online_help");
  ship("idl/help/Korvalen/tools.html");
  const auto happened = expect_true_plan();
  EXPECT_THAT(happened, IsSupersetOf(both));
  EXPECT_THAT(happened,
              Contains("new file 0755 0:0 ENVI/idl86/help/online_help/Subsystems/Korvalen/tools.html"));
}

TEST_F(PlanOverMounts, OnOnePointIsTrue) {
  make_host();
  mount_memory(envi() + "/save");
  write_file(envi() + "/save/k.sav", "hidden");
  mount_memory(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, HidingOthersIsTrue) {
  make_host();
  mount_memory(envi() + "/save/deeper");
  mount_memory(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), Contains(placed));
}

TEST_F(PlanOverMounts, ThatCannotBeWrittenTellsHowTheInstallerFails) {
  make_host();
  bind(envi() + "/save", envi() + "/save");
  make_read_only(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), testing::Not(Contains(placed)));
}

TEST_F(PlanOverMounts, OfAFileSystemThatCannotBeWrittenTellsHowTheInstallerFails) {
  make_host();
  put_in_memory(envi() + "/bin", "mode=0755");
  must(mount(nullptr, (envi() + "/bin").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), "cannot remount");
  expect_true_plan();
}

TEST_F(PlanOverMounts, OfAProductThatCannotBeWrittenTellsWhatTheInstallerDoes) {
  make_host();
  ship("envi/save/quorin_core.sav");
  bind(product(), product());
  make_read_only(product());
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, ThatNobodyMayCopyIsTrue) {
  make_host();
  mount_memory(envi() + "/save");
  must(mount(nullptr, (envi() + "/save").c_str(), nullptr, MS_UNBINDABLE, nullptr),
       "cannot make it unbindable");
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, ThatNobodyMayCopyOrWriteTellsHowTheInstallerFails) {
  make_host();
  mount_memory(envi() + "/save");
  must(mount(nullptr, (envi() + "/save").c_str(), nullptr, MS_UNBINDABLE, nullptr),
       "cannot make it unbindable");
  make_read_only(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), testing::Not(Contains(placed)));
}

TEST_F(PlanOverMounts, OfAFileThatWouldBeWrittenIsRefused) {
  make_host();
  write_file(envi() + "/save/k.sav", "old");
  bind(envi() + "/save/k.sav", envi() + "/save/k.sav");
  EXPECT_EQ(refusal(), "~/envi54 cannot be rehearsed: ~/envi54/save/k.sav is a mount of its own that cannot "
                       "be covered (it is no directory)");
}

TEST_F(PlanOverMounts, OfAFileElsewhereIsTrue) {
  make_host();
  write_file(path("elsewhere"), "");
  bind(path("elsewhere"), path("elsewhere"));
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, OfALaunchScriptLinkedToAMountedFileIsRefused) {
  make_host();
  write_file(path("host/elsewhere"), envi_script("envi"), 0755);
  bind(path("host/elsewhere"), path("host/elsewhere"));
  fs::remove(envi() + "/bin/envi");
  fs::create_symlink(path("host/elsewhere"), envi() + "/bin/envi");
  EXPECT_EQ(refusal(), "~/elsewhere cannot be rehearsed: ~/elsewhere is a mount of its own that cannot be "
                       "covered (it is no directory)");
}

TEST_F(PlanOverMounts, WithALaunchScriptThatLeadsToADeviceIsRefused) {
  make_host();
  fs::remove(envi() + "/bin/envi");
  fs::create_symlink("/dev/null", envi() + "/bin/envi");
  EXPECT_EQ(refusal(),
            "~/envi54/bin/envi cannot be rehearsed: it leads to a device, and there is none in a rehearsal");
}

TEST_F(PlanOverMounts, WithOddNamesIsTrue) {
  make_host();
  const std::string odd = path("host/a b:c,d\\e\\040\tf\ng\"h'");
  mount_memory(odd);
  mount_memory(odd + "/upperdir=x,lowerdir=y");
  write_file(odd + "/file", "");
  put_in_memory(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, OfAnEnviWithAnOddNameIsTrue) {
  make_host();
  const std::string odd = path("host/a b:c,d\\e\\040\tf\ng\"h'");
  mount_memory(odd);
  copy_tree(envi(), odd);
  envi_dir = path("host/envi_link");
  fs::create_symlink(odd, envi_dir);
  EXPECT_THAT(expect_true_plan(), Contains("new file 0755 0:0 " + odd + "/save/k.sav"));
}

TEST_F(PlanOverMounts, OfTheProcessesTwiceAndInThemIsTrue) {
  make_host();
  mount_at("/proc", "proc", "proc", 0);
  mount_at("/proc/fs", "memory", "tmpfs", 0);
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, SharedWithPeersLeaveNothingWithThem) {
  make_host();
  put_in_memory(envi() + "/save");
  must(mount(nullptr, "/", nullptr, MS_REC | MS_SHARED, nullptr), "cannot share the mounts");
  const auto happened = expect_true_plan();
  must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "cannot make the mounts private");
  EXPECT_THAT(happened, IsSupersetOf(both));
}

TEST_F(PlanOverMounts, OfOneDirectoryWrittenThroughBothIsRefused) {
  make_host();
  fs::create_directories(envi() + "/classic/save");
  ship("envi/classic/save/c.sav");
  bind(envi() + "/save", envi() + "/classic/save");
  EXPECT_EQ(refusal(), "/ and ~/envi54/classic/save cannot be rehearsed together: they are mounts of the "
                       "same directory, and the run writes through both");
}

// What is placed through the one is a stale file through the other, which the view does not show.
TEST_F(PlanOverMounts, OfOneDirectoryPlacedInThroughOneAndClearedThroughTheOtherIsRefused) {
  make_host();
  fs::create_directories(envi() + "/classic/save_add");
  ship("envi/save/envi_korvalen_itools.sav");
  bind(envi() + "/save", envi() + "/classic/save_add");
  EXPECT_EQ(refusal(),
            "/ and ~/envi54/classic/save_add cannot be rehearsed together: they are mounts of the same "
            "directory, and the run writes through both");
}

TEST_F(PlanOverMounts, OfOneDirectoryWrittenThroughOneIsTrue) {
  make_host();
  fs::create_directories(path("elsewhere"));
  bind(envi() + "/save", path("elsewhere"));
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

// What is placed through the one would be deployed through the other.
TEST_F(PlanOverMounts, OfOneDirectoryReadThroughOneAndPlacedInThroughTheOtherIsRefused) {
  make_host();
  fs::create_directories(source("envi/custom_code"));
  bind(source("envi/custom_code"), envi() + "/save");
  EXPECT_EQ(refusal(), "/ and ~/envi54/save cannot be rehearsed together: they are mounts of the same "
                       "directory, and the run writes through both");
}

TEST_F(PlanOverMounts, OfOnePartOfAFileSystemWrittenThroughTwoIsRefused) {
  make_host();
  mount_memory(path("memory"));
  fs::create_directories(path("memory/part"));
  fs::create_directories(envi() + "/classic/save");
  ship("envi/classic/save/c.sav");
  bind(path("memory/part"), envi() + "/save");
  bind(path("memory/part"), envi() + "/classic/save");
  EXPECT_EQ(refusal(),
            "~/envi54/classic/save and ~/envi54/save cannot be rehearsed together: they are mounts of "
            "the same directory, and the run writes through both");
}

TEST_F(PlanOverMounts, OfAWholeFileSystemWrittenThroughTwoIsRefused) {
  make_host();
  fs::create_directories(envi() + "/classic/save");
  ship("envi/classic/save/c.sav");
  mount_memory(envi() + "/save");
  bind(envi() + "/save", envi() + "/classic/save");
  EXPECT_EQ(refusal(),
            "~/envi54/classic/save and ~/envi54/save cannot be rehearsed together: they are mounts of "
            "the same directory, and the run writes through both");
}

TEST_F(PlanOverMounts, OfTwoPartsOfAFileSystemIsTrue) {
  make_host();
  mount_memory(path("memory"));
  for (const char *part : {"save", "extensions"}) {
    fs::create_directories(path("memory/") + part);
    bind(path("memory/") + part, envi() + "/" + part);
  }
  EXPECT_THAT(expect_true_plan(), Contains(placed));
}

TEST_F(PlanOverMounts, OfAPartThatIsWrittenAndAWholeThatIsWrittenElsewhereIsTrue) {
  make_host();
  ship("envi/save/quorin_core.sav"); // which is removed from the product
  fs::create_directory(path("elsewhere"));
  bind(path("elsewhere"), envi() + "/save");
  EXPECT_THAT(expect_true_plan(), Contains(placed));
}

TEST_F(PlanOverMounts, InHundredsIsTrueWithinSeconds) {
  make_host();
  for (int i = 0; i < 300; ++i)
    mount_memory(path("many/" + std::to_string(i)));
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
  EXPECT_LT(support::seconds_taken([&] { plan(); }), 20);
}

TEST_F(PlanOverMounts, WithAnImmutableFileTellsHowTheInstallerFails) {
  make_host();
  write_file(envi() + "/save/k.sav", "old");
  const immutable file(envi() + "/save/k.sav");
  EXPECT_THAT(expect_true_plan(), testing::Not(testing::IsEmpty()));
}

TEST_F(PlanOverMounts, WithAnImmutableStaleFileAndScriptTellsWhatTheInstallerDoes) {
  make_host();
  const immutable file(envi() + "/extensions/korvalen_menu.sav");
  const immutable script(envi() + "/bin/envi");
  EXPECT_THAT(expect_true_plan(), testing::Not(Contains(removed)));
}

TEST_F(PlanOverMounts, WithAnImmutableDirectoryTellsHowTheInstallerFails) {
  make_host();
  const immutable directory(envi() + "/save");
  EXPECT_THAT(expect_true_plan(), testing::Not(Contains(placed)));
}

TEST_F(PlanOverMounts, OfWhichOneHasAnImmutableTopmostDirectoryIsRefused) {
  make_host();
  mount_memory(envi() + "/save");
  const immutable directory(envi() + "/save");
  EXPECT_EQ(refusal(),
            "~/envi54 cannot be rehearsed: ~/envi54/save is a mount of its own that cannot be covered (its "
            "topmost directory is immutable or only to be appended to)");
}

TEST_F(PlanOverMounts, WithDefaultAccessControlListsIsTrue) {
  make_host();
  set_acl(envi() + "/save", "system.posix_acl_default");
  set_acl(envi() + "/bin", "system.posix_acl_default");
  set_acl(envi() + "/bin/envi", "system.posix_acl_access");
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, WhoseRootHasADefaultAccessControlListIsTrue) {
  mount_memory(envi());
  make_host();
  ship("envi/resource/langcat/a.cat");
  set_acl(envi(), "system.posix_acl_default");
  set_acl(envi(), "system.posix_acl_access");
  fs::create_directory(envi() + "/bin2");
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanOverMounts, WithDirectoriesThatHandOnTheirGroupIsTrue) {
  make_host();
  for (const std::string &directory : {envi(), envi() + "/save", envi() + "/idl86/help"}) {
    must(chown(directory.c_str(), 1234, 5678), "cannot chown");
    must(chmod(directory.c_str(), 02775), "cannot chmod");
  }
  ship("idl/help/Korvalen/tools.html");
  EXPECT_THAT(expect_true_plan(), Contains("new directory 0755 0:5678 ENVI/classic"));
}

TEST_F(PlanOverMounts, WhoseRootHandsOnItsGroupIsTrue) {
  mount_memory(envi() + "/save", "mode=02775,uid=1234,gid=5678");
  make_host();
  EXPECT_THAT(expect_true_plan(), Contains("mode directory 0755 1234:5678 ENVI/save"));
}

TEST_F(PlanOverMounts, OfAnEnviOfSomebodyElseIsTrue) {
  make_host();
  write_file(envi() + "/save/k.sav", "old", 0600);
  whole_runs::give_to_other_user(envi());
  EXPECT_THAT(expect_true_plan(), Contains("content file 0755 65534:65534 ENVI/save/k.sav"));
}

TEST_F(PlanOverMounts, WithHardLinksBetweenEnviAndProductIsTrue) {
  make_host();
  fs::create_hard_link(source("envi/save/k.sav"), envi() + "/save/k.sav");
  fs::create_hard_link(envi() + "/extensions/korvalen_menu.sav", envi() + "/extensions/menu.sav");
  expect_true_plan();
}

namespace {

class PlanInAnotherRoot : public PlanOverMounts {
protected:
  // The disk, changes to which go into memory. On top of `below`.
  void make_overlay(const std::string &point, const std::string &below) {
    mount_memory(point + ".changes");
    fs::create_directory(point + ".changes/upper");
    fs::create_directory(point + ".changes/work");
    fs::create_directory(point);
    const std::string options =
        "lowerdir=" + below + ",upperdir=" + point + ".changes/upper,workdir=" + point + ".changes/work";
    mount_at(point, "overlay", "overlay", 0, options.c_str());
  }
  void mount_the_usual(const std::string &root) {
    mount_at(root + "/proc", "proc", "proc", 0);
    bind("/dev", root + "/dev");
  }
};

} // namespace

TEST_F(PlanInAnotherRoot, OfAFileWithTwoNamesOnAnOverlayIsRefused) {
  make_host();
  write_file(envi() + "/save/k.sav", "old");
  fs::create_hard_link(envi() + "/save/k.sav", envi() + "/save/second.sav");
  make_overlay(path("overlay"), envi() + "/save");
  bind(path("overlay"), envi() + "/save");
  EXPECT_EQ(refusal(), "~/envi54/save/k.sav cannot be rehearsed: the file has further names, which its file "
                       "system does not let an overlay tell");
}

TEST_F(PlanInAnotherRoot, OfADirectoryThatIsAnOverlayOfAnOverlayIsRefused) {
  make_host();
  make_overlay(path("first"), envi() + "/save");
  make_overlay(path("second"), path("first"));
  bind(path("second"), envi() + "/save");
  EXPECT_EQ(refusal(),
            "~/envi54 cannot be rehearsed: ~/envi54/save is a mount of its own that cannot be covered "
            "(it is an overlay itself, of which the kernel stacks two at most: Invalid argument)");
}

TEST_F(PlanInAnotherRoot, ThatIsAnOverlayIsTrue) {
  make_host();
  make_overlay(path("root"), "/");
  mount_the_usual(path("root"));
  set_root(path("root"));
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}

TEST_F(PlanInAnotherRoot, ThatIsAnOverlayOfAnOverlayIsRefused) {
  make_host();
  make_overlay(path("first"), "/");
  make_overlay(path("root"), path("first"));
  mount_the_usual(path("root"));
  set_root(path("root"));
  EXPECT_EQ(refusal(), "~/korvalen cannot be rehearsed: / is a mount of its own that cannot be covered (it "
                       "is an overlay itself, of which the kernel stacks two at most: Invalid argument)");
}

TEST_F(PlanInAnotherRoot, ThatIsNoMountPointIsTrue) {
  make_host();
  const std::string other = path("root");
  for (const char *directory : {"usr", "proc", "dev", "etc", "tmp", "var/tmp", "build"})
    fs::create_directories(other + "/" + directory);
  for (const char *link : {"bin", "sbin", "lib", "lib64"})
    fs::create_symlink(std::string("usr/") + link, other + "/" + link);
  mount_the_usual(other);
  bind("/usr", other + "/usr");
  const std::string programs = fs::path(support::admin_path).parent_path().string();
  fs::create_directories(other + programs);
  bind(programs, other + programs);
  fs::create_directories(fs::path(other + host()).parent_path());
  fs::rename(host(), other + host());
  set_root(other);
  EXPECT_THAT(expect_true_plan(), IsSupersetOf(both));
}
