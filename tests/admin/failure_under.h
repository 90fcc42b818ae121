// What the parts of korvalen_admin say where the kernel refuses them something.
#pragma once

#include "admin/failure.h"
#include "support/child.h"
#include "support/disturbance.h"
#include "support/surroundings.h"

#include <functional>
#include <iostream>
#include <string>

namespace admin_tests {

// File calls with this limit are refused on open directories and files only, not on paths.
constexpr std::uint32_t opened_only = 1000;

// The text of the failure that the code ends with, in a child that brings the hindrance upon itself first, or
// what the code prints.
inline std::string told_under(const std::function<void()> &hindrance, const std::function<void()> &code) {
  const support::outcome ended = support::call([&] {
    hindrance();
    try {
      code();
    } catch (const korvalen::admin::failure &problem) {
      std::cout << problem.what();
    }
    return 0;
  });
  EXPECT_EQ(ended.status, 0) << ended;
  EXPECT_EQ(ended.err, "");
  return ended.out;
}

inline std::string told_without(long number, int error, const std::function<void()> &code,
                                std::uint32_t limit = UINT32_MAX) {
  return told_under([&] { support::fail_system_call(number, error, limit); }, code);
}

} // namespace admin_tests
