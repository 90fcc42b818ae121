#include "korvalen/files/file_copy.h"

#include "korvalen/files/block_copy.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace korvalen {

namespace {

constexpr int open_attempts = 5;

bool install_waits = true;

open_file open_with_retries(open_file (*open)(const char *), const char *path) {
  for (int attempt = 1;; ++attempt) {
    errno = 0;
    open_file file = open(path);
    if (file || attempt == open_attempts)
      return file;
    fdfSleep(1.0);
  }
}

// Writes errno and then the path to the install log.
void log_failure(const char *label, const char *path) {
  log_line("\nerrno : ", errno);
  log_line(label, path);
}

void write_target(open_file source_file, const char *source, const char *target) {
  open_file target_file = open_with_retries(open_target, target);
  if (!target_file) {
    log_failure("CREATE FILE ERROR : ", target);
    end_with_copy_error(source, target);
  }

  // Wanted: after a short write the copy goes on with the next block.
  copy_blocks(source_file.get(), target_file.get(), [target] {
    log_failure("WRITE IN  FILE ERROR : ", target);
    return true;
  });
  // It is closed before the target is.
  source_file.reset();
}

} // namespace

bool fdfCopyFile(const char *source, const char *target, int /*unused*/, bool record) {
  open_file source_file = open_with_retries(open_source, source);
  if (!source_file) {
    log_failure("FILE NOT FOUND : ", source);
    return false;
  }

  errno = 0;
  const bool exists = fdfExists(target);
  if (exists)
    chmod(target, 0755);
  // Opened for writing, a file that is its own target would be empty before it is read.
  if (!exists || !is_same_file(source, target))
    write_target(std::move(source_file), source, target);

  if (record)
    add_korvalen_install_files(target);
  return true;
}

void end_with_copy_error(const char *source, const char *target) {
  std::cerr << "ERROR while copying " << source << std::endl
            << " to " << target << std::endl
            << std::endl
            << "Please check path and privileges!" << std::endl
            << std::endl;
  std::exit(-1);
}

int fdfSleep(double seconds) {
  const int whole = static_cast<int>(seconds);
  auto left = install_waits ? static_cast<unsigned>(whole) : 0U;
  while (left > 0)
    left = sleep(left);
  return whole;
}

void set_install_waits(bool waits) {
  install_waits = waits;
}

} // namespace korvalen
