// Where a path cannot be brought back, one line says why, and what stands there stays.
#include "admin/admin_run.h"
#include "admin/failure_under.h"
#include "admin/restoring.h"

#include <sys/syscall.h>
#include <sys/xattr.h>

using namespace admin_runs;
using namespace korvalen::admin;
using admin_tests::opened_only;
using admin_tests::told_under;
using admin_tests::told_without;
using support::write_file;

namespace {

constexpr std::uint64_t kept_file = 1;
const state file_state = {file_type::file, 0640, 12, 34, 10};
const state directory_state = {file_type::directory, 0750, 12, 34};
const state link_state = {file_type::link, 0777, 12, 34, 0, {}, "no/where"};
const state special_state = {file_type::special, 0600, 0, 0};

class RefusedRestoring : public admin_run {
protected:
  RefusedRestoring() {
    fs::create_directories(state_dir + "/kept");
    write_file(state_dir + "/kept/1", "kept bytes", 0600);
  }
  std::string at(const std::string &name) const { return path("host/" + name); }
  std::function<void()> restoring(const state &wanted, const std::string &name = "p",
                                  bool may_remove_first = false) const {
    return [this, wanted, name, may_remove_first] {
      const std::optional<std::uint64_t> kept =
          wanted.type == file_type::file ? std::optional(kept_file) : std::nullopt;
      const std::string path = at(name);
      restore({path, wanted, kept, 7}, may_remove_first);
      std::cout << "done";
    };
  }
  exact_tree tree() const { return exact({host()}); }
  std::string short_of(const std::string &text) const { return replaced(text, host(), "~"); }
};

using maker = void (*)(const std::string &path);
void nothing(const std::string & /*path*/) {}
void a_file(const std::string &path) {
  write_file(path, "present");
}
void a_directory(const std::string &path) {
  fs::create_directory(path);
}
void a_full_directory(const std::string &path) {
  write_file(path + "/inside", "somebody's");
}

struct refused_step {
  const char *name;
  long number;
  int error;
  maker present;
  state wanted;
  const char *text;
};

const refused_step refused_steps[] = {
    {"ToLookItUp", SYS_newfstatat, EIO, a_file, file_state, "cannot look up ~/p: Input/output error"},
    {"ToRemoveIt", SYS_unlinkat, EACCES, a_file, {}, "cannot remove ~/p: Permission denied"},
    {"AnOwner", SYS_fchown, EPERM, a_file, file_state,
     "cannot set the owner of ~/p: Operation not permitted"},
    {"AMode", SYS_fchmod, EPERM, a_file, file_state, "cannot set the mode of ~/p: Operation not permitted"},
    {"ToMakeAFile", SYS_openat, EDQUOT, a_file, file_state, "cannot make ~/p: Disk quota exceeded"},
    {"ToFlushAFile", SYS_fsync, EIO, a_file, file_state, "cannot flush ~/p: Input/output error"},
    {"ToMakeADirectory", SYS_mkdirat, EDQUOT, a_file, directory_state,
     "cannot make the directory ~/p: Disk quota exceeded"},
    {"ToOpenADirectoryThatItMade", SYS_openat, EACCES, nothing, directory_state,
     "cannot open the directory ~/p: Permission denied"},
    {"ToOpenADirectoryThatStands", SYS_openat, EACCES, a_full_directory, directory_state,
     "cannot open the directory ~/p: Permission denied"},
    {"ToMakeALink", SYS_symlinkat, EACCES, a_file, link_state, "cannot make the link ~/p: Permission denied"},
    {"TheOwnerOfALink", SYS_fchownat, EPERM, a_file, link_state,
     "cannot make the link ~/p: Operation not permitted"},
    {"ToRename", SYS_renameat, EACCES, a_file, file_state, "cannot rename to ~/p: Permission denied"},
    {"ToExchange", SYS_renameat2, EINVAL, a_directory, file_state, "cannot rename to ~/p: Invalid argument"},
    {"TheTypeOfASpecialFile", SYS_mknodat, EPERM, a_file, special_state,
     "~/p was neither a file, a directory nor a link, and cannot be made again"},
    {"TheWayToIt", SYS_openat2, EACCES, a_file, file_state,
     "cannot open the directory of ~/p: Permission denied"},
};

void PrintTo(const refused_step &one, std::ostream *out) {
  *out << one.name;
}

class RefusedStep : public RefusedRestoring, public testing::WithParamInterface<refused_step> {};

TEST_P(RefusedStep, NamesThePathAndTheReasonAndLeavesWhatStands) {
  const refused_step &row = GetParam();
  row.present(at("p"));
  const exact_tree before = tree();
  const std::uint32_t limit =
      row.number == SYS_openat2 || row.number == SYS_symlinkat ? UINT32_MAX : opened_only;
  EXPECT_EQ(short_of(told_without(row.number, row.error, restoring(row.wanted), limit)), row.text);
  fs::remove_all(at(".korvalen-7")); // which the next attempt would do
  EXPECT_EQ(differences(before, tree()), "");
}

INSTANTIATE_TEST_SUITE_P(Of, RefusedStep, testing::ValuesIn(refused_steps),
                         [](const testing::TestParamInfo<refused_step> &one) { return one.param.name; });

TEST_F(RefusedRestoring, OfTheWayBackOfADirectoryThatHoldsSomethingNamesThePath) {
  a_full_directory(at("p"));
  const auto second = [](int count) { return count == 2; };
  EXPECT_EQ(short_of(told_under(
                [&] {
                  support::disturb({SYS_renameat2, EIO, second});
                },
                restoring(file_state))),
            "cannot rename to ~/p: Input/output error");
  EXPECT_EQ(support::read_file(at(".korvalen-7/inside")), "somebody's") << "nothing is lost";
  EXPECT_EQ(support::read_file(at("p")), "kept bytes");
}

TEST_F(RefusedRestoring, RemovesWhatStandsWhereThereIsNoRoomForBothAndItMay) {
  for (const int full : {ENOSPC, EDQUOT}) {
    const auto no_room = [&] { support::disturb({SYS_fsync, full, [](int count) { return count == 1; }}); };
    a_file(at("p"));
    EXPECT_NE(told_under(no_room, restoring(file_state)), "done") << "it may not";
    EXPECT_EQ(support::read_file(at("p")), "present");
    EXPECT_EQ(told_under(no_room, restoring(file_state, "p", true)), "done");
    EXPECT_EQ(support::read_file(at("p")), "kept bytes");
    fs::remove(at("p"));
  }
  a_full_directory(at("p"));
  const exact_tree before = tree();
  EXPECT_EQ(short_of(told_without(SYS_fsync, ENOSPC, restoring(file_state, "p", true))),
            "cannot flush ~/p: No space left on device");
  EXPECT_EQ(differences(before, tree()), "");
}

TEST_F(RefusedRestoring, KeepsWhatStandsWhateverTheReasonIsButAFullDisk) {
  a_file(at("p"));
  EXPECT_EQ(short_of(told_without(SYS_fsync, EIO, restoring(file_state, "p", true))),
            "cannot flush ~/p: Input/output error");
  EXPECT_EQ(support::read_file(at("p")), "present");
}

TEST_F(RefusedRestoring, TellsWhetherItCannotBeReachedOrCannotBeLookedUp) {
  a_file(at("p"));
  const auto look = [&] { std::cout << (present_state(at("p")) ? "there" : "none"); };
  EXPECT_EQ(short_of(told_without(SYS_openat2, EACCES, look)), "cannot look up ~/p: Permission denied");
  EXPECT_EQ(told_without(SYS_openat2, ENOTDIR, look), "none");
  EXPECT_EQ(told_without(SYS_openat2, ELOOP, look), "none");
  EXPECT_FALSE(is_behind_link(at("p")));
}

TEST_F(RefusedRestoring, MakesAFileOfItsOwnWhereThereCanBeNoSecondName) {
  write_file(at("first"), "kept bytes");
  for (const int reason : {EXDEV, EMLINK, EPERM}) {
    const auto join = [this] {
      const std::string path = at("second");
      restore({path, file_state, kept_file, 7, at("first")}, false);
    };
    EXPECT_EQ(told_without(SYS_linkat, reason, join), "");
    EXPECT_EQ(support::read_file(at("second")), "kept bytes");
    EXPECT_EQ(fs::hard_link_count(at("second")), 1U);
    fs::remove(at("second"));
  }
  const auto join_to = [this](const std::string &twin) {
    const std::string path = at("second");
    restore({path, file_state, kept_file, 7, at(twin)}, false);
  };
  join_to("none/first");
  EXPECT_EQ(fs::hard_link_count(at("second")), 1U);
  EXPECT_EQ(short_of(told_without(SYS_linkat, EIO, [&] { join_to("first"); })),
            "cannot make the second name ~/second: Input/output error");
}

TEST_F(RefusedRestoring, NamesEveryPathThatFailsAndDoesTheRest) {
  a_file(at("p"));
  const auto restore_both = [this] {
    const restored_paths done = restore_all({{at("made"), directory_state, {}, 0}, {at("p"), {}, {}, 1}},
                                            false, [](const wanted_path &, const state &) {});
    for (const std::string &problem : done.problems)
      std::cout << problem << '\n';
  };
  EXPECT_EQ(short_of(told_without(SYS_mkdirat, EROFS, restore_both)),
            "cannot make the directory ~/made: Read-only file system\n");
  EXPECT_FALSE(fs::exists(at("p")));
  EXPECT_EQ(short_of(told_without(SYS_openat2, EACCES, restore_both)).substr(0, 41),
            "cannot look up ~/made: Permission denied\n");
}

TEST_F(RefusedRestoring, LetsAnythingButAFailureThrough) {
  a_file(at("p"));
  EXPECT_THROW(
      restore_all({{at("p"), {}, {}, 0}}, false, [](const wanted_path &, const state &) { throw 7; }), int);
}

TEST_F(RefusedRestoring, TellsADirectoryThatMustGiveWayAndHoldsSomething) {
  a_full_directory(at("p"));
  const exact_tree before = tree();
  const restored_paths done =
      restore_all({{at("p"), file_state, kept_file, 0}}, false, [](const wanted_path &, const state &) {});
  EXPECT_EQ(done.not_empty, std::vector<std::string>{at("p")});
  EXPECT_EQ(differences(before, tree()), "");
}

TEST_F(RefusedRestoring, GivesAFileThatStandsItsAttributesAndTimeBackAndADirectoryIsLeft) {
  state standing = file_state;
  standing.owner = standing.group = 0;
  standing.mode = 0600;
  standing.hash = hash_of(open_tree_at(""), state_dir + "/kept/1");
  write_file(at("p"), "kept bytes", 0600);
  fs::create_directory(at("d"));
  must(chmod(at("d").c_str(), 0755), "chmod");
  must(setxattr((state_dir + "/kept/1").c_str(), "user.note", "kept", 4, 0), "setxattr");
  const timespec long_ago[] = {{1, 2}, {3, 4}};
  must(utimensat(AT_FDCWD, (state_dir + "/kept/1").c_str(), long_ago, 0), "utimensat");
  const std::vector<wanted_path> both = {{at("d"), {file_type::directory, 0755, 0, 0}, kept_file, 0},
                                         {at("p"), standing, kept_file, 1}};
  const auto restore_both = [&] {
    for (const std::string &problem :
         restore_all(both, true, [](const wanted_path &, const state &) {}).problems)
      std::cout << problem;
  };
  EXPECT_EQ(short_of(told_without(SYS_openat, EACCES, restore_both, opened_only)),
            "cannot open ~/p: Permission deniedcannot open the directory ~/d: Permission denied");
  EXPECT_EQ(told_under([] {}, restore_both), "");
  EXPECT_EQ(exact({at("p")})[at("p")], "file 0600 0:0 user.note=kept of 3.4 \"kept bytes\"");
  must(setxattr(at("p").c_str(), "user.note", "since", 5, 0), "setxattr");
  EXPECT_EQ(told_under([] {}, restore_both), "");
  EXPECT_EQ(exact({at("p")})[at("p")], "file 0600 0:0 user.note=since of 3.4 \"kept bytes\"")
      << "whoever has its time was not written";
}

// The link comes after the look at what stands there.
TEST_F(RefusedRestoring, GivesNothingToWhatALinkLeadsToThatSomebodyPutInTheWayMeanwhile) {
  fs::create_directory(path("theirs"));
  write_file(path("theirs/file"), "kept bytes", 0600);
  const exact_tree theirs = exact({path("theirs")});
  const auto put_link = [this](const char *target) {
    fs::remove(at("p"));
    fs::create_symlink(path(target), at("p"));
  };
  const auto told_after = [&](int call, const char *target, const std::function<void()> &code) {
    const auto then = [call](int count) { return count == call; };
    return short_of(told_under(
        [&] {
          support::disturb({SYS_openat, 0, then, [&] { put_link(target); }});
        },
        code));
  };
  a_directory(at("p"));
  EXPECT_EQ(told_after(1, "theirs", restoring(directory_state)),
            "cannot open the directory ~/p: Not a directory");
  fs::remove(at("p"));
  write_file(at("p"), "kept bytes", 0600);
  state standing = {file_type::file, 0600, 0, 0, 10};
  standing.hash = hash_of(open_tree_at(""), at("p"));
  const auto restore_it = [&] {
    for (const std::string &problem :
         restore_all({{at("p"), standing, kept_file, 0}}, true, [](const wanted_path &, const state &) {
         }).problems)
      std::cout << problem;
  };
  EXPECT_EQ(told_after(2, "theirs/file", restore_it), "cannot open ~/p: Too many levels of symbolic links");
  EXPECT_EQ(differences(theirs, exact({path("theirs")})), "");
}

TEST_F(RefusedRestoring, HasNothingToDoWhereWhatShouldBeAbsentHasNoDirectory) {
  const exact_tree before = tree();
  const restored_paths done =
      restore_all({{at("none/p"), {}, {}, 0}}, false, [](const wanted_path &, const state &) {});
  EXPECT_TRUE(done.problems.empty() && done.homeless.empty() && done.not_empty.empty());
  EXPECT_EQ(differences(before, tree()), "");
}

} // namespace
