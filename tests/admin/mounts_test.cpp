#include "admin/mounts.h"

#include <gtest/gtest.h>

using namespace korvalen::admin;

namespace {

mounted only_mount_of(const std::string &line) {
  const std::vector<mounted> mounts = parse_mounts(line);
  EXPECT_EQ(mounts.size(), 1U) << line;
  return mounts.empty() ? mounted{} : mounts.front();
}

TEST(Mounts, AreReadFromTheKernelsTable) {
  const mounted mount = only_mount_of(
      "36 35 98:0 /dir /mnt/at rw,noexec,nosuid,noatime shared:1 master:2 - ext4 /dev/sda1 rw,errors=x\n");
  EXPECT_EQ(mount.id, 36U);
  EXPECT_EQ(mount.device, "98:0");
  EXPECT_EQ(mount.root, "/dir");
  EXPECT_EQ(mount.point, "/mnt/at");
  EXPECT_EQ(mount.type, "ext4");
  EXPECT_FALSE(mount.read_only);
  EXPECT_TRUE(mount.no_exec);
  EXPECT_TRUE(mount.no_suid);
}

TEST(Mounts, AreReadOnlyThemselvesOrWithTheirFileSystem) {
  EXPECT_TRUE(only_mount_of("1 2 0:3 / /a ro,noatime - tmpfs t rw").read_only);
  EXPECT_TRUE(only_mount_of("1 2 0:3 / /a rw - tmpfs t size=1,ro").read_only);
  EXPECT_FALSE(only_mount_of("1 2 0:3 / /a rw,relatime - tmpfs t rw,errors=remount-ro,root=ro1").read_only);
}

TEST(Mounts, HaveTheirBlanksAndBackslashesBack) {
  const mounted mount = only_mount_of("1 2 0:3 /a\\040b /x\\011\\012\\134040\\ rw - tmpfs t rw");
  EXPECT_EQ(mount.root, "/a b");
  EXPECT_EQ(mount.point, "/x\t\n\\040\\");
  EXPECT_EQ(only_mount_of("1 2 0:3 / /x\\040 rw - tmpfs t rw").point, "/x ");
}

// mount("", "/a", "tmpfs", ...) leaves two blanks side by side.
TEST(Mounts, AreReadWhenTheirSourceIsAnEmptyText) {
  const mounted mount = only_mount_of("1 2 0:3 / /a rw - tmpfs  ro,size=4k");
  EXPECT_EQ(mount.point, "/a");
  EXPECT_EQ(mount.type, "tmpfs");
  EXPECT_TRUE(mount.read_only);
}

TEST(Mounts, AreListedInTheTablesOrderAndLinesThatAreNoneLeftOut) {
  const std::vector<mounted> mounts =
      parse_mounts("1 2 0:3 / / rw - ext4 s rw\n\nnonsense\n2 1 0:4 / /a rw - ext4 s rw\n");
  ASSERT_EQ(mounts.size(), 2U);
  EXPECT_EQ(mounts[0].point, "/");
  EXPECT_EQ(mounts[1].point, "/a");
}

TEST(Mounts, AreNoneWhereALineEndsBeforeTheType) {
  for (const char *line : {"1 2 0:3 / /a rw", "1 2 0:3 / /a rw shared:1", "1 2 0:3 / /a rw -"})
    EXPECT_TRUE(parse_mounts(line).empty()) << line;
}

TEST(Mounts, KeepBackslashesThatNoOctalNumberFollows) {
  EXPECT_EQ(only_mount_of("1 2 0:3 /\\/40\\0/0\\04/\\940\\080\\008 /a rw - tmpfs t rw").root,
            "/\\/40\\0/0\\04/\\940\\080\\008");
}

TEST(Mounts, HoldWhatLiesBelowThemByWholeNames) {
  EXPECT_TRUE(lies_in("/a", "/a"));
  EXPECT_TRUE(lies_in("/a/b", "/a"));
  EXPECT_TRUE(lies_in("/a", "/"));
  EXPECT_FALSE(lies_in("/ab", "/a"));
  EXPECT_FALSE(lies_in("/", "/a"));
}

TEST(Mounts, HoldAPathWhereTheDeepestOfThemDoes) {
  std::vector<mounted> mounts(4);
  mounts[0].point = "/";
  mounts[1].point = "/a";
  mounts[2].point = "/a/b";
  mounts[3].point = "/ab";
  EXPECT_EQ(mount_of(mounts, "/a/b/c").point, "/a/b");
  EXPECT_EQ(mount_of(mounts, "/a/bc").point, "/a");
  EXPECT_EQ(mount_of(mounts, "/abc").point, "/");
  EXPECT_EQ(mount_of(mounts, "/ab").point, "/ab");
}

} // namespace
