#include "korvalen/text/strings.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace korvalen {

namespace {

constexpr char CR = '\r';
constexpr char LF = '\n';

// The size of the block for a followed by b. Wanted: three bytes more than they and their end need.
std::size_t block_size(const char *a, const char *b) {
  return std::strlen(a) + std::strlen(b) + 4;
}

} // namespace

owned_string str_format_new(const char *format, ...) {
  va_list values;
  va_start(values, format);
  va_list values_again;
  va_copy(values_again, values);

  owned_string result;
  const int length = std::vsnprintf(nullptr, 0, format, values);
  if (length >= 0) {
    const std::size_t size = static_cast<std::size_t>(length) + 1;
    result.reset(new char[size]);
    std::vsnprintf(result.get(), size, format, values_again);
  }

  va_end(values_again);
  va_end(values);
  return result;
}

owned_string str_append_owned(owned_string a, const char *b) {
  if (!a)
    return nullptr;
  const std::size_t size = block_size(a.get(), b);
  owned_string result(new char[size]);
  std::snprintf(result.get(), size, "%s%s", a.get(), b);
  return result;
}

void str_cut_at_char(char *s, char find, char put) {
  const std::size_t at = std::string_view(s).find(find);
  if (at == std::string_view::npos)
    return;
  s[at] = put;
  s[at + 1] = '\0';
}

owned_string str_concat_new(const char *a, const char *b) {
  if (a == nullptr)
    return nullptr;
  const std::size_t size = block_size(a, b);
  owned_string result(new char[size]);
  std::snprintf(result.get(), size, "%s", a);
  str_cut_at_char(result.get(), CR, LF);

  const std::size_t used = std::strlen(result.get());
  std::snprintf(result.get() + used, size - used, "%s", b);
  str_cut_at_char(result.get(), CR, '\0');
  return result;
}

owned_string str_dup_line(const char *s) {
  return str_concat_new(s, "");
}

void str_remove_suffix(char *s, const char *suffix) {
  const std::size_t length = std::strlen(s);
  const std::size_t suffix_length = std::strlen(suffix);
  if (length <= suffix_length)
    return;

  const std::size_t offset = length - suffix_length;
  if (std::strcmp(s + offset, suffix) == 0) {
    s[offset] = '\0';
    return;
  }

  // A suffix written with a CR matches a string whose line end was already turned into an LF.
  const owned_string line = str_dup_line(s);
  const owned_string line_suffix = str_dup_line(suffix);
  if (std::strlen(line.get()) > offset && std::strcmp(line.get() + offset, line_suffix.get()) == 0)
    s[offset] = '\0';
}

std::string without_trailing_slash(std::string directory) {
  if (directory.ends_with('/'))
    directory.pop_back();
  return directory;
}

line_array line_array_of(std::span<owned_string> strings) {
  line_array array(std::make_unique<char *[]>(strings.size() + 1).release());
  char **slot = array.get();
  for (owned_string &string : strings)
    *slot++ = string.release();
  return array;
}

line_array split_path(const char *path, std::int32_t *count) {
  std::array<char, split_path_max_bytes + 1> scratch;
  std::snprintf(scratch.data(), scratch.size(), "%s", path);

  std::array<owned_string, split_path_max_components> components;
  std::size_t kept = 0;
  char *rest = nullptr;
  for (const char *component = strtok_r(scratch.data(), "/", &rest);
       component != nullptr && kept < components.size(); component = strtok_r(nullptr, "/", &rest))
    components[kept++] = str_dup_line(component);

  if (count != nullptr)
    *count = static_cast<std::int32_t>(kept);
  return kept == 0 ? nullptr : line_array_of(std::span(components).first(kept));
}

owned_string str_join_path(const char *directory, const char *sub_path) {
  std::string_view base = directory;
  if (base.size() > 1 && base.ends_with('/'))
    base.remove_suffix(1);
  const std::string_view name = sub_path;

  // Not by printf: this is done several times for every file.
  owned_string path(new char[base.size() + name.size() + 2]);
  char *end = std::copy(base.begin(), base.end(), path.get());
  *end++ = '/';
  end = std::copy(name.begin(), name.end(), end);
  *end = '\0';
  return path;
}

void free_line_array(char **array) {
  if (array == nullptr)
    return;
  const std::unique_ptr<char *[]> lines(array);
  for (char **line = array; *line != nullptr; ++line)
    owned_string(*line).reset();
}

} // namespace korvalen
