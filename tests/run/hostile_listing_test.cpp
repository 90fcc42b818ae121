// What may stand in the current directory under the listing's name, and current directories that cannot be
// written. The shell itself says on standard error why it cannot write the listing, once for each of 15
// listings.

#include "run/whole_run.h"

#include <cerrno>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <system_error>

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

const std::string listing = ".korvalen_ls_temp_txt";

void must(int result, const char *what) {
  if (result != 0)
    throw std::system_error(errno, std::generic_category(), std::string("test set-up: ") + what);
}

std::string fifteen_times(const std::string &text) {
  std::string result;
  for (int i = 0; i < 15; ++i)
    result += text;
  return result;
}

// A file that cannot be removed, even by root, as long as one lives.
class mounted_listing {
public:
  explicit mounted_listing(const std::string &source) {
    write_file(listing, "");
    must(mount(source.c_str(), listing.c_str(), nullptr, MS_BIND, nullptr), "cannot mount over the listing");
  }
  ~mounted_listing() { umount(listing.c_str()); }
  mounted_listing(const mounted_listing &) = delete;
  mounted_listing &operator=(const mounted_listing &) = delete;
};

class HostileListing : public whole_run {
protected:
  HostileListing() {
    make_envi();
    ship("envi/save/k.sav");
    write_file(envi() + "/custom_code/quorin_core.sav", "stale\n");
  }

  // The last listing is that of an empty directory.
  void expect_replaced_by_a_listing() const {
    EXPECT_EQ(changes({}, snapshot(".")), "new file 644 .korvalen_ls_temp_txt\n");
    EXPECT_EQ(read_file(listing), "");
  }

  void expect_everything_placed() const {
    EXPECT_EQ(changes({}, snapshot(envi() + "/save")), "new file 755 k.sav\n");
    EXPECT_EQ(read_file(envi() + "/save/k.sav"), "envi/save/k.sav\n");
  }

  void expect_nothing_placed() const {
    EXPECT_EQ(support::file_names(snapshot(envi() + "/save")), "");
    EXPECT_EQ(support::file_names(snapshot(envi() + "/custom_code")), "");
  }

  // A current directory in which everybody may make files and nobody may remove another's, like /tmp.
  void share_current_directory() const {
    give_to_other_user(host());
    must(chmod(".", 01777), "cannot share the current directory");
  }

  support::outcome install_locally_as_other_user() const {
    return install_as_other_user({product(), envi(), "x"});
  }

  static testing::Matcher<const support::outcome &> ended_refusing_to_list(const std::string &reason) {
    return Ended(0, installed,
                 fifteen_times("Error: cannot replace ./.korvalen_ls_temp_txt: " + reason + "\n"));
  }

  // What the shell says when it cannot write the listing.
  static std::string complaint(bool as_other_user) {
    const std::vector<std::string> command = {"sh", "-c", ": >./" + listing};
    const support::outcome run = support::run(as_other_user ? support::as_other_user(command) : command);
    if (run.status == 0 || run.err.empty())
      throw std::runtime_error("test set-up: the shell can write the listing");
    return run.err;
  }
};

} // namespace

TEST_F(HostileListing, ReplacesAnEarlierListing) {
  write_file(listing, "/p/evil.sav\n", 0400);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
}

TEST_F(HostileListing, ReplacesAnEmptyDirectory) {
  fs::create_directory(listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
}

TEST_F(HostileListing, LeavesADirectoryThatIsNotEmptyAndCopiesNothing) {
  write_file(listing + "/own.txt", "own\n", 0600);
  const std::string said = complaint(false);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, fifteen_times(said)));
  expect_nothing_placed();
  EXPECT_EQ(changes({}, snapshot(".")),
            "new directory 755 .korvalen_ls_temp_txt\nnew file 600 .korvalen_ls_temp_txt/own.txt\n");
}

TEST_F(HostileListing, ReplacesALinkAndLeavesTheFileOfAnotherOwner) {
  write_file(path("precious.txt"), "precious\n", 0600);
  give_to_other_user(path("precious.txt"));
  fs::create_symlink(path("precious.txt"), listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
  EXPECT_EQ(read_file(path("precious.txt")), "precious\n");
  EXPECT_EQ(support::mode_of(path("precious.txt")), 0600U);
  struct stat status {};
  must(stat(path("precious.txt").c_str(), &status), "stat");
  EXPECT_EQ(status.st_uid, 65534U);
}

TEST_F(HostileListing, ReplacesADanglingLinkAndDoesNotMakeItsTarget) {
  fs::create_symlink(path("missing.txt"), listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
  EXPECT_FALSE(fs::exists(path("missing.txt")));
}

TEST_F(HostileListing, ReplacesALinkToADirectory) {
  write_file(path("directory/own.txt"), "own\n", 0600);
  fs::create_directory_symlink(path("directory"), listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
  EXPECT_EQ(changes({}, snapshot(path("directory"))), "new file 600 own.txt\n");
}

TEST_F(HostileListing, LeavesTheBytesOfAHardLinkedFile) {
  write_file(path("precious.txt"), "precious\n", 0600);
  fs::create_hard_link(path("precious.txt"), listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  expect_replaced_by_a_listing();
  EXPECT_EQ(read_file(path("precious.txt")), "precious\n");
}

TEST_F(HostileListing, ReplacesAFifoWithoutWaitingForIt) {
  must(mkfifo(listing.c_str(), 0666), "cannot make a FIFO");
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  ASSERT_TRUE(fs::is_regular_file(listing));
  expect_everything_placed();
  expect_replaced_by_a_listing();
}

TEST_F(HostileListing, CopiesNothingInADirectoryThatCannotBeWritten) {
  give_to_other_user(host());
  const std::string said = complaint(true);
  EXPECT_THAT(install_locally_as_other_user(), Ended(0, installed, fifteen_times(said)));
  expect_nothing_placed();
  EXPECT_EQ(snapshot(".").size(), 0U);
}

TEST_F(HostileListing, DoesNotTakeAnothersListingForItsOwnInADirectoryThatCannotBeWritten) {
  give_to_other_user(host());
  write_file(listing, "/p/k.sav\n", 0644);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Permission denied"));
  expect_nothing_placed();
  EXPECT_EQ(read_file(listing), "/p/k.sav\n");
}

TEST_F(HostileListing, WritesItsOwnListingAgainInADirectoryThatCannotBeWritten) {
  give_to_other_user(host());
  write_file(listing, "/p/evil.sav\n", 0600);
  give_to_other_user(listing);
  EXPECT_THAT(install_locally_as_other_user(), Ended(0, installed, ""));
  expect_everything_placed();
}

TEST_F(HostileListing, OfAnotherUserInASharedDirectoryIsNotUsed) {
  share_current_directory();
  write_file(listing, "/p/k.sav\n", 0644);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
  EXPECT_EQ(read_file(listing), "/p/k.sav\n");
}

// Its owner could write other names into it between the listing and the reading.
TEST_F(HostileListing, ThatAnotherUserOpenedForAllInASharedDirectoryIsNotUsed) {
  share_current_directory();
  write_file(listing, "/p/k.sav\n", 0666);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
}

TEST_F(HostileListing, ThatIsAnothersLinkInASharedDirectoryIsNotWrittenThrough) {
  share_current_directory();
  write_file(host() + "/own.txt", "own\n", 0600);
  give_to_other_user(host() + "/own.txt");
  fs::create_symlink(host() + "/own.txt", listing);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
  EXPECT_EQ(read_file(host() + "/own.txt"), "own\n");
  EXPECT_EQ(support::mode_of(host() + "/own.txt"), 0600U);
  EXPECT_TRUE(fs::is_symlink(listing));
}

TEST_F(HostileListing, ThatIsAnothersDanglingLinkInASharedDirectoryIsNotWrittenThrough) {
  share_current_directory();
  fs::create_symlink(host() + "/missing.txt", listing);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
  EXPECT_FALSE(fs::exists(host() + "/missing.txt"));
}

TEST_F(HostileListing, ThatIsAnothersFifoInASharedDirectoryIsNotWaitedFor) {
  share_current_directory();
  must(mkfifo(listing.c_str(), 0666), "cannot make a FIFO");
  must(chmod(listing.c_str(), 0666), "cannot open the FIFO to all");
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
  EXPECT_TRUE(fs::is_fifo(listing));
}

TEST_F(HostileListing, ThatIsAnothersDirectoryInASharedDirectoryStays) {
  share_current_directory();
  fs::create_directory(listing);
  EXPECT_THAT(install_locally_as_other_user(), ended_refusing_to_list("Operation not permitted"));
  expect_nothing_placed();
  EXPECT_EQ(changes({}, snapshot(".")), "new directory 755 .korvalen_ls_temp_txt\n");
}

TEST_F(HostileListing, ThatIsAnothersDirectoryWithContentsStaysAndIsNotUsedByRootEither) {
  write_file(listing + "/k.sav", "theirs\n", 0644);
  give_to_other_user(listing);
  EXPECT_THAT(install({product(), envi()}), ended_refusing_to_list("Directory not empty"));
  expect_nothing_placed();
  EXPECT_EQ(read_file(listing + "/k.sav"), "theirs\n");
}

TEST_F(HostileListing, WritesItsOwnListingAgainThatIsAMountPoint) {
  write_file(path("mounted.txt"), "/p/evil.sav\n", 0600);
  const mounted_listing mounted(path("mounted.txt"));
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  EXPECT_EQ(read_file(path("mounted.txt")), "");
}

TEST_F(HostileListing, OfAnEarlierRunOnAReadOnlyMountIsNotTakenForANewOne) {
  write_file(listing, "/p/k.sav\n", 0644);
  const std::string directory = fs::current_path();
  must(mount(directory.c_str(), directory.c_str(), nullptr, MS_BIND, nullptr), "cannot mount the directory");
  must(mount(nullptr, directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), "read-only");
  fs::current_path(directory);
  EXPECT_THAT(install({product(), envi()}), ended_refusing_to_list("Read-only file system"));
  fs::current_path(host());
  must(umount(directory.c_str()), "cannot unmount");
  expect_nothing_placed();
  EXPECT_EQ(read_file(directory + "/" + listing), "/p/k.sav\n");
}

TEST_F(HostileListing, ThatIsADeviceAndAMountPointIsNotUsed) {
  must(mknod(path("device").c_str(), S_IFCHR | 0666, makedev(1, 3)), "cannot make a device");
  const mounted_listing mounted(path("device"));
  EXPECT_THAT(install({product(), envi()}), ended_refusing_to_list("Device or resource busy"));
  expect_nothing_placed();
}

TEST_F(HostileListing, IsReplacedByRootInASharedDirectoryWhoeverOwnsIt) {
  must(chmod(".", 01777), "cannot share the current directory");
  write_file(listing, "/p/evil.sav\n", 0666);
  give_to_other_user(listing);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_everything_placed();
  struct stat status {};
  must(stat(listing.c_str(), &status), "stat");
  EXPECT_EQ(status.st_uid, 0U);
}

TEST_F(HostileListing, CopiesNothingInADirectoryThatIsGone) {
  const std::string command = "mkdir gone && cd gone && rmdir ../gone && ";
  const std::string said = support::run({"sh", "-c", command + "exec sh -c ': >./" + listing + "'"}).err;
  const support::outcome run =
      support::run({"sh", "-c", command + "exec \"$0\" \"$@\"", support::installer_path, product(), envi()});
  EXPECT_THAT(run, Ended(0, installed, fifteen_times(said)));
  expect_nothing_placed();
}
