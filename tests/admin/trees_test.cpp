// Looking things up: what is there, what is not, and what cannot be told.
#include "admin/trees.h"

#include "admin/failure_under.h"
#include "admin/state.h"
#include "support/files.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>

using namespace korvalen::admin;
using admin_tests::opened_only;
using admin_tests::told_under;
using admin_tests::told_without;
using support::write_file;
namespace fs = std::filesystem;

namespace {

class Trees : public support::scratch_test {
protected:
  const tree disk = open_tree_at("");
};

TEST_F(Trees, TakePathsApartAndPutThemTogether) {
  EXPECT_EQ(parent_of("/a/b"), "/a");
  EXPECT_EQ(parent_of("/a"), "/");
  EXPECT_EQ(parent_of("a"), "/");
  EXPECT_EQ(joined("/", "a"), "/a");
  EXPECT_EQ(joined("/a", "b"), "/a/b");
}

TEST_F(Trees, FollowTheLinksOfAnOpenDirectory) {
  write_file("file", "bytes");
  fs::create_symlink("file", "link");
  fs::create_symlink("nowhere", "dangling");
  const open_directory here = open_directory_in(disk, scratch());
  for (const char *name : {"file", "link"})
    EXPECT_EQ(follow(here, name).value_or(no_file).st_size, 5) << name;
  for (const char *name : {"dangling", "none"})
    EXPECT_FALSE(follow(here, name)) << name;
  EXPECT_FALSE(follow(open_directory_in(disk, path("nowhere")), "file"));
  EXPECT_TRUE(S_ISDIR(look_up(disk, "/").value_or(no_file).st_mode));
}

TEST_F(Trees, FollowNothingThatCannotBeLookedUp) {
  write_file("file", "bytes");
  EXPECT_EQ(
      told_without(
          SYS_newfstatat, EIO, [&] { std::cout << follow(disk, path("file")).has_value(); }, opened_only),
      "0");
}

TEST_F(Trees, TellAnEmptyDirectoryFromOneThatCannotBeListed) {
  const auto list = [&] { std::cout << names_in(disk, scratch()).size(); };
  const std::string problem = "cannot list " + scratch().string() + ": ";
  EXPECT_EQ(told_under([] {}, list), "0");
  EXPECT_EQ(told_without(SYS_getdents64, EIO, list), problem + "Input/output error");
  EXPECT_EQ(told_without(SYS_openat2, EACCES, list), problem + "Permission denied");
  EXPECT_EQ(told_without(SYS_dup, EMFILE, list), problem + "Bad file descriptor");
  for (const int reason : {ENOENT, ENOTDIR, ELOOP, ENXIO})
    EXPECT_EQ(told_without(SYS_openat2, reason, list), "0") << "there is no directory";
}

// The kernel refuses a path with ".." when anything is renamed at the same moment.
TEST_F(Trees, AreLookedUpAgainWhereTheKernelAsksForThatButNotForEver) {
  write_file("d/file", "");
  const auto list = [&] { std::cout << names_in(disk, path("d/../d")).size(); };
  EXPECT_EQ(told_under(
                [] {
                  support::disturb({SYS_openat2, EAGAIN, [](int count) { return count <= 3; }});
                },
                list),
            "1");
  EXPECT_EQ(told_without(SYS_openat2, EAGAIN, list),
            "cannot list " + path("d/../d") + ": Resource temporarily unavailable");
}

TEST_F(Trees, ReadSmallFilesOnlyAndSayWhatCannotBeRead) {
  write_file("file", "bytes");
  fs::create_directory("directory");
  EXPECT_EQ(read_small(disk, path("file"), 5), "bytes");
  EXPECT_EQ(read_small(disk, path("file"), 4), std::nullopt) << "it is too large";
  EXPECT_EQ(read_small(disk, path("directory"), 5), std::nullopt);
  EXPECT_EQ(read_small(disk, path("none"), 5), std::nullopt);
  const auto read = [&] { read_small(disk, path("file"), 5); };
  EXPECT_EQ(told_without(SYS_openat2, EACCES, read), "cannot open " + path("file") + ": Permission denied");
}

TEST_F(Trees, GiveTheStateOfEveryType) {
  write_file("file", "bytes", 0640);
  fs::create_symlink("file", "link");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(state_of(disk, path("file")).type, file_type::file);
  EXPECT_EQ(state_of(disk, path("file")).size, 5U);
  EXPECT_EQ(state_of(disk, path("link")).type, file_type::link);
  EXPECT_EQ(state_of(disk, path("link")).target, "file");
  EXPECT_EQ(state_of(disk, scratch()).type, file_type::directory);
  EXPECT_EQ(state_of(disk, path("fifo")).type, file_type::special);
  EXPECT_EQ(state_of(disk, path("none")).type, file_type::absent);
  EXPECT_EQ(told_under([] {}, [&] { hash_of(disk, path("none")); }),
            "cannot open " + path("none") + ": No such file or directory");
}

// While a path with ".." is resolved within a root, each rename on the machine may have moved the way up, and
// the system asks to try again.
TEST_F(Trees, ArePassableWhileSomebodyRenamesFiles) {
  support::write_file(path("up/down/file"), "x");
  support::write_file(path("renamed"), "x");
  std::filesystem::create_symlink("../../up/down/../down", path("up/down/link"));
  std::atomic<bool> ends = false;
  std::thread renamer([&] {
    while (!ends) {
      std::rename(path("renamed").c_str(), path("renamed_too").c_str());
      std::rename(path("renamed_too").c_str(), path("renamed").c_str());
    }
  });
  int missed = 0;
  for (int i = 0; i < 40'000; ++i)
    missed += !follow(disk, path("up/down/link/file")) || !open_in(disk, path("up/down/link/file"));
  ends = true;
  renamer.join();
  EXPECT_EQ(missed, 0) << "of 40000 looks at a file that always stood there";
}

} // namespace
