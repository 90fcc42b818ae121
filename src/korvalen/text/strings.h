// String and path functions over NUL-terminated byte strings.
//
// Every new string comes from new char[] and is owned by the receiver through owned_string.
// None of these functions keeps state. Unless a line says otherwise, arguments are not null.
// Text copied by str_concat_new, str_dup_line and split_path may come from files written on other
// systems: the first CR of a text counts as the end of its line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace korvalen {

using owned_string = std::unique_ptr<char[]>;

// Releases every string of a null-terminated array and the array itself; null is allowed.
void free_line_array(char **array);

struct line_array_deleter {
  void operator()(char **array) const { free_line_array(array); }
};

// A null-terminated array of owned strings.
using line_array = std::unique_ptr<char *[], line_array_deleter>;

// Hands the strings, in their order, over to a new line array.
line_array line_array_of(std::span<owned_string> strings);

// printf into a new string of exactly the needed size. Null when the values cannot be formatted.
[[gnu::format(printf, 1, 2)]] owned_string str_format_new(const char *format, ...);

// a followed by b; a is released. Null when a is null (b is then not looked at).
owned_string str_append_owned(owned_string a, const char *b);

// Overwrites the first `find` in s with `put` and ends s right behind it. Without a `find` s stays as it is.
void str_cut_at_char(char *s, char find, char put);

// a up to its first CR, which becomes an LF, then b up to its first CR, which is dropped. Null when a is
// null.
owned_string str_concat_new(const char *a, const char *b);

// A copy of s that ends at its first CR, which becomes an LF. Null when s is null.
owned_string str_dup_line(const char *s);

// Cuts `suffix` off the end of s, also where its CR stands as an LF in s. A string that is not longer than
// the suffix is left alone, so "/" keeps its slash.
void str_remove_suffix(char *s, const char *suffix);

// A directory's path less one "/" at its end. Nothing is left of "/".
std::string without_trailing_slash(std::string directory);

// The components of a path, without empty ones. Looks at the first 1,000 bytes and keeps the first 100
// components. Null when there is none. The number goes through `count` unless that is null.
line_array split_path(const char *path, std::int32_t *count);

inline constexpr std::size_t split_path_max_bytes = 1000;
inline constexpr std::size_t split_path_max_components = 100;

// The directory less one trailing "/" (the root keeps it), then "/", then the sub-path.
owned_string str_join_path(const char *directory, const char *sub_path);

} // namespace korvalen
