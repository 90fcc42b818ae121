#include "admin/parsed_json.h"

template class nlohmann::basic_json<>;

namespace admin_json {

json parsed_json(const std::string &text) {
  return json::parse(text, nullptr, false);
}

} // namespace admin_json
