// The line reader on a file that holds the input. To reach the longest line with short inputs, the first two
// bytes 1 stand for 99,999 characters each.

#include "fuzz.h"
#include "support/files.h"

#include "korvalen/files/text_lines.h"

using namespace korvalen;

namespace {

std::string expanded(std::string_view input) {
  int left = 2;
  std::string bytes;
  for (const char byte : input) {
    if (byte == 1 && left-- > 0)
      bytes.append(99'999, 'x');
    else
      bytes += byte;
  }
  return bytes;
}

} // namespace

void fuzz::check(std::string_view input) {
  const std::string path = scratch_path("text");
  const std::string bytes = expanded(input);
  support::write_file(path, bytes);
  const std::vector<std::string> expected = lines_of(bytes);

  std::int32_t count = -1;
  const line_array lines = fdfReadLines(path.c_str(), &count);
  require(lines != nullptr, "a file that exists gives an array");
  require(count == static_cast<std::int32_t>(expected.size()), "every line counts");
  for (std::size_t i = 0; i < expected.size(); ++i)
    require_equal(lines[i], expected[i], "a line is kept up to its end, its first CR or its first NUL");
  require(lines[expected.size()] == nullptr, "a null ends the array");
}
