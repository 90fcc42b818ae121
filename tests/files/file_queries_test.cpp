#include "korvalen/files/file_queries.h"

#include "support/files.h"
#include "support/surroundings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>

using namespace korvalen;
using support::write_file;

namespace {

class FileQueries : public support::scratch_test {};

// The answer of a query that starts with another errno, and the errno that it leaves.
struct answer {
  bool exists;
  int error;
  bool operator==(const answer &) const = default;
};

std::ostream &operator<<(std::ostream &out, const answer &a) {
  return out << (a.exists ? "exists" : "is absent") << ", errno " << a.error;
}

answer ask(bool (*query)(const char *), const char *path) {
  errno = EIO;
  const bool exists = query(path);
  return {exists, errno};
}

} // namespace

TEST_F(FileQueries, FindObjectsOfEveryKind) {
  write_file("file", "");
  std::filesystem::create_directory("directory");
  std::filesystem::create_symlink("file", "link");
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  for (const char *const path : {"file", "directory", "directory/", "link", "fifo", "/dev/null"}) {
    EXPECT_EQ(ask(fdfExists, path), (answer{true, 0})) << path;
    EXPECT_EQ(ask(fdfExistsQuiet, path), (answer{true, 0})) << path;
  }
}

TEST_F(FileQueries, DifferInTheErrnoThatTheyLeaveForAnAbsentPath) {
  write_file("file", "");
  std::filesystem::create_symlink("nowhere", "dangling");
  std::filesystem::create_symlink("loop", "loop");
  struct row {
    const char *path;
    int error;
  };
  constexpr row rows[] = {
      {"missing", ENOENT}, {"", ENOENT}, {"dangling", ENOENT}, {"file/below", ENOTDIR}, {"loop", ELOOP}};
  for (const row &r : rows) {
    EXPECT_EQ(ask(fdfExists, r.path), (answer{false, r.error})) << r.path;
    EXPECT_EQ(ask(fdfExistsQuiet, r.path), (answer{false, 0})) << r.path;
  }
}

TEST_F(FileQueries, FindNothingWhereTheUserMayNotLook) {
  write_file("closed/file", "");
  std::filesystem::permissions("closed", std::filesystem::perms(0700));
  const support::other_user nobody;
  EXPECT_EQ(ask(fdfExists, "closed/file"), (answer{false, EACCES}));
  EXPECT_EQ(ask(fdfExistsQuiet, "closed/file"), (answer{false, 0}));
}

TEST_F(FileQueries, TellOneFileUnderTwoNamesFromTwoFiles) {
  write_file("one", "bytes");
  write_file("equal", "bytes");
  std::filesystem::create_symlink("one", "link");
  std::filesystem::create_hard_link("one", "second");
  std::filesystem::create_symlink("nowhere", "dangling");
  for (const char *name : {"one", "./one", "link", "second"})
    EXPECT_TRUE(is_same_file("one", name)) << name;
  for (const char *name : {"equal", "/dev/null", "dangling", "absent", ""}) {
    EXPECT_FALSE(is_same_file("one", name)) << name;
    EXPECT_FALSE(is_same_file(name, "one")) << name;
  }
  EXPECT_FALSE(is_same_file("dangling", "dangling"));
}
