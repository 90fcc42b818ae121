#include "fsops/file_queries.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <vector>

namespace korvalen {

namespace {

constexpr std::size_t line_buffer_size = 200'000;
constexpr std::size_t max_lines = 200'000;

std::vector<owned_string> read_lines(const char *path) {
  std::vector<owned_string> lines;
  std::ifstream file(path);
  // Not cleared: as much of it is used as the longest line needs.
  const auto line = std::make_unique_for_overwrite<char[]>(line_buffer_size);
  while (lines.size() < max_lines && file.getline(line.get(), line_buffer_size))
    lines.push_back(str_dup_line(line.get()));
  return lines;
}

} // namespace

bool fdfExists(const char *path) {
  errno = 0;
  struct stat status {};
  if (stat(path, &status) == 0)
    errno = 0;
  return errno == 0;
}

bool fdfExistsQuiet(const char *path) {
  struct stat status {};
  const int reason = stat(path, &status) == 0 ? 0 : errno;
  errno = 0;
  return reason == 0;
}

bool is_same_file(const char *path, const char *other_path) {
  struct stat status {};
  struct stat other_status {};
  return stat(path, &status) == 0 && stat(other_path, &other_status) == 0 &&
         status.st_dev == other_status.st_dev && status.st_ino == other_status.st_ino;
}

line_array fdfReadLines(const char *path, std::int32_t *count) {
  const bool exists = fdfExists(path);
  std::vector<owned_string> lines;
  if (exists)
    lines = read_lines(path);
  if (count != nullptr)
    *count = static_cast<std::int32_t>(lines.size());
  return exists ? line_array_of(lines) : nullptr;
}

void write_lines(std::ostream &file, std::span<const char *const> lines) {
  for (const char *line : lines)
    file << line << std::endl;
}

} // namespace korvalen
