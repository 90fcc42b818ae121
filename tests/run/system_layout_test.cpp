// The configuration file and the uninstall script in /etc/quorin.

#include "run/whole_run.h"

#include <climits>
#include <sys/stat.h>

using namespace whole_runs;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

constexpr const char *cannot_create =
    "Error: cannot create configuration file /etc/quorin/Korvalen_configuration.ini\n"
    "\nPlease check path and privileges!\n\n";

class SystemLayout : public whole_run {
protected:
  static std::string quorin_modes() { return support::changes({}, snapshot("/etc/quorin")); }
};

} // namespace

TEST_F(SystemLayout, MakesItsDirectoryWhenThereIsNone) {
  const support::tree before = snapshot("/etc");
  EXPECT_THAT(install({product()}), Ended(0, "", ""));
  EXPECT_EQ(support::changes(before, snapshot("/etc")), made_in_etc);
}

TEST_F(SystemLayout, WritesFifteenLinesOfTheProductsPaths) {
  install({"/opt/k"});
  EXPECT_EQ(read_file("/etc/quorin/Korvalen_configuration.ini"),
            "/opt/k/auxiliary/key_files/\n"
            "/opt/k/auxiliary/mandatory/\n"
            "/opt/k/work/\n"
            "/opt/k/bin/\n"
            "/opt/k/auxiliary/map_files/\n"
            "/opt/k/auxiliary/description_files/\n"
            "/opt/k/auxiliary/xml_parameters_definition/\n"
            "/opt/k/auxiliary/description_files/\n"
            "/opt/k/auxiliary/description_01_files/\n"
            "/opt/k/auxiliary/xml_schema_files/\n"
            "LSBF\n"
            "ACTIVE\n"
            "1\n"
            "NaN\n"
            "\n");
}

TEST_F(SystemLayout, RecordsTheConfigurationFileAndLastTheProductDirectory) {
  install({"/opt/k"});
  EXPECT_EQ(read_file("/etc/quorin/korvalen_uninstall.sh"),
            "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf /opt/k\n");
}

TEST_F(SystemLayout, KeepsATrailingSlashOfTheProductDirectoryInEveryLine) {
  install({"/opt/k/"});
  EXPECT_EQ(read_file(script_in_etc), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf /opt/k/\n");
  EXPECT_EQ(read_file(configuration_in_etc), configuration_of("/opt/k/"));
}

TEST_F(SystemLayout, DoesNotAskWhetherTheProductDirectoryExists) {
  EXPECT_THAT(install({host() + "/missing"}), Ended(0, "", ""));
  EXPECT_EQ(read_file(configuration_in_etc), configuration_of(host() + "/missing"));
  EXPECT_EQ(snapshot(host()).size(), 0U);
}

TEST_F(SystemLayout, LeavesTheModeOfAnExistingDirectory) {
  fs::create_directory("/etc/quorin");
  chmod("/etc/quorin", 0711);
  EXPECT_THAT(install({product()}), Ended(0, "", ""));
  EXPECT_EQ(support::mode_of("/etc/quorin"), 0711U);
  EXPECT_EQ(quorin_modes(), "new file 644 Korvalen_configuration.ini\nnew file 705 korvalen_uninstall.sh\n");
}

TEST_F(SystemLayout, ReplacesTheScriptAndTheConfigurationOfAnEarlierRun) {
  write_file(script_in_etc, "rm /opt/old/file\nrm -rf /opt/old\n", 0444);
  write_file(configuration_in_etc, std::string(4000, 'x'), 0444);
  write_file("/etc/quorin/licence.dat", "of another product\n", 0600);
  EXPECT_THAT(install({"/opt/k"}), Ended(0, "", ""));
  EXPECT_EQ(read_file(script_in_etc), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf /opt/k\n");
  EXPECT_EQ(read_file(configuration_in_etc), configuration_of("/opt/k"));
  EXPECT_EQ(quorin_modes(), "new file 444 Korvalen_configuration.ini\nnew file 705 korvalen_uninstall.sh\n"
                            "new file 600 licence.dat\n");
}

TEST_F(SystemLayout, EndsWithOneWhenAnotherUserMayNotMakeTheDirectory) {
  make_envi();
  const support::tree before = snapshot(host());
  const support::tree etc = snapshot("/etc");
  EXPECT_THAT(install_as_other_user({product(), envi()}), Ended(1, "", cannot_create));
  EXPECT_EQ(support::changes(before, snapshot(host())), "");
  EXPECT_EQ(support::changes(etc, snapshot("/etc")), "");
}

TEST_F(SystemLayout, EndsWithOneWhenAnotherUserMayNotWriteInTheDirectory) {
  make_envi();
  fs::create_directory("/etc/quorin");
  const support::tree before = snapshot(host());
  EXPECT_THAT(install_as_other_user({product(), envi()}), Ended(1, "", cannot_create));
  EXPECT_EQ(quorin_modes(), "");
  EXPECT_EQ(support::changes(before, snapshot(host())), "");
}

TEST_F(SystemLayout, LeavesTheFilesOfAnEarlierRunWhenAnotherUserMayNotReplaceThem) {
  write_file(script_in_etc, "rm -rf /opt/old\n", 0705);
  write_file(configuration_in_etc, "old\n", 0644);
  const support::tree before = snapshot("/etc");
  EXPECT_THAT(install_as_other_user({product()}), Ended(1, "", cannot_create));
  EXPECT_EQ(support::changes(before, snapshot("/etc")), "");
}

TEST_F(SystemLayout, LeavesAnEmptiedScriptWithoutAModeWhenOnlyTheConfigurationCannotBeWritten) {
  write_file(script_in_etc, "rm -rf /opt/old\n", 0640);
  give_to_other_user("/etc/quorin");
  write_file(configuration_in_etc, "old\n", 0444);
  EXPECT_THAT(install_as_other_user({product()}), Ended(1, "", cannot_create));
  EXPECT_EQ(read_file(script_in_etc), "");
  EXPECT_EQ(read_file(configuration_in_etc), "old\n");
  EXPECT_EQ(quorin_modes(), "new file 444 Korvalen_configuration.ini\nnew file 640 korvalen_uninstall.sh\n");
}

TEST_F(SystemLayout, EndsWithOneWhenAFileStandsInThePlaceOfTheDirectory) {
  write_file("/etc/quorin", "a file\n");
  const support::tree before = snapshot("/etc");
  EXPECT_THAT(install({product()}), Ended(1, "", cannot_create));
  EXPECT_EQ(support::changes(before, snapshot("/etc")), "");
}

TEST_F(SystemLayout, EndsWithZeroWhenTheScriptCannotBeWritten) {
  fs::create_directories(script_in_etc + "/in_the_way");
  EXPECT_THAT(install({product()}), Ended(0, "", ""));
  EXPECT_EQ(quorin_modes(),
            "new file 644 Korvalen_configuration.ini\nnew directory 705 korvalen_uninstall.sh\n"
            "new directory 755 korvalen_uninstall.sh/in_the_way\n");
}

TEST_F(SystemLayout, EndsWithZeroWhenTheConfigurationsLinesCannotBeWritten) {
  fs::create_directory("/etc/quorin");
  fs::create_symlink("/dev/full", configuration_in_etc);
  EXPECT_THAT(install({"/opt/k"}), Ended(0, "", ""));
  EXPECT_EQ(read_file(script_in_etc), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf /opt/k\n");
}

TEST_F(SystemLayout, LeavesAnEmptyConfigurationWhenItCannotBeOpenedASecondTime) {
  fs::create_directory("/etc/quorin");
  write_file(script_in_etc, "rm -rf /opt/old\n", 0644);
  give_to_other_user("/etc/quorin");
  umask(0777);
  const support::outcome run = install_as_other_user({"/opt/k"});
  umask(022);
  EXPECT_THAT(run, Ended(0, "", ""));
  EXPECT_EQ(read_file(configuration_in_etc), "");
  EXPECT_EQ(read_file(script_in_etc), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf /opt/k\n");
  EXPECT_EQ(quorin_modes(), "new file 0 Korvalen_configuration.ini\nnew file 705 korvalen_uninstall.sh\n");
}

TEST_F(SystemLayout, GivesTheScriptsTheInitDirectoryAndRecordsEveryPlacedFile) {
  ship("envi/save/k.sav");
  ship("idl/help/k.html");
  make_envi();
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(envi() + "/bin/envi"), patched_envi_script("envi", "/etc/quorin"));
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idl"), patched_idl_script("idl", "/etc/quorin"));
  EXPECT_EQ(read_file(script_in_etc), "rm /etc/quorin/Korvalen_configuration.ini\nrm " + envi() +
                                          "/save/k.sav\nrm " + envi() + "/idl86/help/k.html\nrm -rf " +
                                          product() + "\n");
}
