#include "fuzz.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <unistd.h>

// Takes the place of the system's: no input is worth waiting for. The fuzzer watches itself in a second
// thread, which does have to wait.
extern "C" unsigned sleep(unsigned seconds) {
  if (gettid() != getpid())
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
  return 0;
}

// NOLINTNEXTLINE(readability-identifier-naming): the fuzzer calls it by this name.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  // The messages of the code under test would drown those of the fuzzer.
  [[maybe_unused]] static const std::FILE *const silenced = std::freopen("/dev/null", "w", stdout);
  fuzz::check({reinterpret_cast<const char *>(data), size});
  return 0;
}

namespace fuzz {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t max_line_length = 199'999;
constexpr std::size_t max_lines = 200'000;

struct scratch_directory {
  fs::path path;
  scratch_directory() {
    std::string name = (fs::temp_directory_path() / "korvalen_fuzz.XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "a scratch directory can be made");
    path = name;
  }
  ~scratch_directory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  scratch_directory(const scratch_directory &) = delete;
  scratch_directory &operator=(const scratch_directory &) = delete;
};

void print(const char *label, std::string_view bytes) {
  std::fprintf(stderr, "%s (%zu bytes): \"", label, bytes.size());
  for (const char byte : bytes) {
    if (byte >= ' ' && byte <= '~' && byte != '\\' && byte != '"')
      std::fputc(byte, stderr);
    else
      std::fprintf(stderr, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
  }
  std::fputs("\"\n", stderr);
}

} // namespace

void require(bool holds, std::string_view property) {
  if (holds)
    return;
  std::fprintf(stderr, "NOT SO: %.*s\n", static_cast<int>(property.size()), property.data());
  std::abort();
}

void require_equal(std::string_view actual, std::string_view expected, std::string_view property) {
  if (actual == expected)
    return;
  print("actual  ", actual);
  print("expected", expected);
  require(false, property);
}

std::vector<std::string> texts(std::string_view input, std::size_t count) {
  std::vector<std::string> result;
  while (result.size() < count) {
    result.push_back(visible(input));
    input.remove_prefix(std::min(result.back().size() + 1, input.size()));
  }
  return result;
}

std::string visible(std::string_view bytes) {
  return std::string(bytes.substr(0, bytes.find('\0')));
}

std::string line_of(std::string_view bytes) {
  const std::string line = visible(bytes);
  const std::size_t cr = line.find('\r');
  return cr == std::string::npos ? line : line.substr(0, cr) + "\n";
}

std::vector<std::string> lines_of(std::string_view bytes) {
  std::vector<std::string> lines;
  while (!bytes.empty() && lines.size() < max_lines) {
    const std::size_t length = std::min(bytes.find('\n'), bytes.size());
    if (length > max_line_length)
      break;
    lines.push_back(line_of(bytes.substr(0, length)));
    bytes.remove_prefix(std::min(length + 1, bytes.size()));
  }
  return lines;
}

std::string joined(const std::vector<std::string> &lines) {
  std::string bytes;
  for (const std::string &line : lines)
    bytes += line + "\n";
  return bytes;
}

std::string scratch_path(std::string_view name) {
  static const scratch_directory scratch;
  return (scratch.path / name).string();
}

} // namespace fuzz
