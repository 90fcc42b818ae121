// Copies of files and of what belongs to them, on file systems that can do more and less.
#include "admin/copies.h"

#include "admin/failure_under.h"
#include "support/files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace korvalen::admin;
using admin_tests::told_under;
using admin_tests::told_without;
using support::read_file;
using support::write_file;

namespace {

class Copies : public support::scratch_test {
protected:
  Copies() { write_file("from", "bytes"); }

  // Copies the bytes, or the attributes, of "from" to "to".
  void copy() const {
    const descriptor to(open("to", O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    copy_bytes(open_for_reading("from"), to, "the copy");
  }
  void copy_notes() const { copy_attributes(open_for_reading("from"), open_for_reading("to")); }
  static void note(const char *file, const char *name, const std::string &text) {
    ASSERT_EQ(setxattr(file, name, text.data(), text.size(), 0), 0);
  }
  static std::string note_of(const char *file, const char *name) {
    char text[16] = "";
    return getxattr(file, name, text, sizeof text - 1) < 0 ? "none" : text;
  }
};

TEST_F(Copies, AreMadeByHandWhereTheSystemCannotCopy) {
  for (const int reason : {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP}) {
    EXPECT_EQ(told_without(SYS_copy_file_range, reason, [&] { copy(); }), "");
    EXPECT_EQ(read_file("to"), "bytes");
  }
  EXPECT_EQ(told_without(SYS_copy_file_range, 0, [&] { copy(); }), "")
      << "some kernels say 0 and copy nothing";
  EXPECT_EQ(read_file("to"), "bytes");
}

TEST_F(Copies, AreNotMadeAgainByHandWhereTheSystemFails) {
  EXPECT_EQ(told_without(SYS_copy_file_range, ENOSPC, [&] { copy(); }),
            "cannot write the copy: No space left on device");
  EXPECT_EQ(read_file("to"), "");
}

// This one says that it shares the bytes and does not.
TEST_F(Copies, AreLeftToAFileSystemThatSharesBytes) {
  EXPECT_EQ(told_without(SYS_ioctl, 0, [&] { copy(); }), "");
  EXPECT_EQ(read_file("to"), "") << "they were copied all the same";
}

TEST_F(Copies, HaveTheAttributesOfTheFileAndNoOthers) {
  write_file("to", "");
  note("from", "user.both", "new");
  note("to", "user.both", "old");
  note("to", "user.own", "old");
  copy_notes();
  EXPECT_EQ(note_of("to", "user.both"), "new");
  EXPECT_EQ(note_of("to", "user.own"), "none");
}

TEST_F(Copies, GoWithoutTheAttributesThatCannotBeHeld) {
  write_file("to", "");
  note("from", "user.note", "new");
  for (const int reason : {EOPNOTSUPP, EPERM, E2BIG, EINVAL, ENODATA}) {
    EXPECT_EQ(told_without(SYS_flistxattr, reason, [&] { copy_notes(); }), "") << reason;
    EXPECT_EQ(told_without(SYS_fgetxattr, reason, [&] { copy_notes(); }), "") << reason;
    EXPECT_EQ(told_without(SYS_fsetxattr, reason, [&] { copy_notes(); }), "") << reason;
    EXPECT_EQ(note_of("to", "user.note"), "none");
  }
  EXPECT_EQ(told_without(SYS_flistxattr, EIO, [&] { copy_notes(); }),
            "cannot copy the attributes of a file: Input/output error");
}

TEST_F(Copies, OfWhatIsNotThereNameIt) {
  EXPECT_EQ(told_under([] {}, [&] { keep_copy(open_tree_at(""), path("none"), path("kept")); }),
            "cannot open " + path("none") + ": No such file or directory");
  EXPECT_FALSE(support::fs::exists("kept"));
}

} // namespace
