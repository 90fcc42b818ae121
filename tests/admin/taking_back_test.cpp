// What becomes of each path of a run that is taken back, whatever stands there meanwhile.
#include "admin/taking_back.h"

#include "admin/admin_run.h"
#include "admin/failure_under.h"

#include <sys/syscall.h>

using namespace admin_runs;
using namespace korvalen::admin;
using admin_tests::told_under;
using support::read_file;
using support::write_file;

namespace {

const std::string found_bytes = "found bytes\n";
const std::string after_bytes = "the bytes after\n";

class TakingBack : public admin_run {
protected:
  TakingBack() : kept_(std::make_unique<store>(access::change)) {
    write_file(state_dir + "/kept/1", found_bytes, 0644);
    write_file(state_dir + "/kept/2", after_bytes, 0644);
  }
  std::string at(const std::string &name) const { return path("host/" + name); }
  std::string kept_at(const char *number) const { return state_dir + "/kept/" + number; }

  // A file with the bytes found, and with those after.
  static state file_like(const std::string &path) {
    state one = hashed_state_of(open_tree_at(""), path);
    one.mode = 0644;
    return one;
  }
  state found() const { return file_like(kept_at("1")); }
  state after() const { return file_like(kept_at("2")); }
  static state link_to(const char *target) { return {file_type::link, 0777, 0, 0, 0, {}, target}; }

  // What is told of it, or the failure.
  std::string take_back_one(const journaled_path &one) const {
    return told_under([] {},
                      [&] {
                        for (const std::string &sentence : take_back(*kept_, {3, {one}}).aside)
                          std::cout << sentence << '\n';
                      });
  }
  // Of a file that was changed.
  journaled_path changed(const std::string &name) const { return {at(name), found(), after(), 1, 2, ""}; }
  void keep_again() const {
    write_file(state_dir + "/kept/1", found_bytes, 0644);
    write_file(state_dir + "/kept/2", after_bytes, 0644);
  }
  const store &kept() const { return *kept_; }

private:
  std::unique_ptr<store> kept_;
};

TEST_F(TakingBack, PutsNothingAsideThatTheRunItselfMade) {
  for (const std::string &bytes :
       {std::string(), found_bytes, after_bytes, found_bytes.substr(0, 4), after_bytes.substr(0, 7)}) {
    write_file(at("p"), bytes, 0600);
    EXPECT_EQ(take_back_one(changed("p")), "") << bytes;
    EXPECT_EQ(read_file(at("p")), found_bytes) << bytes;
    EXPECT_TRUE(fs::is_empty(state_dir + "/aside")) << bytes;
    keep_again();
  }
}

TEST_F(TakingBack, PutsAsideWhatIsNeitherFoundNorAfterNorABeginningOfThem) {
  for (const std::string &bytes :
       {std::string("somebody's"), found_bytes + "and more", std::string("the bytes behind")}) {
    write_file(at("p"), bytes);
    EXPECT_EQ(take_back_one(changed("p")),
              "What stood at " + at("p") + " is now " + state_dir + "/aside/3.p\n");
    EXPECT_EQ(read_file(at("p")), found_bytes);
    EXPECT_EQ(read_file(state_dir + "/aside/3.p"), bytes);
    fs::remove(state_dir + "/aside/3.p");
    keep_again();
  }
}

TEST_F(TakingBack, PutsAsideALinkThatTheRunDidNotMake) {
  fs::create_symlink("elsewhere", at("p"));
  EXPECT_EQ(take_back_one(changed("p")),
            "What stood at " + at("p") + " is now " + state_dir + "/aside/3.p\n");
  EXPECT_EQ(fs::read_symlink(state_dir + "/aside/3.p"), "elsewhere");
  EXPECT_EQ(read_file(at("p")), found_bytes);
}

TEST_F(TakingBack, PutsNoLinkAsideThatWasFoundOrMade) {
  for (const char *target : {"found", "after"}) {
    fs::create_symlink(target, at("link"));
    must(lchown(at("link").c_str(), 7, 7), "lchown");
    EXPECT_EQ(take_back_one({at("link"), link_to("found"), link_to("after"), {}, {}, ""}), "");
    EXPECT_EQ(fs::read_symlink(at("link")), "found");
    fs::remove(at("link"));
  }
}

TEST_F(TakingBack, TakesAMadeDirectoryAndLeavesOneWithSomethingInIt) {
  const journaled_path made{at("d"), {}, {file_type::directory, 0755, 0, 0}, {}, {}, ""};
  fs::create_directory(at("d"));
  EXPECT_EQ(take_back_one(made), "");
  EXPECT_FALSE(fs::exists(at("d")));
  write_file(at("d/inside"), "somebody's");
  EXPECT_EQ(take_back_one(made),
            at("d") + " was made by the interrupted run and stays, as something lies in it\n");
  EXPECT_EQ(read_file(at("d/inside")), "somebody's");
}

TEST_F(TakingBack, FailsWhereADirectoryOrASpecialFileIsInTheWayAndTouchesNothing) {
  const std::string wanted =
      "the interrupted run could not be taken back: " + at("p") +
      " is in the way, neither a file nor a link; mend that and give the command again";
  fs::create_directory(at("p"));
  EXPECT_EQ(take_back_one(changed("p")), wanted);
  EXPECT_TRUE(fs::is_directory(at("p")));
  fs::remove(at("p"));
  must(mkfifo(at("p").c_str(), 0600), "mkfifo");
  EXPECT_EQ(take_back_one(changed("p")), wanted);
  EXPECT_TRUE(fs::is_fifo(at("p")));
  EXPECT_TRUE(fs::exists(kept_at("1"))) << "the next attempt needs it";
}

TEST_F(TakingBack, BringsADirectoryBackInThePlaceOfAnyThatTheRunMade) {
  const journaled_path was_directory{at("p"), {file_type::directory, 0751, 0, 0}, after(), {}, 2, ""};
  fs::create_directory(at("p"));
  must(chmod(at("p").c_str(), 0700), "chmod");
  EXPECT_EQ(take_back_one(was_directory), "");
  EXPECT_EQ(support::mode_of(at("p")), 0751U);
}

TEST_F(TakingBack, SaysWhatCannotComeBackAsItsDirectoryIsGone) {
  EXPECT_EQ(take_back_one(changed("gone/p")),
            at("gone/p") + " could not come back, as its directory is gone\n");
}

// Of a script, its backup and that one's temporary name, each may hold what another one holds.
TEST_F(TakingBack, KnowsTheBytesOfABackupThatTheRunOnlyReads) {
  write_file(at("script_original"), "the original of an earlier run\n", 0644);
  write_file(at("script"), "the original of an", 0644);
  const journaled_path backup{
      at("script_original"), file_like(at("script_original")), file_like(at("script_original")), {}, {}, ""};
  const journaled_path new_backup{at("script_original.new"), {}, {}, {}, {}, ""};
  const journaled_path script = changed("script");
  EXPECT_EQ(
      told_under(
          [] {},
          [&] {
            for (const std::string &sentence : take_back(kept(), {3, {script, backup, new_backup}}).aside)
              std::cout << sentence;
          }),
      "");
  EXPECT_EQ(read_file(at("script")), found_bytes);
}

TEST_F(TakingBack, PutsAsideWhatItCannotCompareAsTheProductIsGone) {
  write_file(at("p"), "the", 0644);
  const journaled_path from_the_product{at("p"), {}, after(), {}, {}, at("product/p")};
  EXPECT_EQ(take_back_one(from_the_product),
            "What stood at " + at("p") + " is now " + state_dir + "/aside/3.p\n");
  EXPECT_FALSE(fs::exists(at("p")));
}

// What is killed between the two could not be taken back any more.
TEST_F(TakingBack, LosesNoKeptBytesAsLongAsTheJournalStands) {
  write_file(at("p"), after_bytes, 0644);
  kept().write(journal{3, {changed("p")}});
  const auto with_the_journal = [](int) { return fs::exists(run_file); };
  EXPECT_EQ(told_under(
                [&] {
                  support::disturb({SYS_unlink, EIO, with_the_journal});
                },
                [&] { recover(kept()); }),
            "");
  EXPECT_EQ(read_file(at("p")), found_bytes);
  EXPECT_TRUE(fs::is_empty(state_dir + "/kept"));
}

TEST_F(TakingBack, PutsAsideWhatCannotBeReadForAComparison) {
  write_file(at("p"), found_bytes.substr(0, 4), 0644);
  const auto unreadable = [] { support::fail_system_call(SYS_pread64, EIO); };
  EXPECT_EQ(told_under(unreadable,
                       [&] {
                         for (const std::string &sentence : take_back(kept(), {3, {changed("p")}}).aside)
                           std::cout << sentence;
                       }),
            "What stood at " + at("p") + " is now " + state_dir + "/aside/3.p");
  EXPECT_EQ(read_file(at("p")), found_bytes);
}

TEST_F(TakingBack, FlushesEachFileSystemOnceThatHoldsOneOfThePaths) {
  fs::create_directory(at("d"));
  const auto told_when_refused = [this](int call) {
    const auto then = [call](int count) { return count == call; };
    return told_under(
        [&] {
          support::disturb({SYS_syncfs, EIO, then});
        },
        [this] {
          flush_file_systems({at("d/p"), at("p"), kept_at("1"), kept_at("2")});
        });
  };
  EXPECT_EQ(told_when_refused(1), "cannot flush the file system of " + path("host") + ": Input/output error");
  EXPECT_EQ(told_when_refused(2),
            "cannot flush the file system of /var/lib/korvalen/kept: Input/output error");
  EXPECT_EQ(told_when_refused(3), "");
}

TEST_F(TakingBack, FinishesARunThatIsOnRecordAndTakesNothingBack) {
  write_file(at("p"), after_bytes, 0644);
  receipt record;
  record.run = 3;
  record.paths = {{at("p"), found(), after(), {}, 1}};
  kept().write(record);
  kept().write(journal{3, {changed("p")}});
  EXPECT_EQ(told_under([] {}, [&] { recover(kept()); }), "");
  EXPECT_EQ(read_file(at("p")), after_bytes);
  EXPECT_FALSE(fs::exists(run_file));
  EXPECT_TRUE(fs::exists(kept_at("1"))) << "an uninstallation needs it";
  EXPECT_FALSE(fs::exists(kept_at("2"))) << "nobody needs it";
}

} // namespace
