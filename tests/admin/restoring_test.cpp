#include "admin/restoring.h"

#include "admin/admin_run.h"
#include "admin/failure.h"

#include <sys/xattr.h>

using namespace admin_runs;
using namespace korvalen::admin;
using support::write_file;

namespace {

constexpr std::uint64_t kept_file = 1;
constexpr std::uint64_t kept_directory = 2;

class Restoring : public admin_run {
protected:
  Restoring() {
    fs::create_directories(state_dir + "/kept/2");
    write_file(state_dir + "/kept/1", "kept bytes", 0600);
    for (const char *name : {"/kept/1", "/kept/2"})
      must(setxattr((state_dir + name).c_str(), "user.note", "kept", 4, 0), "setxattr");
    const timespec times[] = {{1, 2}, {1'000'000'003, 4}};
    must(utimensat(AT_FDCWD, (state_dir + "/kept/1").c_str(), times, 0), "utimensat");
    write_file(at("other"), "untouched");
    file_state.hash = hash_of(open_tree_at(""), state_dir + "/kept/1");
  }
  std::string at(const std::string &name) const { return path("host/" + name); }

  state file_state = {file_type::file, 06754, 12, 34, 10};
  const state directory_state = {file_type::directory, 03751, 56, 78};
  const state link_state = {file_type::link, 0777, 9, 10, 0, {}, "no/where"};

  restored restore_to(const std::string &name, const state &wanted) const {
    const std::optional<std::uint64_t> kept = wanted.type == file_type::file ? std::optional(kept_file)
                                              : wanted.type == file_type::directory
                                                  ? std::optional(kept_directory)
                                                  : std::nullopt;
    const std::string path = at(name);
    return korvalen::admin::restore({path, wanted, kept, 7}, false);
  }
  static restored_paths restore_them(const std::vector<wanted_path> &paths) {
    return restore_all(paths, false, [](const wanted_path &, const state &) {});
  }
  exact_tree tree() const { return exact({host()}); }
};

const std::string restored_file = "file 6754 12:34 user.note=kept of 1000000003.4 \"kept bytes\"";
const std::string restored_directory = "directory 3751 56:78 user.note=kept";
const std::string restored_link = "link 0777 9:10 -> no/where";

TEST_F(Restoring, MakesEveryTypeOfEveryType) {
  const std::pair<const char *, std::function<void(const std::string &)>> present[] = {
      {"nothing", [](const std::string &) {}},
      {"a file", [](const std::string &path) { write_file(path, "present", 0600); }},
      {"an empty directory", [](const std::string &path) { fs::create_directory(path); }},
      {"a link to a file", [](const std::string &path) { fs::create_symlink("other", path); }},
      {"a link to a directory", [](const std::string &path) { fs::create_symlink(".", path); }},
      {"a FIFO", [](const std::string &path) { must(mkfifo(path.c_str(), 0600), "mkfifo"); }},
  };
  const std::tuple<const char *, state, std::string> wanted[] = {
      {"absent", {}, ""},
      {"the file", file_state, restored_file},
      {"the directory", directory_state, restored_directory},
      {"the link", link_state, restored_link}};
  for (const auto &[name, make] : present)
    for (const auto &[wanted_name, state, line] : wanted) {
      exact_tree result = tree();
      make(at("p"));
      EXPECT_EQ(restore_to("p", state), restored::done) << name << " to " << wanted_name;
      if (!line.empty())
        result[at("p")] = line;
      EXPECT_EQ(differences(result, tree()), "") << name << " to " << wanted_name;
      fs::remove(at("p"));
    }
}

TEST_F(Restoring, ChangesOnlyTheRightsOfADirectoryThatStands) {
  write_file(at("p/inside"), "stays");
  EXPECT_EQ(restore_to("p", directory_state), restored::done);
  EXPECT_EQ(tree()[at("p")], restored_directory);
  EXPECT_EQ(support::read_file(at("p/inside")), "stays");
}

TEST_F(Restoring, LeavesADirectoryThatHoldsSomethingAsItIs) {
  write_file(at("p/inside"), "somebody's");
  const exact_tree before = tree();
  for (const state &wanted : {state{}, file_state, link_state}) {
    EXPECT_EQ(restore_to("p", wanted), restored::not_empty);
    EXPECT_EQ(differences(before, tree()), "");
  }
}

TEST_F(Restoring, DoesNothingBehindALinkOrWhereTheDirectoryIsGone) {
  fs::create_directory(at("real"));
  write_file(at("real/p"), "present");
  fs::create_directory_symlink("real", at("link"));
  const exact_tree before = tree();
  EXPECT_EQ(restore_to("link/p", file_state), restored::no_directory);
  EXPECT_EQ(restore_to("link/p", {}), restored::no_directory);
  EXPECT_EQ(restore_to("none/p", file_state), restored::no_directory);
  EXPECT_EQ(restore_to("other/p", file_state), restored::no_directory);
  EXPECT_TRUE(is_behind_link(at("link/p")));
  EXPECT_FALSE(is_behind_link(at("none/p")));
  EXPECT_FALSE(is_behind_link(at("real/p")));
  EXPECT_EQ(present_state(at("link/p")), std::nullopt);

  const restored_paths result = restore_them({{at("link/p"), {}, {}, 0},
                                              {at("link/q"), file_state, kept_file, 1},
                                              {at("none/p"), file_state, kept_file, 2}});
  EXPECT_EQ(result.problems,
            (std::vector<std::string>{"cannot bring back " + at("link/p") + ": a link stands in its way",
                                      "cannot bring back " + at("link/q") + ": a link stands in its way"}));
  EXPECT_EQ(result.homeless, std::vector<std::string>{at("none/p")});
  EXPECT_EQ(differences(before, tree()), "");
}

TEST_F(Restoring, EmptiesADirectoryThatMakesRoomForAFile) {
  exact_tree result = tree();
  write_file(at("p/deep/new"), "of the run");
  const restored_paths done = restore_them(
      {{at("p"), file_state, kept_file, 0}, {at("p/deep"), {}, {}, 1}, {at("p/deep/new"), {}, {}, 2}});
  EXPECT_EQ(done.not_empty, std::vector<std::string>{});
  EXPECT_EQ(done.problems, std::vector<std::string>{});
  result[at("p")] = restored_file;
  EXPECT_EQ(differences(result, tree()), "");
}

TEST_F(Restoring, MakesDirectoriesBeforeWhatLaysInThemAndRemovesTheDeepestFirst) {
  exact_tree result = tree();
  write_file(at("new/deep/file"), "of the run");
  const restored_paths done = restore_them({{at("back"), directory_state, kept_directory, 0},
                                            {at("back/file"), file_state, kept_file, 1},
                                            {at("back/link"), link_state, {}, 2},
                                            {at("new"), {}, {}, 3},
                                            {at("new/deep"), {}, {}, 4},
                                            {at("new/deep/file"), {}, {}, 5}});
  EXPECT_EQ(done.problems, std::vector<std::string>{});
  result[at("back")] = restored_directory;
  result[at("back/file")] = restored_file;
  result[at("back/link")] = restored_link;
  EXPECT_EQ(differences(result, tree()), "");
}

TEST_F(Restoring, BringsADirectoryBackWithWhatLayInItWhereALinkToAnotherOneStands) {
  fs::create_directory(at("elsewhere"));
  exact_tree result = tree();
  fs::create_symlink("elsewhere", at("back"));
  const restored_paths done = restore_them(
      {{at("back"), directory_state, kept_directory, 0}, {at("back/file"), file_state, kept_file, 1}});
  EXPECT_EQ(done.problems, std::vector<std::string>{});
  result[at("back")] = restored_directory;
  result[at("back/file")] = restored_file;
  EXPECT_EQ(differences(result, tree()), "");
}

TEST_F(Restoring, JoinsTheNamesOfOneFileWhicheverOfThemStands) {
  for (const std::string standing : {"a", "b", "c", "none"}) {
    if (standing != "none") {
      ASSERT_EQ(restore_to(standing, file_state), restored::done);
    }
    const restored_paths done = restore_them({{at("a"), file_state, kept_file, 0},
                                              {at("b"), file_state, kept_file, 1},
                                              {at("c"), file_state, kept_file, 2}});
    EXPECT_EQ(done.problems, std::vector<std::string>{});
    const exact_tree result = tree();
    EXPECT_EQ(result.at(at("a")), restored_file) << standing;
    for (const char *name : {"b", "c"})
      EXPECT_EQ(result.at(at(name)),
                "file 6754 12:34 user.note=kept is " + at("a") + " of 1000000003.4 \"kept bytes\"")
          << standing;
    for (const char *name : {"a", "b", "c"})
      fs::remove(at(name));
  }
}

TEST_F(Restoring, MakesANameAFileOfItsOwnWhereTheOtherWentMeanwhile) {
  ASSERT_EQ(restore_to("a", file_state), restored::done);
  ASSERT_EQ(restore_to("c", file_state), restored::done);
  must(removexattr(at("c").c_str(), "user.note"), "removexattr");
  const restored_paths done =
      restore_all({{at("a"), file_state, kept_file, 0},
                   {at("b"), link_state, {}, 1},
                   {at("c"), file_state, kept_file, 2}},
                  false, [this](const wanted_path &, const state &) { fs::remove(at("a")); });
  EXPECT_EQ(done.problems, std::vector<std::string>{});
  EXPECT_FALSE(fs::exists(at("a")));
  EXPECT_EQ(tree()[at("c")], restored_file) << "it was made again";
}

TEST_F(Restoring, RemovesWhatAnInterruptedAttemptLeftAndNothingElse) {
  ASSERT_EQ(restore_to("p", file_state), restored::done);
  const exact_tree result = tree();
  write_file(at(".korvalen-0"), "half");
  restore_them({{at("p"), file_state, kept_file, 0}});
  EXPECT_EQ(differences(result, tree()), "");
  fs::create_directory(at(".korvalen-0"));
  restore_them({{at("p"), file_state, kept_file, 0}});
  EXPECT_EQ(differences(result, tree()), "");
  write_file(at(".korvalen-1"), "another's");
  restore_them({{at("p"), file_state, kept_file, 0}});
  EXPECT_EQ(support::read_file(at(".korvalen-1")), "another's");
  fs::create_directory(at(".korvalen-7"));
  write_file(at("p"), "changed");
  EXPECT_EQ(restore_to("p", file_state), restored::done);
  EXPECT_FALSE(fs::exists(at(".korvalen-7")));
}

TEST_F(Restoring, LeavesWhatTheCallerLeavesAndDoesTheRest) {
  write_file(at("p"), "present");
  write_file(at("q"), "present");
  const restored_paths done = restore_all({{at("p"), {}, {}, 0}, {at("q"), {}, {}, 1}}, false,
                                          [this](const wanted_path &one, const state &present) {
                                            EXPECT_EQ(present.size, 7U);
                                            if (one.path == at("p"))
                                              throw failure("it is somebody's");
                                          });
  EXPECT_EQ(done.problems, std::vector<std::string>{"it is somebody's"});
  EXPECT_TRUE(fs::exists(at("p")));
  EXPECT_FALSE(fs::exists(at("q")));
}

TEST_F(Restoring, WritesNothingInPlace) {
  write_file(at("p"), "present");
  fs::create_hard_link(at("p"), at("second"));
  ASSERT_EQ(restore_to("p", file_state), restored::done);
  EXPECT_EQ(support::read_file(at("second")), "present");
}

TEST_F(Restoring, NamesWhatItHasNoBytesOf) {
  write_file(at("p"), "present");
  const exact_tree before = tree();
  const std::vector<wanted_path> lost = {{at("p"), file_state, std::nullopt, 0}};
  EXPECT_EQ(restore_them(lost).problems, std::vector<std::string>{"nothing is kept of " + at("p")});
  const std::vector<wanted_path> missing = {{at("p"), file_state, 99, 0}};
  EXPECT_EQ(restore_them(missing).problems,
            std::vector<std::string>{"cannot open " + state_dir + "/kept/99: No such file or directory"});
  EXPECT_EQ(differences(before, tree()), "");
}

} // namespace
