#include "admin/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace korvalen::admin {

void fail(const std::string &what) {
  const int reason = errno;
  throw failure(what + ": " + std::strerror(reason), reason);
}

int checked(long result, const std::string &what) {
  if (result < 0)
    fail(what);
  return static_cast<int>(result);
}

bool is_one_of(int error, std::initializer_list<int> errors) {
  return std::find(errors.begin(), errors.end(), error) != errors.end();
}

descriptor::~descriptor() {
  if (file_ >= 0)
    close(file_);
}

descriptor &descriptor::operator=(descriptor &&other) noexcept {
  std::swap(file_, other.file_);
  return *this;
}

} // namespace korvalen::admin
