#include "korvalen/files/backup.h"

#include "korvalen/files/file_copy.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/records/uninstall_script.h"
#include "korvalen/text/strings.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <libgen.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace korvalen {

namespace {

// Whether nothing stands at the path; no when the look-up itself fails.
bool is_free(const char *path) {
  struct stat status {};
  return lstat(path, &status) != 0 && errno == ENOENT;
}

bool is_link(const char *path) {
  struct stat status {};
  return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

// How long the directory of a path is, with its last slash; 0 where the path has none.
std::size_t directory_length(std::string_view path) {
  return path.rfind('/') + 1;
}

bool is_one_entry(const std::string &path, const std::string &other) {
  const std::size_t length = directory_length(path);
  const std::size_t other_length = directory_length(other);
  if (path.compare(length, std::string::npos, other, other_length, std::string::npos) != 0)
    return false;
  const std::string directory = path.substr(0, length) + ".";
  const std::string other_directory = other.substr(0, other_length) + ".";
  return is_same_file(directory.c_str(), other_directory.c_str());
}

// Whether the path, which leads to the same file as the entry, is the entry or a link that leads to it or on
// through it, so that nothing would stand at the path any more without the entry. The entry itself may be a
// link.
bool depends_on(const char *original, const char *entry_path) {
  const std::string entry = entry_path;
  std::string path = original;
  while (!is_one_entry(path, entry)) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length < 0)
      return false;
    path.resize(target[0] == '/' ? 0 : directory_length(path));
    path.append(target.data(), static_cast<std::size_t>(length));
  }
  return true;
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

// The copy gets its final name when it is complete and on disk.
bool copy_by_detour(const char *path, const char *unfinished, const char *backup) {
  // It was created only to see that it can be. The copy creates it anew, with the mode of a new file.
  if (std::remove(unfinished) != 0 || !copy_completely(path, unfinished))
    return false;
  if (std::rename(unfinished, backup) == 0)
    return true;
  std::remove(unfinished);
  return false;
}

} // namespace

bool has_backup(const char *path, const char *backup) {
  return fdfExists(backup) && !is_same_file(path, backup);
}

bool keep_original(const char *path, const char *backup, bool record) {
  // A symbolic link is not a backup. It gives way, and what it points to stays where it is.
  if (!is_free(backup) && !is_link(backup))
    return false;

  const owned_string unfinished = str_format_new("%s.new", backup);
  if (is_same_file(path, unfinished.get()) && depends_on(path, unfinished.get()))
    return false;
  std::remove(unfinished.get());
  // A plain copy would be written through a link, perhaps into the original.
  const bool kept = create_empty(unfinished.get()) ? copy_by_detour(path, unfinished.get(), backup)
                                                   : is_free(backup) && copy_completely(path, backup);
  if (!kept)
    return false;

  const owned_string directory = str_format_new("%s", backup);
  flush_to_disk(dirname(directory.get()));
  if (record)
    add_korvalen_install_files(backup);
  return true;
}

} // namespace korvalen
