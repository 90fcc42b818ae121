// Random trees, installed and uninstalled again.

#include "run/random_host.h"

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;

namespace {

class RoundTrip : public whole_run, public testing::WithParamInterface<unsigned> {
protected:
  RoundTrip() : expected_(make_random_host(GetParam(), product(), envi())) {}

  bool is_launch_script_or_backup(const std::string &name) const {
    return expected_.originals.contains(name) ||
           (name.ends_with("_original") && expected_.originals.contains(name.substr(0, name.size() - 9)));
  }

  // ENVI's files but for the launch scripts and their backups.
  support::tree other_files() const {
    support::tree result = snapshot(envi());
    std::erase_if(result, [this](const auto &item) {
      return item.second.kind == "directory" || is_launch_script_or_backup(item.first);
    });
    return result;
  }

  // One block with this init directory, and the original's lines around it as they were.
  void expect_launch_scripts(const std::string &init_dir) const {
    for (const auto &[name, original] : expected_.originals) {
      const std::string text = read_file(envi() + "/" + name);
      const std::string block = name.starts_with("bin/") ? envi_block(init_dir) : idl_block(init_dir);
      const std::size_t at = text.find(block);
      ASSERT_NE(at, std::string::npos) << name;
      EXPECT_EQ(std::string(text).erase(at, block.size()), original) << name;
      EXPECT_EQ(read_file(envi() + "/" + name + "_original"), original) << name;
      EXPECT_EQ(support::mode_of(envi() + "/" + name), 0755U) << name;
    }
  }

  std::string recorded_files() const {
    std::vector<std::string> names = expected_.recorded;
    std::sort(names.begin(), names.end());
    std::string lines;
    for (const std::string &name : names)
      lines += "rm ENVI/" + name + "\n";
    return lines;
  }

  // The lines between the first and the last of the uninstall script, sorted.
  std::string recorded_between(const std::string &first, const std::string &last) const {
    const std::string script = recorded();
    EXPECT_TRUE(script.starts_with(first)) << script;
    EXPECT_TRUE(script.ends_with(last)) << script;
    std::istringstream stream(script.substr(first.size(), script.size() - first.size() - last.size()));
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
      lines.push_back(line + "\n");
    std::sort(lines.begin(), lines.end());
    std::string result;
    for (const std::string &line : lines)
      result += line;
    return result;
  }

  random_host expected_;
};

} // namespace

TEST_P(RoundTrip, RemovesExactlyWhatWasPlacedAndRecorded) {
  ASSERT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(changes(expected_.installed, other_files()), "");
  EXPECT_EQ(recorded_between("rm /etc/quorin/Korvalen_configuration.ini\n", "rm -rf PRODUCT\n"),
            recorded_files());
  expect_launch_scripts("/etc/quorin");
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");

  const support::outcome uninstallation = support::run({"sh", script_in_etc});
  EXPECT_EQ(uninstallation.signal, 0);
  EXPECT_FALSE(fs::exists(product()));
  EXPECT_EQ(support::file_names(snapshot("/etc/quorin")), "korvalen_uninstall.sh\n");
  support::tree remaining = expected_.installed;
  for (const std::string &name : expected_.recorded)
    remaining.erase(name);
  EXPECT_EQ(changes(remaining, other_files()), "");
  expect_launch_scripts("/etc/quorin");
}

TEST_P(RoundTrip, LeavesTheSameAfterASecondRun) {
  ASSERT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  const support::tree once = snapshot(scratch());
  ASSERT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  EXPECT_EQ(changes(once, snapshot(scratch())), "");
  expect_launch_scripts(product());
}

TEST_P(RoundTrip, LeavesOneBlockWithTheLastInitDirectory) {
  ASSERT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  expect_launch_scripts(product());
  const support::tree placed = other_files();
  ASSERT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  expect_launch_scripts("/etc/quorin");
  EXPECT_EQ(changes(placed, other_files()), "");
}

INSTANTIATE_TEST_SUITE_P(Seed, RoundTrip,
                         testing::Values(1U, 20U, 300U, 4'000U, 50'000U, 600'000U, 7'000'000U, 80'000'000U));
