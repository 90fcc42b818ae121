#include "korvalen/files/block_copy.h"

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

struct CopyBinaryFile : support::scratch_test {
  int copy(const std::string &target) const {
    return copy_binary_file(path("source").c_str(), target.c_str());
  }
};

struct ProbeFileStream : support::scratch_test {};

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

bool stop() {
  return false;
}

std::vector<std::size_t> sizes_of_writes(std::FILE *source) {
  std::vector<std::size_t> sizes;
  cookie_io_functions_t functions{};
  functions.write = note_size;
  const open_file target = unbuffered(fopencookie(&sizes, "wb", functions));
  EXPECT_TRUE(copy_blocks(source, target.get(), stop));
  return sizes;
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

TEST_F(BlockCopy, WritesBlocksOf4096BytesInOnePieceAndAtOnce) {
  write_file("source", std::string(9000, 'a'));
  EXPECT_THAT(sizes_of_writes(open_source("source").get()), ElementsAre(4096, 4096, 808));
}

TEST_F(BlockCopy, WritesBlocksOfTheSameSizeWhereverAReadOfTheSourceEnds) {
  std::string bytes(1'000'000, 'a');
  write_file("source", bytes);
  std::vector<std::size_t> expected(244, 4096);
  expected.push_back(576);
  EXPECT_EQ(sizes_of_writes(open_source("source").get()), expected);
}

TEST_F(BlockCopy, CopiesEveryByteOfASourceThatIsLargerThanOneRead) {
  std::string bytes;
  for (int i = 0; i < 100'000; ++i)
    bytes += std::to_string(i) + '\n';
  write_file("source", bytes);
  open_file target = open_target("target");
  EXPECT_TRUE(copy_blocks(open_source("source").get(), target.get(), stop));
  target.reset();
  EXPECT_TRUE(read_file("target") == bytes) << "the copy differs";
}

TEST_F(BlockCopy, EndsAtAReadErrorAsAtTheEndOfTheFile) {
  breaking_source bytes{"some bytes"};
  cookie_io_functions_t functions{};
  functions.read = breaking_source::read;
  const open_file source = unbuffered(fopencookie(&bytes, "rb", functions));
  const open_file target = open_target("target");
  EXPECT_TRUE(copy_blocks(source.get(), target.get(), stop));
  EXPECT_EQ(read_file("target"), "some bytes");
}

TEST_F(BlockCopy, ClearsErrno) {
  for (const char *content : {"", "a"}) {
    SCOPED_TRACE(content);
    write_file("source", content);
    const open_file source = open_source("source");
    const open_file target = open_target("target");
    errno = EIO;
    EXPECT_TRUE(copy_blocks(source.get(), target.get(), stop));
    EXPECT_EQ(errno, 0);
  }
}

TEST_F(BlockCopy, AsksAfterAShortWriteWhetherToGoOnAndTellsWhyItWasShort) {
  write_file("source", std::string(10'000, 'a'));
  for (const bool goes_on : {false, true}) {
    SCOPED_TRACE(goes_on);
    const open_file source = open_source("source");
    const open_file target = open_target("target");
    std::vector<int> reasons;
    bool copied = !goes_on;
    {
      const support::file_size_limit limit(4196);
      errno = EIO;
      copied = copy_blocks(source.get(), target.get(), [&] {
        reasons.push_back(errno);
        return goes_on;
      });
    }
    EXPECT_EQ(copied, goes_on);
    EXPECT_EQ(reasons, std::vector<int>(goes_on ? 2 : 1, EFBIG));
    EXPECT_EQ(read_file("target"), std::string(4196, 'a'));
  }
}

TEST_F(CopyBinaryFile, CopiesEveryByteOfAnySize) {
  for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 10000u}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
      bytes[i] = static_cast<char>(i * 7 % 256);
    write_file(path("source"), bytes);
    write_file(path("target"), "something longer that was there before");
    EXPECT_EQ(copy(path("target")), 1) << size;
    EXPECT_TRUE(read_file(path("target")) == bytes) << size;
  }
}

TEST_F(CopyBinaryFile, WithoutASourceMakesNoTarget) {
  EXPECT_EQ(copy(path("target")), 0);
  EXPECT_FALSE(support::fs::exists(path("target")));
}

TEST_F(CopyBinaryFile, IntoAPlaceThatTakesNoFileIsNotDone) {
  write_file(path("source"), "bytes");
  EXPECT_EQ(copy(path("no_directory/target")), 0);
  EXPECT_EQ(copy(scratch().string()), 0);
}

TEST_F(CopyBinaryFile, OntoAFullDeviceIsNotDone) {
  write_file(path("source"), "bytes");
  EXPECT_EQ(copy("/dev/full"), 0);
}

TEST_F(CopyBinaryFile, LeavesNoFileOpen) {
  EXPECT_EQ(support::files_left_open([this] { EXPECT_EQ(copy(path("target")), 0); }), 0) << "no source";
  write_file(path("source"), "bytes");
  EXPECT_EQ(support::files_left_open([this] { EXPECT_EQ(copy(path("target")), 1); }), 0);
  EXPECT_EQ(support::files_left_open([this] { EXPECT_EQ(copy(path("no_directory/target")), 0); }), 0);
  EXPECT_EQ(support::files_left_open([this] { EXPECT_EQ(copy("/dev/full"), 0); }), 0);
}

TEST_F(ProbeFileStream, LeavesNoFileOpen) {
  EXPECT_EQ(support::files_left_open([] { probe_file_stream(); }), 0);
}

TEST_F(ProbeFileStream, LeavesEverythingAsItWas) {
  write_file(path("file"), "content");
  const support::tree before = support::snapshot(scratch());
  probe_file_stream();
  EXPECT_EQ(support::snapshot(scratch()), before);
}
