// Names that a careless tool would run, expand, cut or take for options. A canary is a file that one of the
// names would make in the current directory if anything in it were run.

#include "run/whole_run.h"

#include <sys/stat.h>

using namespace whole_runs;
using support::changes;
using support::read_file;
using support::snapshot;
using support::write_file;

namespace {

struct hostile_name {
  const char *what;
  std::string name;
};
std::ostream &operator<<(std::ostream &out, const hostile_name &n) {
  return out << n.what;
}

// Names of directories that are not refused.
const std::vector<hostile_name> directory_names = {
    {"Blanks", " a  b "},
    {"BracesOfAnExpansion", "{a,b}"},
    {"ATilde", "~"},
    {"ATildeAndAUser", "~root"},
    {"ACommentSign", "#a #b"},
    {"AnExclamationMark", "!a"},
    {"AnAssignment", "A=b"},
    {"ConversionsOfPrintf", "%s%n%d%%"},
    {"AClosingBracketAndACaret", "]^a"},
    {"ALeadingDash", "-rf"},
    {"OnlyDots", "..."},
    {"ALeadingDot", ".a.d"},
    {"ADigitBeforeTheEnd", "a2"},
    {"InvalidUtf8", "\xff\xfez\xc3z\x80"},
    {"Utf8", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x9b\xb0"},
    {"AColonAndATilde", "a:~b"},
    {"AComponentOf255Bytes", std::string(255, 'n')},
};

class HostileDirectoryNames : public whole_run, public testing::WithParamInterface<hostile_name> {};

// Names of files in the product's tree, where no name is refused. Each matches "*.*".
const std::vector<std::string> file_names = {
    "a b.sav",
    "  .  ",
    "$(touch canary).sav",
    "`touch canary`.sav",
    "a;touch canary;.sav",
    "a&touch canary&.sav",
    "a|touch canary|.sav",
    "a>canary.sav",
    "a<canary.sav",
    "$HOME.sav",
    "${IFS}.sav",
    "it's.sav",
    "'touch canary'.sav",
    "\"quoted\".sav",
    "back\\slash.sav",
    "back\\nslash.sav",
    "-rf.sav",
    "--help.sav",
    "*.sav",
    "?.sav",
    "[a-z].sav",
    "{a,b}.sav",
    "~root.sav",
    "#comment.sav",
    "!history.sav",
    "(sub).sav",
    "%s%n.sav",
    "a=b.sav",
    "\ttab.sav",
    "\x01\x1f\x7f.sav",
    "\xff\xfe\xc3\x28.sav",
    "\xe2\x82\xac.sav",
    "2>.sav",
    std::string(251, 'n') + ".sav",
};

class HostileFileNames : public whole_run {
protected:
  HostileFileNames() { make_envi(); }
};

class LinkedFiles : public whole_run {
protected:
  LinkedFiles() { make_envi(); }
};

class HostileEnvironment : public whole_run {
protected:
  HostileEnvironment() {
    make_envi();
    ship("envi/save/k.sav");
  }
  support::outcome install_with(std::vector<std::string> variables) const {
    variables.insert(variables.begin(), "env");
    variables.insert(variables.end(), {support::installer_path, product(), envi()});
    return support::run(variables);
  }
};

} // namespace

TEST_P(HostileDirectoryNames, MeanJustThemselves) {
  const std::string top = host() + "/" + GetParam().name;
  const std::string product = top + "/korvalen";
  const std::string envi = top + "/envi54";
  make_envi(envi);
  for (const char *file : {"envi/custom_code/first.sav", "idl/help/Korvalen/index.html"})
    write_file(product + "/auxiliary/envi_extensions_54/" + file, file);
  const support::tree before = snapshot(host());

  EXPECT_THAT(install({product, envi, "x"}), Ended(0, installed, ""));

  const std::string happened = replaced(changes(before, snapshot(host())), GetParam().name + "/", "TOP/");
  EXPECT_EQ(happened, R"(changed file 755 TOP/envi54/bin/envi
new file 644 TOP/envi54/bin/envi_original
changed file 755 TOP/envi54/bin/envi_rt
new file 644 TOP/envi54/bin/envi_rt_original
changed file 755 TOP/envi54/bin/envitaskengine
new file 644 TOP/envi54/bin/envitaskengine_original
new directory 755 TOP/envi54/classic
new directory 755 TOP/envi54/classic/filt_func
new directory 755 TOP/envi54/classic/save
new directory 755 TOP/envi54/classic/save_add
new directory 755 TOP/envi54/custom_code
new file 755 TOP/envi54/custom_code/first.sav
new directory 755 TOP/envi54/extensions
new directory 755 TOP/envi54/idl86/bin/bin.linux.x86_64
changed file 755 TOP/envi54/idl86/bin/idl
new file 644 TOP/envi54/idl86/bin/idl_original
changed file 755 TOP/envi54/idl86/bin/idlde
new file 644 TOP/envi54/idl86/bin/idlde_original
new directory 755 TOP/envi54/idl86/help
new directory 755 TOP/envi54/idl86/help/online_help
new directory 755 TOP/envi54/idl86/help/online_help/Subsystems
new directory 755 TOP/envi54/idl86/help/online_help/Subsystems/Korvalen
new file 755 TOP/envi54/idl86/help/online_help/Subsystems/Korvalen/index.html
new directory 755 TOP/envi54/idl86/lib
new directory 755 TOP/envi54/idl86/lib/hook
new directory 755 TOP/envi54/resource
new directory 755 TOP/envi54/resource/bitmaps
new directory 755 TOP/envi54/resource/filterfuncs
new directory 755 TOP/envi54/resource/langcat
new directory 755 TOP/envi54/resource/templates
new directory 755 TOP/envi54/resource/templates/tasks
new directory 755 TOP/envi54/resource/templates/tasks/Korvalen
new directory 755 TOP/envi54/save
new file 644 TOP/korvalen/Korvalen_configuration.ini
new file 705 TOP/korvalen_uninstall.sh
)");
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
  EXPECT_EQ(read_file(envi + "/bin/envi"), patched_envi_script("envi", product));
  EXPECT_EQ(read_file(product + "/Korvalen_configuration.ini"), configuration_of(product));
  EXPECT_EQ(read_file(top + "/korvalen_uninstall.sh"),
            "rm " + product + "/Korvalen_configuration.ini\nrm " + envi + "/custom_code/first.sav\nrm " +
                envi + "/idl86/help/online_help/Subsystems/Korvalen/index.html\nrm -rf " + product + "\n");
}

INSTANTIATE_TEST_SUITE_P(With, HostileDirectoryNames, testing::ValuesIn(directory_names),
                         [](const auto &instance) { return instance.param.what; });

TEST_F(HostileFileNames, AreCopiedAndRecordedVerbatimAndNeverRun) {
  std::string expected_lines = "rm /etc/quorin/Korvalen_configuration.ini\n";
  for (const std::string &name : file_names) {
    ship("envi/save/" + name);
    write_file(envi() + "/bin/" + name, "ENVI's own\n", 0640);
  }
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));

  const support::tree placed = snapshot(envi() + "/save");
  EXPECT_EQ(placed.size(), file_names.size());
  for (const std::string &name : file_names) {
    EXPECT_EQ(placed.at(name), (support::entry{"file", 0755, "envi/save/" + name + "\n"}));
    EXPECT_EQ(snapshot(envi() + "/bin").at(name), (support::entry{"file", 0640, "ENVI's own\n"}));
    EXPECT_THAT(recorded(), testing::HasSubstr("\nrm ENVI/save/" + name + "\n"));
  }
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
  EXPECT_EQ(support::file_names(snapshot(scratch())).find("canary\n"), std::string::npos);
}

TEST_F(HostileFileNames, WithANewlineEndTheRunWith255AndAreNotRun) {
  ship("envi/custom_code/first.sav");
  ship("envi/save/a.sav\ntouch canary.sav");
  EXPECT_THAT(install({product(), envi()}),
              Ended(255, progress, copy_error(source("envi/save/a.sav"), envi() + "/save/a.sav")));
  EXPECT_EQ(recorded(), "rm /etc/quorin/Korvalen_configuration.ini\nrm ENVI/custom_code/first.sav\n");
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
}

// A part of such a name may be the name of another file of the product; nothing but that is copied.
TEST_F(HostileFileNames, WithANewlineCanNameOnlyFilesOfTheSameDirectory) {
  write_file(product() + "/secret.txt", "secret\n");
  ship("envi/save/a.sav");
  ship("envi/save/b.sav\n..");
  EXPECT_THAT(install({product(), envi()}),
              Ended(255, progress, copy_error(source("envi/save/b.sav"), envi() + "/save/b.sav")));
  EXPECT_EQ(support::file_names(snapshot(envi() + "/save")), "a.sav\n");
}

TEST_F(HostileFileNames, WithACarriageReturnEndTheRunWith255) {
  ship("envi/save/a.sav\rb");
  EXPECT_THAT(install({product(), envi()}),
              Ended(255, progress, copy_error(source("envi/save/a.sav\n"), envi() + "/save/a.sav\n")));
  EXPECT_EQ(snapshot(envi() + "/save").size(), 0U);
}

TEST_F(HostileFileNames, OfARelativeProductDirectoryThatBeginsWithADashAreNotOptions) {
  fs::create_directories("-p/auxiliary/envi_extensions_54/envi/save");
  write_file("-p/auxiliary/envi_extensions_54/envi/save/k.sav", "k\n");
  EXPECT_THAT(install({"./-p", envi()}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(envi() + "/save/k.sav"), "k\n");
  EXPECT_EQ(read_file(script_in_etc),
            "rm /etc/quorin/Korvalen_configuration.ini\nrm " + envi() + "/save/k.sav\nrm -rf ./-p\n");
}

TEST_F(HostileFileNames, InLaunchScriptsAreNotRunByPatchingThem) {
  const std::string text =
      "#!/bin/sh\ntouch canary\n$(touch canary)\n`touch canary`\nif [ a ]; then touch canary; fi\n";
  for (const char *name : {"envi", "envi_rt", "envitaskengine"})
    write_file(envi() + "/bin/" + name, text, 0755);
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(envi() + "/bin/envi_original"), text);
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
}

TEST_F(LinkedFiles, OfTheProductAreCopiedAsTheFilesThatTheyPointTo) {
  write_file(path("outside.txt"), "outside\n", 0600);
  fs::create_directories(source("envi/save"));
  fs::create_symlink(path("outside.txt"), source("envi/save/k.sav"));
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_EQ(snapshot(envi() + "/save").at("k.sav"), (support::entry{"file", 0755, "outside\n"}));
  EXPECT_EQ(support::mode_of(path("outside.txt")), 0600U);
}

TEST_F(LinkedFiles, InEnviAreWrittenThroughUnderANameOfTheProduct) {
  write_file(path("outside.txt"), "outside\n", 0600);
  ship("envi/save/k.sav");
  fs::create_directory(envi() + "/save");
  fs::create_symlink(path("outside.txt"), envi() + "/save/k.sav");
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  EXPECT_TRUE(fs::is_symlink(envi() + "/save/k.sav"));
  EXPECT_EQ(read_file(path("outside.txt")), "envi/save/k.sav\n");
  EXPECT_EQ(support::mode_of(path("outside.txt")), 0755U);
}

TEST_F(LinkedFiles, InEnviUnderAStaleNameAreRemovedWithoutTheirTargets) {
  write_file(path("outside.txt"), "outside\n", 0600);
  fs::create_directory(envi() + "/custom_code");
  fs::create_symlink(path("outside.txt"), envi() + "/custom_code/quorin_modeling.sav");
  fs::create_symlink(path("missing.txt"), envi() + "/custom_code/quorin_core.sav");
  EXPECT_THAT(install({product(), envi()}), Ended(0, installed, ""));
  // A dangling link counts as missing.
  EXPECT_EQ(changes({}, snapshot(envi() + "/custom_code")), "new link quorin_core.sav\n");
  EXPECT_EQ(read_file(path("outside.txt")), "outside\n");
  EXPECT_EQ(support::mode_of(path("outside.txt")), 0600U);
}

TEST_F(HostileEnvironment, ChangesNothingThroughVariablesOfTheShellAndTheLocale) {
  write_file(path("start.sh"), "touch canary\n", 0755);
  EXPECT_THAT(install_with({"ENV=" + path("start.sh"), "BASH_ENV=" + path("start.sh"), "IFS=/.", "CDPATH=/",
                            "PS4=$(touch canary)", "LC_ALL=xx_XX.UTF-8", "LANG=xx", "LS_COLORS=*.sav=01;31",
                            "POSIXLY_CORRECT=1", "TMPDIR=/missing", "HOME=/missing"}),
              Ended(0, installed, ""));
  EXPECT_EQ(recorded(), "rm /etc/quorin/Korvalen_configuration.ini\nrm ENVI/save/k.sav\nrm -rf PRODUCT\n");
  EXPECT_EQ(support::file_names(snapshot(".")), ".korvalen_ls_temp_txt\n");
}

TEST_F(HostileEnvironment, CannotMakeLsQuoteNames) {
  EXPECT_THAT(install_with({"QUOTING_STYLE=shell-always"}), Ended(0, installed, ""));
  EXPECT_EQ(recorded(), "rm /etc/quorin/Korvalen_configuration.ini\nrm ENVI/save/k.sav\nrm -rf PRODUCT\n");
}

TEST_F(HostileEnvironment, ChoosesWhichLsIsRun) {
  write_file(path("bin/ls"), "#!/bin/sh\necho chosen >>" + path("chosen") + "\nexec /bin/ls \"$@\"\n", 0755);
  EXPECT_THAT(install_with({"PATH=" + path("bin") + ":/usr/bin:/bin"}), Ended(0, installed, ""));
  EXPECT_EQ(read_file(path("chosen")), replaced(std::string(15, '.'), ".", "chosen\n"));
}

TEST_F(HostileEnvironment, DeploysNothingWithoutAnLsInThePath) {
  support::outcome run = install_with({"PATH=/missing"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, installed);
  EXPECT_EQ(recorded(), "rm /etc/quorin/Korvalen_configuration.ini\nrm -rf PRODUCT\n");
}
