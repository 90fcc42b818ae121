#include "admin/admin_run.h"
#include "admin/records.h"
#include "support/disturbance.h"

#include <sys/syscall.h>

using namespace admin_runs;
using support::Ended;
using support::write_file;

namespace {

class Verify : public admin_run {
protected:
  Verify() {
    make_host();
    ship("envi/save/zz_link.sav");
  }
  support::outcome verify_as_other_user(std::vector<std::string> options = {}) const {
    fs::copy_file(support::admin_path, path("korvalen_admin"), fs::copy_options::overwrite_existing);
    options.insert(options.begin(), {path("korvalen_admin"), "verify"});
    options.insert(options.end(), {product(), envi()});
    return support::run(support::as_other_user(options));
  }
};

struct drift {
  const char *name;
  std::function<void(const std::string &envi)> happen;
  const char *path;
  const char *change; // as JSON names it
  const char *word;   // as the text does
};

TEST_F(Verify, NamesEverySingleDriftAndNothingElse) {
  expect_status(command("install"), 0);
  EXPECT_THAT(command("verify"), Ended(0, "\nEverything is as it should be.\n", ""));
  const drift drifts[] = {
      {"other bytes", [](const std::string &envi) { write_file(envi + "/save/k.sav", "drifted", 0755); },
       "save/k.sav", "content", "replaced"},
      {"other bytes, as many of them",
       [](const std::string &envi) { write_file(envi + "/save/k.sav", "envi/save/k.saw\n", 0755); },
       "save/k.sav", "content", "replaced"},
      {"another mode",
       [](const std::string &envi) { must(chmod((envi + "/save/k.sav").c_str(), 0700), "chmod"); },
       "save/k.sav", "mode", "mode"},
      {"another owner",
       [](const std::string &envi) { must(chown((envi + "/save/k.sav").c_str(), 0, 7), "chown"); },
       "save/k.sav", "owner", "owner"},
      {"a missing file", [](const std::string &envi) { fs::remove(envi + "/save/k.sav"); }, "save/k.sav",
       "removed", "removed"},
      {"a directory in its place",
       [](const std::string &envi) {
         fs::remove(envi + "/save/k.sav");
         fs::create_directory(envi + "/save/k.sav");
       },
       "save/k.sav", "type", "replaced"},
      {"a link in its place",
       [](const std::string &envi) {
         fs::rename(envi + "/save/k.sav", envi + "/save/was.sav");
         fs::create_symlink("was.sav", envi + "/save/k.sav");
       },
       "save/k.sav", "type", "replaced"},
      {"a backup's leftover",
       [](const std::string &envi) { write_file(envi + "/bin/envi_original.new", ""); },
       "bin/envi_original.new", "new", "new"},
      {"an edited launch script",
       [](const std::string &envi) { write_file(envi + "/bin/envi", "exit\n", 0755); }, "bin/envi", "content",
       "patched"},
      {"a missing backup", [](const std::string &envi) { fs::remove(envi + "/idl86/bin/idl_original"); },
       "idl86/bin/idl_original", "removed", "removed"},
      {"another mode of a directory that was made",
       [](const std::string &envi) { must(chmod((envi + "/resource/langcat").c_str(), 0750), "chmod"); },
       "resource/langcat", "mode", "mode"},
      {"a stale file that is back",
       [](const std::string &envi) { write_file(envi + "/extensions/korvalen_menu.sav", "back"); },
       "extensions/korvalen_menu.sav", "new", "new"},
  };
  fs::copy(envi(), path("kept"), fs::copy_options::recursive);
  for (const drift &one : drifts) {
    const exact_tree good = exact({envi()});
    one.happen(envi());
    const json in_json = told("verify");
    EXPECT_EQ(in_json["status"], 2) << one.name << in_json.dump(1);
    ASSERT_EQ(in_json["changes"].size(), 1U) << one.name << in_json.dump(1);
    EXPECT_EQ(in_json["changes"][0]["path"], in_envi(one.path)) << one.name;
    EXPECT_EQ(in_json["changes"][0]["change"], one.change) << one.name;
    EXPECT_FALSE(in_json.contains("error")) << one.name;
    const support::outcome in_words = command("verify");
    EXPECT_EQ(in_words.status, 2) << one.name;
    EXPECT_THAT(in_words.out, testing::HasSubstr(one.word)) << one.name;
    EXPECT_THAT(in_words.out, testing::HasSubstr(in_envi(one.path))) << one.name;
    EXPECT_THAT(in_words.out, testing::EndsWith("\nThe installation was changed since.\n")) << one.name;
    EXPECT_EQ(in_words.err, "") << one.name;
    fs::remove_all(envi());
    fs::copy(path("kept"), envi(), fs::copy_options::recursive);
    ASSERT_EQ(command("verify").status, 0) << "the set-up after: " << one.name;
  }
}

TEST_F(Verify, SaysWhatALinkInTheWayHides) {
  expect_status(command("install"), 0);
  fs::rename(in_envi("resource"), path("host/elsewhere"));
  fs::create_directory_symlink(path("host/elsewhere"), in_envi("resource"));
  const json in_json = told("verify");
  EXPECT_EQ(in_json["status"], 2);
  std::vector<std::string> paths;
  for (const json &one : in_json["changes"])
    paths.push_back(short_text(one["path"]));
  EXPECT_THAT(paths, testing::Contains("ENVI/resource"));
  EXPECT_THAT(paths, testing::Contains("ENVI/resource/langcat/words.cat"));
}

TEST_F(Verify, IsForEverybody) {
  must(chmod(envi().c_str(), 0755), "chmod");
  expect_status(command("install"), 0);
  EXPECT_THAT(verify_as_other_user(), Ended(0, "\nEverything is as it should be.\n", ""));
  must(chmod(in_envi("save").c_str(), 0711), "chmod");
  EXPECT_THAT(verify_as_other_user(), Ended(0, "\nEverything is as it should be.\n", ""))
      << "a directory that can be passed need not be listed";
  must(chmod(in_envi("save/k.sav").c_str(), 0755), "chmod");
  write_file(in_envi("bin/envi"), "drifted", 0755);
  EXPECT_EQ(verify_as_other_user().status, 2);
}

TEST_F(Verify, SaysWhatItMayNotReadAndWhatDiffersAllTheSame) {
  expect_status(command("install"), 0);
  write_file(in_envi("bin/envi"), "drifted", 0755);
  must(chmod(in_envi("save").c_str(), 0700), "chmod");
  const json in_json = parsed_json(verify_as_other_user({"--json"}).out);
  EXPECT_EQ(in_json["status"], 1);
  EXPECT_EQ(in_json["error"], in_envi("save/k.sav") + " cannot be read: cannot look up " +
                                  in_envi("save/k.sav") + ": Permission denied");
  ASSERT_EQ(in_json["changes"].size(), 1U) << in_json.dump(1);
  EXPECT_EQ(in_json["changes"][0]["path"], in_envi("bin/envi"));
}

TEST_F(Verify, AcceptsAPlainRunOfTheSameAndNamesThatOfAnotherProductWhichTheNextInstallationHeals) {
  expect_status(command("install"), 0);
  expect_status(command("install"), 0); // from the second run on, runs leave the same
  const std::vector<std::string> surroundings = {"env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                                 "LC_ALL=C.UTF-8", support::installer_path};
  std::vector<std::string> plain = surroundings;
  plain.insert(plain.end(), {product(), envi()});
  expect_status(support::run(plain), 0);
  EXPECT_THAT(command("verify"), Ended(0, "\nEverything is as it should be.\n", ""));

  write_file(path("host/other/auxiliary/envi_extensions_54/envi/save/k.sav"), "the other's");
  plain = surroundings;
  plain.insert(plain.end(), {path("host/other"), envi()});
  expect_status(support::run(plain), 0);
  EXPECT_EQ(command("verify").status, 2);
  expect_status(command("install"), 0);
  EXPECT_THAT(command("verify"), Ended(0, "\nEverything is as it should be.\n", ""));
}

TEST_F(Verify, SaysThatARunWasInterrupted) {
  expect_status(command("install"), 0);
  write_file(run_file, "anything");
  EXPECT_EQ(command("verify").status, 1);
  write_file(run_file, R"({"version":1,"checksum":"2d06800538d394c2","content":null})"
                       "\n");
  EXPECT_EQ(command("verify").status, 1);
}

TEST_F(Verify, TakesARunThatEndsMeanwhileForNoInterruptedOne) {
  expect_status(command("install"), 0);
  write_file(run_file, korvalen::admin::text_of(korvalen::admin::journal{2, {}}));
  ASSERT_THAT(command("verify").err, testing::StartsWith("korvalen_admin: interrupted: ")) << "the set-up";
  const auto when_asked_who_works = [](int count) { return count == 1; };
  EXPECT_THAT(support::call([&] {
                support::disturb({SYS_flock, 0, when_asked_who_works, [] { fs::remove(run_file); }});
                execl(support::admin_path, support::admin_path, "verify", product().c_str(), envi().c_str(),
                      nullptr);
                return 127;
              }),
              Ended(0, "\nEverything is as it should be.\n", ""));
}

TEST_F(Verify, KnowsNothingOfWhatIsNotOnRecord) {
  EXPECT_THAT(
      command("verify"),
      Ended(1, "", "korvalen_admin: no such installation is on record; korvalen_admin install makes one\n"));
  expect_status(command("install"), 0);
  EXPECT_EQ(command("verify", {"--local"}).status, 1);
  EXPECT_EQ(admin({"verify", product()}).status, 1);
  EXPECT_EQ(admin({"verify", envi(), product()}).status, 1);
}

} // namespace
