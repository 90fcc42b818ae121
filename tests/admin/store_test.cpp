// The state directory where the kernel refuses something, and what lies in it that nobody put there.
#include "admin/store.h"

#include "admin/admin_run.h"
#include "admin/failure_under.h"

#include <sstream>
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
  ~Store() override { close(lock_); }
  void lock_it() {
    fs::create_directory(state_dir);
    lock_ = open(state_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    must(flock(lock_, LOCK_EX), "flock");
  }
  // What whoever would change something is told under this table of locks. Here a minute of waiting takes no
  // time.
  std::string told_with_locks(const std::string &table) const {
    write_file(path("locks"), table);
    must(mount(path("locks").c_str(), "/proc/locks", nullptr, MS_BIND, nullptr), "mount");
    std::string told = told_without(SYS_clock_nanosleep, 0, open_it);
    umount2("/proc/locks", MNT_DETACH);
    return told;
  }
  // The device and number of a file that the process has locked.
  static std::string locked_by(pid_t process) {
    std::istringstream locks(support::read_file("/proc/locks"));
    for (std::string line; std::getline(locks, line);) {
      std::istringstream words(line);
      std::string number, kind, advisory, access, holder, file;
      words >> number >> kind >> advisory >> access >> holder >> file;
      if (kind == "FLOCK" && holder == std::to_string(process))
        return file;
    }
    return "";
  }

private:
  int lock_ = -1;
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

TEST_F(Store, IsHeldByAnotherProcessWhereTheKernelDoesNotTellByWhich) {
  lock_it();
  EXPECT_EQ(told_with_locks(""),
            "another process is at work with /var/lib/korvalen; try again when it has ended");
}

TEST_F(Store, IsHeldByTheProcessWithThatLockAndNoOther) {
  lock_it();
  const std::string file = locked_by(getpid());
  ASSERT_NE(file, "") << "the set-up: the kernel tells of no lock";
  const running_program holder({"/bin/sleep", "100"}, path("holder"));
  const std::string number = std::to_string(holder.process());
  ASSERT_TRUE(comes_true(
      [&] { return support::read_file("/proc/" + number + "/cmdline").starts_with("/bin/sleep"); }));
  EXPECT_EQ(told_with_locks("1: POSIX  ADVISORY  READ 1 " + file + " 0 EOF\n" +
                            "2: FLOCK  ADVISORY  WRITE 1 00:00:1 0 EOF\n" + "3: FLOCK  ADVISORY  WRITE " +
                            number + " " + file + " 0 EOF\n"),
            "process " + number +
                " (/bin/sleep 100) is at work with /var/lib/korvalen; try again when it has ended");
}

TEST_F(Store, ThatWasNeverMadeIsAtWorkForNobody) {
  EXPECT_EQ(store(access::look).who_works(), std::nullopt);
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

TEST_F(Store, WritesOverWhatAnInterruptedWriteLeft) {
  open_it();
  write_file(receipt_file + ".new", std::string(100'000, 'x'));
  receipt record;
  record.run = 7;
  store(access::change).write(record);
  EXPECT_EQ(told_under([] {}, [] { std::cout << store(access::look).read_receipt().run; }), "7");
  EXPECT_FALSE(fs::exists(receipt_file + ".new"));
}

TEST_F(Store, WritesThroughNoLinkThatLiesBesideItsFiles) {
  open_it();
  write_file(path("theirs"), "somebody's");
  fs::create_symlink(path("theirs"), receipt_file + ".new");
  const auto write = [] { store(access::change).write(receipt{}); };
  EXPECT_EQ(told_under([] {}, write),
            "cannot write /var/lib/korvalen/receipt.json.new: Too many levels of symbolic links");
  EXPECT_EQ(support::read_file(path("theirs")), "somebody's");
  EXPECT_EQ(told_under([] {}, write), "") << "the link was left in the way";
}

TEST_F(Store, RemovesWithTheJournalWhatWasWrittenBesideAndNeverRenamed) {
  open_it();
  for (const char *name : {"run.json", "run.json.new", "receipt.json.new", "receipt.json"})
    write_file(state_dir + "/" + name, "half");
  store(access::change).remove_journal();
  EXPECT_EQ(support::file_names(support::snapshot(state_dir)), "receipt.json\n");
}

TEST_F(Store, NamesARunDirectoryThatCannotBeRemoved) {
  open_it();
  mount_memory(state_dir + "/run");
  EXPECT_EQ(told_under([] {}, [] { store::remove_run_directory(); }),
            "cannot remove /var/lib/korvalen/run: Device or resource busy");
}

} // namespace
