// What counts as a change, and as the same file.
#include "admin/changes.h"

#include "admin/merging.h"
#include "admin/plan.h"
#include "admin/records.h"

#include <gtest/gtest.h>

using namespace korvalen::admin;

namespace {

const state a_file = {file_type::file, 0644, 1, 2, 4, 77, ""};
const state a_link = {file_type::link, 0777, 1, 2, 0, {}, "target"};

state with(state one, const std::function<void(state &)> &change) {
  change(one);
  return one;
}

TEST(Changes, AreOfTheFirstKindThatHolds) {
  const struct {
    const char *name;
    state before;
    state after;
    change_kind kind;
  } rows[] = {
      {"nothing and nothing", {}, {}, change_kind::none},
      {"made", {}, a_file, change_kind::created},
      {"gone", a_file, {}, change_kind::removed},
      {"of another type", a_file, a_link, change_kind::type},
      {"the same", a_file, a_file, change_kind::none},
      {"other bytes", a_file, with(a_file, [](state &one) { one.hash = 78; }), change_kind::content},
      {"more bytes", a_file, with(a_file, [](state &one) { one.size = 5; }), change_kind::content},
      {"another target", a_link, with(a_link, [](state &one) { one.target = "other"; }),
       change_kind::content},
      {"another mode", a_file, with(a_file, [](state &one) { one.mode = 0600; }), change_kind::mode},
      {"another owner", a_file, with(a_file, [](state &one) { one.owner = 9; }), change_kind::owner},
      {"another group", a_file, with(a_file, [](state &one) { one.group = 9; }), change_kind::owner},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(kind_of({"/p", row.before, row.after}), row.kind) << row.name;
    EXPECT_EQ(is_same(row.before, row.after), row.kind == change_kind::none) << row.name;
  }
}

TEST(Changes, OfAnythingButTheBytesOfAFileHaveNoDifference) {
  const rehearsal none;
  EXPECT_EQ(diff_of(none, {"/p", a_link, with(a_link, [](state &one) { one.target = "other"; })}), "");
  EXPECT_EQ(diff_of(none, {"/p", {}, a_file}), "");
}

TEST(Changes, AreSeenInEveryPartOfAFilesIdentity) {
  const identity one{1, 2, 3, {4, 5}};
  EXPECT_TRUE(is_same(one, identity{1, 2, 3, {4, 5}}));
  EXPECT_FALSE(is_same(one, identity{9, 2, 3, {4, 5}}));
  EXPECT_FALSE(is_same(one, identity{1, 9, 3, {4, 5}}));
  EXPECT_FALSE(is_same(one, identity{1, 2, 9, {4, 5}}));
  EXPECT_FALSE(is_same(one, identity{1, 2, 3, {9, 5}}));
  EXPECT_FALSE(is_same(one, identity{1, 2, 3, {4, 9}}));
}

} // namespace
