#include "launch/launch_script.h"

#include "driver/strings.h"
#include "fsops/backup.h"
#include "fsops/file_copy.h"
#include "fsops/file_queries.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>

namespace korvalen {

namespace {

constexpr const char *variable = "KORVALEN_INIT_DIR";

struct script_text {
  line_array lines;
  std::int32_t count = 0;
};

// The block takes the place of the lines from `first` up to but not including `resume`.
struct block_place {
  std::int32_t first;
  std::int32_t resume;
};

bool contains(const char *line, const char *text) {
  return std::strstr(line, text) != nullptr;
}

std::int32_t find_line(const script_text &script, const char *text) {
  for (std::int32_t i = 0; i < script.count; ++i)
    if (contains(script.lines[static_cast<std::size_t>(i)], text))
      return i;
  return -1;
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
  text.lines = fdfReadLines(script, &text.count);
  return text;
}

// An earlier block is replaced; otherwise the place is before the first line that holds the anchor, or the
// top.
block_place find_place(const script_text &script, const char *anchor, std::int32_t block_length) {
  const std::int32_t earlier_block = find_line(script, variable);
  if (earlier_block >= 0)
    return {earlier_block, earlier_block + block_length};
  const std::int32_t top_or_anchor = std::max(find_line(script, anchor), 0);
  return {top_or_anchor, top_or_anchor};
}

// Wanted: with an earlier block, the last line that holds both texts moves the end of what is dropped, which
// may then lie before the end of that block.
block_place find_envi_place(const script_text &script) {
  block_place place = find_place(script, "if [", 5);
  if (place.resume == place.first)
    return place;
  for (std::int32_t i = place.first; i < script.count; ++i) {
    const char *const line = script.lines[static_cast<std::size_t>(i)];
    if (contains(line, "LD_LIBRARY_PATH") && contains(line, "exe_envi"))
      place.resume = i + 3;
  }
  return place;
}

void write_patched(const char *path, const script_text &script, block_place place,
                   std::initializer_list<const char *> block) {
  std::ofstream file(path);
  for (std::int32_t i = 0; i < place.first; ++i)
    file << script.lines[static_cast<std::size_t>(i)] << std::endl;
  for (const char *line : block)
    file << line << std::endl;
  for (std::int32_t i = place.resume; i < script.count; ++i)
    file << script.lines[static_cast<std::size_t>(i)] << std::endl;
}

owned_string assignment(const char *product_dir, const char *init_dir) {
  return str_format_new("%s=%s", variable, init_dir != nullptr ? init_dir : product_dir);
}

} // namespace

int fkorvPatchEnviScript(const char *script, const char *product_dir, const char *init_dir) {
  const owned_string backup = str_concat_new(script, "_original");
  const bool known = ensure_backup(script, backup.get());
  if (!known)
    std::printf("WRONG envi script 1 : %s\n", script);
  fdfSleep(1.0);

  const script_text text = restore(script, backup.get());
  if (text.count < 1) {
    std::printf("WRONG size envi script 2 :: %s\n", script);
    // Only a missing script is created. The second look keeps one whose look-up failed for a moment.
    if (known || fdfExists(script))
      return 0;
  }

  const owned_string value = assignment(product_dir, init_dir);
  const owned_string value_line = str_format_new("   %s", value.get());
  write_patched(script, text, find_envi_place(text),
                {R"(if [ "$KORVALEN_INIT_DIR" = "" ]; then)", value_line.get(), "   export KORVALEN_INIT_DIR",
                 "fi", ""});
  return 1;
}

int fkorvPatchIdlScript(const char *script, const char *product_dir, const char *init_dir) {
  const owned_string backup = str_concat_new(script, "_original");
  if (!ensure_backup(script, backup.get())) {
    std::printf("WRONG idl script 3 : %s\n", script);
    return 0;
  }

  const script_text text = restore(script, backup.get());
  if (text.count < 1) {
    // Wanted: the message names ENVI although the script is IDL's.
    std::printf("WRONG size envi script 4 : %s\n", script);
    return 0;
  }

  const owned_string value_line = assignment(product_dir, init_dir);
  write_patched(script, text, find_place(text, "INSTALL_DIR=", 3),
                {value_line.get(), "export KORVALEN_INIT_DIR", ""});
  return 1;
}

} // namespace korvalen
