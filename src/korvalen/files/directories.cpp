#include "korvalen/files/directories.h"

#include "korvalen/files/file_copy.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/files/listing_command.h"
#include "korvalen/files/text_lines.h"
#include "korvalen/records/install_log.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace korvalen {

namespace {

constexpr const char *listing_file = "./.korvalen_ls_temp_txt";

// Removes the listing before this one and tells whether a new one may be made in its place. Where it cannot
// be removed, only the user's own file may be written again, once it is emptied, so that old names are never
// taken for new ones; and only the user's own directory is left to the shell, which says that it cannot write
// there. A link would be written through, a FIFO waited for, and what somebody else owns could be changed
// before it is read. When not, errno tells why the old one stays.
bool make_room_for_listing() {
  struct stat status {};
  if (lstat(listing_file, &status) != 0 || fdfRemoveFile(listing_file))
    return true;
  if (status.st_uid != geteuid())
    return false;
  return S_ISREG(status.st_mode) ? truncate(listing_file, 0) == 0 : S_ISDIR(status.st_mode);
}

// Runs the command in a shell whose environment is this process's own, but for QUOTING_STYLE=literal: names
// are listed as they are. The own environment stays as it is, down to its order.
void run_listing(const std::string &command) {
  constexpr std::string_view quoting = "QUOTING_STYLE=";
  std::string literal = std::string(quoting) + "literal";
  std::vector<char *> variables = {literal.data()};
  for (char **variable = environ; variable != nullptr && *variable != nullptr; ++variable)
    if (!std::string_view(*variable).starts_with(quoting))
      variables.push_back(*variable);
  variables.push_back(nullptr);

  char **const own = std::exchange(environ, variables.data());
  [[maybe_unused]] const int status = std::system(command.c_str());
  environ = own;
}

const char *bare_name(const char *path) {
  const char *const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

void copy_entry(const char *source_dir, const char *target_dir, const char *name) {
  const owned_string source = str_join_path(source_dir, name);
  const owned_string target = str_join_path(target_dir, name);
  chmod(target_dir, 0755);
  chmod(target.get(), 0755);

  log_line("fdfCopyFile  = ", source.get());
  log_line("INTO  = ", target.get());
  errno = 0;
  if (!fdfCopyFile(source.get(), target.get(), 0, true))
    end_with_copy_error(source.get(), target.get());
  chmod(target.get(), 0755);
}

} // namespace

bool fdfRemoveFile(const char *path) {
  struct stat status {};
  if (lstat(path, &status) == 0 && !S_ISLNK(status.st_mode))
    chmod(path, 0755);
  return std::remove(path) != -1;
}

bool fdfRemoveDir(const char *path) {
  return rmdir(path) != -1;
}

line_array fdfDirFiles(const char *pattern, std::int32_t *count) {
  if (!make_room_for_listing()) {
    std::cerr << "Error: cannot replace " << listing_file << ": " << std::strerror(errno) << std::endl;
    return nullptr;
  }

  run_listing(listing_command(pattern, listing_file));
  std::int32_t line_count = 0;
  const line_array lines = fdfReadLines(listing_file, &line_count);
  if (!lines)
    return nullptr;
  *count = line_count;
  std::vector<owned_string> names;
  for (char **line = lines.get(); *line != nullptr; ++line)
    names.push_back(str_dup_line(bare_name(*line)));
  return line_array_of(names);
}

std::int32_t fdfCopyDirFiles(const char *source_dir, const char *target_dir, const char *pattern) {
  // Wanted: a directory made here keeps mode 0 when nothing is copied into it.
  const owned_string target = str_join_path(target_dir, "");
  if (!fdfExists(target.get()))
    mkdir(target.get(), 0);

  const owned_string listed = str_join_path(source_dir, pattern);
  std::int32_t count = 0;
  const line_array names = fdfDirFiles(listed.get(), &count);
  log_line("fdfDirFiles  = ", listed.get());
  log_line("aNumber  = ", count);

  for (std::int32_t i = 0; i < count; ++i)
    copy_entry(source_dir, target.get(), names[static_cast<std::size_t>(i)]);
  return count;
}

bool fkorvCreateDir(const char *path) {
  const line_array components = split_path(path, nullptr);
  if (!components)
    return false;

  owned_string level = str_format_new("/");
  for (char **component = components.get(); *component != nullptr; ++component) {
    level = str_append_owned(str_append_owned(std::move(level), *component), "/");
    if (fdfExists(level.get()))
      continue;
    const int made = mkdir(level.get(), 0);
    chmod(level.get(), 0755);
    if (made == -1)
      return false;
  }
  return true;
}

} // namespace korvalen
