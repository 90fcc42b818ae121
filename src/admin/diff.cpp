#include "admin/diff.h"

#include "admin/texts.h"

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <vector>

#include <dtl/dtl.hpp>

namespace korvalen::admin {

namespace {

using lines = std::vector<std::string>;

// Where texts have so little in common, to look for it costs more than it tells, in memory first of all.
constexpr std::size_t most_pairs_of_lines = 1'000'000;
constexpr std::size_t most_lines = 50'000;

// Without their line ends; a last line that has none says so, as a difference does.
lines lines_of(std::string_view text) {
  lines result;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    result.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      result.back() += "\n\\ No newline at end of file";
      break;
    }
    text.remove_prefix(end + 1);
  }
  return result;
}

// One hunk that replaces everything. None of the two is empty: there would be few pairs of lines.
std::string replacement(const lines &before, const lines &after) {
  std::string text =
      "@@ -1," + std::to_string(before.size()) + " +1," + std::to_string(after.size()) + " @@\n";
  for (const std::string &line : before)
    text += "-" + line + "\n";
  for (const std::string &line : after)
    text += "+" + line + "\n";
  return text;
}

// Looks at what lies between the lines that both texts begin with and those that both end with.
bool are_comparable(const lines &before, const lines &after) {
  const auto [first, other_first] = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
  const std::size_t from = static_cast<std::size_t>(first - before.begin());
  const auto [last, other_last] =
      std::mismatch(before.rbegin(), before.rend() - static_cast<std::ptrdiff_t>(from), after.rbegin(),
                    after.rend() - static_cast<std::ptrdiff_t>(from));
  const std::size_t behind = static_cast<std::size_t>(last - before.rbegin());
  const std::size_t removed = before.size() - from - behind;
  const std::size_t added = after.size() - from - behind;
  return removed + added <= most_lines && (removed + 1) * (added + 1) <= most_pairs_of_lines;
}

std::string hunks(const lines &before, const lines &after) {
  dtl::Diff<std::string, lines> difference(before, after);
  difference.onHuge();
  difference.compose();
  difference.composeUnifiedHunks();
  std::ostringstream text;
  difference.printUnifiedFormat(text);
  return text.str();
}

} // namespace

std::string unified_diff(const std::string &path, std::string_view before, std::string_view after) {
  if (before == after)
    return "";
  const lines old_lines = lines_of(before);
  const lines new_lines = lines_of(after);
  const std::string body =
      are_comparable(old_lines, new_lines) ? hunks(old_lines, new_lines) : replacement(old_lines, new_lines);
  // A header is one line.
  const std::string name = path.find('\n') == std::string::npos ? path : visible(path);
  return "--- " + name + "\n+++ " + name + "\n" + body;
}

} // namespace korvalen::admin
