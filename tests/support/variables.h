// The environment's variables in tests.
#pragma once

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace support {

// Unsets the named variables, so that a test sets what it needs; afterwards they are as they were.
class free_variables {
public:
  explicit free_variables(const std::vector<std::string> &names) : names_(names) {
    for (const std::string &name : names_) {
      if (const char *const value = std::getenv(name.c_str()))
        earlier_[name] = value;
      unsetenv(name.c_str());
    }
  }
  ~free_variables() {
    for (const std::string &name : names_)
      unsetenv(name.c_str());
    for (const auto &[name, value] : earlier_)
      setenv(name.c_str(), value.c_str(), 1);
  }
  free_variables(const free_variables &) = delete;
  free_variables &operator=(const free_variables &) = delete;

private:
  std::vector<std::string> names_;
  std::map<std::string, std::string> earlier_;
};

} // namespace support
