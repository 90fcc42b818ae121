#include "korvalen/text/text_utilities.h"

#include <cstring>
#include <string_view>

namespace korvalen {

int cut_at_character(char *text, char character, bool every) {
  int i = static_cast<int>(std::strlen(text)) - 1;
  for (; i > 0 && text[i] != '/'; --i) {
    if (text[i] != character)
      continue;
    text[i] = '\0';
    if (!every)
      return i;
  }
  return i > 0 ? i : 0;
}

int compare_texts(const char *left, const char *right) {
  if (left == nullptr || right == nullptr)
    return (left != nullptr ? 1 : 0) - (right != nullptr ? 1 : 0);
  return std::strcmp(left, right);
}

bool ends_with(const char *text, const char *suffix) {
  const std::string_view whole = text;
  return whole.size() > std::strlen(suffix) && whole.ends_with(suffix);
}

void trim_trailing_blanks(char *text) {
  if (text == nullptr)
    return;
  std::size_t length = std::strlen(text);
  while (length > 0 && text[length - 1] == ' ')
    --length;
  text[length] = '\0';
}

owned_string join_with_underscore(const char *a, const char *b) {
  return a == nullptr ? nullptr : str_format_new("%s_%s", a, b);
}

std::size_t replace_first_of(char *text, const char *set, char replacement) {
  if (char *const found = std::strpbrk(text, set)) {
    found[0] = replacement;
    found[1] = '\0';
  }
  return std::strlen(set);
}

} // namespace korvalen
