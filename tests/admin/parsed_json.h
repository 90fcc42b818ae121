// The JSON that korvalen_admin prints and keeps.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

// Compiled once for all tests.
extern template class nlohmann::basic_json<>;

namespace admin_json {

using json = nlohmann::json;

// A value that is no object where the text is no JSON.
json parsed_json(const std::string &text);

} // namespace admin_json
