// Files and trees for tests.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace support {

namespace fs = std::filesystem;

// Writes the bytes over whatever stood there, making missing parents. Throws when that fails: the set-up
// broke.
void write_file(const fs::path &path, std::string_view bytes, mode_t mode = 0644);

// All bytes of a file. Throws when it cannot be read.
std::string read_file(const fs::path &path);

// The permission bits, of the target of a link.
mode_t mode_of(const fs::path &path);

// One entry of a tree, with everything that two runs must agree on.
struct entry {
  std::string kind; // "file", "directory", "link"
  mode_t mode = 0;
  std::string content; // a file's bytes, a link's target
  bool operator==(const entry &) const = default;
};
std::ostream &operator<<(std::ostream &out, const entry &e);

using tree = std::map<std::string, entry>;

// Every entry below a directory, by its path relative to it.
tree snapshot(const fs::path &directory);

// The relative paths of a tree's files, in order, one a line.
std::string file_names(const tree &t);

// A fresh directory that is the current directory during the test and goes with it. The umask is 022.
class scratch_test : public ::testing::Test {
protected:
  scratch_test();
  ~scratch_test() override;
  const fs::path &scratch() const { return directory_; }
  // A path below the scratch directory.
  std::string path(std::string_view relative) const { return (directory_ / relative).string(); }

private:
  fs::path directory_;
  fs::path previous_;
};

} // namespace support
