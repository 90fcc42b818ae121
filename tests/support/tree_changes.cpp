#include "support/tree_changes.h"

#include <optional>
#include <set>
#include <sstream>

namespace support {

namespace {

std::string octal(mode_t mode) {
  std::ostringstream text;
  text << std::oct << mode;
  return text.str();
}

std::string kind_and_mode(const entry &e) {
  return e.kind + (e.kind == "link" ? "" : " " + octal(e.mode));
}

std::string change(const entry &before, const entry &after) {
  if (before.kind != after.kind || before.content != after.content)
    return "changed " + kind_and_mode(after);
  return "mode " + octal(before.mode) + " to " + octal(after.mode) + " " + after.kind;
}

std::optional<entry> find(const tree &t, const std::string &path) {
  const auto found = t.find(path);
  return found == t.end() ? std::nullopt : std::optional(found->second);
}

} // namespace

std::string changes(const tree &before, const tree &after) {
  std::set<std::string> paths;
  for (const tree *t : {&before, &after})
    for (const auto &[path, e] : *t)
      paths.insert(path);

  std::string result;
  for (const std::string &path : paths) {
    const std::optional<entry> was = find(before, path);
    const std::optional<entry> is = find(after, path);
    if (was == is)
      continue;
    const std::string what = !was  ? "new " + kind_and_mode(*is)
                             : !is ? "gone " + was->kind
                                   : change(*was, *is);
    result += what + " " + path + "\n";
  }
  return result;
}

tree below(const tree &whole, const std::string &directory) {
  tree result;
  for (const auto &[path, e] : whole)
    if (path.starts_with(directory + "/"))
      result[path.substr(directory.size() + 1)] = e;
  return result;
}

} // namespace support
