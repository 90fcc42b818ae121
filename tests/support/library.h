// A log that watches the library, and what the library returns made comparable.
#pragma once

#include "korvalen/text/strings.h"

#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace support {

// An install log that is attached during its life. May act at each line, once that is written.
class attached_log : std::stringbuf {
public:
  explicit attached_log(std::function<void()> at_each_line = {});
  ~attached_log() override;
  attached_log(const attached_log &) = delete;
  attached_log &operator=(const attached_log &) = delete;
  std::string text() const { return str(); }
  int flushes() const { return flushes_; }

private:
  int sync() override;

  std::function<void()> at_each_line_;
  std::ostream stream_{this};
  int flushes_ = 0;
};

// The strings of a line array; throws for null, which is no array.
std::vector<std::string> lines_of(const korvalen::line_array &array);

} // namespace support
