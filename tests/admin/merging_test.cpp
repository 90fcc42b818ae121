#include "admin/merging.h"

#include "support/files.h"

#include <gtest/gtest.h>

#include <optional>

using namespace korvalen::admin;
using support::write_file;

namespace {

class Merging : public support::scratch_test {
protected:
  static state file(std::uint64_t hash) { return {file_type::file, 0644, 0, 0, 4, hash, ""}; }
  static installation installed(const std::string &product, std::uint64_t id = 0) {
    return {id, product, "/envi", product, "/envi", false, {product, "/init"}};
  }
  // A file that stands on the disk, and its state.
  state standing(const std::string &name) const {
    write_file(path(name), "text");
    return hashed_state_of(open_tree_at(""), path(name));
  }
};

struct merge_row {
  const char *name;
  std::optional<std::pair<std::uint64_t, std::uint64_t>> old; // before, after; 0 is absent
  std::uint64_t found;
  std::uint64_t after;
  bool holds_block;
  std::uint64_t before_wanted;
  std::optional<std::uint64_t> kept_wanted; // 1 of the record, 2 of the run
  bool is_edited;
};

TEST_F(Merging, KeepsTheBeforeThatAnUninstallationMustBringBack) {
  const merge_row rows[] = {
      {"touched for the first time", std::nullopt, 5, 6, false, 5, 2, false},
      {"made for the first time", std::nullopt, 0, 6, false, 0, std::nullopt, false},
      {"a script with a block, touched for the first time", std::nullopt, 5, 6, true, 5, 2, false},
      {"found as the last run left it", {{3, 4}}, 4, 6, false, 3, 1, false},
      {"found as this run leaves it", {{3, 4}}, 6, 6, false, 3, 1, false},
      {"found as before: it came back", {{3, 4}}, 3, 6, false, 3, 1, false},
      {"found changed: it is the host's new one", {{3, 4}}, 5, 6, false, 5, 2, false},
      {"found gone: the host has none now", {{3, 4}}, 0, 6, false, 0, std::nullopt, false},
      {"a script with a block, edited", {{3, 4}}, 5, 6, true, 3, 1, true},
      {"a script with a block, as the last run left it", {{3, 4}}, 4, 6, true, 3, 1, false},
      {"a script with a block, as this run leaves it", {{3, 4}}, 6, 6, true, 3, 1, false},
      {"a path that no run changed", {{3, 3}}, 3, 3, false, 3, 1, false},
      {"a path that only this run changes", {{3, 3}}, 3, 6, false, 3, 1, false},
  };
  const auto some = [](std::uint64_t hash) { return hash == 0 ? state{} : file(hash); };
  for (const merge_row &row : rows) {
    receipt record;
    record.run = 8;
    record.installations = {installed("/product", 1)};
    if (row.old)
      record.paths = {{"/no/where/p", some(row.old->first), some(row.old->second), {1}, 1}};
    journal run{9, {{"/no/where/p", some(row.found), some(row.after)}}};
    if (row.found != 0)
      run.paths[0].kept = 2;
    const std::set<std::string> holding_block =
        row.holds_block ? std::set<std::string>{"/no/where/p"} : std::set<std::string>{};
    const merge_result merged = merge(record, installed("/product"), run, holding_block);
    ASSERT_EQ(merged.record.paths.size(), 1U) << row.name;
    const recorded_path &path = merged.record.paths[0];
    EXPECT_TRUE(is_same(path.before, some(row.before_wanted))) << row.name;
    EXPECT_TRUE(is_same(path.after, some(row.after))) << row.name;
    EXPECT_EQ(path.kept, row.kept_wanted) << row.name;
    EXPECT_EQ(path.used_by, std::set<std::uint64_t>{1}) << row.name;
    EXPECT_EQ(merged.edited_scripts.size(), row.is_edited ? 1U : 0U) << row.name;
    EXPECT_EQ(merged.record.run, 9U);
    EXPECT_EQ(merged.record.installations.size(), 1U);
  }
}

TEST_F(Merging, KeepsBytesForABeforeThatHadNone) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.paths = {{"/no/where/p", file(3), file(3), {1}, std::nullopt}};
  const journal run{1, {{"/no/where/p", file(3), file(6), 2}}};
  EXPECT_EQ(merge(record, installed("/product"), run, {}).record.paths[0].kept, 2U);
}

TEST_F(Merging, LeavesToTheHostWhatTheHostChangedAndTheRunDidNotTouch) {
  receipt record;
  record.installations = {installed("/product", 1), installed("/other", 2)};
  const state good = standing("as_left");
  standing("changed");
  record.paths = {{path("as_left"), {}, good, {1}, 1},
                  {path("changed"), {}, file(7), {1}, 2},
                  {path("gone"), {}, good, {1}, 3},
                  {path("none/gone"), {}, good, {1}, 5},
                  {path("of_the_other"), {}, good, {2}, 4}};
  const merge_result merged = merge(record, installed("/product"), {1, {}}, {});
  std::vector<std::string> paths;
  for (const recorded_path &one : merged.record.paths)
    paths.push_back(one.path);
  EXPECT_EQ(paths, (std::vector<std::string>{path("as_left"), path("of_the_other")}));
}

TEST_F(Merging, KeepsANameThatCameBackWhileTheRunTouchesAnotherNameOfItsFile) {
  receipt record;
  record.installations = {installed("/product", 1)};
  const state back = standing("came_back");
  record.paths = {{path("came_back"), back, file(7), {1}, 5}, {path("touched"), back, file(7), {1}, 5}};
  const merge_result merged =
      merge(record, installed("/product"), {1, {{path("touched"), file(7), file(7), 6}}}, {});
  const recorded_path *const name = find_path(merged.record, path("came_back"));
  ASSERT_NE(name, nullptr) << "an uninstall could not make the names one file again";
  EXPECT_EQ(name->kept, 5U);
  EXPECT_TRUE(is_same(name->after, back)) << "it is as it should be";
  EXPECT_EQ(find_path(merged.record, path("touched"))->kept, 5U);
}

TEST_F(Merging, KeepsANameThatStandsAsItWasLeftWhileTheRunTouchesAnotherNameOfItsFile) {
  receipt record;
  record.installations = {installed("/product", 1)};
  const state left = standing("as_left");
  record.paths = {{path("as_left"), file(6), left, {1}, 5},
                  {path("none/gone"), file(6), left, {1}, 5},
                  {path("touched"), file(6), left, {1}, 5}};
  const merge_result merged =
      merge(record, installed("/product"), {1, {{path("touched"), left, file(7), 6}}}, {});
  ASSERT_EQ(merged.record.paths.size(), 2U) << "what is gone is the host's";
  EXPECT_EQ(merged.record.paths[0].path, path("as_left"));
  EXPECT_TRUE(is_same(merged.record.paths[0].after, left)) << "it is no change to verify";
}

TEST_F(Merging, LeavesToTheHostWhatCameBackAlone) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.paths = {{path("came_back"), standing("came_back"), file(7), {1}, 5}};
  EXPECT_TRUE(merge(record, installed("/product"), {1, {}}, {}).record.paths.empty());
}

TEST_F(Merging, GivesNothingMoreToAnInstallationOfWhichOnlySomethingIsLeft) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.installations[0].is_leaving = true;
  record.paths = {{"/envi/left", file(1), file(2), {1}, 5}};
  const journal run{1, {{"/envi/left", file(3), file(4), 6}, {"/init/new", {}, file(4)}}};
  const merge_result other = merge(record, installed("/other"), run, {});
  EXPECT_EQ(find_path(other.record, "/init/new")->used_by, (std::set<std::uint64_t>{2}));
  EXPECT_EQ(find_path(other.record, "/envi/left")->used_by, (std::set<std::uint64_t>{2}));
  EXPECT_TRUE(find_installation(other.record, installed("/product"))->is_leaving);
  const merge_result again = merge(record, installed("/product"), run, {});
  EXPECT_FALSE(find_installation(again.record, installed("/product"))->is_leaving);
  EXPECT_EQ(find_path(again.record, "/init/new")->used_by, (std::set<std::uint64_t>{1}));
  EXPECT_EQ(find_path(again.record, "/envi/left")->used_by, (std::set<std::uint64_t>{1}));
}

TEST_F(Merging, GivesWhatLiesInAnInitOrProductDirectoryToAllThatHaveIt) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.paths = {{"/init/p", {}, file(3), {1}, std::nullopt},
                  {"/init/q", {}, file(3), {}, std::nullopt},
                  {"/initial", {}, file(3), {1}, std::nullopt}};
  const journal run{1, {{"/init/new", {}, file(4)}, {"/product/new", {}, file(4)}}};
  const merge_result merged = merge(record, installed("/other"), run, {});
  std::map<std::string, std::set<std::uint64_t>> users;
  for (const recorded_path &one : merged.record.paths)
    users[one.path] = one.used_by;
  const std::map<std::string, std::set<std::uint64_t>> wanted = {
      {"/init/p", {1, 2}},
      {"/init/q", {}}, // stayed when its last user went
      {"/init/new", {1, 2}},
      {"/initial", {1}},
      {"/product/new", {1, 2}}};
  EXPECT_EQ(users, wanted);
}

TEST_F(Merging, GivesAMadeDirectoryToWhoeverHasSomethingInIt) {
  support::fs::create_directory(path("made"));
  receipt record;
  record.installations = {installed("/product", 1)};
  record.paths = {{path("made"), {}, state_of(open_tree_at(""), path("made")), {1}, std::nullopt}};
  const auto users = [&](const journal &run) {
    const merge_result merged = merge(record, installed("/other"), run, {});
    return find_path(merged.record, path("made"))->used_by;
  };
  EXPECT_EQ(users({1, {{path("made/deep/new"), {}, file(4)}}}), (std::set<std::uint64_t>{1, 2}));
  EXPECT_EQ(users({1, {{path("made/gone"), file(4), {}}}}), (std::set<std::uint64_t>{1}))
      << "nothing is in it";
  support::fs::permissions(path("made"), support::fs::perms(0700));
  EXPECT_EQ(users({1, {{path("made/new"), {}, file(4)}}}), (std::set<std::uint64_t>{1}))
      << "it was changed since";
}

TEST_F(Merging, KnowsAnInstallationByProductEnviAndLayout) {
  receipt record;
  record.installations = {installed("/product", 1)};
  installation wanted = installed("/product");
  ASSERT_NE(find_installation(record, wanted), nullptr);
  EXPECT_EQ(find_installation(record, wanted)->id, 1U);
  wanted.local_layout = true;
  EXPECT_EQ(find_installation(record, wanted), nullptr);
  wanted = installed("/other");
  EXPECT_EQ(find_installation(record, wanted), nullptr);
  wanted = installed("/product");
  wanted.envi_dir = wanted.real_envi_dir = std::nullopt;
  EXPECT_EQ(find_installation(record, wanted), nullptr);
}

TEST_F(Merging, FindsAPathOnRecordAndNoOther) {
  receipt record;
  record.paths = {{"/b", {}, file(3), {1}, 1}, {"/d", {}, file(3), {1}, 2}};
  EXPECT_EQ(find_path(record, "/b")->kept, 1U);
  EXPECT_EQ(find_path(record, "/d")->kept, 2U);
  for (const char *path : {"/a", "/c", "/e"})
    EXPECT_EQ(find_path(record, path), nullptr) << path;
}

TEST_F(Merging, TellsAnInstallationWithoutAnEnviFromAllOthers) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.installations[0].envi_dir = record.installations[0].real_envi_dir = std::nullopt;
  installation wanted = installed("/product");
  EXPECT_EQ(find_installation(record, wanted), nullptr);
  wanted.envi_dir = wanted.real_envi_dir = std::nullopt;
  EXPECT_NE(find_installation(record, wanted), nullptr);
}

TEST_F(Merging, KnowsWhatIsGoneByTheNameThatItWasGivenBy) {
  receipt record;
  record.installations = {installed("/product", 1)};
  record.installations[0].envi_dir = path("link");
  record.installations[0].real_envi_dir = "/real";
  installation wanted = installed("/product");
  wanted.envi_dir = wanted.real_envi_dir = path("link");
  EXPECT_NE(find_installation(record, wanted), nullptr);
  support::fs::create_directory(path("link"));
  EXPECT_EQ(find_installation(record, wanted), nullptr) << "another one stands under that name";
}

} // namespace
