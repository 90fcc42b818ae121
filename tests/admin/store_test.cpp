// The state directory where the kernel refuses something, and what lies in it that nobody put there.
#include "admin/store.h"

#include "admin/admin_run.h"
#include "admin/failure_under.h"

#include <sys/file.h>
#include <sys/syscall.h>

using namespace admin_runs;
using namespace korvalen::admin;
using admin_tests::told_under;
using admin_tests::told_without;
using support::write_file;

namespace {

class Store : public admin_run {
protected:
  static void open_it() { const store made(access::change); }
  static bool is_first(int count) { return count == 1; }
};

TEST_F(Store, NamesWhatTheKernelRefuses) {
  EXPECT_EQ(told_without(SYS_mkdir, EACCES, open_it),
            "cannot make the directory /var/lib/korvalen: Permission denied");
  EXPECT_FALSE(fs::exists(state_dir));
  EXPECT_EQ(told_without(SYS_flock, ENOLCK, open_it), "cannot lock /var/lib/korvalen: No locks available");
  const auto remove = [] { store(access::change).remove_journal(); };
  EXPECT_EQ(told_without(SYS_unlinkat, EROFS, remove),
            "cannot remove /var/lib/korvalen/run.json: Read-only file system");
}

TEST_F(Store, IsNotTakenForAnEmptyOneWhereItIsGoneAsSoonAsItIsMade) {
  EXPECT_EQ(told_under(
                [] {
                  support::fail_system_call(SYS_mkdir, 0);
                  support::fail_system_call(SYS_chmod, 0);
                },
                open_it),
            "cannot open the state directory /var/lib/korvalen: No such file or directory");
}

TEST_F(Store, IsLockedAlthoughASignalInterrupts) {
  EXPECT_EQ(told_under(
                [] {
                  support::disturb({SYS_flock, EINTR, is_first});
                },
                [] {
                  const store made(access::change);
                  const int other = open(state_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
                  std::cout << (flock(other, LOCK_SH | LOCK_NB) == 0 ? "free" : "locked");
                }),
            "locked");
}

// Here a minute of waiting takes no time.
TEST_F(Store, IsHeldByAnotherProcessWhereTheKernelDoesNotTellByWhich) {
  fs::create_directory(state_dir);
  const int lock = open(state_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  must(flock(lock, LOCK_EX), "flock");
  write_file(path("locks"), "");
  must(mount(path("locks").c_str(), "/proc/locks", nullptr, MS_BIND, nullptr), "mount");
  const std::string told = told_without(SYS_clock_nanosleep, 0, open_it);
  umount2("/proc/locks", MNT_DETACH);
  close(lock);
  EXPECT_EQ(told, "another process is at work with /var/lib/korvalen; try again when it has ended");
}

TEST_F(Store, KeepsNothingThatNobodyNeedsWhateverItsName) {
  open_it();
  for (const char *name : {"3", "7", "8x", "x"})
    write_file(state_dir + "/kept/" + name, "");
  EXPECT_EQ(store::next_kept(), 8U);
  store::remove_kept_but({3});
  EXPECT_EQ(support::file_names(support::snapshot(state_dir + "/kept")), "3\n");
  write_file(state_dir + "/kept/x/inside", "");
  EXPECT_EQ(told_under([] {}, [] { store::remove_kept_but({3}); }),
            "cannot remove /var/lib/korvalen/kept/x: Directory not empty");
}

TEST_F(Store, NamesARunDirectoryThatCannotBeRemoved) {
  open_it();
  mount_memory(state_dir + "/run");
  EXPECT_EQ(told_under([] {}, [] { store::remove_run_directory(); }),
            "cannot remove /var/lib/korvalen/run: Device or resource busy");
}

} // namespace
