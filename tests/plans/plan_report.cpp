#include "plans/plan_report.h"

#include <cstdint>
#include <set>
#include <stdexcept>
#include <string_view>

#include <nlohmann/json.hpp>

namespace plans {

using nlohmann::json;

namespace {

std::string decoded(const std::string &base64) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  std::uint32_t group = 0;
  unsigned bits = 0;
  for (const char digit : base64) {
    const std::size_t value = digits.find(digit);
    if (value == std::string_view::npos)
      break;
    group = group << 6U | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes += static_cast<char>(group >> bits & 0xffU);
    }
  }
  return bytes;
}

// The exact bytes of a text, which stand beside it where it is no UTF-8.
std::string bytes_of(const json &object, const std::string &key) {
  const std::string text = object.at(key).get<std::string>();
  const auto exact = object.find(key + "_base64");
  return exact == object.end() ? text : decoded(exact->get<std::string>());
}

std::string bytes_or_nothing(const json &object, const std::string &key) {
  return object.contains(key) ? bytes_of(object, key) : "";
}

void expect_only(const json &object, const std::set<std::string> &keys) {
  constexpr std::string_view exact = "_base64";
  for (const auto &[key, value] : object.items()) {
    const bool is_exact = key.ends_with(exact) && object.contains(key.substr(0, key.size() - exact.size()));
    if (!is_exact && !keys.contains(key))
      throw std::runtime_error("the report holds an unknown key: " + key);
  }
}

announced_change change_of(const json &object) {
  expect_only(object, {"path", "change", "type", "mode", "owner", "diff"});
  announced_change result{bytes_of(object, "path"),
                          {object.at("change"), object.at("type"), object.at("mode"), object.at("owner")},
                          {}};
  if (object.contains("diff"))
    result.diff = bytes_of(object, "diff");
  return result;
}

} // namespace

plan_report parse_report(const std::string &text, const std::string &command) {
  if (!text.ends_with("}\n"))
    throw std::runtime_error("the report does not end with an object and a line end");
  const json object = json::parse(text);
  expect_only(object, {"version", "command", "status", "installer", "changes", "warnings", "error"});
  if (object.at("version") != 1 || object.at("command") != command)
    throw std::runtime_error("the report is not version 1 of " + command);
  plan_report report;
  report.status = object.at("status");
  if (object.contains("installer")) {
    const json &installer = object["installer"];
    report.installer = {installer.at("status"), bytes_of(installer, "output"), bytes_of(installer, "errors")};
  }
  for (const json &change : object.at("changes"))
    report.changes.push_back(change_of(change));
  for (const json &warning : object.at("warnings"))
    report.warnings.push_back({warning.at("code"), bytes_or_nothing(warning, "path"), warning.at("refuses")});
  report.error = bytes_or_nothing(object, "error");
  return report;
}

} // namespace plans
