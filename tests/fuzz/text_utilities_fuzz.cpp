// The small text utilities on two texts.

#include "fuzz.h"

#include "korvalen/text/text_utilities.h"

using namespace korvalen;

namespace {

using fuzz::require;
using fuzz::require_equal;

// The same walk over the text's reverse: its last component less the first character of the text.
void check_cut(const std::string &a, char character, bool every) {
  const std::size_t slash = a.rfind('/');
  const std::size_t start = slash == std::string::npos ? 0 : slash;
  const std::size_t found = every ? a.find(character, start + 1) : a.rfind(character);
  const bool cuts = character != '/' && found != std::string::npos && found > start;
  const std::size_t stop = cuts && !every ? found : start;

  std::string text = a;
  require(cut_at_character(text.data(), character, every) == static_cast<int>(stop),
          "the walk ends where it should");
  require_equal(text.c_str(), cuts ? a.substr(0, found) : a,
                "a text is cut in its last component and nowhere else");
}

void check_trim(const std::string &a) {
  std::string text = a;
  trim_trailing_blanks(text.data());
  require_equal(text.c_str(), a.substr(0, a.find_last_not_of(' ') + 1), "only the blanks at the end go");
}

void check_replace(const std::string &a, const std::string &set) {
  const std::size_t at = a.find_first_of(set);
  std::string text = a;
  require(replace_first_of(text.data(), set.c_str(), '#') == set.size(),
          "the result is the length of the set");
  require_equal(text.c_str(), at == std::string::npos ? a : a.substr(0, at) + "#",
                "the first character of the set is replaced and ends the text");
}

int sign(int value) {
  return (value > 0) - (value < 0);
}

} // namespace

void fuzz::check(std::string_view input) {
  const std::vector<std::string> text = texts(input, 2);
  const std::string &a = text[0];
  const std::string &b = text[1];
  for (const bool every : {false, true})
    check_cut(a, b.empty() ? '.' : b[0], every);
  check_trim(a);
  check_trim(a + "  ");
  check_replace(a, b);
  require(ends_with(a.c_str(), b.c_str()) == (a.size() > b.size() && a.substr(a.size() - b.size()) == b),
          "a text ends with a suffix that it is longer than");
  require(sign(compare_texts(a.c_str(), b.c_str())) == sign(a.compare(b)),
          "texts are compared byte for byte");
  require_equal(join_with_underscore(a.c_str(), b.c_str()).get(), a + "_" + b,
                "an underscore joins two texts");
}
