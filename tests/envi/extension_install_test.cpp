#include "korvalen/envi/extension_install.h"

#include "korvalen/records/install_log.h"
#include "korvalen/records/uninstall_script.h"
#include "support/child.h"
#include "support/recording.h"

#include <iostream>
#include <vector>

using support::call;
using support::Ended;
using support::read_file;
using support::snapshot;
using support::write_file;
using support::fs::create_directories;

namespace {

constexpr const char *progress = "\n   Installing ENVI extensions... ";
constexpr const char *done = "Done\n\n";

constexpr const char *patched_envi_script = "a\n"
                                            "if [ \"$KORVALEN_INIT_DIR\" = \"\" ]; then\n"
                                            "   KORVALEN_INIT_DIR=/etc/quorin/\n"
                                            "   export KORVALEN_INIT_DIR\n"
                                            "fi\n"
                                            "\n"
                                            "if [ b ]\n";

constexpr const char *patched_idl_script = "a\n"
                                           "KORVALEN_INIT_DIR=/etc/quorin/\n"
                                           "export KORVALEN_INIT_DIR\n"
                                           "\n"
                                           "INSTALL_DIR=b\n";

// An ENVI directory "envi" with its launch scripts, and a product directory "product" with one file for each
// half.
struct ExtensionInstall : support::recording_test {
  ExtensionInstall() {
    for (const char *script : {"envi", "envi_rt", "envitaskengine"})
      write_file(path("envi/bin") + "/" + script, "a\nif [ b ]\n");
    write_file(path("product/auxiliary/envi_extensions_54/envi/save/a.sav"), "A");
    write_file(path("product/auxiliary/envi_extensions_54/idl/lib/hook/b.sav"), "B");
  }

  void add_idl(const std::string &name) const {
    write_file(path("envi/" + name + "/bin/idl"), "a\nINSTALL_DIR=b\n");
    write_file(path("envi/" + name + "/bin/idlde"), "a\nINSTALL_DIR=b\n");
  }

  // Installs in a child, for what it prints. With a log, that is printed where it is written.
  support::outcome install(const std::string &envi_dir, const std::string &product_dir,
                           const char *init_dir = "/etc/quorin/", bool with_log = false) const {
    return call([&] {
      korvalen::set_install_log(with_log ? &std::cout : nullptr);
      return korvalen::fkorvInstallEnviExtensions(envi_dir.c_str(), product_dir.c_str(), nullptr, init_dir);
    });
  }
};

TEST_F(ExtensionInstall, PatchesAllScriptsAndDeploysBothHalves) {
  add_idl("idl86");
  EXPECT_THAT(install(path("envi"), path("product")), Ended(1, std::string(progress) + done, ""));

  for (const char *script : {"envi", "envi_rt", "envitaskengine"}) {
    EXPECT_EQ(read_file(path("envi/bin") + "/" + script), patched_envi_script) << script;
    EXPECT_EQ(read_file(path("envi/bin") + "/" + script + "_original"), "a\nif [ b ]\n") << script;
  }
  for (const char *script : {"idl", "idlde"}) {
    EXPECT_EQ(read_file(path("envi/idl86/bin") + "/" + script), patched_idl_script) << script;
    EXPECT_EQ(read_file(path("envi/idl86/bin") + "/" + script + "_original"), "a\nINSTALL_DIR=b\n") << script;
  }
  EXPECT_EQ(file_names(snapshot(path("envi"))), "bin/envi\n"
                                                "bin/envi_original\n"
                                                "bin/envi_rt\n"
                                                "bin/envi_rt_original\n"
                                                "bin/envitaskengine\n"
                                                "bin/envitaskengine_original\n"
                                                "idl86/bin/idl\n"
                                                "idl86/bin/idl_original\n"
                                                "idl86/bin/idlde\n"
                                                "idl86/bin/idlde_original\n"
                                                "idl86/lib/hook/b.sav\n"
                                                "save/a.sav\n");
  EXPECT_EQ(recorded(), "rm ~/envi/save/a.sav\n"
                        "rm ~/envi/idl86/lib/hook/b.sav\n");
}

TEST_F(ExtensionInstall, GivesTheSamePathsForDirectoriesThatEndInASlash) {
  add_idl("idl86");
  EXPECT_THAT(install(path("envi/"), path("product/")), Ended(1, std::string(progress) + done, ""));
  EXPECT_EQ(recorded(), "rm ~/envi/save/a.sav\n"
                        "rm ~/envi/idl86/lib/hook/b.sav\n");
  const support::tree with_slashes = snapshot(path("envi"));

  // Again from the start, without the slashes.
  support::fs::remove_all(path("envi"));
  for (const char *script : {"envi", "envi_rt", "envitaskengine"})
    write_file(path("envi/bin") + "/" + script, "a\nif [ b ]\n");
  add_idl("idl86");
  EXPECT_THAT(install(path("envi"), path("product")), Ended(1, std::string(progress) + done, ""));
  EXPECT_EQ(snapshot(path("envi")), with_slashes);
}

TEST_F(ExtensionInstall, NamesScriptsWithASingleSlashForAnEnviDirectoryThatEndsInOne) {
  support::fs::remove_all(path("envi/bin"));
  const std::string envi = path("envi/bin/envi");
  const std::string envi_rt = path("envi/bin/envi_rt");
  const std::string engine = path("envi/bin/envitaskengine");
  EXPECT_THAT(install(path("envi/"), path("product")),
              Ended(0,
                    progress + ("WRONG envi script 1 : " + envi) + "\nWRONG size envi script 2 :: " + envi +
                        "\nWRONG envi script 1 : " + envi_rt + "\nWRONG size envi script 2 :: " + envi_rt +
                        "\nWRONG envi script 1 : " + engine + "\nWRONG size envi script 2 :: " + engine +
                        "\n",
                    ""));
}

TEST_F(ExtensionInstall, TakesTheLowestIdlVersion) {
  add_idl("idl86");
  add_idl("idl85");
  EXPECT_THAT(install(path("envi"), path("product")), Ended(1, std::string(progress) + done, ""));
  EXPECT_EQ(read_file(path("envi/idl85/bin/idl")), patched_idl_script);
  EXPECT_EQ(read_file(path("envi/idl86/bin/idl")), "a\nINSTALL_DIR=b\n");
  EXPECT_EQ(file_names(snapshot(path("envi/idl86"))), "bin/idl\nbin/idlde\n");
}

TEST_F(ExtensionInstall, TakesAOneDigitMinorBeforeATwoDigitMinor) {
  add_idl("idl810");
  add_idl("idl82");
  EXPECT_THAT(install(path("envi"), path("product")), Ended(1, std::string(progress) + done, ""));
  EXPECT_EQ(read_file(path("envi/idl82/lib/hook/b.sav")), "B");
  EXPECT_EQ(file_names(snapshot(path("envi/idl810"))), "bin/idl\nbin/idlde\n");
}

TEST_F(ExtensionInstall, WithoutAnIdlDirectoryPatchesOnlyEnviAndIsNotDone) {
  EXPECT_THAT(install(path("envi"), path("product")), Ended(0, progress, ""));
  for (const char *script : {"envi", "envi_rt", "envitaskengine"})
    EXPECT_EQ(read_file(path("envi/bin") + "/" + script), patched_envi_script) << script;
  EXPECT_EQ(file_names(snapshot(path("envi"))), "bin/envi\n"
                                                "bin/envi_original\n"
                                                "bin/envi_rt\n"
                                                "bin/envi_rt_original\n"
                                                "bin/envitaskengine\n"
                                                "bin/envitaskengine_original\n");
  EXPECT_FALSE(support::fs::exists(path("envi/save")));
  EXPECT_EQ(recorded(), "");
}

TEST_F(ExtensionInstall, WithoutAnEnviDirectoryOnlyTellsThatItIsDone) {
  const support::tree before = snapshot(scratch());
  EXPECT_THAT(install("", path("product")), Ended(1, std::string(progress) + done, ""));
  EXPECT_THAT(call([&] {
                return korvalen::fkorvInstallEnviExtensions(nullptr, path("product").c_str(), nullptr, "/i");
              }),
              Ended(1, std::string(progress) + done, ""));
  EXPECT_EQ(snapshot(scratch()), before);
}

TEST_F(ExtensionInstall, ExportsTheProductDirectoryWithoutItsLastSlashWhenThereIsNoInitDirectory) {
  add_idl("idl86");
  EXPECT_EQ(install(path("envi"), path("product/"), nullptr).status, 1);
  EXPECT_EQ(read_file(path("envi/idl86/bin/idl")),
            "a\nKORVALEN_INIT_DIR=" + path("product") + "\nexport KORVALEN_INIT_DIR\n\nINSTALL_DIR=b\n");
}

TEST_F(ExtensionInstall, GoesOnPastScriptsThatAreMissing) {
  create_directories(path("envi/idl86"));
  for (const char *script : {"envi", "envi_rt", "envitaskengine"})
    support::fs::remove(path("envi/bin") + "/" + script);

  const support::outcome ended = install(path("envi"), path("product"), "/etc/quorin/", true);
  EXPECT_EQ(ended.status, 1);
  // The steps' marks, in their order.
  const std::vector<std::string> marks = {
      progress + ("WRONG envi script 1 : " + path("envi/bin/envi\n")),
      "WRONG size envi script 2 :: " + path("envi/bin/envi\n"),
      "WRONG envi script 1 : " + path("envi/bin/envi_rt\n"),
      "WRONG size envi script 2 :: " + path("envi/bin/envi_rt\n"),
      "WRONG envi script 1 : " + path("envi/bin/envitaskengine\n"),
      "WRONG size envi script 2 :: " + path("envi/bin/envitaskengine\n"),
      "fkorvCreateDir  = " + path("envi/custom_code\n"),
      "add_korvalen_install_files : " + path("envi/save/a.sav\n"),
      "add_korvalen_install_files : " + path("envi/idl86/lib/hook/b.sav\n"),
      "WRONG idl script 3 : " + path("envi/idl86/bin/idl\n"),
      "WRONG idl script 3 : " + path("envi/idl86/bin/idlde\n") + done,
  };
  std::size_t at = 0;
  for (const std::string &mark : marks) {
    at = ended.out.find(mark, at);
    ASSERT_NE(at, std::string::npos) << "missing, or too early: " << mark << "in\n" << ended.out;
    at += mark.size();
  }
  EXPECT_EQ(at, ended.out.size());
}

TEST_F(ExtensionInstall, EndsTheProcessWhereAFileCannotBeCreatedAndKeepsWhatWasDone) {
  add_idl("idl86");
  create_directories(path("envi/save/a.sav"));
  EXPECT_THAT(install(path("envi"), path("product")),
              Ended(255, progress,
                    "ERROR while copying " + path("product/auxiliary/envi_extensions_54/envi/save/a.sav") +
                        "\n to " + path("envi/save/a.sav") + "\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(read_file(path("envi/bin/envi")), patched_envi_script);
  EXPECT_EQ(read_file(path("envi/idl86/bin/idl")), "a\nINSTALL_DIR=b\n");
  EXPECT_FALSE(support::fs::exists(path("envi/idl86/lib")));
}

} // namespace
