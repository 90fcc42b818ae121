#include "korvalen/files/listing_command.h"

#include <cstring>
#include <string_view>

namespace korvalen {

namespace {

constexpr std::string_view wildcards = "*?[";
constexpr std::string_view acted_upon = " \"$&'();<>\\`{|}";
constexpr std::string_view acted_upon_at_start = "#~";

bool is_control(char byte) {
  return (byte >= '\0' && byte < ' ') || byte == '\x7f';
}

bool is_one_of(std::string_view set, char byte) {
  return set.find(byte) != std::string_view::npos;
}

bool needs_quoting(char byte, bool at_start, bool in_last_component) {
  if (is_one_of(wildcards, byte))
    return !in_last_component;
  return is_control(byte) || is_one_of(acted_upon, byte) ||
         (at_start && is_one_of(acted_upon_at_start, byte));
}

void append_quoted(std::string &command, char byte) {
  if (byte == '\'')
    command += "\\'";
  else
    command.append({'\'', byte, '\''});
}

// A pattern that begins with "-" would be an option of `ls`, and so might be what a leading wildcard matches.
// Digits alone before ">" would be the number of a file descriptor.
bool needs_directory(std::string_view pattern) {
  if (pattern.empty())
    return false;
  const bool has_directory = pattern.find('/') != std::string_view::npos;
  return pattern.front() == '-' || (is_one_of(wildcards, pattern.front()) && !has_directory) ||
         pattern.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

std::string listing_command(const char *pattern, const char *output) {
  const std::string_view text = pattern;
  const std::size_t last_slash = text.rfind('/');
  const std::size_t last_component = last_slash == std::string_view::npos ? 0 : last_slash + 1;

  std::string command = "ls  ";
  if (needs_directory(text))
    command += "./";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (needs_quoting(text[i], i == 0, i >= last_component))
      append_quoted(command, text[i]);
    else
      command += text[i];
  }
  return command + ">" + output + " 2>/dev/null";
}

} // namespace korvalen
