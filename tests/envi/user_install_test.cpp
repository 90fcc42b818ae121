#include "korvalen/envi/user_install.h"

#include "support/recording.h"

#include <ostream>

using namespace korvalen;
using support::file_names;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

constexpr const char *menu = "{plot} {Own} {own} {type=0}\n\n";
constexpr const char *menu_with_product = "{plot} {Own} {own} {type=0}\n"
                                          "{plot} {Smooth} {sp_smooth_plot_korvalen} {type=0}\n"
                                          "{plot} {Smooth dB} {sp_smooth_plot_db_korvalen} {type=0}\n"
                                          "\n";

// The ENVI directory lies two levels down, since one of the places for IDL's files is two levels up.
struct UserInstall : support::recording_test {
  UserInstall() { write_file(path("a/b/envi/classic/menu/useradd.txt"), menu); }

  int run(const char *version, bool mode, const char *idl_dir = nullptr) const {
    return korvalen_install_uninstall_user_add(path("a/b/envi").c_str(), path("product").c_str(), idl_dir,
                                               mode, version);
  }

  void add_product(const std::string &version) const {
    write_file(path("product/auxiliary/envi_extensions" + version + "/envi/save/e.sav"), "E");
    write_file(path("product/auxiliary/envi_extensions" + version + "/idl/lib/hook/i.sav"), "I");
  }

  bool has(const std::string &file) const { return support::fs::exists(path(file)); }
};

TEST_F(UserInstall, Of54GoesIntoTheClassicMenuEnviAndIdl86) {
  add_product("54");
  EXPECT_EQ(run("54", install), 1);
  EXPECT_EQ(recorded(), "rm ~/a/b/envi/classic/menu/useradd_old.txt\n"
                        "rm ~/a/b/envi/classic/menu/useradd.txt\n"
                        "rm ~/a/b/envi/save/e.sav\n"
                        "rm ~/a/b/envi/idl86/lib/hook/i.sav\n");
  EXPECT_EQ(read_file(path("a/b/envi/classic/menu/useradd.txt")), menu_with_product);
  EXPECT_EQ(read_file(path("a/b/envi/save/e.sav")), "E");
  EXPECT_EQ(read_file(path("a/b/envi/idl86/lib/hook/i.sav")), "I");
}

TEST_F(UserInstall, TellsTheInstallLogWhatItUses) {
  EXPECT_EQ(run("54", uninstall), 1);
  EXPECT_EQ(logged(), "theInExt  = 54\n"
                      "korvalen_install_uninstall_user_add  = ~/a/b/envi/classic\n"
                      "add_korvalen_install_files : ~/a/b/envi/classic/menu/useradd_old.txt\n"
                      "add_korvalen_install_files : ~/a/b/envi/classic/menu/useradd.txt\n"
                      "copy_files_in_envi_dir_envi  = ~/product/auxiliary/envi_extensions54/envi\n"
                      "theEnviDir  = ~/a/b/envi\n");
}

TEST_F(UserInstall, Of54WithADotHandlesOnlyTheMenuOfTheEnviDirectoryItself) {
  add_product("5.4");
  write_file(path("a/b/envi/menu/useradd.txt"), menu);
  EXPECT_EQ(run("5.4", install), 1);
  EXPECT_EQ(logged(), "theInExt  = 5.4\n"
                      "korvalen_install_uninstall_user_add  = ~/a/b/envi\n"
                      "add_korvalen_install_files : ~/a/b/envi/menu/useradd_old.txt\n"
                      "add_korvalen_install_files : ~/a/b/envi/menu/useradd.txt\n");
  EXPECT_EQ(file_names(snapshot(path("a"))), "b/envi/classic/menu/useradd.txt\n"
                                             "b/envi/menu/useradd.txt\n"
                                             "b/envi/menu/useradd_new.txt\n"
                                             "b/envi/menu/useradd_old.txt\n");
  EXPECT_EQ(read_file(path("a/b/envi/menu/useradd.txt")), menu_with_product);
  EXPECT_EQ(read_file(path("a/b/envi/classic/menu/useradd.txt")), menu);
}

TEST_F(UserInstall, WithoutAMenuFileDeploysAllTheSame) {
  add_product("54");
  support::fs::remove_all(path("a/b/envi/classic"));
  EXPECT_EQ(run("54", install), 1);
  EXPECT_TRUE(has("a/b/envi/save/e.sav"));
  EXPECT_TRUE(has("a/b/envi/idl86/lib/hook/i.sav"));
}

TEST_F(UserInstall, PutsIdlFilesIntoTheGivenDirectoryWhateverTheVersion) {
  for (const char *version : {"54", "60", "60_53"}) {
    add_product(version);
    const std::string idl_dir = path(std::string("idl_of_") + version);
    EXPECT_EQ(run(version, install, idl_dir.c_str()), 1);
    EXPECT_EQ(read_file(idl_dir + "/lib/hook/i.sav"), "I");
  }
  EXPECT_FALSE(has("a/b/envi/idl86"));
  EXPECT_FALSE(has("a/lib"));
}

TEST_F(UserInstall, UndoesMenuEnviAndIdlFilesWhenUninstalling) {
  add_product("54");
  write_file(path("a/b/envi/classic/menu/useradd.txt"), menu_with_product);
  write_file(path("a/b/envi/extensions/korvalen_menu.sav"), "");
  write_file(path("a/b/envi/idl86/lib/hook/korvalen_run_tds_list.sav"), "");
  EXPECT_EQ(run("54", uninstall), 1);
  EXPECT_EQ(read_file(path("a/b/envi/classic/menu/useradd.txt")), menu);
  EXPECT_EQ(file_names(snapshot(path("a"))), "b/envi/classic/menu/useradd.txt\n"
                                             "b/envi/classic/menu/useradd_new.txt\n"
                                             "b/envi/classic/menu/useradd_old.txt\n");
}

// Which version a text counts as shows in where IDL's files go.
struct version_text {
  const char *text;
  const char *idl_dir; // below the scratch directory; null when nothing is deployed
};

void PrintTo(const version_text &v, std::ostream *out) {
  *out << '"' << v.text << '"';
}

struct UserInstallOfVersion : UserInstall, testing::WithParamInterface<version_text> {};

TEST_P(UserInstallOfVersion, PutsFilesWhereTheVersionWantsThem) {
  add_product(GetParam().text);
  EXPECT_EQ(run(GetParam().text, install), 1);
  EXPECT_EQ(has("a/b/envi/save/e.sav"), GetParam().idl_dir != nullptr);
  EXPECT_EQ(has("a/b/envi/classic/menu/useradd_new.txt"), GetParam().idl_dir != nullptr);
  for (const std::string directory : {"a/b/envi/idl86", "a"}) {
    const bool is_wanted = GetParam().idl_dir != nullptr && directory == GetParam().idl_dir;
    EXPECT_EQ(has(directory + "/lib/hook/i.sav"), is_wanted) << directory;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, UserInstallOfVersion,
    testing::Values(version_text{"60", "a"}, version_text{"53", "a"}, version_text{"54", "a/b/envi/idl86"},
                    version_text{"_54_x", "a/b/envi/idl86"}, version_text{"60_53", "a"},
                    version_text{"5360", "a"}, version_text{"54_60", "a"},
                    version_text{"5354", "a/b/envi/idl86"}, version_text{"54_53", "a/b/envi/idl86"},
                    version_text{"5.4", nullptr}, version_text{"52", nullptr}, version_text{"", nullptr}));

} // namespace
