#include "korvalen/envi/idl_directory.h"

#include "korvalen/files/file_queries.h"

namespace korvalen {

namespace {

constexpr int first_major = 8;
constexpr int last_major = 19;
constexpr int last_minor = 19;

} // namespace

owned_string find_idl_directory(const char *envi_dir) {
  for (int major = first_major; major <= last_major; ++major)
    for (int minor = 0; minor <= last_minor; ++minor) {
      owned_string candidate = str_format_new("%s/idl%d%d", envi_dir, major, minor);
      if (fdfExistsQuiet(candidate.get()))
        return candidate;
    }
  return nullptr;
}

} // namespace korvalen
