#include "faults/recorded_run.h"

#include "support/files.h"

#include <fcntl.h>
#include <regex>
#include <sstream>
#include <sys/mman.h>

namespace {

namespace fs = std::filesystem;

class RecordedRun : public support::scratch_test {};

faults::program every_call(const std::string &directory) {
  faults::program tool;
  tool.file = open(EVERY_CALL_PATH, O_RDONLY | O_CLOEXEC);
  tool.arguments = {"every_call"};
  tool.directory = directory;
  tool.output = memfd_create("output", MFD_CLOEXEC);
  return tool;
}

void print(std::ostream &out, const faults::change &one) {
  if (const auto *const bytes = std::get_if<faults::bytes_changed>(&one))
    out << "  " << bytes->file << " holds '" << bytes->bytes << "'\n";
  else if (const auto *const name = std::get_if<faults::name_changed>(&one))
    out << "  " << name->directory << "/" << name->name << " is " << name->stands << "\n";
  else
    out << "  " << std::get<faults::flushed>(one).what << " flushed\n";
}

// Each call and its changes. The directory is ".", and a file without a name has no number.
std::string transcript(const faults::recording &run, const std::string &directory) {
  std::ostringstream text;
  for (const faults::recorded_call &call : run.calls) {
    text << call.text << "\n";
    for (const faults::change &one : call.changes)
      print(text, one);
  }
  std::string all = text.str();
  for (std::size_t at = 0; (at = all.find(directory, at)) != std::string::npos;)
    all.replace(at, directory.size(), ".");
  return std::regex_replace(all, std::regex("#[0-9]+"), "#");
}

// The directory is 1, the file that stood in it before is 2.
constexpr const char *transcript_of_every_call = R"(mkdirat ./sub
  1/sub is 3
openat2 ./sub/a
  3/a is 4
  4 holds ''
write ./sub/a
  4 holds 'one two'
ftruncate ./sub/a
  4 holds 'one'
fchmod ./sub/a
fdatasync ./sub/a
  4 flushed
openat ./sub/b
  3/b is 5
  5 holds ''
copy_file_range ./sub/b
  5 holds 'one'
pwrite64 ./sub/b
  5 holds 'Tne'
close ./sub/b
fsync ./sub
  3 flushed
linkat ./c
  1/c is 4
renameat ./d ./sub/b
  1/d is 5
  3/b is 0
linkat ./sub/e
  3/e is 5
renameat2 ./sub/e ./c
  3/e is 4
  1/c is 5
symlinkat ./link
  1/link is 6
openat ./link
  4 holds ''
fchmodat ./sub/a
unlinkat ./link
  1/link is 0
mknodat ./sub/made
  3/made is 7
  7 holds ''
mkdirat ./gone
  1/gone is 8
unlinkat ./gone
  1/gone is 0
openat ./target
  1/target is 9
  9 holds ''
writev ./target
  9 holds 'v'
pwritev ./target
  9 holds 'vv'
pwritev2 ./target
  9 holds 'vvv'
sendfile ./target
  9 holds 'vsv'
splice ./target
  9 holds 'vsp'
truncate ./target
  9 holds 'vs'
fallocate ./target
  9 holds 'vs'
open ./plain
  1/plain is 10
  10 holds ''
creat ./plain
  10 holds ''
chmod ./plain
link ./other
  1/other is 10
rename ./renamed ./other
  1/renamed is 10
  1/other is 0
unlink ./renamed
  1/renamed is 0
symlink ./symlink
  1/symlink is 11
mkdir ./dir
  1/dir is 12
mknod ./dir/fifo
  12/fifo is 13
rename ./fifo ./dir/fifo
  1/fifo is 13
  12/fifo is 0
rmdir ./dir
  1/dir is 0
openat ./sub
  14 holds ''
write ./sub/# (deleted)
  14 holds 't'
linkat ./named
  1/named is 14
symlinkat ./to nothing
  1/to nothing is 15
openat ./to nothing
  3/behind is 16
  16 holds ''
unlink ./c
  1/c is 0
syncfs .
  1 flushed
  2 flushed
  3 flushed
  4 flushed
  5 flushed
  6 flushed
  7 flushed
  8 flushed
  9 flushed
  10 flushed
  11 flushed
  12 flushed
  13 flushed
  14 flushed
  15 flushed
  16 flushed
sync
  1 flushed
  2 flushed
  3 flushed
  4 flushed
  5 flushed
  6 flushed
  7 flushed
  8 flushed
  9 flushed
  10 flushed
  11 flushed
  12 flushed
  13 flushed
  14 flushed
  15 flushed
  16 flushed
)";

} // namespace

TEST_F(RecordedRun, HoldsEveryCallThatChangesFilesAndWhatItChanges) {
  support::write_file(path("source"), "s");
  const faults::recording run = faults::record_run(every_call(scratch()), scratch());
  ASSERT_EQ(run.status, 0) << "set-up: every_call.cpp failed in the line of that number";
  EXPECT_EQ(faults::files_on(run.start), (std::map<std::string, std::string>{{"source", "s"}}));
  EXPECT_EQ(transcript(run, fs::canonical(scratch())), transcript_of_every_call);
}
