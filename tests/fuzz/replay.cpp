// Stands in for the fuzzer where there is none: hands every file of the directories in the command line, in
// the order of their names, to the target. A property that does not hold ends it as it ends the fuzzer.

#include "support/files.h"

#include <cstdint>
#include <cstdio>
#include <set>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
  std::set<support::fs::path> inputs;
  for (int i = 1; i < argc; ++i)
    for (const support::fs::directory_entry &file : support::fs::directory_iterator(argv[i]))
      inputs.insert(file.path());
  if (inputs.empty()) {
    std::fputs("There is no input to replay.\n", stderr);
    return 1;
  }
  for (const support::fs::path &input : inputs) {
    std::fprintf(stderr, "%s\n", input.c_str());
    const std::string bytes = support::read_file(input);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
  }
  return 0;
}
