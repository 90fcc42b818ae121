// What a run makes of ENVI's and IDL's launch scripts.

#include "run/whole_run.h"

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

class LaunchScripts : public whole_run {
protected:
  LaunchScripts() { make_envi(); }
  std::string script(const std::string &name) const { return envi() + "/bin/" + name; }
  std::string idl(const std::string &name) const { return envi() + "/idl86/bin/" + name; }
  support::outcome install_envi() const { return install({product(), envi()}); }

  // What a started script says of the variable, with the variable set to `value` before, or unset for "".
  static std::string exported_by(const std::string &started, const std::string &value = "") {
    std::vector<std::string> command = {"env", "-u", "KORVALEN_INIT_DIR"};
    if (!value.empty())
      command.push_back("KORVALEN_INIT_DIR=" + value);
    command.push_back(started);
    return support::run(command).out;
  }
};

} // namespace

TEST_F(LaunchScripts, KeepsTheOriginalsBesideThePatchedScripts) {
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  for (const char *name : {"envi", "envi_rt", "envitaskengine"}) {
    EXPECT_EQ(read_file(script(name)), patched_envi_script(name, "/etc/quorin"));
    EXPECT_EQ(read_file(script(name) + "_original"), envi_script(name));
  }
  for (const char *name : {"idl", "idlde"}) {
    EXPECT_EQ(read_file(idl(name)), patched_idl_script(name, "/etc/quorin"));
    EXPECT_EQ(read_file(idl(name) + "_original"), idl_script(name));
  }
}

TEST_F(LaunchScripts, RecordsNothingOfThemForTheUninstallation) {
  install_envi();
  EXPECT_EQ(recorded(), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf PRODUCT\n");
}

TEST_F(LaunchScripts, StartAndExportTheVariable) {
  for (const char *name : {"envi", "idl"}) {
    const std::string directory = name == std::string("envi") ? envi() + "/bin/" : envi() + "/idl86/bin/";
    write_file(directory + name, "#!/bin/sh\nINSTALL_DIR=/x\nif [ 1 ]; then\n   env | grep KORVALEN\nfi\n",
               0700);
  }
  install_envi();
  EXPECT_EQ(exported_by(script("envi")), "KORVALEN_INIT_DIR=/etc/quorin\n");
  EXPECT_EQ(exported_by(idl("idl")), "KORVALEN_INIT_DIR=/etc/quorin\n");
  // A user's own value wins in ENVI's scripts alone.
  EXPECT_EQ(exported_by(script("envi"), "/own"), "KORVALEN_INIT_DIR=/own\n");
  EXPECT_EQ(exported_by(idl("idl"), "/own"), "KORVALEN_INIT_DIR=/etc/quorin\n");
}

TEST_F(LaunchScripts, GetTheBlockAtTheTopWithoutALineToPutItBefore) {
  write_file(script("envi"), "if [ a ]; then\nb\nfi\n", 0755);
  write_file(script("envi_rt"), "#!/bin/sh\nexec envi_rt", 0755);
  write_file(idl("idl"), "#!/bin/sh\nexec idl\n", 0755);
  write_file(idl("idlde"), "MY_INSTALL_DIR=/i\n#!/bin/sh\n", 0755);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi")), envi_block("/etc/quorin") + "if [ a ]; then\nb\nfi\n");
  EXPECT_EQ(read_file(script("envi_rt")), envi_block("/etc/quorin") + "#!/bin/sh\nexec envi_rt\n");
  EXPECT_EQ(read_file(idl("idl")), idl_block("/etc/quorin") + "#!/bin/sh\nexec idl\n");
  EXPECT_EQ(read_file(idl("idlde")), idl_block("/etc/quorin") + "MY_INSTALL_DIR=/i\n#!/bin/sh\n");
}

TEST_F(LaunchScripts, WithCarriageReturnsGetAnEmptyLineAfterEachLine) {
  write_file(script("envi"), "#!/bin/sh\r\nif [ a ]; then\r\nfi\r\n", 0755);
  write_file(idl("idl"), "#!/bin/sh\r\nexec idl", 0755);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi")),
            "#!/bin/sh\n\n" + envi_block("/etc/quorin") + "if [ a ]; then\n\nfi\n\n");
  EXPECT_EQ(read_file(idl("idl")), idl_block("/etc/quorin") + "#!/bin/sh\n\nexec idl\n");
  EXPECT_EQ(read_file(script("envi") + "_original"), "#!/bin/sh\r\nif [ a ]; then\r\nfi\r\n");
}

TEST_F(LaunchScripts, OfEnviAreCreatedWhenTheyAreMissing) {
  fs::remove(script("envi_rt"));
  const std::string warnings = "WRONG envi script 1 : " + script("envi_rt") +
                               "\nWRONG size envi script 2 :: " + script("envi_rt") + "\n";
  EXPECT_THAT(install_envi(), Ended(0, progress + warnings + "Done\n\n", ""));
  EXPECT_EQ(read_file(script("envi_rt")), envi_block("/etc/quorin"));
  EXPECT_EQ(support::mode_of(script("envi_rt")), 0644U);
  EXPECT_FALSE(fs::exists(script("envi_rt") + "_original"));

  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi_rt")), envi_block("/etc/quorin"));
}

TEST_F(LaunchScripts, OfIdlAreNotCreatedWhenTheyAreMissing) {
  fs::remove(idl("idl"));
  EXPECT_THAT(install_envi(), Ended(0, progress + "WRONG idl script 3 : " + idl("idl") + "\nDone\n\n", ""));
  EXPECT_FALSE(fs::exists(idl("idl")));
  EXPECT_EQ(read_file(idl("idlde")), patched_idl_script("idlde", "/etc/quorin"));
}

TEST_F(LaunchScripts, ThatAreEmptyAreReportedAtEveryRun) {
  write_file(script("envi"), "", 0755);
  write_file(idl("idlde"), "", 0755);
  const std::string out = progress + "WRONG size envi script 2 :: " + script("envi") +
                          "\nWRONG size envi script 4 : " + idl("idlde") + "\nDone\n\n";
  for (int run = 1; run <= 2; ++run) {
    SCOPED_TRACE(run);
    EXPECT_THAT(install_envi(), Ended(0, out, ""));
    EXPECT_EQ(read_file(script("envi")), "");
    EXPECT_EQ(read_file(script("envi") + "_original"), "");
    EXPECT_EQ(read_file(idl("idlde")), "");
    EXPECT_EQ(read_file(idl("idlde") + "_original"), "");
  }
}

TEST_F(LaunchScripts, AreRestoredFromTheirBackupsWhenTheyAreMissing) {
  for (const std::string &gone : {script("envi"), idl("idl")})
    fs::rename(gone, gone + "_original");
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi")), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(idl("idl")), patched_idl_script("idl", "/etc/quorin"));
  EXPECT_EQ(support::mode_of(script("envi")), 0644U);
}

TEST_F(LaunchScripts, AreRestoredOverLaterChanges) {
  write_file(script("envi") + "_original", envi_script("old"), 0600);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi")), patched_envi_script("old", "/etc/quorin"));
  EXPECT_EQ(read_file(script("envi") + "_original"), envi_script("old"));
  EXPECT_EQ(support::mode_of(script("envi") + "_original"), 0600U);
}

TEST_F(LaunchScripts, ThatAreLinksStayLinksAndTheirTargetsArePatched) {
  fs::create_directory(envi() + "/real");
  for (const std::string &name : {std::string("envi"), std::string("idl")}) {
    const std::string link = name == "envi" ? script(name) : idl(name);
    fs::rename(link, envi() + "/real/" + name);
    fs::create_symlink(envi() + "/real/" + name, link);
  }
  const support::tree before = snapshot(envi());
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  const support::tree after = snapshot(envi());
  EXPECT_EQ(changes(support::below(before, "real"), support::below(after, "real")),
            "changed file 755 envi\nchanged file 755 idl\n");
  EXPECT_EQ(after.at("bin/envi"), before.at("bin/envi"));
  EXPECT_EQ(after.at("idl86/bin/idl"), before.at("idl86/bin/idl"));
  EXPECT_EQ(read_file(envi() + "/real/envi"), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(envi() + "/real/idl"), patched_idl_script("idl", "/etc/quorin"));
  EXPECT_EQ(after.at("bin/envi_original"), (support::entry{"file", 0644, envi_script("envi")}));
  EXPECT_EQ(after.at("idl86/bin/idl_original"), (support::entry{"file", 0644, idl_script("idl")}));
}

TEST_F(LaunchScripts, OfAnEarlierReleaseWithoutABackupGetOneNewBlockForTheOld) {
  write_file(script("envi"), patched_envi_script("envi", "/opt/old"), 0755);
  write_file(idl("idl"), patched_idl_script("idl", "/opt/old"), 0755);
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envi")), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(idl("idl")), patched_idl_script("idl", "/etc/quorin"));
}

TEST_F(LaunchScripts, HoldOneBlockWithTheLastInitDirectory) {
  EXPECT_THAT(install_envi(), Ended(0, installed, ""));
  EXPECT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script("envitaskengine")), patched_envi_script("envitaskengine", product()));
  EXPECT_EQ(read_file(idl("idlde")), patched_idl_script("idlde", product()));
}
