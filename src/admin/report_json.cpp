#include "admin/report.h"

#include "admin/texts.h"

#include <cstdio>

#include <nlohmann/json.hpp>

namespace korvalen::admin {

namespace {

using json = nlohmann::ordered_json;

constexpr const char *change_names[] = {"", "new", "removed", "type", "content", "mode", "owner"};

// A text that is no UTF-8 stands beside its exact bytes.
void add_text(json &object, const std::string &key, const std::string &text) {
  object[key] = to_utf8(text);
  if (!is_utf8(text))
    object[key + "_base64"] = base64(text);
}

void add_unless_empty(json &object, const std::string &key, const std::string &text) {
  if (!text.empty())
    add_text(object, key, text);
}

const char *type_name(file_type type) {
  switch (type) {
  case file_type::directory:
    return "directory";
  case file_type::link:
    return "link";
  default:
    return "file";
  }
}

std::string octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode));
  return text;
}

json object_of(const change &told, const std::string &diff) {
  const state &shown = told.after.type == file_type::absent ? told.before : told.after;
  json object;
  add_text(object, "path", told.path);
  object["change"] = change_names[static_cast<std::size_t>(kind_of(told))];
  object["type"] = type_name(shown.type);
  object["mode"] = octal(shown.mode);
  object["owner"] = std::to_string(shown.owner) + ":" + std::to_string(shown.group);
  add_unless_empty(object, "diff", diff);
  return object;
}

json object_of(const warning &told) {
  json object;
  object["code"] = told.code;
  add_unless_empty(object, "path", told.path);
  object["refuses"] = told.refuses;
  add_text(object, "text", told.text);
  return object;
}

json object_of(const outcome &installer) {
  json object;
  object["status"] = installer.status;
  add_text(object, "output", installer.output);
  add_text(object, "errors", installer.errors);
  return object;
}

// The members of an object without its braces.
std::string members(const json &object) {
  const std::string text = object.dump();
  return text.substr(1, text.size() - 2);
}

} // namespace

void write_json(std::ostream &out, const report &told) {
  json head;
  head["version"] = 1;
  add_unless_empty(head, "command", told.command);
  head["status"] = told.status;
  if (told.installer)
    head["installer"] = object_of(*told.installer);
  out << '{' << members(head) << ",\"changes\":[";

  // One after the other: with their differences, all changes together could fill the memory.
  const char *separator = "";
  for (const change &one : told.changes) {
    if (kind_of(one) == change_kind::none)
      continue;
    out << separator << object_of(one, told.diff_of(one)).dump();
    separator = ",";
  }

  json tail;
  tail["warnings"] = json::array();
  for (const warning &one : told.warnings)
    tail["warnings"].push_back(object_of(one));
  add_unless_empty(tail, "error", told.error);
  out << "]," << members(tail) << "}\n";
}

} // namespace korvalen::admin
