#include "korvalen/deploy/envi_files.h"

#include "support/child.h"
#include "support/recording.h"

#include <string>
#include <vector>

using namespace korvalen;
using support::file_names;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

using names = std::vector<std::string>;

const names &custom_code_on_install() {
  static const names list = {
      "quorin_core.sav",
      "quorin_standard_multi_products_panels.sav",
      "quorin_user_interface_core.sav",
      "quorin_standard_core.sav",
      "quorin_modeling.sav",
      "quorin_standard_modeling.sav",
      "quorin_standard_core.sav",
      "quorin_classic_multi_products_panels.sav",
      "enviitgcpscollectordoit.sav",
      "korvalen_extensions.sav",
      "quorin_core_tools_custom_code_extension.sav",
      "korvalen_modeling.sav",
      "korvalen_standard_modeling.sav",
      "ts_analyzer.sav",
      "ts_analyzer_50.sav",
      "korvalen_itools_50.sav",
      "ps_analyzer_50.sav",
      "gcpscollectordoit.sav",
      "ts_analyzer_50.sav",
      "korvalen_itools_50.sav",
      "korvalen_stretch_50.sav",
      "ps_analyzer_50.sav",
      "envi5_vec_pkg.sav",
  };
  return list;
}

const names &custom_code_on_uninstall() {
  static const names list = {
      "korvalen_modeling.sav",
      "korvalen_standard_modeling.sav",
      "quorin_core_tools_custom_code_extension.sav",
      "quorin_standard_multi_products_panels.sav",
      "quorin_user_interface_core.sav",
      "quorin_standard_core.sav",
      "quorin_modeling.sav",
      "quorin_standard_modeling.sav",
      "quorin_standard_core.sav",
      "quorin_classic_multi_products_panels.sav",
      "enviitgcpscollectordoit.sav",
      "korvalen_extensions.sav",
      "quorin_core_tools_custom_code_extension.sav",
      "korvalen_modeling.sav",
      "korvalen_standard_modeling.sav",
      "ts_analyzer.sav",
      "ts_analyzer_50.sav",
      "korvalen_itools_50.sav",
      "ps_analyzer_50.sav",
      "gcpscollectordoit.sav",
      "ts_analyzer_50.sav",
      "korvalen_itools_50.sav",
      "korvalen_stretch_50.sav",
      "ps_analyzer_50.sav",
      "envi5_vec_pkg.sav",
  };
  return list;
}

const names &extensions_on_install() {
  static const names list = {
      "quorin_core.sav",
      "korvalen_menu.sav",
      "korvalen_standard.sav",
      "korvalen_import_standard.sav",
      "korvalen_standard_core.sav",
      "korvalen_modeling_menu.sav",
      "korvalen_standard_modeling.sav",
      "korvalen_modeling.sav",
      "ts_analyzer_50.sav",
      "ps_analyzer_50.sav",
      "ts_analyzer_51.sav",
      "ps_analyzer_51.sav",
      "ts_analyzer_52.sav",
      "ps_analyzer_52.sav",
  };
  return list;
}

const names &extensions_on_uninstall() {
  static const names list = {
      "korvalen_menu.sav",          "korvalen_import_standard.sav", "korvalen_standard.sav",
      "korvalen_standard_core.sav", "korvalen_modeling_menu.sav",   "korvalen_standard_modeling.sav",
      "korvalen_modeling.sav",      "ts_analyzer_50.sav",           "ps_analyzer_50.sav",
      "ts_analyzer_51.sav",         "ps_analyzer_51.sav",           "ts_analyzer_52.sav",
      "ps_analyzer_52.sav",
  };
  return list;
}

const names &core_extensions() {
  static const names list = {
      "quorin_core_tools_custom_code_extension.sav",
      "korvalen_core_extensions.sav",
  };
  return list;
}

const names &classic_save_add() {
  static const names list = {
      "quorin_classic_extension.sav",
      "korvalen_classic_extension.sav",
      "quorin_core.sav",
      "quorin_classic_multi_products_panels.sav",
      "korvalen_modeling.sav",
      "korvalen_envi.sav",
      "korvalen_classic.sav",
      "korvalen_classic_menu.sav",
      "envi_korvalen_itools.sav",
      "envi50_korvalen_stretch.sav",
      "envi_korvalen_stretch.sav",
      "korvalen_for_arcgis.sav",
      "evf_display_ps.sav",
      "envi_phase_analyzer.sav",
      "envi_vector_ps.sav",
      "ts_analyzer.sav",
  };
  return list;
}

std::string deletions(const std::string &directory, const names &list) {
  std::string lines;
  for (const std::string &name : list)
    lines.append("Delete  ~/envi/").append(directory).append("/").append(name).append("\n");
  return lines;
}

std::string empty_copy(const std::string &directory) {
  return "fdfDirFiles  = ~/source/" + directory + "/*.*\naNumber  = 0\n";
}

// The eleven, with the directories above them.
support::tree made_directories() {
  const support::entry directory = {"directory", 0755, ""};
  return {
      {"classic", directory},
      {"classic/filt_func", directory},
      {"classic/save", directory},
      {"classic/save_add", directory},
      {"custom_code", directory},
      {"extensions", directory},
      {"resource", directory},
      {"resource/bitmaps", directory},
      {"resource/filterfuncs", directory},
      {"resource/langcat", directory},
      {"resource/templates", directory},
      {"resource/templates/tasks", directory},
      {"resource/templates/tasks/Korvalen", directory},
      {"save", directory},
  };
}

struct EnviFiles : support::recording_test {
  int deploy(bool mode, const char *envi = "envi") const {
    return copy_files_in_envi_dir_envi(path("source").c_str(), path(envi).c_str(), mode);
  }

  void add_sources(const names &files) const {
    for (const std::string &file : files)
      write_file(path("source/" + file), "content of " + file);
  }

  // A directory that is not empty survives its removal. So a name that stands twice is logged twice.
  void add_survivors(const std::string &directory, const names &list) const {
    for (const std::string &name : list)
      create_directories(path("envi/" + directory + "/" + name + "/inside"));
  }
  void add_survivors() const {
    for (const names &list : {custom_code_on_install(), custom_code_on_uninstall()})
      add_survivors("custom_code", list);
    for (const names &list : {extensions_on_install(), extensions_on_uninstall(), core_extensions()})
      add_survivors("extensions", list);
    add_survivors("classic/save_add", classic_save_add());
    // A list that is applied to another directory shows there.
    for (const names &list : {core_extensions(), custom_code_on_install()})
      add_survivors("save", list);
  }
};

TEST_F(EnviFiles, InstalledFromAnEmptySourceMakeElevenDirectoriesAndNothingElse) {
  create_directories(path("source"));
  create_directories(path("envi"));
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("envi")), made_directories());
  EXPECT_EQ(recorded(), "");
}

TEST_F(EnviFiles, InstalledFromAMissingSourceMakeTheSameDirectories) {
  EXPECT_EQ(deploy(install), 1);
  const support::tree without_source = snapshot(path("envi"));
  support::fs::remove_all(path("envi"));
  create_directories(path("source"));
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("envi")), without_source);
  EXPECT_EQ(recorded(), "");
}

TEST_F(EnviFiles, WithoutADirectoryThatCannotBeMadeGetTheOthersAllTheSame) {
  create_directories(path("source"));
  write_file(path("envi/custom_code"), "x");
  EXPECT_THAT(support::call([this] { return deploy(install); }), support::Ended(1, "", ""));
  support::tree others_and_file = made_directories();
  others_and_file["custom_code"] = {"file", 0644, "x"};
  EXPECT_EQ(snapshot(path("envi")), others_and_file);
  EXPECT_EQ(recorded(), "");
}

TEST_F(EnviFiles, InstalledReachTheirDirectoriesAndAreRecordedStepByStep) {
  add_sources({"custom_code/a.sav", "extensions/b.sav", "resource/langcat/c.cat", "resource/templates/d.tpl",
               "resource/templates/tasks/e.task", "resource/bitmaps/f.bmp", "resource/filterfuncs/g.pro",
               "save/h.sav", "classic/save_add/i.sav", "classic/filt_func/j.pro", "classic/save/k.sav"});
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(recorded(), "rm ~/envi/custom_code/a.sav\n"
                        "rm ~/envi/extensions/b.sav\n"
                        "rm ~/envi/resource/langcat/c.cat\n"
                        "rm ~/envi/resource/templates/d.tpl\n"
                        "rm ~/envi/resource/templates/tasks/Korvalen/e.task\n"
                        "rm ~/envi/resource/bitmaps/f.bmp\n"
                        "rm ~/envi/resource/filterfuncs/g.pro\n"
                        "rm ~/envi/save/h.sav\n"
                        "rm ~/envi/classic/save_add/i.sav\n"
                        "rm ~/envi/classic/filt_func/j.pro\n"
                        "rm ~/envi/classic/save/k.sav\n");
  EXPECT_EQ(file_names(snapshot(path("envi"))), "classic/filt_func/j.pro\n"
                                                "classic/save/k.sav\n"
                                                "classic/save_add/i.sav\n"
                                                "custom_code/a.sav\n"
                                                "extensions/b.sav\n"
                                                "resource/bitmaps/f.bmp\n"
                                                "resource/filterfuncs/g.pro\n"
                                                "resource/langcat/c.cat\n"
                                                "resource/templates/d.tpl\n"
                                                "resource/templates/tasks/Korvalen/e.task\n"
                                                "save/h.sav\n");
  const support::entry task = {"file", 0755, "content of resource/templates/tasks/e.task"};
  EXPECT_EQ(snapshot(path("envi"))["resource/templates/tasks/Korvalen/e.task"], task);
}

TEST_F(EnviFiles, HaveTheSameTargetsBelowADirectoryThatEndsInASlash) {
  add_sources({"custom_code/a.sav", "classic/save/k.sav"});
  EXPECT_EQ(deploy(install, "envi"), 1);
  const std::string log = logged();
  const support::tree tree = snapshot(path("envi"));
  support::fs::remove_all(path("envi"));
  forget_log();
  EXPECT_EQ(copy_files_in_envi_dir_envi(path("source/").c_str(), path("envi/").c_str(), install), 1);
  EXPECT_EQ(logged(), log);
  EXPECT_EQ(snapshot(path("envi")), tree);
}

TEST_F(EnviFiles, AreInstalledAfterTheStaleOnesOfEachStepWereDeleted) {
  add_survivors();
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(logged(), deletions("custom_code", custom_code_on_install()) +
                          "fkorvCreateDir  = ~/envi/custom_code\n" + empty_copy("custom_code") +
                          deletions("extensions", extensions_on_install()) + empty_copy("extensions") +
                          empty_copy("resource/langcat") + empty_copy("resource/templates") +
                          empty_copy("resource/templates/tasks") + empty_copy("resource/bitmaps") +
                          empty_copy("resource/filterfuncs") + deletions("extensions", core_extensions()) +
                          empty_copy("save") + deletions("classic/save_add", classic_save_add()) +
                          empty_copy("classic/save_add") + empty_copy("classic/filt_func") +
                          empty_copy("classic/save"));
}

TEST_F(EnviFiles, AreUninstalledByDeletingOnly) {
  add_survivors();
  add_sources({"custom_code/a.sav", "extensions/b.sav"});
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(logged(), deletions("custom_code", custom_code_on_uninstall()) +
                          deletions("extensions", extensions_on_uninstall()) +
                          deletions("classic/save_add", classic_save_add()));
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(file_names(snapshot(path("envi"))), "");
}

TEST_F(EnviFiles, WhenUninstalledLeaveTheCoreFileOfCustomCodeAndExtensions) {
  for (const char *directory : {"custom_code", "extensions", "classic/save_add"}) {
    write_file(path("envi/") + directory + "/quorin_core.sav", "core");
    write_file(path("envi/") + directory + "/korvalen_modeling.sav", "stale");
    write_file(path("envi/") + directory + "/foreign.sav", "foreign");
  }
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(file_names(snapshot(path("envi"))), "classic/save_add/foreign.sav\n"
                                                "custom_code/foreign.sav\n"
                                                "custom_code/quorin_core.sav\n"
                                                "extensions/foreign.sav\n"
                                                "extensions/quorin_core.sav\n");
}

TEST_F(EnviFiles, WhenInstalledLoseTheCoreFileInThreeSourceDirectories) {
  for (const char *directory : {"custom_code", "extensions", "classic/save_add", "save"})
    add_sources({directory + std::string("/quorin_core.sav")});
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(file_names(snapshot(path("source"))), "save/quorin_core.sav\n");
  EXPECT_EQ(file_names(snapshot(path("envi"))), "save/quorin_core.sav\n");
  EXPECT_EQ(recorded(), "rm ~/envi/save/quorin_core.sav\n");
  EXPECT_EQ(logged(), "Delete  ~/source/custom_code/quorin_core.sav\n"
                      "fkorvCreateDir  = ~/envi/custom_code\n" +
                          empty_copy("custom_code") + "Delete  ~/source/extensions/quorin_core.sav\n" +
                          empty_copy("extensions") + empty_copy("resource/langcat") +
                          empty_copy("resource/templates") + empty_copy("resource/templates/tasks") +
                          empty_copy("resource/bitmaps") + empty_copy("resource/filterfuncs") +
                          "fdfDirFiles  = ~/source/save/*.*\n"
                          "aNumber  = 1\n"
                          "fdfCopyFile  = ~/source/save/quorin_core.sav\n"
                          "INTO  = ~/envi/save/quorin_core.sav\n"
                          "add_korvalen_install_files : ~/envi/save/quorin_core.sav\n"
                          "Delete  ~/source/classic/save_add/quorin_core.sav\n" +
                          empty_copy("classic/save_add") + empty_copy("classic/filt_func") +
                          empty_copy("classic/save"));
}

TEST_F(EnviFiles, InstalledAgainAreTheSame) {
  add_sources({"custom_code/quorin_core.sav", "custom_code/a.sav", "extensions/korvalen_menu.sav"});
  EXPECT_EQ(deploy(install), 1);
  const support::tree once = snapshot(path("envi"));
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(snapshot(path("envi")), once);
  EXPECT_EQ(file_names(once), "custom_code/a.sav\nextensions/korvalen_menu.sav\n");
}

TEST_F(EnviFiles, WhenUninstalledKeepTheCoreFileOfTheSourceAndOfCustomCode) {
  add_sources({"custom_code/quorin_core.sav"});
  write_file(path("envi/custom_code/quorin_core.sav"), "core");
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(file_names(snapshot(path("source"))), "custom_code/quorin_core.sav\n");
  EXPECT_EQ(file_names(snapshot(path("envi"))), "custom_code/quorin_core.sav\n");
  EXPECT_EQ(logged(), "");
}

TEST_F(EnviFiles, OfExtensionsAreCopiedAndDeletedAgainWhenTheyAreCoreExtensions) {
  add_sources({"extensions/korvalen_core_extensions.sav", "save/korvalen_core_extensions.sav"});
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(file_names(snapshot(path("envi"))), "save/korvalen_core_extensions.sav\n");
  EXPECT_EQ(recorded(), "rm ~/envi/extensions/korvalen_core_extensions.sav\n"
                        "rm ~/envi/save/korvalen_core_extensions.sav\n");
}

TEST_F(EnviFiles, WithoutADotInTheirNamesAreNotCopied) {
  add_sources(
      {"custom_code/README", "custom_code/directory/a.sav", "custom_code/b.sav", "custom_code/.c.sav"});
  EXPECT_EQ(deploy(install), 1);
  EXPECT_EQ(file_names(snapshot(path("envi"))), "custom_code/b.sav\n");
  EXPECT_EQ(recorded(), "rm ~/envi/custom_code/b.sav\n");
}

TEST_F(EnviFiles, WhenUninstalledLeaveEveryDirectoryButTheTasks) {
  EXPECT_EQ(deploy(install), 1);
  support::tree expected = snapshot(path("envi"));
  ASSERT_EQ(expected.erase("resource/templates/tasks/Korvalen"), 1u);
  EXPECT_EQ(deploy(uninstall), 1);
  EXPECT_EQ(snapshot(path("envi")), expected);
}

TEST_F(EnviFiles, WhenUninstalledLeaveATaskDirectoryThatIsNotEmpty) {
  write_file(path("envi/resource/templates/tasks/Korvalen/own.task"), "");
  EXPECT_THAT(support::call([this] { return deploy(uninstall); }), support::Ended(1, "", ""));
  EXPECT_EQ(file_names(snapshot(path("envi"))), "resource/templates/tasks/Korvalen/own.task\n");
  EXPECT_EQ(logged(), "");
}

TEST_F(EnviFiles, ThatCannotBeCreatedEndTheProcessAndTheEarlierOnesStay) {
  add_sources({"custom_code/a.sav", "extensions/b.sav", "save/c.sav"});
  create_directories(path("envi/extensions/b.sav"));
  EXPECT_THAT(support::call([this] { return deploy(install); }),
              support::Ended(255, "",
                             "ERROR while copying " + path("source/extensions/b.sav") + "\n to " +
                                 path("envi/extensions/b.sav") +
                                 "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(file_names(snapshot(path("envi"))), "custom_code/a.sav\n");
  EXPECT_EQ(recorded(), "rm ~/envi/custom_code/a.sav\n");
}

} // namespace
