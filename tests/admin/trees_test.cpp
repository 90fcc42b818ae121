#include "admin/trees.h"

#include "support/files.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <thread>

using namespace korvalen::admin;

namespace {

class Trees : public support::scratch_test {};

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
  const tree disk = open_tree_at("");
  int missed = 0;
  for (int i = 0; i < 40'000; ++i)
    missed += !follow(disk, path("up/down/link/file")) || !open_in(disk, path("up/down/link/file"));
  ends = true;
  renamer.join();
  EXPECT_EQ(missed, 0) << "of 40000 looks at a file that always stood there";
}

} // namespace
