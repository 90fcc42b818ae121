#include "fsops/block_copy.h"

#include <array>
#include <cerrno>

namespace korvalen {

open_file open_source(const char *path) {
  return open_file(std::fopen(path, "rb"));
}

open_file open_target(const char *path) {
  open_file target(std::fopen(path, "wb"));
  if (target)
    std::setvbuf(target.get(), nullptr, _IONBF, 0);
  return target;
}

block_result copy_block(std::FILE *source, std::FILE *target) {
  std::array<char, 4096> block;
  const std::size_t count = std::fread(block.data(), 1, block.size(), source);
  if (count == 0)
    return block_result::end;
  errno = 0;
  return std::fwrite(block.data(), 1, count, target) == count ? block_result::written
                                                              : block_result::cut_short;
}

} // namespace korvalen
