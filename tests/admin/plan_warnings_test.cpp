// Of what a plan warns, where a path leads through links.
#include "admin/planned_run.h"

using namespace admin_tests;

namespace {

class PlanWarnings : public planned_run {
protected:
  void SetUp() override {
    make_host();
    fs::create_directory(envi() + "/idl87");
    fs::create_directory_symlink(envi(), path("opt_envi"));
    envi_dir = path("opt_envi");
  }

  // "CODE PATH" of each warning.
  std::vector<std::string> warned() const {
    std::vector<std::string> found;
    const json told = parsed_json(plan({"--json"}).out);
    for (const json &one : told.at("warnings"))
      found.push_back(one["code"].get<std::string>() + " " +
                      whole_runs::replaced(one.value("path", ""), envi(), "ENVI"));
    return found;
  }
};

} // namespace

TEST_F(PlanWarnings, NameRealPaths) {
  EXPECT_THAT(warned(), testing::Contains("higher-idl ENVI/idl87"));
}

TEST_F(PlanWarnings, NameTheRealScriptWithAStaleBackup) {
  support::write_file(envi() + "/bin/envi_original", "an older one\n");
  EXPECT_THAT(warned(), testing::Contains("stale-backup ENVI/bin/envi"));
}

TEST_F(PlanWarnings, NameTheDirectoryOfAScriptThatIsMissing) {
  fs::remove(envi() + "/bin/envi_rt");
  EXPECT_THAT(warned(), testing::Contains("missing-script ENVI/bin/envi_rt"));
}

TEST_F(PlanWarnings, OfBlanksTellThePathThatWasGivenToo) {
  fs::create_directory_symlink(envi(), path("an envi"));
  envi_dir = path("an envi");
  const json told = parsed_json(plan({"--json"}).out);
  const auto one = std::find_if(told["warnings"].begin(), told["warnings"].end(),
                                [](const json &warning) { return warning["code"] == "blanks"; });
  ASSERT_NE(one, told["warnings"].end()) << told.dump(1);
  EXPECT_EQ((*one)["path"], envi());
  EXPECT_THAT((*one)["text"].get<std::string>(),
              testing::StartsWith("given as \"" + path("an envi") + "\": the path holds blanks"));
}
