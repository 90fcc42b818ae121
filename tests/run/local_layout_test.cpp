// The configuration file in the product directory, the uninstall script beside the product directory.

#include "run/whole_run.h"

#include <sys/stat.h>

using namespace whole_runs;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

class LocalLayout : public whole_run {
protected:
  LocalLayout() { fs::create_directory(product()); }
  std::string script() const { return host() + "/korvalen_uninstall.sh"; }
};

} // namespace

TEST_F(LocalLayout, WritesTheConfigurationIntoTheProductAndTheScriptBesideIt) {
  const support::tree etc = snapshot("/etc");
  EXPECT_THAT(install({product(), "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(support::changes({}, snapshot(host())),
            "new directory 755 korvalen\nnew file 644 korvalen/Korvalen_configuration.ini\n"
            "new file 705 korvalen_uninstall.sh\n");
  EXPECT_EQ(support::changes(etc, snapshot("/etc")), "");
  EXPECT_EQ(read_file(product() + "/Korvalen_configuration.ini"), configuration_of(product()));
  EXPECT_EQ(read_file(script()),
            "rm " + product() + "/Korvalen_configuration.ini\nrm -rf " + product() + "\n");
}

TEST_F(LocalLayout, GivesTheLaunchScriptsTheProductDirectory) {
  make_envi();
  EXPECT_THAT(install({product(), envi(), "x"}), Ended(0, installed, ""));
  for (const char *name : {"envi", "envi_rt", "envitaskengine"})
    EXPECT_EQ(read_file(envi() + "/bin/" + name), patched_envi_script(name, product()));
  for (const char *name : {"idl", "idlde"})
    EXPECT_EQ(read_file(envi() + "/idl86/bin/" + name), patched_idl_script(name, product()));
}

TEST_F(LocalLayout, DoublesATrailingSlashInThePathsButNotInTheLaunchScripts) {
  ship("envi/save/k.sav");
  make_envi();
  EXPECT_THAT(install({product() + "/", envi(), "x"}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(script()), "rm " + product() + "//Korvalen_configuration.ini\nrm " + envi() +
                                     "/save/k.sav\nrm -rf " + product() + "/\n");
  EXPECT_EQ(read_file(product() + "/Korvalen_configuration.ini"), configuration_of(product() + "/"));
  EXPECT_EQ(read_file(envi() + "/bin/envi"), patched_envi_script("envi", product()));
  EXPECT_EQ(read_file(envi() + "/idl86/bin/idlde"), patched_idl_script("idlde", product()));
}

TEST_F(LocalLayout, MakesAMissingProductDirectoryWithItsParents) {
  const std::string missing = host() + "/a/b/korvalen";
  EXPECT_THAT(install({missing, "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(support::changes({}, support::below(snapshot(host()), "a")),
            "new directory 755 b\nnew directory 755 b/korvalen\n"
            "new file 644 b/korvalen/Korvalen_configuration.ini\nnew file 705 b/korvalen_uninstall.sh\n");
}

TEST_F(LocalLayout, ReplacesTheScriptAndTheConfigurationOfAnEarlierRun) {
  write_file(script(), "rm -rf /opt/old\n", 0400);
  write_file(product() + "/Korvalen_configuration.ini", std::string(4000, 'x'), 0600);
  EXPECT_THAT(install({product(), "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(read_file(script()),
            "rm " + product() + "/Korvalen_configuration.ini\nrm -rf " + product() + "\n");
  EXPECT_EQ(read_file(product() + "/Korvalen_configuration.ini"), configuration_of(product()));
  EXPECT_EQ(support::mode_of(script()), 0705U);
}

TEST_F(LocalLayout, EndsWithZeroAndWithoutAScriptWhenTheParentMayNotBeWritten) {
  give_to_other_user(product());
  EXPECT_THAT(install_as_other_user({product(), "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(support::changes({}, snapshot(host())),
            "new directory 755 korvalen\nnew file 644 korvalen/Korvalen_configuration.ini\n");
}

TEST_F(LocalLayout, EndsWithZeroAndWithoutAScriptWhenALinkOfItsNameLeadsNowhere) {
  fs::create_symlink("missing/script.sh", host() + "/korvalen_uninstall.sh");
  EXPECT_THAT(install({product(), "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_EQ(fs::read_symlink(host() + "/korvalen_uninstall.sh"), "missing/script.sh");
  EXPECT_FALSE(fs::exists(host() + "/missing"));
}

TEST_F(LocalLayout, EndsWithOneWhenTheProductDirectoryMayNotBeWritten) {
  make_envi();
  const support::tree before = snapshot(host());
  EXPECT_THAT(install_as_other_user({product(), envi(), "x"}),
              Ended(1, "",
                    "Error: cannot create configuration file " + product() +
                        "/Korvalen_configuration.ini\n\nPlease check path and privileges!\n\n"));
  EXPECT_EQ(support::changes(before, snapshot(host())), "");
}

TEST_F(LocalLayout, ServesAnotherUserWhoOwnsBothTrees) {
  unpack_samples();
  give_to_other_user(host());
  give_to_other_user(".");
  EXPECT_THAT(install_as_other_user({product(), envi(), "x"}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(envi() + "/save/korvalen_modeling.sav"),
            read_file(source("envi/save/korvalen_modeling.sav")));
  struct stat status {};
  EXPECT_EQ(stat((envi() + "/save/korvalen_modeling.sav").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
}

// The product directory that the configuration goes into is the relative one; the one that is made is not.
TEST_F(LocalLayout, MakesTheDirectoryOfARelativeArgumentBelowTheRoot) {
  const std::string relative = host().substr(1) + "/relative";
  fs::create_directories(relative);
  EXPECT_THAT(install({relative, "NotOK", "x"}), Ended(0, "", ""));
  EXPECT_TRUE(fs::is_directory("/" + relative));
  EXPECT_EQ(support::changes({}, support::below(snapshot("."), host().substr(1))),
            "new file 705 korvalen_uninstall.sh\nnew directory 755 relative\n"
            "new file 644 relative/Korvalen_configuration.ini\n");
  EXPECT_EQ(read_file(relative + "/../korvalen_uninstall.sh"),
            "rm " + relative + "/Korvalen_configuration.ini\nrm -rf " + relative + "\n");
}
