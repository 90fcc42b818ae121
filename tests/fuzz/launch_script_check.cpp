#include "launch_script_check.h"

#include "support/files.h"

#include <algorithm>

namespace fuzz {

namespace {

using line_list = std::vector<std::string>;

bool holds(const std::string &line, const char *text) {
  return line.find(text) != std::string::npos;
}

std::size_t first_that_holds(const line_list &lines, const char *text) {
  return static_cast<std::size_t>(
      std::find_if(lines.begin(), lines.end(),
                   [text](const std::string &line) { return holds(line, text); }) -
      lines.begin());
}

bool has_block(const line_list &lines) {
  return first_that_holds(lines, "KORVALEN_INIT_DIR") < lines.size();
}

// What the rules make of a script that carries a block, as an original that was saved too late does: the
// lines from the first one that names the variable are replaced, as many as the block has.
line_list with_replaced_block(const launch_script_kind &kind, const line_list &lines,
                              const line_list &block) {
  const std::size_t first = first_that_holds(lines, "KORVALEN_INIT_DIR");
  std::size_t resume = first + block.size();
  for (std::size_t i = first; kind.has_library_rule && i < lines.size(); ++i)
    if (holds(lines[i], "LD_LIBRARY_PATH") && holds(lines[i], "exe_envi"))
      resume = i + 3;

  line_list result(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(first));
  result.insert(result.end(), block.begin(), block.end());
  for (std::size_t i = resume; i < lines.size(); ++i)
    result.push_back(lines[i]);
  return result;
}

line_list with_new_block(const launch_script_kind &kind, line_list lines, const line_list &block) {
  const std::size_t anchor = first_that_holds(lines, kind.anchor);
  const std::size_t place = anchor < lines.size() ? anchor : 0;
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(place), block.begin(), block.end());
  return lines;
}

// Without looking at where the block belongs: it is there once, and apart from it no line came, went or
// moved.
void check_lines_are_kept(const line_list &lines, const std::string &block, std::string patched) {
  const std::size_t at = patched.find(block);
  require(at != std::string::npos, "the patched script holds the block");
  require(patched.find(block, at + 1) == std::string::npos, "the patched script holds the block once");
  require_equal(patched.erase(at, block.size()), joined(lines),
                "every line of the original is kept, in order");
}

void check_patched(const launch_script_kind &kind, const std::string &original, const std::string &value) {
  const std::string script = scratch_path("script");
  const line_list lines = lines_of(original);
  const line_list block = kind.block(value);
  const int result = kind.patch(script.c_str(), "/product", value.c_str());
  const std::string patched = support::read_file(script);

  require_equal(support::read_file(script + "_original"), original, "the backup holds the original bytes");
  require(result == (lines.empty() ? 0 : 1), "a script with lines is patched");
  if (lines.empty())
    return require_equal(patched, original, "a script without lines is left alone");
  const line_list expected =
      has_block(lines) ? with_replaced_block(kind, lines, block) : with_new_block(kind, lines, block);
  require_equal(patched, joined(expected), "the block stands in its place, and the other lines around it");
  if (!has_block(lines))
    check_lines_are_kept(lines, joined(block), patched);
}

} // namespace

void check_launch_script(const launch_script_kind &kind, std::string_view input) {
  const std::size_t first_line_end = std::min(input.find('\n'), input.size());
  const std::string value = visible(input.substr(0, first_line_end));
  const std::string original(input.substr(std::min(first_line_end + 1, input.size())));

  support::fs::remove(scratch_path("script_original"));
  support::write_file(scratch_path("script"), original);
  check_patched(kind, original, value);
  check_patched(kind, original, value);
  // Whatever became of the script meanwhile, the backup is what is patched.
  support::write_file(scratch_path("script"), "something else\n");
  check_patched(kind, original, "/other" + value);
}

} // namespace fuzz
