#include "korvalen/deploy/arcgis_toolbox.h"

#include "support/child.h"
#include "support/recording.h"
#include "support/variables.h"

#include <ostream>

using namespace korvalen;
using support::file_names;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

constexpr bool install = false;
constexpr bool uninstall = true;

// A desktop directory "arc" with its target directories, and a tools directory "tools". The names with
// backslashes are those of single directories.
struct ArcgisToolbox : support::recording_test {
  ArcgisToolbox() {
    create_directories(path("tools"));
    create_directories(toolboxes());
    create_directories(scripts());
    set("AGSDESKTOPJAVA", path("arc"));
  }

  int run(bool mode) const { return envi_arcgis_install_uninstall(path("product").c_str(), mode); }
  // The same in a child, for what it prints.
  support::outcome run_in_child(bool mode) const {
    return support::call([&] { return run(mode); });
  }
  static void set(const char *name, const std::string &value) { setenv(name, value.c_str(), 1); }
  void use_release_54() const { set("ENVI54_GPTOOLS", path("tools")); }

  std::string toolboxes() const { return path(R"(arc/ArcToolbox\Toolboxes)"); }
  std::string scripts() const { return path(R"(arc/ArcToolbox\Scripts)"); }

  // What the product brings for a release such as "_5.4", and beside it what stays there.
  void add_product(const std::string &release) const {
    const std::string toolbox_source = path(R"(product\auxiliary\ArcToolbox)" + release + R"(\Toolboxes)");
    const std::string script_source = path(R"(product\auxiliary\ArcToolbox)" + release + R"(\Scripts)");
    write_file(toolbox_source + "/Korvalen Tools.tbx", "toolbox" + release);
    write_file(toolbox_source + "/Korvalen", "not handled");
    write_file(toolbox_source + "/Other.tbx", "not handled");
    write_file(script_source + "/korvalenpy.py", "script");
    write_file(script_source + "/korvalenpy.pyc", "not handled");
    write_file(script_source + "/EnviKorvalenA.py", "A");
    write_file(script_source + "/EnviKorvalen.py", "B");
    write_file(script_source + "/Other.py", "not handled");
  }

private:
  support::free_variables variables_{{"AGSDESKTOPJAVA", "ENVI60_GPTOOLS", "ENVI54_GPTOOLS", "ENVI53_GPTOOLS",
                                      "ENVI52_GPTOOLS", "ENVI51_GPTOOLS", "ENVI50_GPTOOLS",
                                      "ENVI48_GPTOOLS"}};
};

TEST_F(ArcgisToolbox, InstallsToolboxAndScriptsUnderLiteralNamesWithBackslashes) {
  use_release_54();
  add_product("_5.4");
  write_file(scripts() + "/korvalenpy.pyc", "compiled from an older one");
  write_file(scripts() + "/korvalenpy.py", "older", 0400);
  write_file(scripts() + "/Foreign.py", "foreign");
  EXPECT_EQ(run(install), 1);
  EXPECT_EQ(snapshot(toolboxes()), (support::tree{{"Korvalen Tools.tbx", {"file", 0755, "toolbox_5.4"}}}));
  EXPECT_EQ(snapshot(scripts()), (support::tree{{"EnviKorvalen.py", {"file", 0755, "B"}},
                                                {"EnviKorvalenA.py", {"file", 0755, "A"}},
                                                {"Foreign.py", {"file", 0644, "foreign"}},
                                                {"korvalenpy.py", {"file", 0755, "script"}}}));
  EXPECT_EQ(recorded(), R"(rm ~/arc/ArcToolbox\Toolboxes/Korvalen Tools.tbx
rm ~/arc/ArcToolbox\Scripts/korvalenpy.py
rm ~/arc/ArcToolbox\Scripts/EnviKorvalen.py
rm ~/arc/ArcToolbox\Scripts/EnviKorvalenA.py
)");
}

TEST_F(ArcgisToolbox, TellsTheInstallLogEveryStepOfAnInstallation) {
  use_release_54();
  add_product("_5.4");
  EXPECT_EQ(run(install), 1);
  EXPECT_EQ(logged(), R"(envi_arcgis_install_uninstall  = ~/product
aAGSDESKTOPJAVA_DIR = ~/arc
aGPTOOLS_DIR = ~/tools
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes
aTARGETDIR = ~/arc/ArcToolbox\Toolboxes
fdfDirFiles  = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes/Korvalen Tools.tbx
aNumber  = 1
fdfCopyFile  = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes/Korvalen Tools.tbx
INTO  = ~/arc/ArcToolbox\Toolboxes/Korvalen Tools.tbx
add_korvalen_install_files : ~/arc/ArcToolbox\Toolboxes/Korvalen Tools.tbx
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Scripts
aTARGETDIR = ~/arc/ArcToolbox\Scripts
fdfDirFiles  = ~/product\auxiliary\ArcToolbox_5.4\Scripts/korvalenpy.py
aNumber  = 1
fdfCopyFile  = ~/product\auxiliary\ArcToolbox_5.4\Scripts/korvalenpy.py
INTO  = ~/arc/ArcToolbox\Scripts/korvalenpy.py
add_korvalen_install_files : ~/arc/ArcToolbox\Scripts/korvalenpy.py
fdfDirFiles  = ~/product\auxiliary\ArcToolbox_5.4\Scripts/EnviKorvalen*.py
aNumber  = 2
fdfCopyFile  = ~/product\auxiliary\ArcToolbox_5.4\Scripts/EnviKorvalen.py
INTO  = ~/arc/ArcToolbox\Scripts/EnviKorvalen.py
add_korvalen_install_files : ~/arc/ArcToolbox\Scripts/EnviKorvalen.py
fdfCopyFile  = ~/product\auxiliary\ArcToolbox_5.4\Scripts/EnviKorvalenA.py
INTO  = ~/arc/ArcToolbox\Scripts/EnviKorvalenA.py
add_korvalen_install_files : ~/arc/ArcToolbox\Scripts/EnviKorvalenA.py
)");
}

TEST_F(ArcgisToolbox, RemovesToolboxAndScriptsAndNothingElse) {
  use_release_54();
  add_product("_5.4");
  write_file(toolboxes() + "/Korvalen Tools.tbx", "", 0400);
  write_file(toolboxes() + "/Korvalen", "foreign");
  write_file(toolboxes() + "/Tools.tbx", "foreign");
  for (const char *name : {"/korvalenpy.py", "/korvalenpy.pyc", "/EnviKorvalenA.py", "/EnviKorvalen.py"})
    write_file(scripts() + name, "");
  write_file(scripts() + "/EnviKorvalen.pyc", "foreign");
  write_file(scripts() + "/Foreign.py", "foreign");
  EXPECT_EQ(run(uninstall), 1);
  EXPECT_EQ(file_names(snapshot(toolboxes())), "Korvalen\nTools.tbx\n");
  EXPECT_EQ(file_names(snapshot(scripts())), "EnviKorvalen.pyc\nForeign.py\n");
  EXPECT_EQ(recorded(), "");
  EXPECT_EQ(logged(), R"(envi_arcgis_install_uninstall  = ~/product
aAGSDESKTOPJAVA_DIR = ~/arc
aGPTOOLS_DIR = ~/tools
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes
aTARGETDIR = ~/arc/ArcToolbox\Toolboxes
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Scripts
aTARGETDIR = ~/arc/ArcToolbox\Scripts
)");
}

TEST_F(ArcgisToolbox, WithoutSourcesIsHandledAllTheSame) {
  use_release_54();
  EXPECT_THAT(run_in_child(install), support::Ended(1, "", ""));
  EXPECT_EQ(file_names(snapshot(path("arc"))), "");
}

TEST_F(ArcgisToolbox, LosesItsCompiledScriptBeforeTheScriptsAreCopied) {
  use_release_54();
  add_product("_5.4");
  write_file(scripts() + "/korvalenpy.pyc", "compiled from an older one");
  write_file(scripts() + "/korvalenpy.py/in", "the way");
  EXPECT_EQ(run_in_child(install).status, 255);
  EXPECT_EQ(file_names(snapshot(path("arc"))),
            "ArcToolbox\\Scripts/korvalenpy.py/in\nArcToolbox\\Toolboxes/Korvalen Tools.tbx\n");
}

TEST_F(ArcgisToolbox, HasTheSameTargetsForADesktopDirectoryThatEndsInASlash) {
  use_release_54();
  add_product("_5.4");
  set("AGSDESKTOPJAVA", path("arc/"));
  EXPECT_EQ(run(install), 1);
  EXPECT_EQ(recorded(), R"(rm ~/arc/ArcToolbox\Toolboxes/Korvalen Tools.tbx
rm ~/arc/ArcToolbox\Scripts/korvalenpy.py
rm ~/arc/ArcToolbox\Scripts/EnviKorvalen.py
rm ~/arc/ArcToolbox\Scripts/EnviKorvalenA.py
)");
  EXPECT_THAT(logged(), testing::StartsWith("envi_arcgis_install_uninstall  = ~/product\n"
                                            "aAGSDESKTOPJAVA_DIR = ~/arc/\n"
                                            "aGPTOOLS_DIR = ~/tools\n"));
}

TEST_F(ArcgisToolbox, NeedsADesktopDirectoryInTheEnvironment) {
  use_release_54();
  unsetenv("AGSDESKTOPJAVA");
  EXPECT_THAT(run_in_child(install), support::Ended(0, "", ""));
  EXPECT_EQ(run(install), 0);
  EXPECT_EQ(logged(), "envi_arcgis_install_uninstall  = ~/product\n"
                      "aAGSDESKTOPJAVA_DIR = NOT FOUND\n");
}

TEST_F(ArcgisToolbox, NeedsADesktopDirectoryThatExists) {
  use_release_54();
  set("AGSDESKTOPJAVA", path("gone"));
  EXPECT_THAT(run_in_child(install), support::Ended(0, "", ""));
  EXPECT_EQ(run(install), 0);
  EXPECT_EQ(logged(), "envi_arcgis_install_uninstall  = ~/product\n"
                      "aAGSDESKTOPJAVA_DIR = ~/gone\n"
                      "NOT EXIST the DIRECTORY aAGSDESKTOPJAVA_DIR = ~/gone/\n");
}

TEST_F(ArcgisToolbox, NeedsAToolsDirectoryThatExists) {
  set("ENVI52_GPTOOLS", path("gone"));
  EXPECT_THAT(run_in_child(install), support::Ended(0, "", ""));
  EXPECT_EQ(run(install), 0);
  EXPECT_EQ(logged(), "envi_arcgis_install_uninstall  = ~/product\n"
                      "aAGSDESKTOPJAVA_DIR = ~/arc\n"
                      "aGPTOOLS_DIR = ~/gone\n"
                      "NOT EXIST the DIRECTORY GPTOOLS_DIR = ~/gone\n");
}

TEST_F(ArcgisToolbox, NeedsATargetForTheToolbox) {
  use_release_54();
  add_product("_5.4");
  support::fs::remove_all(toolboxes());
  EXPECT_THAT(run_in_child(install), support::Ended(0, "", ""));
  EXPECT_EQ(run(install), 0);
  EXPECT_EQ(logged(), R"(envi_arcgis_install_uninstall  = ~/product
aAGSDESKTOPJAVA_DIR = ~/arc
aGPTOOLS_DIR = ~/tools
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes
aTARGETDIR = ~/arc/ArcToolbox\Toolboxes
NOT EXIST the DIRECTORY aTARGETDIR = ~/arc/ArcToolbox\Toolboxes
)");
  EXPECT_EQ(file_names(snapshot(path("arc"))), "");
}

TEST_F(ArcgisToolbox, WithoutATargetForTheScriptsIsRemovedAllTheSame) {
  use_release_54();
  support::fs::remove_all(scripts());
  write_file(toolboxes() + "/Korvalen Tools.tbx", "");
  EXPECT_EQ(run(uninstall), 0);
  EXPECT_EQ(file_names(snapshot(path("arc"))), "");
  EXPECT_EQ(logged(), R"(envi_arcgis_install_uninstall  = ~/product
aAGSDESKTOPJAVA_DIR = ~/arc
aGPTOOLS_DIR = ~/tools
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Toolboxes
aTARGETDIR = ~/arc/ArcToolbox\Toolboxes
aSRCDIR = ~/product\auxiliary\ArcToolbox_5.4\Scripts
aTARGETDIR = ~/arc/ArcToolbox\Scripts
NOT EXIST the DIRECTORY aTARGETDIR = ~/arc/ArcToolbox\Scripts
)");
  EXPECT_THAT(run_in_child(uninstall), support::Ended(0, "", ""));
}

TEST_F(ArcgisToolbox, WithoutATargetForTheScriptsIsInstalledAllTheSame) {
  use_release_54();
  add_product("_5.4");
  support::fs::remove_all(scripts());
  EXPECT_THAT(run_in_child(install), support::Ended(0, "", ""));
  EXPECT_EQ(file_names(snapshot(path("arc"))), "ArcToolbox\\Toolboxes/Korvalen Tools.tbx\n");
}

// Which release is taken when these variables are set; without one nothing is done.
struct release_case {
  std::vector<const char *> variables;
  const char *release;
};

void PrintTo(const release_case &r, std::ostream *out) {
  for (const char *name : r.variables)
    *out << name << ' ';
}

struct ArcgisRelease : ArcgisToolbox, testing::WithParamInterface<release_case> {};

TEST_P(ArcgisRelease, IsTheFirstThatTheEnvironmentNames) {
  for (const char *release : {"_6.0", "_5.4", "_5.3", "_5.2", "_5.1", "_5.0", ""})
    add_product(release);
  for (const char *name : GetParam().variables)
    set(name, path("tools"));
  EXPECT_EQ(run(install), 1);
  EXPECT_EQ(support::read_file(toolboxes() + "/Korvalen Tools.tbx"),
            std::string("toolbox") + GetParam().release);
  EXPECT_NE(logged().find("fdfDirFiles  = ~/product\\auxiliary\\ArcToolbox" +
                          std::string(GetParam().release) + "\\Scripts/korvalenpy.py\n"),
            std::string::npos)
      << logged();
}

INSTANTIATE_TEST_SUITE_P(
    Variables, ArcgisRelease,
    testing::Values(release_case{{"ENVI60_GPTOOLS"}, "_6.0"}, release_case{{"ENVI54_GPTOOLS"}, "_5.4"},
                    release_case{{"ENVI52_GPTOOLS"}, "_5.2"}, release_case{{"ENVI51_GPTOOLS"}, "_5.1"},
                    release_case{{"ENVI50_GPTOOLS"}, "_5.0"}, release_case{{"ENVI48_GPTOOLS"}, ""},
                    release_case{{"ENVI53_GPTOOLS", "ENVI50_GPTOOLS"}, "_5.0"},
                    release_case{{"ENVI53_GPTOOLS", "ENVI54_GPTOOLS"}, "_5.4"},
                    release_case{{"ENVI48_GPTOOLS", "ENVI50_GPTOOLS"}, "_5.0"},
                    release_case{{"ENVI50_GPTOOLS", "ENVI51_GPTOOLS"}, "_5.1"},
                    release_case{{"ENVI51_GPTOOLS", "ENVI52_GPTOOLS"}, "_5.2"},
                    release_case{{"ENVI52_GPTOOLS", "ENVI53_GPTOOLS"}, "_5.2"},
                    release_case{{"ENVI52_GPTOOLS", "ENVI54_GPTOOLS"}, "_5.4"},
                    release_case{{"ENVI54_GPTOOLS", "ENVI60_GPTOOLS"}, "_6.0"}));

TEST_F(ArcgisToolbox, NeedsAToolsDirectoryInTheEnvironmentAndThatOf53AloneIsNone) {
  add_product("_5.3");
  for (const char *name : {"SOME_GPTOOLS", "ENVI53_GPTOOLS"}) {
    set(name, path("tools"));
    forget_log();
    EXPECT_THAT(run_in_child(install), support::Ended(0, "", "")) << name;
    EXPECT_EQ(run(install), 0) << name;
    EXPECT_EQ(logged(), "envi_arcgis_install_uninstall  = ~/product\n"
                        "aAGSDESKTOPJAVA_DIR = ~/arc\n"
                        "aGPTOOLS_DIR = NOT FOUND\n")
        << name;
  }
  unsetenv("SOME_GPTOOLS");
  EXPECT_EQ(file_names(snapshot(path("arc"))), "");
}

} // namespace
