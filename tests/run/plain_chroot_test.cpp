// The tests themselves in a plain chroot, whose root directory is no mount point.

#include "support/child.h"
#include "support/files.h"
#include "support/private_etc.h"
#include "support/surroundings.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <sys/mount.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr const char *passed = "[  PASSED  ] 1 test.";

void must(int result, const std::string &what) {
  if (result != 0)
    throw std::system_error(errno, std::generic_category(), "test set-up: cannot " + what);
}

// The same entries as in "/", in a directory that is not itself mounted.
void make_plain_root(const fs::path &root) {
  for (const fs::directory_entry &entry : fs::directory_iterator("/")) {
    const fs::path here = root / entry.path().filename();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), here);
    } else if (entry.is_directory()) {
      fs::create_directory(here);
      must(mount(entry.path().c_str(), here.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
           "mount " + here.string());
    }
  }
}

void expect_no_mount_point_at_root() {
  if (mount("none", "/", nullptr, MS_PRIVATE, nullptr) == 0 || errno != EINVAL)
    throw std::runtime_error("test set-up: the root of the chroot is a mount point");
}

int run_in(const fs::path &root, const std::vector<std::string> &command) {
  const support::other_root entered(root);
  expect_no_mount_point_at_root();
  const support::outcome run = support::run(command);
  std::cout << run.out << run.err;
  return run.status;
}

// Status 0 when one test that needs an /etc of its own passes there and none of its mounts shows outside. For
// a child process, with which all the mounts go.
int pass_a_test_in_plain_root(const fs::path &root) {
  const std::string tests = fs::read_symlink("/proc/self/exe");
  const support::private_etc own_mounts;
  make_plain_root(root);
  must(mount("none", "/", nullptr, MS_SHARED | MS_REC, nullptr), "share the mounts");
  const std::string before = support::read_file("/proc/self/mountinfo");
  const int status = run_in(root, {tests, "--gtest_filter=SystemLayout.MakesItsDirectoryWhenThereIsNone"});
  const std::string after = support::read_file("/proc/self/mountinfo");
  if (after == before)
    return status;
  std::cout << "The mounts outside were:\n" << before << "and are now:\n" << after;
  return 1;
}

// The directory for the root is emptied entry by entry, never recursively: should a mount of the machine's
// own directories still be seen there, nothing below it is removed.
class PlainChroot : public testing::Test {
protected:
  PlainChroot() : root_((fs::temp_directory_path() / "korvalen_root.XXXXXX").string()) {
    must(mkdtemp(root_.data()) != nullptr ? 0 : -1, "make a directory");
  }
  ~PlainChroot() override {
    std::error_code ignored;
    for (const fs::directory_entry &entry : fs::directory_iterator(root_, ignored))
      fs::remove(entry.path(), ignored);
    fs::remove(root_, ignored);
  }
  const std::string &root() const { return root_; }

private:
  std::string root_;
};

} // namespace

TEST_F(PlainChroot, IsAPlaceWhereTestsRunWithoutAMountOfTheirsShowingOutside) {
  const support::outcome inside = support::call([this] { return pass_a_test_in_plain_root(root()); });
  EXPECT_EQ(inside.status, 0) << inside;
  EXPECT_THAT(inside.out, testing::HasSubstr(passed)) << inside;
}
