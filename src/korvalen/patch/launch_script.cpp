#include "korvalen/patch/launch_script.h"

#include "korvalen/files/backup.h"
#include "korvalen/files/file_copy.h"
#include "korvalen/files/file_queries.h"
#include "korvalen/files/text_lines.h"
#include "korvalen/text/strings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <span>

namespace korvalen {

namespace {

constexpr const char *variable = "KORVALEN_INIT_DIR";

struct script_text {
  line_array array;
  text_lines lines;
};

// The block takes the place of the lines from `first` up to but not including `resume`.
struct block_place {
  std::size_t first;
  std::size_t resume;
};

bool contains(const char *line, const char *text) {
  return std::strstr(line, text) != nullptr;
}

// The first line that holds the text, or the number of lines.
std::size_t find_line(text_lines lines, const char *text) {
  const auto found =
      std::find_if(lines.begin(), lines.end(), [text](const char *line) { return contains(line, text); });
  return static_cast<std::size_t>(found - lines.begin());
}

// False when there is neither a script nor a backup of it.
bool ensure_backup(const char *script, const char *backup) {
  if (has_backup(script, backup))
    return true;
  if (!fdfExists(script))
    return false;
  keep_original(script, backup, false);
  return true;
}

// Puts the backup back and reads the script; no lines when there is no backup.
script_text restore(const char *script, const char *backup) {
  script_text text;
  if (!has_backup(script, backup))
    return text;
  fdfCopyFile(backup, script, 0, false);
  std::int32_t count = 0;
  text.array = fdfReadLines(script, &count);
  text.lines = text_lines(text.array.get(), static_cast<std::size_t>(count));
  return text;
}

// An earlier block is replaced; otherwise the place is before the first line that holds the anchor, or the
// top.
block_place find_place(text_lines lines, const char *anchor, std::size_t block_length) {
  const std::size_t earlier_block = find_line(lines, variable);
  if (earlier_block < lines.size())
    return {earlier_block, earlier_block + block_length};
  const std::size_t anchor_line = find_line(lines, anchor);
  const std::size_t place = anchor_line < lines.size() ? anchor_line : 0;
  return {place, place};
}

// Wanted: with an earlier block, the last line that holds both texts moves the end of what is dropped, which
// may then lie before the end of that block.
block_place find_envi_place(text_lines lines, std::size_t block_length) {
  block_place place = find_place(lines, "if [", block_length);
  if (place.resume == place.first)
    return place;
  for (std::size_t i = place.first; i < lines.size(); ++i)
    if (contains(lines[i], "LD_LIBRARY_PATH") && contains(lines[i], "exe_envi"))
      place.resume = i + 3;
  return place;
}

void write_patched(const char *path, text_lines lines, block_place place,
                   std::span<const char *const> block) {
  std::ofstream file(path);
  write_lines(file, lines.first(place.first));
  write_lines(file, block);
  write_lines(file, lines.subspan(std::min(place.resume, lines.size())));
}

owned_string assignment(const char *product_dir, const char *init_dir) {
  return str_format_new("%s=%s", variable, init_dir != nullptr ? init_dir : product_dir);
}

} // namespace

int fkorvPatchEnviScript(const char *script, const char *product_dir, const char *init_dir) {
  const owned_string backup = str_concat_new(script, "_original");
  const bool is_missing = !ensure_backup(script, backup.get());
  if (is_missing)
    std::printf("WRONG envi script 1 : %s\n", script);
  fdfSleep(1.0);

  const script_text text = restore(script, backup.get());
  if (text.lines.empty()) {
    std::printf("WRONG size envi script 2 :: %s\n", script);
    // Only a missing script is created. The second look keeps one whose look-up failed for a moment.
    if (!is_missing || fdfExists(script))
      return 0;
  }

  const owned_string value = assignment(product_dir, init_dir);
  const owned_string value_line = str_format_new("   %s", value.get());
  const std::array<const char *, 5> block = {R"(if [ "$KORVALEN_INIT_DIR" = "" ]; then)", value_line.get(),
                                             "   export KORVALEN_INIT_DIR", "fi", ""};
  write_patched(script, text.lines, find_envi_place(text.lines, block.size()), block);
  return 1;
}

int fkorvPatchIdlScript(const char *script, const char *product_dir, const char *init_dir) {
  const owned_string backup = str_concat_new(script, "_original");
  if (!ensure_backup(script, backup.get())) {
    std::printf("WRONG idl script 3 : %s\n", script);
    return 0;
  }

  const script_text text = restore(script, backup.get());
  if (text.lines.empty()) {
    // Wanted: the message names ENVI although the script is IDL's.
    std::printf("WRONG size envi script 4 : %s\n", script);
    return 0;
  }

  const owned_string value_line = assignment(product_dir, init_dir);
  const std::array<const char *, 3> block = {value_line.get(), "export KORVALEN_INIT_DIR", ""};
  write_patched(script, text.lines, find_place(text.lines, "INSTALL_DIR=", block.size()), block);
  return 1;
}

} // namespace korvalen
