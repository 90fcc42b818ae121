// Makes, in its current directory, at least one of every kind of call that changes files below a descriptor.
// Its exit status is the number of the first line whose call failed, or 0.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

int first_failure = 0;

long checked(long result, int line) {
  if (result < 0 && first_failure == 0)
    first_failure = line;
  return result;
}

#define CHECKED(call) checked((call), __LINE__)

int open_beneath(int directory, const char *path, std::uint64_t flags) {
  open_how how = {};
  how.flags = flags;
  how.mode = 0644;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof how));
}

void make_files(int here) {
  CHECKED(mkdirat(here, "sub", 0755));
  const int sub = static_cast<int>(CHECKED(openat(here, "sub", O_DIRECTORY | O_RDONLY)));
  const int a = static_cast<int>(CHECKED(open_beneath(sub, "a", O_CREAT | O_RDWR | O_TRUNC)));
  CHECKED(write(a, "one two", 7));
  CHECKED(ftruncate(a, 3));
  CHECKED(fchmod(a, 0755));
  CHECKED(fdatasync(a));
  const int b = static_cast<int>(CHECKED(openat(AT_FDCWD, "sub/b", O_CREAT | O_WRONLY, 0644)));
  loff_t start = 0;
  CHECKED(copy_file_range(a, &start, b, nullptr, 3, 0));
  CHECKED(pwrite(b, "T", 1, 0));
  CHECKED(close(b));
  CHECKED(fsync(sub));
}

void change_names(int here) {
  CHECKED(linkat(here, "sub/a", here, "c", 0));
  CHECKED(renameat(here, "sub/b", here, "d"));
  CHECKED(renameat2(here, "c", here, "d", RENAME_EXCHANGE));
  CHECKED(symlinkat("d", here, "link"));
  CHECKED(openat(here, "link", O_WRONLY | O_TRUNC));
  CHECKED(unlinkat(here, "link", 0));
  CHECKED(mkdirat(here, "gone/", 0755));
  CHECKED(unlinkat(here, "gone", AT_REMOVEDIR));
}

// A file that gets its name when it is written, and one that is made where a link leads.
void make_files_otherwise(int here) {
  const int unnamed = static_cast<int>(CHECKED(openat(here, "sub", O_TMPFILE | O_WRONLY, 0644)));
  CHECKED(write(unnamed, "t", 1));
  const std::string path = "/proc/self/fd/" + std::to_string(unnamed);
  CHECKED(linkat(AT_FDCWD, path.c_str(), here, "named", AT_SYMLINK_FOLLOW));
  CHECKED(symlinkat("sub/behind", here, "to nothing"));
  CHECKED(openat(here, "to nothing", O_CREAT | O_WRONLY, 0644));
}

void remove_in_another_process() {
  const pid_t child = fork();
  if (child == 0)
    _exit(unlink("c") == 0 ? 0 : 1);
  int status = 0;
  CHECKED(waitpid(child, &status, 0) == child && status == 0 ? 0 : -1);
}

} // namespace

int main() {
  const int here = static_cast<int>(CHECKED(open(".", O_DIRECTORY | O_RDONLY)));
  make_files(here);
  change_names(here);
  make_files_otherwise(here);
  remove_in_another_process();
  CHECKED(syncfs(static_cast<int>(CHECKED(open("/proc", O_RDONLY))))); // another file system
  CHECKED(syncfs(here));
  return first_failure;
}
