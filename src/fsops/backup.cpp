#include "fsops/backup.h"

#include "driver/strings.h"
#include "driver/uninstall_script.h"
#include "fsops/file_copy.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korvalen {

namespace {

// An existing backup is never replaced, not even when somebody's look-up of it failed for a moment. A
// symbolic link is not a backup: what it points to stays where it is.
bool may_stand_at(const char *backup) {
  struct stat status {};
  return lstat(backup, &status) == 0 ? S_ISLNK(status.st_mode) : errno == ENOENT;
}

bool create_empty(const char *path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0)
    return false;
  close(file);
  return true;
}

// Only a regular file has a size to compare.
bool is_complete(const char *copy, const char *original) {
  struct stat original_status {};
  struct stat copy_status {};
  if (stat(original, &original_status) != 0 || stat(copy, &copy_status) != 0)
    return false;
  return !S_ISREG(original_status.st_mode) || copy_status.st_size == original_status.st_size;
}

bool flush_to_disk(const char *path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0)
    return false;
  const bool flushed = fsync(file) == 0;
  return close(file) == 0 && flushed;
}

// Leaves no incomplete copy behind.
bool copy_completely(const char *path, const char *copy) {
  if (fdfCopyFile(path, copy, 0, false) && is_complete(copy, path) && flush_to_disk(copy))
    return true;
  std::remove(copy);
  return false;
}

} // namespace

bool keep_original(const char *path, const char *backup, bool record) {
  if (!may_stand_at(backup))
    return false;

  // The temporary name is created only to see that it can be. The copy creates it anew, with the mode of a
  // new file.
  const owned_string unfinished = str_format_new("%s.new", backup);
  std::remove(unfinished.get());
  const bool has_detour = create_empty(unfinished.get());
  if (has_detour && std::remove(unfinished.get()) != 0)
    return false;

  if (!copy_completely(path, has_detour ? unfinished.get() : backup))
    return false;
  if (has_detour && std::rename(unfinished.get(), backup) != 0) {
    std::remove(unfinished.get());
    return false;
  }
  const owned_string directory = str_format_new("%s", backup);
  flush_to_disk(dirname(directory.get()));
  if (record)
    add_korvalen_install_files(backup);
  return true;
}

} // namespace korvalen
