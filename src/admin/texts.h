// Foreign bytes, made fit for a terminal and for JSON.
#pragma once

#include <string>
#include <string_view>

namespace korvalen::admin {

// The length of the well-formed UTF-8 character at the start of the text, or 0 where its first byte is wrong.
std::size_t utf8_character(std::string_view text);

bool is_utf8(std::string_view text);

// The text with U+FFFD in place of each byte that is not part of a well-formed UTF-8 character.
std::string to_utf8(std::string_view text);

// The text with every control character and every wrong byte as \xHH, so that it says nothing to a terminal.
// With `keeps_tabs`, tabs stay.
std::string visible(std::string_view text, bool keeps_tabs = false);

// The first line that is not empty, without its end; empty where there is none.
std::string first_line(const std::string &text);

std::string base64(std::string_view bytes);

// The bytes again. Throws a failure for what is no base64.
std::string from_base64(std::string_view text);

} // namespace korvalen::admin
