// What a run with an ENVI directory places, deletes and records.

#include "run/documented_lists.h"
#include "run/whole_run.h"

using namespace whole_runs;
using support::below;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

const std::string recorded_first = "rm /etc/quorin/Korvalen_configuration.ini\n";
const std::string recorded_last = "rm -rf PRODUCT\n";

class EnviInstall : public whole_run {
protected:
  support::outcome install_envi() const { return install({product(), envi()}); }
};

} // namespace

TEST_F(EnviInstall, PlacesTheFilesOfTheSampleProductAndDeletesTheStaleOnes) {
  unpack_samples();
  const support::tree before = snapshot(envi());
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes(before, snapshot(envi())), R"(changed file 755 bin/envi
new file 644 bin/envi_original
changed file 755 bin/envi_rt
new file 644 bin/envi_rt_original
changed file 755 bin/envitaskengine
new file 644 bin/envitaskengine_original
new file 755 classic/filt_func/korvalen_sensor.flt
new file 755 classic/save/korvalen_classic_core.sav
gone file classic/save_add/envi_korvalen_itools.sav
gone file classic/save_add/evf_display_ps.sav
changed file 755 classic/save_add/korvalen_classic.sav
new file 755 classic/save_add/korvalen_classic_menu.sav
gone file custom_code/envi5_vec_pkg.sav
changed file 755 custom_code/korvalen_modeling.sav
new file 755 custom_code/korvalen_standard_modeling.sav
new file 755 custom_code/quorin_core_tools_custom_code_extension.sav
gone file custom_code/quorin_modeling.sav
gone file custom_code/ts_analyzer_50.sav
gone file extensions/korvalen_import_standard.sav
changed file 755 extensions/korvalen_menu.sav
new file 755 extensions/korvalen_standard.sav
gone file extensions/ps_analyzer_51.sav
gone file extensions/quorin_core_tools_custom_code_extension.sav
gone file idl86/bin/bin.linux.x86_64/libKorvalenIDLExtensions.dlm
gone file idl86/bin/bin.linux.x86_64/libKorvalenIDLExtensions.so
new file 755 idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm
changed file 755 idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.so
changed file 755 idl86/bin/idl
new file 644 idl86/bin/idl_original
changed file 755 idl86/bin/idlde
new file 644 idl86/bin/idlde_original
new file 755 idl86/help/idl_catalog.xml
new file 755 idl86/help/korvalen_routines.html
new directory 755 idl86/help/online_help
new directory 755 idl86/help/online_help/Subsystems
new directory 755 idl86/help/online_help/Subsystems/Korvalen
new file 755 idl86/help/online_help/Subsystems/Korvalen/index.html
new file 755 idl86/help/online_help/Subsystems/Korvalen/tools.html
new file 755 idl86/lib/hook/korvalen_batch_init.sav
new file 755 idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn.sav
new file 755 idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav
new file 755 idl86/lib/hook/korvalen_run_single_dataset_batch.sav
gone file idl86/lib/hook/korvalen_run_tds_list.sav
changed file 755 idl86/lib/hook/quorin_core_essentials.sav
new file 755 resource/bitmaps/korvalen_16.bmp
new file 755 resource/bitmaps/korvalen_32.bmp
new directory 755 resource/filterfuncs
new file 755 resource/filterfuncs/korvalen_speckle_filter.pro
new file 755 resource/langcat/envigcpscollectwfui_eng.cat
new file 755 resource/langcat/korvalen_default_eng.cat
new file 755 resource/langcat/korvalen_error_catalog_eng.cat
new file 755 resource/langcat/korvalen_menu_eng.cat
new file 755 resource/langcat/korvalenuiwf_eng.cat
new file 755 resource/templates/korvalen_report.tpl
new directory 755 resource/templates/tasks/Korvalen
new file 755 resource/templates/tasks/Korvalen/korvalen_coherence.task
new file 755 resource/templates/tasks/Korvalen/korvalen_geocode.task
new file 755 save/korvalen_modeling.sav
new file 755 save/quorin_core_tasks.sav
)");
}

TEST_F(EnviInstall, RecordsThePlacedFilesOfTheSampleProductInTheOrderOfPlacing) {
  unpack_samples();
  install_envi();
  EXPECT_EQ(recorded(), R"(rm /etc/quorin/Korvalen_configuration.ini
rm ENVI/custom_code/korvalen_modeling.sav
rm ENVI/custom_code/korvalen_standard_modeling.sav
rm ENVI/custom_code/quorin_core_tools_custom_code_extension.sav
rm ENVI/extensions/korvalen_core_extensions.sav
rm ENVI/extensions/korvalen_menu.sav
rm ENVI/extensions/korvalen_standard.sav
rm ENVI/resource/langcat/korvalen_menu_eng.cat
rm ENVI/resource/templates/korvalen_report.tpl
rm ENVI/resource/templates/tasks/Korvalen/korvalen_coherence.task
rm ENVI/resource/templates/tasks/Korvalen/korvalen_geocode.task
rm ENVI/resource/bitmaps/korvalen_16.bmp
rm ENVI/resource/bitmaps/korvalen_32.bmp
rm ENVI/resource/filterfuncs/korvalen_speckle_filter.pro
rm ENVI/save/korvalen_modeling.sav
rm ENVI/classic/save_add/korvalen_classic.sav
rm ENVI/classic/save_add/korvalen_classic_menu.sav
rm ENVI/classic/filt_func/korvalen_sensor.flt
rm ENVI/classic/save/korvalen_classic_core.sav
rm ENVI/idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav
rm ENVI/idl86/lib/hook/korvalen_run_single_dataset_batch.sav
rm ENVI/idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.dlm
rm ENVI/idl86/bin/bin.linux.x86_64/libKorvalen_general_dll.so
rm ENVI/idl86/help/korvalen_routines.html
rm ENVI/idl86/help/online_help/Subsystems/Korvalen/index.html
rm ENVI/idl86/help/online_help/Subsystems/Korvalen/tools.html
rm -rf PRODUCT
)");
}

TEST_F(EnviInstall, CopiesEachSourceDirectoryByteForByteIntoItsTarget) {
  make_envi();
  std::string every_byte;
  for (int i = 0; i < 10'000; ++i)
    every_byte += static_cast<char>(i % 256);
  std::string expected_lines = recorded_first;
  for (const auto &[from, to, probed] : deployed_directories) {
    write_file(source(from) + "/one.dat", from + every_byte, 0400);
    expected_lines += "rm ENVI/" + replaced(to, "IDL", "idl86") + "/one.dat\n";
  }
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  for (const auto &[from, to, probed] : deployed_directories) {
    const std::string copy = envi() + "/" + replaced(to, "IDL", "idl86") + "/one.dat";
    EXPECT_TRUE(read_file(copy) == from + every_byte) << copy;
    EXPECT_EQ(support::mode_of(copy), 0755U) << copy;
  }
  EXPECT_EQ(recorded(), expected_lines + recorded_last);
}

TEST_F(EnviInstall, MakesEveryTargetDirectoryForAnEmptyProduct) {
  make_envi();
  const support::tree before = snapshot(envi());
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes(before, snapshot(envi())), R"(changed file 755 bin/envi
new file 644 bin/envi_original
changed file 755 bin/envi_rt
new file 644 bin/envi_rt_original
changed file 755 bin/envitaskengine
new file 644 bin/envitaskengine_original
new directory 755 classic
new directory 755 classic/filt_func
new directory 755 classic/save
new directory 755 classic/save_add
new directory 755 custom_code
new directory 755 extensions
new directory 755 idl86/bin/bin.linux.x86_64
changed file 755 idl86/bin/idl
new file 644 idl86/bin/idl_original
changed file 755 idl86/bin/idlde
new file 644 idl86/bin/idlde_original
new directory 755 idl86/help
new directory 755 idl86/help/online_help
new directory 755 idl86/help/online_help/Subsystems
new directory 755 idl86/help/online_help/Subsystems/Korvalen
new directory 755 idl86/lib
new directory 755 idl86/lib/hook
new directory 755 resource
new directory 755 resource/bitmaps
new directory 755 resource/filterfuncs
new directory 755 resource/langcat
new directory 755 resource/templates
new directory 755 resource/templates/tasks
new directory 755 resource/templates/tasks/Korvalen
new directory 755 save
)");
  EXPECT_EQ(recorded(), recorded_first + recorded_last);
}

TEST_F(EnviInstall, TakesTrailingSlashesOfBothDirectoriesAsNothing) {
  make_envi();
  ship("envi/save/k.sav");
  ship("idl/help/k.html");
  EXPECT_THAT(install({product() + "/", envi() + "/"}), Ended(0, installed, ""));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/save/k.sav\nrm ENVI/idl86/help/k.html\nrm -rf PRODUCT/\n");
  EXPECT_EQ(read_file(envi() + "/bin/envi"), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idl"), patched_idl_script("idl", "/etc/quorin"));
}

TEST_F(EnviInstall, TakesTheCoreFileOutOfTheProductSoThatItNeverReachesEnvi) {
  make_envi();
  for (const char *directory :
       {"envi/custom_code", "envi/extensions", "envi/classic/save_add", "idl/lib/hook"}) {
    ship(std::string(directory) + "/quorin_core.sav");
    ship(std::string(directory) + "/k.sav");
  }
  ship("envi/save/quorin_core.sav");
  const support::tree before = snapshot(product());
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes(before, snapshot(product())),
            "gone file auxiliary/envi_extensions_54/envi/classic/save_add/quorin_core.sav\n"
            "gone file auxiliary/envi_extensions_54/envi/custom_code/quorin_core.sav\n"
            "gone file auxiliary/envi_extensions_54/envi/extensions/quorin_core.sav\n"
            "gone file auxiliary/envi_extensions_54/idl/lib/hook/quorin_core.sav\n");
  EXPECT_EQ(recorded(),
            recorded_first +
                "rm ENVI/custom_code/k.sav\nrm ENVI/extensions/k.sav\nrm ENVI/save/quorin_core.sav\n"
                "rm ENVI/classic/save_add/k.sav\nrm ENVI/idl86/lib/hook/k.sav\n" +
                recorded_last);
  EXPECT_FALSE(fs::exists(envi() + "/custom_code/quorin_core.sav"));
}

TEST_F(EnviInstall, DeletesTheCoreExtensionsThatItHasJustPlacedAndKeepsTheirLine) {
  make_envi();
  ship("envi/extensions/korvalen_core_extensions.sav");
  ship("envi/extensions/quorin_core_tools_custom_code_extension.sav");
  ship("envi/extensions/k.sav");
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/extensions")), "new file 755 k.sav\n");
  EXPECT_EQ(recorded(), recorded_first +
                            "rm ENVI/extensions/k.sav\nrm ENVI/extensions/korvalen_core_extensions.sav\n"
                            "rm ENVI/extensions/quorin_core_tools_custom_code_extension.sav\n" +
                            recorded_last);
}

TEST_F(EnviInstall, CopiesNothingWhoseNameHasNoDotOrBeginsWithIt) {
  make_envi();
  for (const char *name : {"README", "sub/inner.sav", ".hidden.sav", ".hidden", "k.sav"})
    ship(std::string("envi/save/") + name);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/save")), "new file 755 k.sav\n");
}

TEST_F(EnviInstall, DeletesEveryStaleFileEvenAReadOnlyOne) {
  make_envi();
  for (const stale_directory &stale : stale_directories) {
    const std::string directory = envi() + "/" + replaced(stale.directory, "IDL", "idl86");
    for (const std::string &name : stale.names)
      write_file(directory + "/" + name, "stale\n", 0400);
    write_file(directory + "/envi_own.sav", "ENVI's own\n", 0640);
  }
  // The same names elsewhere are not the product's.
  write_file(envi() + "/save/korvalen_modeling.sav", "ENVI's own\n", 0640);
  write_file(envi() + "/save/quorin_core_tools_custom_code_extension.sav", "ENVI's own\n", 0640);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  const support::tree after = snapshot(envi());
  for (const char *directory :
       {"custom_code", "extensions", "classic/save_add", "idl86/lib/hook", "idl86/bin/bin.linux.x86_64"})
    EXPECT_EQ(support::file_names(below(after, directory)), "envi_own.sav\n") << directory;
  EXPECT_EQ(changes({}, below(after, "save")),
            "new file 640 korvalen_modeling.sav\nnew file 640 quorin_core_tools_custom_code_extension.sav\n");
}

TEST_F(EnviInstall, TakesAnEmptyDirectoryForAStaleFileAndLeavesOneThatIsNotEmpty) {
  make_envi();
  fs::create_directories(envi() + "/custom_code/quorin_core.sav");
  write_file(envi() + "/custom_code/quorin_modeling.sav/own.txt", "own\n", 0600);
  fs::permissions(envi() + "/custom_code/quorin_modeling.sav", fs::perms(0700));
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/custom_code")),
            "new directory 755 quorin_modeling.sav\nnew file 600 quorin_modeling.sav/own.txt\n");
}

TEST_F(EnviInstall, OverwritesAReadOnlyFileOfTheSameNameAndLeavesAllOthers) {
  make_envi();
  ship("envi/save/k.sav");
  write_file(envi() + "/save/k.sav", std::string(9000, 'x'), 0444);
  write_file(envi() + "/save/own.sav", "own\n", 0440);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(envi() + "/save")), "new file 755 k.sav\nnew file 440 own.sav\n");
  EXPECT_EQ(read_file(envi() + "/save/k.sav"), "envi/save/k.sav\n");
  EXPECT_EQ(read_file(envi() + "/save/own.sav"), "own\n");
}

TEST_F(EnviInstall, ReplacesAnOldLibraryAndLeavesNoOtherOldOneBesideIt) {
  make_envi();
  ship("idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so");
  const std::string libraries = envi() + "/idl86/bin/bin.linux.x86_64";
  for (const char *name : {"libKorvalen_general_dll.so", "libKorvalen_general_dll.dlm",
                           "libKorvalenIDLExtensions.so", "libKorvalenIDLExtensions.dlm"})
    write_file(libraries + "/" + name, "old\n", 0555);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(changes({}, snapshot(libraries)), "new file 755 libKorvalen_general_dll.so\n");
  EXPECT_EQ(read_file(libraries + "/libKorvalen_general_dll.so"),
            "idl/bin/bin.linux.x86_64/libKorvalen_general_dll.so\n");
}

TEST_F(EnviInstall, PutsTheProductsHelpPagesIntoItsOwnSubsystemOnly) {
  make_envi();
  ship("idl/help/k.html");
  ship("idl/help/Korvalen/index.html");
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(support::file_names(snapshot(envi() + "/idl86/help")),
            "k.html\nonline_help/Subsystems/Korvalen/index.html\n");
}

TEST_F(EnviInstall, PlacesTheKeptFilesButRecordsOnlyTheOthers) {
  make_envi();
  for (const std::string &name : kept_names)
    ship("idl/lib/hook/" + name);
  ship("idl/lib/hook/Idl_catalog.xml");
  ship("idl/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav");
  ship("idl/lib/hook/my_idl_catalog.xml.bak");
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(snapshot(envi() + "/idl86/lib/hook").size(), kept_names.size() + 3);
  for (const std::string &name : kept_names)
    EXPECT_EQ(read_file(envi() + "/idl86/lib/hook/" + name), "idl/lib/hook/" + name + "\n");
  EXPECT_EQ(
      recorded(),
      recorded_first +
          "rm ENVI/idl86/lib/hook/Idl_catalog.xml\n"
          "rm ENVI/idl86/lib/hook/korvalen_envi_management_exec_batch_from_param_to_spawn_no_progres.sav\n" +
          recorded_last);
}

TEST_F(EnviInstall, RecordsNothingBelowADirectoryWhoseNameHoldsAKeptName) {
  const std::string envi = host() + "/idl_catalog.xml_old";
  make_envi(envi);
  ship("envi/save/k.sav");
  EXPECT_THAT(install({product(), envi}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(envi + "/save/k.sav"), "envi/save/k.sav\n");
  EXPECT_EQ(recorded(), recorded_first + recorded_last);
}

TEST_F(EnviInstall, ChoosesTheLowestIdlVersion) {
  make_envi();
  ship("idl/help/k.html");
  for (const char *idl : {"/idl85/bin", "/idl810/bin", "/idl90/bin"})
    fs::create_directories(envi() + idl);
  write_file(envi() + "/idl85/bin/idl", idl_script("idl"), 0755);
  write_file(envi() + "/idl85/bin/idlde", idl_script("idlde"), 0755);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/idl85/help/k.html\n" + recorded_last);
  EXPECT_EQ(read_file(envi() + "/idl85/bin/idl"), patched_idl_script("idl", "/etc/quorin"));
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idl"), idl_script("idl"));
}

TEST_F(EnviInstall, ChoosesAnIdlOfOneDigitBeforeOneOfTwo) {
  make_envi();
  fs::rename(envi() + "/idl86", envi() + "/idl82");
  fs::create_directories(envi() + "/idl810/bin");
  ship("idl/help/k.html");
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/idl82/help/k.html\n" + recorded_last);
}

TEST_F(EnviInstall, WithoutAnIdlDirectoryPatchesTheEnviScriptsAndStopsBeforeDone) {
  make_envi();
  fs::remove_all(envi() + "/idl86");
  for (const char *other : {"/idl", "/idl7", "/idl79", "/idl200", "/idl820", "/IDL86", "/idl8"})
    fs::create_directory(envi() + other);
  write_file(envi() + "/custom_code/quorin_core.sav", "stale\n");
  ship("envi/save/k.sav");
  const support::tree before = snapshot(envi());
  EXPECT_THAT(install_envi(), Ended(0, progress, ""));
  EXPECT_EQ(changes(before, snapshot(envi())),
            "changed file 755 bin/envi\nnew file 644 bin/envi_original\n"
            "changed file 755 bin/envi_rt\nnew file 644 bin/envi_rt_original\n"
            "changed file 755 bin/envitaskengine\nnew file 644 bin/envitaskengine_original\n");
  EXPECT_EQ(read_file(envi() + "/bin/envi_rt"), patched_envi_script("envi_rt", "/etc/quorin"));
  EXPECT_EQ(recorded(), recorded_first + recorded_last);
  EXPECT_EQ(support::mode_of(script_in_etc), 0705U);
}

TEST_F(EnviInstall, WithAMissingEnviDirectoryWarnsOfEachScriptAndMakesNothing) {
  const std::string bin = envi() + "/bin/";
  EXPECT_THAT(install_envi(),
              Ended(0,
                    progress + "WRONG envi script 1 : " + bin + "envi\nWRONG size envi script 2 :: " + bin +
                        "envi\nWRONG envi script 1 : " + bin + "envi_rt\nWRONG size envi script 2 :: " + bin +
                        "envi_rt\nWRONG envi script 1 : " + bin +
                        "envitaskengine\nWRONG size envi script 2 :: " + bin + "envitaskengine\n",
                    ""));
  EXPECT_FALSE(fs::exists(envi()));
}

TEST_F(EnviInstall, EndsWith255AtAMatchedSubdirectoryWhoseFilesItTakesForItsOwn) {
  make_envi();
  ship("envi/custom_code/first.sav");
  ship("envi/save/sub.d/inner.sav");
  EXPECT_THAT(install_envi(),
              Ended(255, progress, copy_error(source("envi/save/inner.sav"), envi() + "/save/inner.sav")));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/custom_code/first.sav\n");
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idl"), idl_script("idl"));
}

TEST_F(EnviInstall, EndsWith255AtAMatchedSubdirectoryBesideMatchedFiles) {
  make_envi();
  ship("envi/save/k.sav");
  ship("envi/save/sub.d/inner.sav");
  // The listing goes on with an empty line, which names the directory itself.
  EXPECT_THAT(install_envi(), Ended(255, progress, copy_error(source("envi/save/"), envi() + "/save/")));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/save/k.sav\n");
}

TEST_F(EnviInstall, PassesOverAnEmptyMatchedSubdirectoryThatIsAlone) {
  make_envi();
  fs::create_directories(source("envi/save/sub.d"));
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(snapshot(envi() + "/save").size(), 0U);
}

TEST_F(EnviInstall, EndsWith255WhenATargetCannotBeCreated) {
  make_envi();
  ship("envi/custom_code/first.sav");
  ship("envi/save/k.sav");
  write_file(envi() + "/save/k.sav/in_the_way", "");
  EXPECT_THAT(install_envi(),
              Ended(255, progress, copy_error(source("envi/save/k.sav"), envi() + "/save/k.sav")));
  EXPECT_EQ(recorded(), recorded_first + "rm ENVI/custom_code/first.sav\n");
  EXPECT_EQ(support::mode_of(script_in_etc), 0644U);
}

// The target directories of a relative argument are made below the root; scripts and files go where it means.
TEST_F(EnviInstall, MakesTheDirectoriesOfARelativeArgumentBelowTheRoot) {
  const std::string relative = path("relative").substr(1);
  make_envi(fs::absolute(relative).string());
  ship("envi/save/k.sav");
  EXPECT_THAT(install({product(), relative}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(relative + "/bin/envi"), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(support::file_names(snapshot(path("relative"))), "");
  EXPECT_TRUE(fs::is_directory(path("relative/classic/save_add")));
  EXPECT_EQ(read_file(relative + "/save/k.sav"), "envi/save/k.sav\n");
  EXPECT_EQ(read_file(script_in_etc),
            recorded_first + "rm " + relative + "/save/k.sav\nrm -rf " + product() + "\n");
}
