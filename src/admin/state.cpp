#include "admin/state.h"

#include <array>
#include <unistd.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace korvalen::admin {

namespace {

constexpr mode_t permission_bits = 07777;

file_type type_of(mode_t mode) {
  if (S_ISREG(mode))
    return file_type::file;
  if (S_ISDIR(mode))
    return file_type::directory;
  return S_ISLNK(mode) ? file_type::link : file_type::special;
}

} // namespace

state state_of(const tree &in, const std::string &path, const struct stat &status) {
  state result;
  result.type = type_of(status.st_mode);
  result.mode = status.st_mode & permission_bits;
  result.owner = status.st_uid;
  result.group = status.st_gid;
  if (result.type == file_type::file)
    result.size = static_cast<std::uint64_t>(status.st_size);
  if (result.type == file_type::link)
    result.target = link_target(in, path);
  return result;
}

state state_of(const tree &in, const std::string &path) {
  const std::optional<struct stat> status = look_up(in, path);
  return status ? state_of(in, path, *status) : state{};
}

state hashed_state_of(const tree &in, const std::string &path) {
  state result = state_of(in, path);
  if (result.type == file_type::file)
    result.hash = hash_of(in, path);
  return result;
}

std::uint64_t hash_of(const tree &in, const std::string &path) {
  const descriptor file = open_in(in, path);
  if (!file)
    fail("cannot open " + path);
  XXH3_state_t hash;
  XXH3_64bits_reset(&hash);
  std::array<char, 65'536> block;
  while (const int size = checked(read(file.get(), block.data(), block.size()), "cannot read " + path))
    XXH3_64bits_update(&hash, block.data(), static_cast<std::size_t>(size));
  return XXH3_64bits_digest(&hash);
}

} // namespace korvalen::admin
