#include "support/library.h"

#include "korvalen/records/install_log.h"

#include <stdexcept>
#include <utility>

namespace support {

attached_log::attached_log(std::function<void()> at_each_line) : at_each_line_(std::move(at_each_line)) {
  korvalen::set_install_log(&stream_);
}

attached_log::~attached_log() {
  korvalen::set_install_log(nullptr);
}

int attached_log::sync() {
  ++flushes_;
  if (at_each_line_)
    at_each_line_();
  return 0;
}

std::vector<std::string> lines_of(const korvalen::line_array &array) {
  if (!array)
    throw std::runtime_error("a null pointer instead of a line array");
  std::vector<std::string> lines;
  for (char **line = array.get(); *line != nullptr; ++line)
    lines.emplace_back(*line);
  return lines;
}

} // namespace support
