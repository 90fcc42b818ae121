#include "fsops/block_copy.h"

#include "support/files.h"
#include "support/surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>

using namespace korvalen;
using support::read_file;
using support::write_file;
using ::testing::ElementsAre;

namespace {

class BlockCopy : public support::scratch_test {};

// A source that yields its bytes and then fails.
struct breaking_source {
  std::string bytes;
  std::size_t used = 0;

  static ssize_t read(void *cookie, char *buffer, std::size_t size) {
    auto &self = *static_cast<breaking_source *>(cookie);
    const std::size_t count = std::min(size, self.bytes.size() - self.used);
    if (count == 0) {
      errno = EIO;
      return -1;
    }
    std::memcpy(buffer, self.bytes.data() + self.used, count);
    self.used += count;
    return static_cast<ssize_t>(count);
  }
};

// A target that tells the size of each write.
ssize_t note_size(void *cookie, const char * /*buffer*/, std::size_t size) {
  static_cast<std::vector<std::size_t> *>(cookie)->push_back(size);
  return static_cast<ssize_t>(size);
}

open_file unbuffered(std::FILE *file) {
  std::setvbuf(file, nullptr, _IONBF, 0);
  return open_file(file);
}

} // namespace

TEST_F(BlockCopy, TellsWhyASourceCannotBeOpened) {
  errno = 0;
  EXPECT_EQ(open_source("missing"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(BlockCopy, TellsWhyATargetCannotBeCreated) {
  errno = 0;
  EXPECT_EQ(open_target("missing/target"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(open_target("."), nullptr);
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(BlockCopy, TruncatesATarget) {
  write_file("target", "old");
  EXPECT_NE(open_target("target"), nullptr);
  EXPECT_EQ(read_file("target"), "");
}

TEST_F(BlockCopy, ClosesAFileWithItsOwner) {
  open_file file = open_target("target");
  const int descriptor = fileno(file.get());
  EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  file.reset();
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST_F(BlockCopy, WritesEachBlockAtOnce) {
  write_file("source", std::string(4096, 'a') + "b");
  const open_file source = open_source("source");
  const open_file target = open_target("target");
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::written);
  EXPECT_EQ(read_file("target"), std::string(4096, 'a'));
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::written);
  EXPECT_EQ(read_file("target"), std::string(4096, 'a') + "b");
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::end);
}

TEST_F(BlockCopy, WritesBlocksOf4096BytesInOnePiece) {
  write_file("source", std::string(9000, 'a'));
  const open_file source = open_source("source");
  std::vector<std::size_t> sizes;
  cookie_io_functions_t functions{};
  functions.write = note_size;
  const open_file target = unbuffered(fopencookie(&sizes, "wb", functions));
  while (copy_block(source.get(), target.get()) == block_result::written) {
  }
  EXPECT_THAT(sizes, ElementsAre(4096, 4096, 808));
}

TEST_F(BlockCopy, EndsAtAReadErrorAsAtTheEndOfTheFile) {
  breaking_source bytes{"some bytes"};
  cookie_io_functions_t functions{};
  functions.read = breaking_source::read;
  const open_file source = unbuffered(fopencookie(&bytes, "rb", functions));
  const open_file target = open_target("target");
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::written);
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::end);
  EXPECT_EQ(read_file("target"), "some bytes");
}

TEST_F(BlockCopy, ClearsErrnoBeforeItWrites) {
  write_file("source", "a");
  const open_file source = open_source("source");
  const open_file target = open_target("target");
  errno = EIO;
  EXPECT_EQ(copy_block(source.get(), target.get()), block_result::written);
  EXPECT_EQ(errno, 0);
}

TEST_F(BlockCopy, TellsWhyABlockIsCutShort) {
  write_file("source", std::string(100, 'a'));
  const open_file source = open_source("source");
  const open_file target = open_target("target");
  block_result result = block_result::end;
  int reason = 0;
  {
    const support::file_size_limit limit(60);
    errno = EIO;
    result = copy_block(source.get(), target.get());
    reason = errno;
  }
  EXPECT_EQ(result, block_result::cut_short);
  EXPECT_EQ(reason, EFBIG);
  EXPECT_EQ(read_file("target"), std::string(60, 'a'));
}
