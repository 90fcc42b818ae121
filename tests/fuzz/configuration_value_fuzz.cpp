// The decoder of configuration values, into a buffer of exactly the size that always suffices.

#include "fuzz.h"

#include "korvalen/config/configuration_lookup.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace {

constexpr std::string_view separators = "= \t,\n;";
constexpr std::size_t max_characters = 1000;

// The number at the start of a piece as one byte. One that is too large or too small for a long is the
// nearest.
char number(std::string_view piece) {
  piece.remove_prefix(std::min(piece.find_first_not_of("\v\f\r"), piece.size()));
  const bool negative = piece.starts_with('-');
  if (negative || piece.starts_with('+'))
    piece.remove_prefix(1);
  const unsigned long limit = std::numeric_limits<long>::max() + (negative ? 1UL : 0UL);
  unsigned long value = 0;
  for (std::size_t i = 0; i < piece.size() && piece[i] >= '0' && piece[i] <= '9'; ++i) {
    const auto digit = static_cast<unsigned long>(piece[i] - '0');
    value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
  }
  return static_cast<char>(negative ? 0 - value : value);
}

std::string decoded(const std::string &line) {
  if (line.find(", 0") == std::string::npos)
    return line;
  std::string result = line.substr(0, line.find('=') + 1);
  std::size_t at = result.size();
  while (result.size() < max_characters) {
    at = line.find_first_not_of(separators, at);
    if (at == std::string::npos)
      break;
    const std::size_t end = std::min(line.find_first_of(separators, at), line.size());
    const char character = number(std::string_view(line).substr(at, end - at));
    if (character == '\0')
      break;
    result += character;
    at = end;
  }
  const bool has_room = result.size() <= max_characters || result.size() < line.size();
  return has_room ? result + ";" : result;
}

} // namespace

void fuzz::check(std::string_view input) {
  const std::string line = visible(input);
  const std::size_t size = std::max(line.size() + 1, max_characters + 2);
  const std::unique_ptr<char[]> out(new char[size]);
  std::fill_n(out.get(), size, '?');
  require(korvalen::decode_configuration_value(line.c_str(), out.get()) == 1, "the result is 1");
  require(std::find(out.get(), out.get() + size, '\0') != out.get() + size,
          "the text ends within the buffer");
  require_equal(out.get(), decoded(line), "a list of codes becomes the characters");
}
