#include "support/recording.h"

#include "korvalen/records/uninstall_script.h"

namespace support {

recording_test::recording_test() {
  korvalen::init_korvalen_install_files_name(path("uninstall.sh").c_str());
  korvalen::init_korvalen_install_files("");
  log_.emplace();
}

recording_test::~recording_test() {
  korvalen::init_korvalen_install_files_name("");
}

std::string recording_test::logged() const {
  return shortened(log_->text());
}

std::string recording_test::recorded() const {
  return shortened(read_file(path("uninstall.sh")));
}

std::string recording_test::shortened(std::string text) const {
  const std::string &directory = scratch().native();
  for (std::size_t at = text.find(directory); at != std::string::npos; at = text.find(directory, at))
    text.replace(at, directory.size(), "~");
  return text;
}

} // namespace support
