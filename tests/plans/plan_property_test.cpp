// Random hosts: what `korvalen_admin plan` announces is what `korvalen_installer` then does.

#include "plans/plan_case.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <numeric>
#include <string_view>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr unsigned default_cases = 200;
constexpr unsigned all_cases = 2'000;

// They mostly wait.
constexpr unsigned side_by_side = 40;

std::vector<unsigned> cases(default_cases);

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

// What random hosts must have led to, lest the property hold for nothing.
constexpr const char *wanted_counts[] = {
    "plans with status 0",
    "plans with status 1",
    "plans with status 2",
    "installations that ended with status 0",
    "installations that ended with status 1",
    "installations that ended with status 255",
    "changes: new file",
    "changes: new directory",
    "changes: removed file",
    "changes: removed directory",
    "changes: removed link",
    "changes: type file",
    "changes: content file",
    "changes: mode file",
    "changes: mode directory",
    "changes: owner file",
    "changed files of several names",
    "warnings of further names",
    "stale backups",
    "differences that patch",
    "refused: a mount cannot be covered",
    "refused: two mounts of one directory",
    "refused: the installer refuses an argument",
};

std::string joined(const std::vector<std::string> &findings) {
  constexpr std::size_t shown = 40;
  std::string text;
  for (std::size_t i = 0; i < findings.size() && i < shown; ++i)
    text += findings[i] + "\n";
  if (findings.size() > shown)
    text += "... and " + std::to_string(findings.size() - shown) + " more\n";
  return text;
}

} // namespace

TEST(PlanProperty, APlanSaysExactlyWhatTheInstallerThenDoesToARandomHost) {
  const scratch place;
  const plans::tally result = plans::run_cases(
      cases, side_by_side, [&](unsigned number) { return plans::run_case(number, place.of(number)); });
  for (const auto &[name, count] : result.counts)
    std::cout << "  " << count << "\t" << name << "\n";
  for (const char *const name : wanted_counts)
    EXPECT_TRUE(cases.size() == 1 || result.counts.contains(name)) << "no random host led to: " << name;
  EXPECT_TRUE(result.findings.empty())
      << joined(result.findings) << "repeat one with: plan_property --case NUMBER";
}

// plan_property [--all | --case NUMBER]: many more hosts, or a single one, instead of some.
int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::string_view option = argc > 1 ? argv[1] : "";
  if (argc > 1)
    GTEST_FLAG_SET(filter, "PlanProperty.*");
  if (option == "--case" && argc == 3) {
    cases = {static_cast<unsigned>(std::atoi(argv[2]))};
    return RUN_ALL_TESTS();
  }
  if (argc > 2 || (argc == 2 && option != "--all")) {
    std::cerr << "usage: plan_property [--all | --case NUMBER]\n";
    return 2;
  }
  cases.resize(option == "--all" ? all_cases : default_cases);
  std::iota(cases.begin(), cases.end(), 1U);
  return RUN_ALL_TESTS();
}
