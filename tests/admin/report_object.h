// The JSON that korvalen_admin prints.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

// Compiled once for all tests.
extern template class nlohmann::basic_json<>;

namespace admin_reports {

using json = nlohmann::json;

// A value that is no object where the text is no JSON.
json report_object(const std::string &text);

} // namespace admin_reports
