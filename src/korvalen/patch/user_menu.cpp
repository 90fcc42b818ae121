#include "korvalen/patch/user_menu.h"

#include "korvalen/files/backup.h"
#include "korvalen/files/file_copy.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/files/text_lines.h"
#include "korvalen/text/strings.h"

#include <algorithm>
#include <cstring>
#include <fstream>

namespace korvalen {

namespace {

constexpr const char *menu_lines[] = {
    "{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}",
    "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}",
};

struct first_block {
  std::size_t end;    // the lines before this one stay
  std::size_t resume; // the lines from this one on stay
};

bool is_short(const char *line) {
  return std::strlen(line) < 4;
}

bool is_product_line(const char *line) {
  return std::strstr(line, menu_lines[0]) != nullptr;
}

first_block find_first_block(text_lines lines) {
  const auto found = std::find_if(lines.begin(), lines.end(),
                                  [](const char *line) { return is_short(line) || is_product_line(line); });
  const auto end = static_cast<std::size_t>(found - lines.begin());
  if (found == lines.end())
    return {end, end};
  // Wanted: with the product's line go the two lines after it, unseen: its second one and the empty one.
  return {end, is_short(*found) ? end + 1 : end + 3};
}

void write_menu(std::ostream &file, text_lines lines, bool uninstall) {
  const first_block block = find_first_block(lines);
  write_lines(file, lines.first(block.end));
  if (!uninstall)
    write_lines(file, menu_lines);
  file << std::endl;
  write_lines(file, lines.subspan(std::min(block.resume, lines.size())));
}

} // namespace

bool envi_user_menu_install_uninstall(const char *dir, bool uninstall) {
  const std::string menu_dir = without_trailing_slash(dir) + "/menu/";
  const owned_string menu = str_format_new("%suseradd.txt", menu_dir.c_str());
  const owned_string new_menu = str_format_new("%suseradd_new.txt", menu_dir.c_str());
  const owned_string old_menu = str_format_new("%suseradd_old.txt", menu_dir.c_str());

  if (!fdfExists(menu.get()))
    return false;
  if (!has_backup(menu.get(), old_menu.get()) && !keep_original(menu.get(), old_menu.get(), true))
    return false;

  {
    std::ofstream file(new_menu.get());
    std::int32_t count = 0;
    const line_array lines = fdfReadLines(menu.get(), &count);
    if (count < 1)
      return false;
    write_menu(file, text_lines(lines.get(), static_cast<std::size_t>(count)), uninstall);
  }
  fdfCopyFile(new_menu.get(), menu.get(), 0, true);
  return true;
}

} // namespace korvalen
