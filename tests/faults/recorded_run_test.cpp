#include "faults/recorded_run.h"

#include "support/files.h"

#include <cerrno>
#include <fcntl.h>
#include <regex>
#include <sstream>
#include <sys/mman.h>

namespace {

namespace fs = std::filesystem;

class RecordedRun : public support::scratch_test {};

faults::program at_calls(const std::string &directory) {
  faults::program tool;
  tool.file = open(AT_CALLS_PATH, O_RDONLY | O_CLOEXEC);
  tool.arguments = {"at_calls"};
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
constexpr const char *transcript_of_at_calls = R"(mkdirat ./sub
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
renameat2 ./d ./c
  1/d is 4
  1/c is 5
symlinkat ./link
  1/link is 6
openat ./link
  4 holds ''
unlinkat ./link
  1/link is 0
mkdirat ./gone
  1/gone is 7
unlinkat ./gone
  1/gone is 0
openat ./sub
  8 holds ''
write ./sub/# (deleted)
  8 holds 't'
linkat ./named
  1/named is 8
symlinkat ./to nothing
  1/to nothing is 9
openat ./to nothing
  3/behind is 10
  10 holds ''
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
)";

} // namespace

TEST_F(RecordedRun, HoldsEveryCallThatChangesAFileBelowADescriptor) {
  support::write_file(path("d"), "d");
  const faults::recording run = faults::record_run(at_calls(scratch()), scratch());
  ASSERT_EQ(run.status, 0) << "set-up: at_calls.cpp failed in the line of that number";
  EXPECT_EQ(faults::files_on(run.start), (std::map<std::string, std::string>{{"d", "d"}}));
  EXPECT_EQ(transcript(run, fs::canonical(scratch())), transcript_of_at_calls);
}
