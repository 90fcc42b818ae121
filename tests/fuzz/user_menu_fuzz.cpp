// The rewriting of ENVI's classic user menu, whose text is the input.

#include "fuzz.h"
#include "support/files.h"

#include "korvalen/patch/user_menu.h"

#include <algorithm>

namespace {

using fuzz::require;
using fuzz::require_equal;
using line_list = std::vector<std::string>;

const line_list product_lines = {
    "{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}",
    "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}",
};

std::string menu_path(const char *name) {
  return fuzz::scratch_path("menu/") + name;
}

// The line at which the first block ends: a short one, the product's first one, or the end.
std::size_t end_of_first_block(const line_list &lines) {
  std::size_t end = 0;
  while (end < lines.size() && lines[end].size() >= 4 &&
         lines[end].find(product_lines[0]) == std::string::npos)
    ++end;
  return end;
}

std::string rewritten(const line_list &lines, bool uninstall) {
  const std::size_t end = end_of_first_block(lines);
  const std::size_t dropped = end == lines.size() ? 0 : lines[end].size() < 4 ? 1 : 3;
  line_list result(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(end));
  if (!uninstall)
    result.insert(result.end(), product_lines.begin(), product_lines.end());
  result.emplace_back();
  for (std::size_t i = end + dropped; i < lines.size(); ++i)
    result.push_back(lines[i]);
  return fuzz::joined(result);
}

// A line with a CR is written back with an empty line behind it. Within the first block, that one is where
// the block ends when the menu is read again.
bool first_block_has_cr(const line_list &lines) {
  const auto end = lines.begin() + static_cast<std::ptrdiff_t>(end_of_first_block(lines));
  return std::any_of(lines.begin(), end, [](const std::string &line) { return line.ends_with('\n'); });
}

std::string rewrite(bool uninstall) {
  const std::string before = support::read_file(menu_path("useradd.txt"));
  const line_list lines = fuzz::lines_of(before);
  const bool done = korvalen::envi_user_menu_install_uninstall(fuzz::scratch_path("").c_str(), uninstall);
  const std::string after = support::read_file(menu_path("useradd.txt"));

  require(done == !lines.empty(), "a menu with lines is rewritten");
  require_equal(
      after, lines.empty() ? before : rewritten(lines, uninstall),
      "the product's lines stand at the end of the first block or are gone, and the others are kept");
  require_equal(support::read_file(menu_path("useradd_new.txt")), lines.empty() ? "" : after,
                "the new text stays beside the menu");
  return after;
}

} // namespace

void fuzz::check(std::string_view input) {
  const std::string original(input);
  support::fs::remove(menu_path("useradd_old.txt"));
  support::write_file(menu_path("useradd.txt"), original);
  const std::string once = rewrite(false);
  const std::string twice = rewrite(false);
  rewrite(true);
  require_equal(support::read_file(menu_path("useradd_old.txt")), original,
                "the backup holds the original bytes");
  if (!first_block_has_cr(lines_of(original)))
    require_equal(twice, once, "installing twice equals installing once");
}
