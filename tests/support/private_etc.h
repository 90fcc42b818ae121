// An /etc of the test's own.
#pragma once

namespace support {

// While one lives, this process and its children see a nearly empty /etc in memory, in a mount namespace of
// their own; the machine's /etc is out of their reach. Needs root. Throws when the set-up fails.
class private_etc {
public:
  private_etc();
  ~private_etc();
  private_etc(const private_etc &) = delete;
  private_etc &operator=(const private_etc &) = delete;
};

} // namespace support
