#include "korvalen/envi/idl_directory.h"

#include "korvalen/files/file_queries.h"

#include <cstdint>
#include <utility>

namespace korvalen {

namespace {

constexpr int first_major = 8;
constexpr int last_major = 19;
constexpr int last_minor = 19;

// Those that exist, in the order of the search, until there are enough.
std::vector<owned_string> search(const char *envi_dir, std::size_t enough) {
  std::vector<owned_string> found;
  for (int major = first_major; major <= last_major; ++major)
    for (int minor = 0; minor <= last_minor && found.size() < enough; ++minor) {
      owned_string candidate = str_format_new("%s/idl%d%d", envi_dir, major, minor);
      if (fdfExistsQuiet(candidate.get()))
        found.push_back(std::move(candidate));
    }
  return found;
}

} // namespace

owned_string find_idl_directory(const char *envi_dir) {
  std::vector<owned_string> found = search(envi_dir, 1);
  return found.empty() ? nullptr : std::move(found.front());
}

std::vector<owned_string> find_idl_directories(const char *envi_dir) {
  return search(envi_dir, SIZE_MAX);
}

} // namespace korvalen
