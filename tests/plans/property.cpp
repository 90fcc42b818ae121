#include "plans/property.h"
#include "support/findings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace plans {

namespace {

namespace fs = std::filesystem;

constexpr unsigned all_cases = 2'000;

// They mostly wait.
constexpr unsigned side_by_side = 40;

// What the command line asks for.
bool wants_all = false;
unsigned wanted_case = 0; // 0 is none

class scratch {
public:
  scratch() : directory_((fs::temp_directory_path() / "korvalen_plans.XXXXXX").string()) {
    if (mkdtemp(directory_.data()) == nullptr)
      throw std::runtime_error("set-up: cannot make a scratch directory");
    fs::permissions(directory_, fs::perms(0755));
  }
  ~scratch() {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }
  scratch(const scratch &) = delete;
  scratch &operator=(const scratch &) = delete;
  std::string of(unsigned number) const { return directory_ + "/" + std::to_string(number); }

private:
  std::string directory_;
};

std::vector<unsigned> wanted_cases(const property &wanted) {
  if (wanted_case != 0)
    return {wanted_case};
  std::vector<unsigned> numbers(wants_all ? all_cases : wanted.default_cases);
  std::iota(numbers.begin(), numbers.end(), 1U);
  return numbers;
}

} // namespace

void expect_of_random_hosts(const property &wanted) {
  const scratch place;
  const std::vector<unsigned> cases = wanted_cases(wanted);
  const tally result = run_cases(cases, side_by_side,
                                 [&](unsigned number) { return wanted.run_case(number, place.of(number)); });
  for (const auto &[name, count] : result.counts)
    std::cout << "  " << count << "\t" << name << "\n";
  for (const char *const name : wanted.wanted_counts)
    EXPECT_TRUE(cases.size() == 1 || result.counts.contains(name)) << "no random host led to: " << name;
  EXPECT_TRUE(result.findings.empty())
      << support::listed(result.findings) << "repeat one with: plan_property --case NUMBER";
}

} // namespace plans

// plan_property [--all | --case NUMBER]: the properties alone, of many more hosts, or of a single one.
int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (argc > 1 && GTEST_FLAG_GET(filter) == "*")
    GTEST_FLAG_SET(filter, "*Property.*");
  if (option == "--case" && argc == 3)
    plans::wanted_case = static_cast<unsigned>(std::atoi(argv[2]));
  plans::wants_all = option == "--all" && argc == 2;
  if (argc > 1 && plans::wanted_case == 0 && !plans::wants_all) {
    std::cerr << "usage: plan_property [--all | --case NUMBER]\n";
    return 2;
  }
  return RUN_ALL_TESTS();
}
