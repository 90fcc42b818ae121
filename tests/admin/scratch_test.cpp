// Where a rehearsal writes: what is measured beforehand, and whose directories go.
#include "admin/scratch.h"

#include "admin/admin_run.h"
#include "admin/failure_under.h"

#include <sys/syscall.h>

using namespace admin_runs;
using namespace korvalen::admin;
using admin_tests::told_under;
using support::write_file;

namespace {

class Scratch : public admin_run {
protected:
  Scratch() { mount_memory("/var/tmp", "mode=1777"); }
  static std::size_t count_in_var_tmp() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/var/tmp"), fs::directory_iterator()));
  }
};

TEST_F(Scratch, CountsTheBytesOfFilesAndOfWhatLinksLeadToOnce) {
  write_file(path("host/d/file"), std::string(100, 'x'));
  write_file(path("host/d/deep/file"), std::string(20, 'x'));
  write_file(path("host/large"), std::string(3000, 'x'));
  fs::create_symlink("../large", path("host/d/link"));
  fs::create_symlink("..", path("host/d/up"));
  fs::create_symlink("nowhere", path("host/d/dangling"));
  EXPECT_EQ(bytes_below(open_tree_at(""), path("host/d")), 3120U);
  EXPECT_EQ(bytes_below(open_tree_at(""), path("host/none")), 0U);
}

TEST_F(Scratch, TakesNoMemoryWhereTheSystemDoesNotTellHowMuchThereIs) {
  EXPECT_GT(available_memory(), 0U);
  write_file(path("meminfo"), "MemTotal: 8000000 kB\nMemFree: 8000000 kB\n");
  must(mount(path("meminfo").c_str(), "/proc/meminfo", nullptr, MS_BIND, nullptr), "mount");
  const std::uint64_t available = available_memory();
  umount2("/proc/meminfo", MNT_DETACH);
  EXPECT_EQ(available, 0U);
}

TEST_F(Scratch, IsMadeAgainWhereAnotherRunTookItForLeftOver) {
  const auto before_the_first_lock = [](int count) { return count == 1; };
  const auto remove_it = [] {
    for (const fs::directory_entry &one : fs::directory_iterator("/var/tmp"))
      fs::remove(one.path());
  };
  EXPECT_EQ(told_under(
                [&] {
                  support::disturb({SYS_flock, 0, before_the_first_lock, remove_it});
                },
                [] {
                  const disk_scratch made;
                  std::cout << fs::is_directory(made.path()) << count_in_var_tmp();
                }),
            "11");
  EXPECT_EQ(count_in_var_tmp(), 0U);
}

TEST_F(Scratch, StaysWhereItCannotBeToldWhoseItIs) {
  fs::create_directory("/var/tmp/korvalen_plan.left");
  const auto of_the_directory = [](int count) { return count == 2; };
  EXPECT_EQ(told_under(
                [&] {
                  support::disturb({SYS_newfstatat, EIO, of_the_directory});
                },
                [] { remove_old_scratches(); }),
            "");
  EXPECT_EQ(count_in_var_tmp(), 1U);
  remove_old_scratches();
  EXPECT_EQ(count_in_var_tmp(), 0U);
}

} // namespace
