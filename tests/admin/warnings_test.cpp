// What a plan warns of, each warning with the path that it is about.
#include "admin/planned_run.h"

#include <sched.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

using namespace admin_tests;
using support::write_file;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Warnings : public planned_run {
protected:
  Warnings() { make_host(); }

  // Where the product is read-only, and a file stands for the null device: the shell can silence no listing,
  // says so, and lists nothing.
  std::function<void()> silenced_nowhere() {
    write_file(path("null"), "");
    bind(product(), product());
    make_read_only(product());
    return [this] {
      must(unshare(CLONE_NEWNS), "unshare");
      must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount");
      must(mount(path("null").c_str(), "/dev/null", nullptr, MS_BIND, nullptr), "mount");
    };
  }

  // A line "CODE PATH" each.
  std::vector<std::string> warned(const std::string &product_dir, const std::string &envi) const {
    const support::outcome planned = support::run({support::admin_path, "plan", "--json", product_dir, envi});
    const json object = parsed_json(planned.out);
    std::vector<std::string> lines;
    for (const json &one : object.at("warnings"))
      lines.push_back(one["code"].get<std::string>() + " " +
                      whole_runs::replaced(one.value("path", one["text"].get<std::string>()), host(), "~"));
    return lines;
  }
  std::vector<std::string> warned() const { return warned(product(), envi()); }
  void write_script(const std::string &text) const { write_file(envi() + "/bin/envi", text, 0755); }
};

TEST_F(Warnings, AreNoneWhereEverythingIsAsUsual) {
  EXPECT_THAT(warned(), IsEmpty());
}

TEST_F(Warnings, OfUnsetVariablesFollowTheOptionsOfTheShell) {
  const std::string rest = "\nif [ -n \"$1\" ]; then\n  :\nfi\n";
  for (const char *lines : {"#!/bin/sh -u", "#!/bin/sh -eu", "#!/bin/sh -o nounset", "#!/bin/sh\nset -u",
                            "#!/bin/sh\nset -e -o nounset", "#!/bin/sh\n  set -o nounset -x"}) {
    write_script(lines + rest);
    EXPECT_THAT(warned(), ElementsAre("nounset ~/envi54/bin/envi")) << lines;
  }
  for (const char *lines : {"#!/bin/sh -e", "#!/bin/sh\nset -o errexit", "#!/bin/sh\nset --u",
                            "#!/bin/sh\nset - u", "#!/bin/sh\nset nounset", "#!/bin/sh\nset +u",
                            "#!/bin/sh\n#! -u", "#!/bin/sh\nreset -u", "# a comment -u", ""}) {
    write_script(lines + rest);
    EXPECT_THAT(warned(), IsEmpty()) << lines;
  }
  write_script("#!/bin/sh" + rest + "set -u\n");
  EXPECT_THAT(warned(), IsEmpty()) << "the block comes before it";
}

TEST_F(Warnings, OfBlanksNameEveryPathThatHoldsThem) {
  whole_runs::copy_tree(product(), path("host/kor valen"));
  whole_runs::copy_tree(envi(), path("host/en vi"));
  const auto of_directories = warned(path("host/kor valen"), path("host/en vi"));
  EXPECT_THAT(of_directories, Contains("blanks ~/kor valen"));
  EXPECT_THAT(of_directories, Contains("blanks ~/en vi"));
  ship("envi/save/two words.sav");
  ship("envi/save/.two words.sav");
  EXPECT_THAT(warned(), ElementsAre("blanks ~/envi54/save/two words.sav"));
}

TEST_F(Warnings, NameEveryIdlThatIsNotTaken) {
  fs::create_directories(envi() + "/idl87/bin");
  fs::create_directories(envi() + "/idl90/bin");
  EXPECT_THAT(warned(), ElementsAre("higher-idl ~/envi54/idl87", "higher-idl ~/envi54/idl90"));
}

TEST_F(Warnings, NameEveryMissingScript) {
  fs::remove(envi() + "/bin/envi");
  fs::remove(envi() + "/bin/envi_rt");
  fs::remove(envi() + "/idl86/bin/idlde");
  EXPECT_THAT(warned(), ElementsAre("missing-script ~/envi54/bin/envi", "missing-script ~/envi54/bin/envi_rt",
                                    "missing-script ~/envi54/idl86/bin/idlde"));
}

TEST_F(Warnings, TellWhatStandsOnStandardErrorThoughTheInstallerEndsWell) {
  ship("envi/extensions/quorin_core.sav"); // which could not be removed, and is not deployed either
  const json object = parsed_json(plan_under(silenced_nowhere(), "--json").out);
  EXPECT_EQ(object["installer"]["status"], 0) << object.dump(1);
  std::vector<std::string> texts;
  for (const json &one : object.at("warnings")) {
    EXPECT_NE(one["code"], "quorin-core");
    if (one["code"] == "installer-complains")
      texts.push_back(one["text"]);
  }
  EXPECT_THAT(texts, ElementsAre(testing::HasSubstr("/dev/null: Read-only file system\": see what the "
                                                    "installer prints, and mend the cause")));
}

TEST_F(Warnings, AreToldWhereAFileHasTheNameOfADirectoryThatIsNotDeployed) {
  write_file(source("envi/save/both.sav/inside"), "of the product");
  write_file(envi() + "/save/both.sav", "the host's");
  const support::outcome planned = plan_under(silenced_nowhere(), "--json");
  const json object = parsed_json(planned.out);
  EXPECT_FALSE(object.contains("error")) << planned;
  EXPECT_EQ(object["installer"]["status"], 0) << planned;
}

TEST_F(Warnings, TellAProductThatHoldsDirectoriesAndNoFile) {
  fs::remove_all(product() + "/auxiliary/envi_extensions_54");
  fs::create_directories(product() + "/auxiliary/envi_extensions_54/envi/save");
  EXPECT_THAT(warned(), ElementsAre("not-deployed ~/korvalen/auxiliary/envi_extensions_54"));
}

TEST_F(Warnings, OfAPatchedScriptTellsWhoPatchedIt) {
  write_script(patched_envi_script("envi", "/etc/quorin"));
  EXPECT_THAT(warned(), ElementsAre("installed-before ~/envi54/bin/envi"));
  write_file(envi() + "/bin/envi_original", "", 0755);
  EXPECT_THAT(warned(),
              ElementsAre("empty-backup ~/envi54/bin/envi_original", "installed-before ~/envi54/bin/envi"));
}

// Of a link that leads nowhere there is nothing to rehearse.
TEST_F(Warnings, AreNoneOfALinkThatLeadsNowhere) {
  fs::create_symlink("nowhere", envi() + "/save/dangling");
  EXPECT_THAT(warned(), IsEmpty());
}

class PlanOfFiles : public planned_run {
protected:
  PlanOfFiles() { make_host(); }
  // The changes of a plan, with their differences.
  json changes() const {
    json object = parsed_json(plan({"--json"}).out);
    json by_path;
    for (const json &one : object["changes"])
      by_path[whole_runs::replaced(one["path"], envi() + "/", "")] = one.value("diff", "none");
    return by_path;
  }
};

TEST_F(PlanOfFiles, ShowsTheDifferenceOfTextsAndNotOfOthers) {
  const std::string large(2U << 20U, 'x');
  const std::string binary("a\0b", 3);
  const std::pair<std::string, std::string> rows[] = {
      {"old", large}, {large, "new"}, {"old", binary}, {binary, "new"}};
  for (const auto &[before, after] : rows) {
    write_file(envi() + "/save/k.sav", before);
    write_file(source("envi/save/k.sav"), after);
    EXPECT_EQ(changes()["save/k.sav"], "none");
  }
  write_file(envi() + "/save/k.sav", "old\n");
  write_file(source("envi/save/k.sav"), "new\n");
  EXPECT_EQ(changes()["save/k.sav"],
            "--- " + envi() + "/save/k.sav\n+++ " + envi() + "/save/k.sav\n@@ -1,1 +1,1 @@\n-old\n+new\n");
}

TEST_F(PlanOfFiles, OfALinkToADeviceIsRefused) {
  must(mknod(path("host/disk").c_str(), S_IFBLK | 0600, makedev(7, 0)), "mknod");
  fs::create_symlink(path("host/disk"), envi() + "/save/link");
  EXPECT_EQ(refusal(),
            "~/envi54/save/link cannot be rehearsed: it leads to a device, and there is none in a rehearsal");
}

// A launch script and a deployed file that are one file.
TEST_F(PlanOfFiles, ThatAreWrittenForTwoReasonsIsTrue) {
  fs::create_hard_link(envi() + "/bin/envi", envi() + "/save/k.sav");
  fs::remove(source("envi/extensions/menu.sav"));
  fs::create_hard_link(envi() + "/bin/envi_rt", source("envi/extensions/menu.sav"));
  expect_true_plan();
}

TEST_F(PlanOfFiles, WithADirectoryAmongThoseToBeDeployedIsTrue) {
  write_file(source("envi/save/directory.sav/inside"), "");
  write_file(source("envi/save/.hidden.sav"), "");
  expect_true_plan();
}

} // namespace
