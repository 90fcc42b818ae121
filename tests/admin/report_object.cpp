#include "admin/report_object.h"

template class nlohmann::basic_json<>;

namespace admin_reports {

json report_object(const std::string &text) {
  return json::parse(text, nullptr, false);
}

} // namespace admin_reports
