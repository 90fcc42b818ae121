// The string and path functions on two texts. Every buffer is of the exact size, so that the address
// sanitizer sees a byte too many.

#include "fuzz.h"

#include "korvalen/text/strings.h"

#include <algorithm>

using namespace korvalen;

namespace {

using fuzz::line_of;
using fuzz::require;
using fuzz::require_equal;

owned_string copy(const std::string &text) {
  owned_string result(new char[text.size() + 1]);
  std::copy_n(text.c_str(), text.size() + 1, result.get());
  return result;
}

std::string before(const std::string &text, char byte) {
  return text.substr(0, text.find(byte));
}

void check_new_strings(const std::string &a, const std::string &b) {
  require_equal(str_format_new("%s/%s", a.c_str(), b.c_str()).get(), a + "/" + b,
                "a format yields all of its text");
  require_equal(str_append_owned(copy(a), b.c_str()).get(), a + b, "an appended text follows");
  require_equal(str_concat_new(a.c_str(), b.c_str()).get(), line_of(a) + before(b, '\r'),
                "each part of a new string ends at its first CR");

  const owned_string line = str_dup_line(a.c_str());
  require_equal(line.get(), line_of(a), "a copied line ends at its first CR");
  require_equal(str_dup_line(line.get()).get(), line.get(), "a copy of a copied line is the same");
}

void check_cut(const std::string &a, char find, char put) {
  std::string expected = a;
  if (const std::size_t at = a.find(find); at != std::string::npos) {
    expected[at] = put;
    expected.resize(put == '\0' ? at : at + 1);
  }
  const owned_string text = copy(a);
  str_cut_at_char(text.get(), find, put);
  require_equal(text.get(), expected, "a text is cut at the first occurrence of the byte and nowhere else");
}

// A suffix with a CR also counts where the CR became an LF.
bool has_suffix(const std::string &a, const std::string &b) {
  if (a.size() <= b.size())
    return false;
  const std::size_t offset = a.size() - b.size();
  const std::string line = line_of(a);
  return a.ends_with(b) || (line.size() > offset && line.substr(offset) == line_of(b));
}

void check_suffix(const std::string &a, const std::string &b) {
  const owned_string text = copy(a);
  str_remove_suffix(text.get(), b.c_str());
  require_equal(text.get(), has_suffix(a, b) ? a.substr(0, a.size() - b.size()) : a,
                "a suffix of a longer text is removed, and nothing else");
}

void check_split(const std::string &a) {
  std::vector<std::string> expected;
  std::string rest = a.substr(0, split_path_max_bytes);
  while (!rest.empty() && expected.size() < split_path_max_components) {
    if (const std::string component = before(rest, '/'); !component.empty())
      expected.push_back(line_of(component));
    rest.erase(0, before(rest, '/').size() + 1);
  }

  std::int32_t count = -1;
  const line_array components = split_path(a.c_str(), &count);
  require(count == static_cast<std::int32_t>(expected.size()), "every component counts");
  require((components == nullptr) == expected.empty(), "there is an array when there is a component");
  for (std::size_t i = 0; i < expected.size(); ++i)
    require_equal(components[i], expected[i], "the components stand in their order");
  require(!components || components[expected.size()] == nullptr, "a null ends the array");
}

} // namespace

void fuzz::check(std::string_view input) {
  const std::vector<std::string> text = texts(input, 2);
  const std::string &a = text[0];
  const std::string &b = text[1];
  check_new_strings(a, b);
  check_cut(a, '\r', '\n');
  check_cut(a, '\r', '\0');
  check_cut(a, b.empty() ? '/' : b[0], '\n');
  check_suffix(a, b);
  check_suffix(a + b, b);
  check_suffix(a, "/");
  check_split(a);
  require_equal(str_join_path(a.c_str(), b.c_str()).get(),
                (a.size() > 1 && a.ends_with('/') ? a.substr(0, a.size() - 1) : a) + "/" + b,
                "one slash joins a directory and what is below it");
}
