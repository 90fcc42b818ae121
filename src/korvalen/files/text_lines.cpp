#include "korvalen/files/text_lines.h"

#include "korvalen/files/file_queries.h"

#include <fstream>
#include <memory>
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
