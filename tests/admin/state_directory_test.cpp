#include "admin/admin_run.h"
#include "admin/records.h"
#include "admin/store.h"

using namespace admin_runs;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

namespace {

// Whatever is wrong with the state directory: every command ends with status 1 and touches nothing.
class StateDirectory : public admin_run {
protected:
  StateDirectory() { make_host(); }

  // The line that all of the commands that look there end with.
  std::string refusal() const {
    const exact_tree before = exact({host(), "/etc", "/var/lib"});
    const support::outcome first = command("install");
    EXPECT_EQ(first.status, 1) << first;
    for (const char *name : {"plan", "verify", "uninstall"}) {
      const support::outcome ended = command(name);
      EXPECT_EQ(ended.status, 1) << name << ended;
      EXPECT_EQ(ended.err, first.err) << name;
    }
    const support::outcome planned = command("uninstall", {"--plan"});
    EXPECT_EQ(planned.status, 1) << planned;
    EXPECT_EQ(planned.err, first.err);
    EXPECT_EQ(differences(before, exact({host(), "/etc", "/var/lib"})), "");
    return first.err;
  }
};

TEST_F(StateDirectory, IsRefusedWithAReceiptThatIsCutOffAnywhere) {
  expect_status(command("install"), 0);
  const std::string whole = read_file(receipt_file);
  for (int part = 0; part < 8; ++part) {
    write_file(receipt_file, whole.substr(0, whole.size() * static_cast<std::size_t>(part) / 8));
    EXPECT_EQ(refusal(), "korvalen_admin: " + receipt_file + " cannot be trusted: it is cut off\n") << part;
  }
  write_file(receipt_file, whole.substr(0, whole.size() - 1));
  EXPECT_EQ(refusal(), "korvalen_admin: " + receipt_file + " cannot be trusted: it is cut off\n");
  write_file(receipt_file, whole);
  EXPECT_EQ(command("uninstall").status, 0) << "the whole one is believed again";
}

TEST_F(StateDirectory, IsRefusedWithAReceiptOfWhichAByteChanged) {
  expect_status(command("install"), 0);
  std::string text = read_file(receipt_file);
  text[text.find("0755") == std::string::npos ? text.size() / 2 : text.find("0755")] ^= 1;
  write_file(receipt_file, text);
  EXPECT_THAT(refusal(), HasSubstr("korvalen_admin: " + receipt_file + " cannot be trusted: "));
}

TEST_F(StateDirectory, IsRefusedWithAReceiptOfALaterVersion) {
  write_file(receipt_file, "{\"version\":2}\n");
  fs::create_directories(state_dir + "/kept");
  fs::create_directories(state_dir + "/aside");
  EXPECT_EQ(refusal(),
            "korvalen_admin: " + receipt_file + " cannot be trusted: it was written by a later version\n");
}

TEST_F(StateDirectory, IsRefusedWithAReceiptThatIsADirectoryOrALink) {
  for (const char *name : {"kept", "aside", "receipt.json"})
    fs::create_directories(state_dir + "/" + name);
  EXPECT_EQ(refusal(), "korvalen_admin: cannot read " + receipt_file + ": Is a directory\n");
  fs::remove(receipt_file);
  write_file(path("host/receipt"), "{}\n");
  fs::create_symlink(path("host/receipt"), receipt_file);
  EXPECT_EQ(refusal(),
            "korvalen_admin: cannot read " + receipt_file + ": Too many levels of symbolic links\n");
}

TEST_F(StateDirectory, IsRefusedWithAReceiptThatIsAFifoWithoutWaitingForItsOtherEnd) {
  for (const char *name : {"kept", "aside"})
    fs::create_directories(state_dir + "/" + name);
  must(mkfifo(receipt_file.c_str(), 0644), "mkfifo");
  EXPECT_EQ(refusal(), "korvalen_admin: cannot read " + receipt_file + ": Illegal seek\n");
}

TEST_F(StateDirectory, IsRefusedWithAReceiptThatHoldsAPathThatIsNotPlain) {
  for (const char *name : {"kept", "aside"})
    fs::create_directories(state_dir + "/" + name);
  const std::pair<std::string, const char *> paths[] = {
      {"etc/passwd", "etc/passwd"},
      {"/etc/../etc/passwd", "/etc/../etc/passwd"},
      {"//etc/passwd", "//etc/passwd"},
      {std::string("/etc/passwd\0x", 13), "/etc/passwd\\x00x"}};
  for (const auto &[path, shown] : paths) {
    korvalen::admin::receipt record;
    record.installations.push_back(
        {1, product(), envi(), product(), envi(), false, {product(), "/etc/quorin"}});
    record.paths.push_back({path, {}, {korvalen::admin::file_type::file, 0644}, {1}});
    write_file(receipt_file, korvalen::admin::text_of(record));
    EXPECT_EQ(refusal(), "korvalen_admin: " + receipt_file + " cannot be trusted: it holds the path \"" +
                             shown + "\", which is not absolute and plain\n");
  }
}

TEST_F(StateDirectory, TakesWhatHasALongNameAsideUnderAShorterOne) {
  fs::create_directories(state_dir + "/aside");
  const std::string name = korvalen::admin::store::aside_path(12, "/x/" + std::string(255, 'n'));
  EXPECT_EQ(name, state_dir + "/aside/12." + std::string(200, 'n'));
  write_file(name, "");
  EXPECT_EQ(korvalen::admin::store::aside_path(12, "/y/" + std::string(255, 'n')), name + ".2");
}

TEST_F(StateDirectory, IsRefusedWhereItIsALink) {
  fs::create_directory(path("host/state"));
  fs::create_directory_symlink(path("host/state"), state_dir);
  EXPECT_THAT(refusal(), HasSubstr("korvalen_admin: cannot open the state directory /var/lib/korvalen: "));
}

TEST_F(StateDirectory, IsRefusedWhereItIsAFile) {
  write_file(state_dir, "");
  EXPECT_THAT(refusal(), HasSubstr("korvalen_admin: cannot open the state directory /var/lib/korvalen: "));
}

TEST_F(StateDirectory, IsRefusedWhereOthersOwnItOrMayWriteThere) {
  const std::string line =
      "korvalen_admin: /var/lib/korvalen cannot be trusted: it must be root's and not be "
      "writable by others\n";
  fs::create_directory(state_dir);
  for (const mode_t mode : {0775U, 0757U, 0777U}) {
    must(chmod(state_dir.c_str(), mode), "chmod");
    EXPECT_EQ(refusal(), line) << mode;
  }
  must(chmod(state_dir.c_str(), 0755), "chmod");
  must(chown(state_dir.c_str(), 65534, 0), "chown");
  EXPECT_EQ(refusal(), line);
}

TEST_F(StateDirectory, IsMadeForEverybodyToReadButForTheBytes) {
  const mode_t previous = umask(077);
  expect_status(command("install"), 0);
  umask(previous);
  EXPECT_EQ(support::mode_of(state_dir), 0755U);
  EXPECT_EQ(support::mode_of(receipt_file), 0644U);
  EXPECT_EQ(support::mode_of(state_dir + "/kept"), 0700U);
  EXPECT_EQ(support::mode_of(state_dir + "/aside"), 0700U);
  EXPECT_FALSE(fs::exists(run_file));
  EXPECT_FALSE(fs::exists(state_dir + "/run"));
}

TEST_F(StateDirectory, OfAnInterruptedRunIsRefusedWhenItsJournalIsDamaged) {
  expect_status(command("install"), 0);
  write_file(run_file, "{\"version\":1,");
  const exact_tree before = exact({host(), "/etc", "/var/lib"});
  for (const char *name : {"install", "plan", "uninstall"}) {
    const support::outcome ended = command(name);
    EXPECT_EQ(ended.status, 1) << name;
    EXPECT_EQ(ended.err, "korvalen_admin: " + run_file + " cannot be trusted: it is cut off\n") << name;
  }
  EXPECT_EQ(differences(before, exact({host(), "/etc", "/var/lib"})), "");
}

TEST_F(StateDirectory, LeadsNowhereThroughALinkThatWasPutInTheWay) {
  expect_status(command("install"), 0);
  // What stands there by that way is just what was installed.
  fs::rename(in_envi("resource"), path("cwd/resource"));
  fs::create_directory_symlink(path("cwd/resource"), in_envi("resource"));
  fs::create_directories(path("cwd/save"));
  fs::copy(in_envi("save"), path("cwd/save"), fs::copy_options::recursive);
  fs::remove_all(in_envi("save"));
  fs::create_directory_symlink(path("cwd/save"), in_envi("save"));
  const exact_tree outside = exact({path("cwd")});
  const json told_by = told("uninstall");
  EXPECT_EQ(told_by["status"], 2) << told_by.dump(1);
  std::vector<std::string> changed;
  for (const json &one : told_by["warnings"])
    if (one["code"] == "changed-since")
      changed.push_back(short_text(one["path"]));
  EXPECT_EQ(changed,
            (std::vector<std::string>{"ENVI/resource", "ENVI/resource/bitmaps", "ENVI/resource/filterfuncs",
                                      "ENVI/resource/langcat", "ENVI/resource/langcat/words.cat",
                                      "ENVI/resource/templates", "ENVI/resource/templates/tasks",
                                      "ENVI/resource/templates/tasks/Korvalen", "ENVI/save/k.sav",
                                      "ENVI/save/quorin_core_tasks.sav"}));
  EXPECT_EQ(differences(outside, exact({path("cwd")})), "");
  EXPECT_EQ(read_file(in_envi("bin/envi")), envi_script("envi")) << "the rest came back";
}

} // namespace
