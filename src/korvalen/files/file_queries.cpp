#include "korvalen/files/file_queries.h"

#include <cerrno>
#include <sys/stat.h>

namespace korvalen {

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

} // namespace korvalen
