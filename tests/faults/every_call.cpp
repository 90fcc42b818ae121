// Makes, in its current directory, every call that changes files: by paths, by descriptors and below
// descriptors. Its exit status is the number of the first line whose call failed, modulo 256, or 0.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
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

int make_files(int here) {
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
  return sub;
}

void change_names(int here, int sub) {
  CHECKED(linkat(sub, "a", here, "c", 0));
  CHECKED(renameat(sub, "b", here, "d"));
  CHECKED(linkat(here, "d", sub, "e", 0));
  CHECKED(renameat2(here, "c", sub, "e", RENAME_EXCHANGE));
  CHECKED(symlinkat("sub/e", here, "link"));
  CHECKED(openat(here, "link", O_WRONLY | O_TRUNC));
  CHECKED(fchmodat(sub, "a", 0700, 0));
  CHECKED(unlinkat(here, "link", 0));
  CHECKED(mknodat(sub, "made", S_IFREG | 0644, 0));
  CHECKED(mkdirat(here, "gone/", 0755));
  CHECKED(unlinkat(here, "gone", AT_REMOVEDIR));
}

void change_bytes(int here) {
  const int from = static_cast<int>(CHECKED(openat(here, "source", O_RDONLY)));
  const int to = static_cast<int>(CHECKED(openat(here, "target", O_CREAT | O_WRONLY, 0644)));
  char letter = 'v';
  const iovec one = {&letter, 1};
  CHECKED(writev(to, &one, 1));
  CHECKED(syscall(SYS_pwritev, to, &one, 1, 1, 0));
  CHECKED(syscall(SYS_pwritev2, to, &one, 1, 2, 0, 0));
  CHECKED(sendfile(to, from, nullptr, 1));
  std::array<int, 2> ends{};
  CHECKED(pipe(ends.data()));
  CHECKED(write(ends[1], "p", 1));
  CHECKED(splice(ends[0], nullptr, to, nullptr, 1, 0));
  CHECKED(truncate("target", 2));
  CHECKED(fallocate(to, FALLOC_FL_KEEP_SIZE, 0, 5));
}

// The calls of old, which the C library may replace by those below descriptors.
void make_plain_calls() {
  CHECKED(syscall(SYS_open, "plain", O_CREAT | O_WRONLY, 0644));
  CHECKED(syscall(SYS_creat, "plain", 0644));
  CHECKED(syscall(SYS_chmod, "plain", 0600));
  CHECKED(syscall(SYS_link, "plain", "other"));
  CHECKED(syscall(SYS_rename, "other", "renamed"));
  CHECKED(syscall(SYS_unlink, "renamed"));
  CHECKED(syscall(SYS_symlink, "plain", "symlink"));
  CHECKED(syscall(SYS_mkdir, "dir", 0755));
  CHECKED(syscall(SYS_mknod, "dir/fifo", S_IFIFO | 0644, 0));
  CHECKED(syscall(SYS_rename, "dir/fifo", "fifo"));
  CHECKED(syscall(SYS_rmdir, "dir"));
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
  change_names(here, make_files(here));
  change_bytes(here);
  make_plain_calls();
  make_files_otherwise(here);
  remove_in_another_process();
  CHECKED(syncfs(static_cast<int>(CHECKED(open("/proc", O_RDONLY))))); // another file system
  CHECKED(syncfs(here));
  sync();
  return first_failure & 0xff;
}
