#include "admin/records.h"

#include "admin/texts.h"

#include <array>
#include <cstdio>
#include <map>
#include <string_view>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <nlohmann/json.hpp>

namespace korvalen::admin {

namespace {

using json = nlohmann::ordered_json;

constexpr int version = 1;

constexpr const char *type_names[] = {"absent", "file", "directory", "link", "special"};

std::string hex(std::uint64_t value) {
  std::array<char, 17> text;
  std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(value));
  return text.data();
}

std::uint64_t from_hex(const std::string &text) {
  return std::stoull(text, nullptr, 16);
}

// A text that is no UTF-8 stands as its bytes in base64 only: nobody reads it here.
json json_of(const std::string &text) {
  if (is_utf8(text))
    return text;
  json object;
  object["base64"] = base64(text);
  return object;
}

std::string text_from(const json &value) {
  if (value.is_object())
    return from_base64(value.at("base64").get<std::string>());
  return value.get<std::string>();
}

json json_of(const state &one) {
  json object;
  object["type"] = type_names[static_cast<std::size_t>(one.type)];
  if (one.type == file_type::absent)
    return object;
  object["mode"] = one.mode;
  object["owner"] = one.owner;
  object["group"] = one.group;
  if (one.type == file_type::file)
    object["size"] = one.size;
  if (one.hash)
    object["hash"] = hex(*one.hash);
  if (one.type == file_type::link)
    object["target"] = json_of(one.target);
  return object;
}

file_type type_from(const std::string &name) {
  for (std::size_t i = 0; i < std::size(type_names); ++i)
    if (name == type_names[i])
      return static_cast<file_type>(i);
  throw failure("it holds the unknown type " + name);
}

state state_from(const json &object) {
  state one;
  one.type = type_from(object.at("type").get<std::string>());
  if (one.type == file_type::absent)
    return one;
  one.mode = object.at("mode").get<mode_t>();
  one.owner = object.at("owner").get<uid_t>();
  one.group = object.at("group").get<gid_t>();
  if (one.type == file_type::file)
    one.size = object.at("size").get<std::uint64_t>();
  if (object.contains("hash"))
    one.hash = from_hex(object.at("hash").get<std::string>());
  if (one.type == file_type::link)
    one.target = text_from(object.at("target"));
  return one;
}

bool is_plain(const std::string &path) {
  if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos)
    return false;
  std::string_view rest = std::string_view(path).substr(1);
  while (true) {
    const std::string_view component = rest.substr(0, rest.find('/'));
    if ((component.empty() && path != "/") || component == "." || component == "..")
      return false;
    if (component.size() == rest.size())
      return true;
    rest.remove_prefix(component.size() + 1);
  }
}

std::string path_from(const json &value) {
  std::string path = text_from(value);
  if (!is_plain(path))
    throw failure("it holds the path \"" + visible(path) + "\", which is not absolute and plain");
  return path;
}

void add_number(json &object, const char *key, const std::optional<std::uint64_t> &number) {
  if (number)
    object[key] = *number;
}

std::optional<std::uint64_t> number_from(const json &object, const char *key) {
  return object.contains(key) ? std::optional(object.at(key).get<std::uint64_t>()) : std::nullopt;
}

json json_of(const installation &one) {
  json object;
  object["id"] = one.id;
  object["product_dir"] = json_of(one.product_dir);
  object["real_product_dir"] = json_of(one.real_product_dir);
  if (one.envi_dir) {
    object["envi_dir"] = json_of(*one.envi_dir);
    object["real_envi_dir"] = json_of(*one.real_envi_dir);
  }
  object["layout"] = one.local_layout ? "local" : "system";
  if (one.is_leaving)
    object["leaving"] = true;
  object["directories"] = json::array();
  for (const std::string &directory : one.directories)
    object["directories"].push_back(json_of(directory));
  return object;
}

installation installation_from(const json &object) {
  installation one;
  one.id = object.at("id").get<std::uint64_t>();
  one.product_dir = text_from(object.at("product_dir"));
  one.real_product_dir = path_from(object.at("real_product_dir"));
  if (object.contains("envi_dir")) {
    one.envi_dir = text_from(object.at("envi_dir"));
    one.real_envi_dir = path_from(object.at("real_envi_dir"));
  }
  one.local_layout = object.at("layout").get<std::string>() == "local";
  one.is_leaving = object.value("leaving", false);
  for (const json &directory : object.at("directories"))
    one.directories.push_back(path_from(directory));
  return one;
}

json json_of(const recorded_path &one) {
  json object;
  object["path"] = json_of(one.path);
  object["before"] = json_of(one.before);
  object["after"] = json_of(one.after);
  object["used_by"] = one.used_by;
  add_number(object, "kept", one.kept);
  return object;
}

recorded_path recorded_path_from(const json &object) {
  return {path_from(object.at("path")), state_from(object.at("before")), state_from(object.at("after")),
          object.at("used_by").get<std::set<std::uint64_t>>(), number_from(object, "kept")};
}

json json_of(const journaled_path &one) {
  json object;
  object["path"] = json_of(one.path);
  object["found"] = json_of(one.found);
  object["after"] = json_of(one.after);
  add_number(object, "kept", one.kept);
  add_number(object, "after_kept", one.after_kept);
  if (!one.source.empty())
    object["source"] = json_of(one.source);
  return object;
}

journaled_path journaled_path_from(const json &object) {
  return {path_from(object.at("path")),      state_from(object.at("found")),
          state_from(object.at("after")),    number_from(object, "kept"),
          number_from(object, "after_kept"), object.contains("source") ? path_from(object.at("source")) : ""};
}

std::string checksum_of(const std::string &text) {
  return hex(XXH3_64bits(text.data(), text.size()));
}

std::string sealed(const json &content) {
  json whole;
  whole["version"] = version;
  whole["checksum"] = checksum_of(content.dump());
  whole["content"] = content;
  return whole.dump() + "\n";
}

// Throws a failure or the JSON library's exception for anything that `sealed` did not make.
json unsealed(const std::string &text) {
  if (!text.ends_with('\n'))
    throw failure("it is cut off");
  const json whole = json::parse(text);
  const json &written_by = whole.at("version");
  if (written_by > version)
    throw failure("it was written by a later version");
  if (written_by != version)
    throw failure("it is of no version that there was");
  json content = whole.at("content");
  if (whole.at("checksum").get<std::string>() != checksum_of(content.dump()))
    throw failure("its checksum is wrong");
  return content;
}

receipt receipt_of(const json &content) {
  receipt record;
  record.run = content.at("run").get<std::uint64_t>();
  for (const json &one : content.at("installations"))
    record.installations.push_back(installation_from(one));
  for (const json &one : content.at("paths"))
    record.paths.push_back(recorded_path_from(one));
  return record;
}

journal journal_of(const json &content) {
  journal record;
  record.run = content.at("run").get<std::uint64_t>();
  for (const json &one : content.at("paths"))
    record.paths.push_back(journaled_path_from(one));
  return record;
}

template <typename Record>
Record record_from(const std::string &text, const std::string &name, Record (*record_of)(const json &)) {
  try {
    return record_of(unsealed(text));
  } catch (const std::exception &problem) {
    throw failure(name + " cannot be trusted: " + problem.what());
  }
}

} // namespace

bool is_same(const state &a, const state &b) {
  return a.type == b.type && a.mode == b.mode && a.owner == b.owner && a.group == b.group &&
         a.size == b.size && a.hash == b.hash && a.target == b.target;
}

std::string text_of(const receipt &record) {
  json content;
  content["run"] = record.run;
  content["installations"] = json::array();
  for (const installation &one : record.installations)
    content["installations"].push_back(json_of(one));
  content["paths"] = json::array();
  for (const recorded_path &one : record.paths)
    content["paths"].push_back(json_of(one));
  return sealed(content);
}

std::string text_of(const journal &record) {
  json content;
  content["run"] = record.run;
  content["paths"] = json::array();
  for (const journaled_path &one : record.paths)
    content["paths"].push_back(json_of(one));
  return sealed(content);
}

receipt receipt_from(const std::string &text, const std::string &name) {
  return record_from(text, name, receipt_of);
}

journal journal_from(const std::string &text, const std::string &name) {
  return record_from(text, name, journal_of);
}

} // namespace korvalen::admin
