#include "korvalen/patch/user_menu.h"

#include "support/child.h"
#include "support/recording.h"
#include "support/surroundings.h"

#include <ostream>
#include <stdexcept>
#include <unistd.h>

using namespace korvalen;
using support::call_as_other_user;
using support::Ended;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

#define PRODUCT_LINES                                                                                        \
  "{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}\n"                                                     \
  "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}\n"

struct UserMenu : support::recording_test {
  bool run(bool mode, const char *directory = "envi") const {
    return envi_user_menu_install_uninstall(path(directory).c_str(), mode);
  }

  std::string file(const std::string &name) const { return path("envi/menu/" + name); }
  std::string menu() const { return read_file(file("useradd.txt")); }

  void give_directory_away() const {
    if (chown(path("envi/menu").c_str(), 65534, 65534) != 0)
      throw std::runtime_error("test set-up: cannot give a directory away");
  }
};

TEST_F(UserMenu, GetsTheProductsLinesAtTheEndOfItsFirstBlock) {
  write_file(file("useradd.txt"), "first\nsecond\n\nafter\n\nlast\n", 0640);
  EXPECT_TRUE(run(install));
  const std::string expected = "first\nsecond\n" PRODUCT_LINES "\nafter\n\nlast\n";
  EXPECT_EQ(snapshot(path("envi/menu")),
            (support::tree{{"useradd.txt", {"file", 0755, expected}},
                           {"useradd_new.txt", {"file", 0644, expected}},
                           {"useradd_old.txt", {"file", 0644, "first\nsecond\n\nafter\n\nlast\n"}}}));
  EXPECT_EQ(recorded(), "rm ~/envi/menu/useradd_old.txt\nrm ~/envi/menu/useradd.txt\n");
}

TEST_F(UserMenu, IsFoundBelowADirectoryThatEndsInASlash) {
  write_file(file("useradd.txt"), "first\n");
  EXPECT_TRUE(run(install, "envi/"));
  EXPECT_EQ(menu(), "first\n" PRODUCT_LINES "\n");
  EXPECT_EQ(recorded(), "rm ~/envi/menu/useradd_old.txt\nrm ~/envi/menu/useradd.txt\n");
}

TEST_F(UserMenu, HoldsTheLinesOnceAfterTwoInstallations) {
  write_file(file("useradd.txt"), "first\n\nafter\n");
  EXPECT_TRUE(run(install));
  EXPECT_TRUE(run(install));
  EXPECT_EQ(menu(), "first\n" PRODUCT_LINES "\nafter\n");
}

TEST_F(UserMenu, LeavesNoFileOpen) {
  EXPECT_EQ(support::files_left_open([this] { EXPECT_FALSE(run(install)); }), 0) << "no menu";
  write_file(file("useradd.txt"), "");
  EXPECT_EQ(support::files_left_open([this] { EXPECT_FALSE(run(install)); }), 0) << "an empty menu";
  write_file(file("useradd.txt"), "first\n\nafter\n");
  std::filesystem::remove(file("useradd_old.txt"));
  EXPECT_EQ(support::files_left_open([this] { EXPECT_TRUE(run(install)); }), 0) << "with a new backup";
  EXPECT_EQ(support::files_left_open([this] { EXPECT_TRUE(run(install)); }), 0) << "again";
  EXPECT_EQ(support::files_left_open([this] { EXPECT_TRUE(run(uninstall)); }), 0) << "uninstalling";
}

TEST_F(UserMenu, KeepsTheBackupOfTheFirstRunForEver) {
  write_file(file("useradd.txt"), "first\n\n");
  EXPECT_TRUE(run(install));
  write_file(file("useradd.txt"), "changed since\n\n");
  EXPECT_TRUE(run(install));
  EXPECT_TRUE(run(uninstall));
  EXPECT_EQ(read_file(file("useradd_old.txt")), "first\n\n");
  EXPECT_EQ(recorded(), "rm ~/envi/menu/useradd_old.txt\n"
                        "rm ~/envi/menu/useradd.txt\n"
                        "rm ~/envi/menu/useradd.txt\n"
                        "rm ~/envi/menu/useradd.txt\n");
}

TEST_F(UserMenu, WhoseBackupIsALinkToItIsGivenARealOne) {
  write_file(file("useradd.txt"), "first\n");
  support::fs::create_symlink("useradd.txt", file("useradd_old.txt"));
  EXPECT_TRUE(run(install));
  EXPECT_EQ(snapshot(path("envi/menu")),
            (support::tree{{"useradd.txt", {"file", 0755, "first\n" PRODUCT_LINES "\n"}},
                           {"useradd_new.txt", {"file", 0644, "first\n" PRODUCT_LINES "\n"}},
                           {"useradd_old.txt", {"file", 0644, "first\n"}}}));
}

TEST_F(UserMenu, ThatIsItsOwnBackupStaysAsItWas) {
  write_file(file("useradd.txt"), "first\n", 0600);
  support::fs::create_hard_link(file("useradd.txt"), file("useradd_old.txt"));
  EXPECT_FALSE(run(install));
  EXPECT_EQ(snapshot(path("envi/menu")), (support::tree{{"useradd.txt", {"file", 0600, "first\n"}},
                                                        {"useradd_old.txt", {"file", 0600, "first\n"}}}));
  EXPECT_EQ(recorded(), "");
}

TEST_F(UserMenu, IsAsItWasAfterInstallingAndUninstalling) {
  write_file(file("useradd.txt"), "first\nsecond\n\nafter\n");
  EXPECT_TRUE(run(install));
  EXPECT_TRUE(run(uninstall));
  EXPECT_EQ(menu(), "first\nsecond\n\nafter\n");
}

TEST_F(UserMenu, ThatIsMissingIsNotMade) {
  EXPECT_FALSE(run(install));
  EXPECT_FALSE(run(uninstall));
  support::fs::create_directories(path("envi/menu"));
  EXPECT_FALSE(run(install));
  EXPECT_EQ(snapshot(path("envi")), (support::tree{{"menu", {"directory", 0755, ""}}}));
  EXPECT_EQ(recorded(), "");
}

TEST_F(UserMenu, WithoutAnyLineStaysAsItIsBesideAnEmptyNewFile) {
  write_file(file("useradd.txt"), "", 0600);
  write_file(file("useradd_new.txt"), "of an earlier run\n");
  EXPECT_FALSE(run(install));
  EXPECT_EQ(snapshot(path("envi/menu")), (support::tree{{"useradd.txt", {"file", 0600, ""}},
                                                        {"useradd_new.txt", {"file", 0644, ""}},
                                                        {"useradd_old.txt", {"file", 0644, ""}}}));
  EXPECT_EQ(recorded(), "rm ~/envi/menu/useradd_old.txt\n");
}

TEST_F(UserMenu, WhoseNewTextCannotBeWrittenBecomesWhatTheNewFileHolds) {
  write_file(file("useradd.txt"), "first\n");
  write_file(file("useradd_old.txt"), "old\n");
  write_file(file("useradd_new.txt"), "of an earlier run\n");
  ASSERT_EQ(chown(file("useradd.txt").c_str(), 65534, 65534), 0);
  EXPECT_THAT(call_as_other_user([this] { return run(install) ? 1 : 0; }), Ended(1, "", ""));
  EXPECT_EQ(menu(), "of an earlier run\n");
}

TEST_F(UserMenu, WhoseNewTextCannotBeReadBackStaysAsItWas) {
  write_file(file("useradd.txt"), "first\n");
  write_file(file("useradd_old.txt"), "old\n");
  EXPECT_THAT(call_as_other_user([this] { return run(install) ? 1 : 0; }), Ended(1, "", ""));
  EXPECT_EQ(menu(), "first\n");
}

TEST_F(UserMenu, ThatCannotBeOverwrittenEndsTheProcess) {
  write_file(file("useradd.txt"), "first\n");
  give_directory_away();
  EXPECT_THAT(call_as_other_user([this] { return run(install) ? 1 : 0; }),
              Ended(255, "",
                    "ERROR while copying " + file("useradd_new.txt") + "\n to " + file("useradd.txt") +
                        "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(menu(), "first\n");
  EXPECT_EQ(read_file(file("useradd_old.txt")), "first\n");
}

TEST_F(UserMenu, WhoseBackupCannotBeCreatedEndsTheProcess) {
  write_file(file("useradd.txt"), "first\n");
  EXPECT_THAT(call_as_other_user([this] { return run(install) ? 1 : 0; }),
              Ended(255, "",
                    "ERROR while copying " + file("useradd.txt") + "\n to " + file("useradd_old.txt") +
                        "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(snapshot(path("envi/menu")), (support::tree{{"useradd.txt", {"file", 0644, "first\n"}}}));
}

TEST_F(UserMenu, ThatCannotBeReadForItsBackupStaysAsItWas) {
  write_file(file("useradd.txt"), "first\n", 0600);
  give_directory_away();
  EXPECT_THAT(call_as_other_user([this] { return run(install) ? 1 : 0; }), Ended(0, "", ""));
  EXPECT_EQ(snapshot(path("envi/menu")), (support::tree{{"useradd.txt", {"file", 0600, "first\n"}}}));
}

struct menu_case {
  const char *name;
  const char *before;
  const char *installed;
  const char *uninstalled;
};

void PrintTo(const menu_case &m, std::ostream *out) {
  *out << m.name;
}

struct UserMenuText : UserMenu, testing::WithParamInterface<menu_case> {};

TEST_P(UserMenuText, IsWrittenWithTheLines) {
  write_file(file("useradd.txt"), GetParam().before);
  EXPECT_TRUE(run(install));
  EXPECT_EQ(menu(), GetParam().installed);
}

TEST_P(UserMenuText, IsWrittenWithoutTheLines) {
  write_file(file("useradd.txt"), GetParam().before);
  EXPECT_TRUE(run(uninstall));
  EXPECT_EQ(menu(), GetParam().uninstalled);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, UserMenuText,
    testing::Values(
        menu_case{"OneBlock", "first\nsecond\n", "first\nsecond\n" PRODUCT_LINES "\n", "first\nsecond\n\n"},
        menu_case{"NoNewlineAtTheEnd", "first", "first\n" PRODUCT_LINES "\n", "first\n\n"},
        menu_case{"EmptyFirstLine", "\nfirst\n", PRODUCT_LINES "\nfirst\n", "\nfirst\n"},
        menu_case{"OnlyAnEmptyLine", "\n", PRODUCT_LINES "\n", "\n"},
        menu_case{"ShortLineOfThree", "four\nabc\nrest\n", "four\n" PRODUCT_LINES "\nrest\n",
                  "four\n\nrest\n"},
        menu_case{"ShortLineOfOne", "four\nx\nab\nrest\n", "four\n" PRODUCT_LINES "\nab\nrest\n",
                  "four\n\nab\nrest\n"},
        menu_case{"LinesAlreadyThere", "first\n" PRODUCT_LINES "\nrest\n", "first\n" PRODUCT_LINES "\nrest\n",
                  "first\n\nrest\n"},
        menu_case{"LinesFirst", PRODUCT_LINES "\nrest\n", PRODUCT_LINES "\nrest\n", "\nrest\n"},
        menu_case{"TwoLinesGoUnseenWithTheFirst",
                  "{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}\nforeign one\nforeign two\nrest\n",
                  PRODUCT_LINES "\nrest\n", "\nrest\n"},
        menu_case{"LinesCutShortAtTheEnd", "first\n{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}\n",
                  "first\n" PRODUCT_LINES "\n", "first\n\n"},
        menu_case{"FirstLineInsideALongerOne",
                  "; {plot} {Smooth} {sp_smooth_plot_korvalen} {type=0} ;\n2\n3\nrest\n",
                  PRODUCT_LINES "\nrest\n", "\nrest\n"},
        menu_case{"OnlyTheSecondLineDoesNotCount",
                  "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}\n\n",
                  "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}\n" PRODUCT_LINES "\n",
                  "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}\n\n"},
        menu_case{"LinesBehindTheFirstBlockAreNotSeen", "first\n\n" PRODUCT_LINES "\n",
                  "first\n" PRODUCT_LINES "\n" PRODUCT_LINES "\n", "first\n\n" PRODUCT_LINES "\n"},
        menu_case{"CarriageReturns", "first\r\n\r\nrest\r\n", "first\n\n" PRODUCT_LINES "\nrest\n\n",
                  "first\n\n\nrest\n\n"}),
    [](const auto &instance) { return instance.param.name; });

} // namespace
