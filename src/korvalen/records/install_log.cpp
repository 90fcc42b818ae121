#include "korvalen/records/install_log.h"

#include <ostream>
#include <string>

namespace korvalen {

namespace {

std::ostream *attached_log = nullptr;

} // namespace

void set_install_log(std::ostream *log) {
  attached_log = log;
}

std::ostream *install_log() {
  return attached_log;
}

void log_line(const char *label, const char *value) {
  if (attached_log != nullptr)
    *attached_log << label << value << std::endl;
}

void log_line(const char *label, int value) {
  log_line(label, std::to_string(value).c_str());
}

} // namespace korvalen
