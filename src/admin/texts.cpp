#include "admin/texts.h"

#include "admin/failure.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace korvalen::admin {

namespace {

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct utf8_form {
  unsigned char first_low; // the range of the first byte
  unsigned char first_high;
  unsigned char second_low; // the range of the second byte; all further ones are 80 to BF
  unsigned char second_high;
  std::size_t length;
};

// The Unicode Standard's table of well-formed byte sequences.
constexpr utf8_form utf8_forms[] = {
    {0x00, 0x7f, 0x00, 0x00, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

bool lies_between(char byte, unsigned char low, unsigned char high) {
  const auto value = static_cast<unsigned char>(byte);
  return value >= low && value <= high;
}

bool has_form(std::string_view text, const utf8_form &form) {
  if (text.size() < form.length || !lies_between(text[0], form.first_low, form.first_high))
    return false;
  if (form.length > 1 && !lies_between(text[1], form.second_low, form.second_high))
    return false;
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(form.length, 2)),
                     text.begin() + static_cast<std::ptrdiff_t>(form.length),
                     [](char byte) { return lies_between(byte, 0x80, 0xbf); });
}

// C0, DEL and C1, which is C2 80 to C2 9F.
bool is_control(std::string_view character) {
  if (character.size() == 1)
    return lies_between(character[0], 0x00, 0x1f) || character[0] == '\x7f';
  return character.size() == 2 && character[0] == '\xc2' && lies_between(character[1], 0x80, 0x9f);
}

void append_hex(std::string &result, std::string_view bytes) {
  for (const char byte : bytes) {
    std::array<char, 5> code;
    std::snprintf(code.data(), code.size(), "\\x%02X",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    result += code.data();
  }
}

} // namespace

std::size_t utf8_character(std::string_view text) {
  const utf8_form *const found = std::find_if(std::begin(utf8_forms), std::end(utf8_forms),
                                              [text](const utf8_form &form) { return has_form(text, form); });
  return found == std::end(utf8_forms) ? 0 : found->length;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_character(text);
    if (length == 0)
      return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string to_utf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = utf8_character(text);
    result += length == 0 ? "\xef\xbf\xbd" : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string visible(std::string_view text, bool keeps_tabs) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = utf8_character(text);
    const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
    if (length > 0 && (!is_control(character) || (keeps_tabs && character == "\t")))
      result += character;
    else
      append_hex(result, character);
    text.remove_prefix(character.size());
  }
  return result;
}

std::string first_line(const std::string &text) {
  const std::size_t start = text.find_first_not_of('\n');
  if (start == std::string::npos)
    return "";
  return text.substr(start, text.find('\n', start) - start);
}

std::string base64(std::string_view bytes) {
  std::string result;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = i; j < i + 3; ++j)
      group = group << 8U | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0U);
    const std::size_t used = std::min<std::size_t>(bytes.size() - i, 3) + 1;
    for (std::size_t j = 0; j < 4; ++j)
      result += j < used ? digits[group >> (18U - 6U * j) & 63U] : '=';
  }
  return result;
}

std::string from_base64(std::string_view text) {
  while (text.ends_with('='))
    text.remove_suffix(1);
  std::string bytes;
  std::uint32_t group = 0;
  unsigned bits = 0;
  for (const char digit : text) {
    const std::size_t value = digits.find(digit);
    if (value == std::string_view::npos)
      throw failure("it holds no base64");
    group = (group << 6U | static_cast<std::uint32_t>(value)) & 0xffffU;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes += static_cast<char>(group >> bits & 0xffU);
    }
  }
  return bytes;
}

} // namespace korvalen::admin
