// Tests that look at what an operation recorded: the lines of the uninstall script and of the install log.
#pragma once

#include "support/files.h"
#include "support/library.h"

#include <optional>
#include <string>

namespace support {

// A scratch directory with an uninstall script "uninstall.sh" and with an install log attached.
class recording_test : public scratch_test {
protected:
  recording_test();
  ~recording_test() override;

  // The log and the script, with the scratch directory written as "~".
  std::string logged() const;
  std::string recorded() const;

  // The log is empty again.
  void forget_log() { log_.emplace(); }

private:
  std::string shortened(std::string text) const;

  std::optional<attached_log> log_;
};

} // namespace support
