#include "admin/report.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace korvalen::admin;

namespace {

state file(std::uint64_t hash, mode_t mode = 0644) {
  return {file_type::file, mode, 0, 0, 4, hash, ""};
}

// One change of each kind, and one that changes nothing.
report full_report() {
  report told;
  told.command = "install";
  told.changes_are = tense::are;
  told.installer = outcome{0, "out\x1b\n", "err\xff\n"};
  told.changes = {{"/a/new\xff", {}, file(1)},
                  {"/b", {file_type::directory, 01777, 1, 2}, {}},
                  {"/c", file(1), {file_type::link, 0777, 3, 4, 0, {}, "x"}},
                  {"/d", file(1), file(2)},
                  {"/e", file(1), file(1, 06755)},
                  {"/f", file(1), {file_type::file, 0644, 0, 7, 4, 1, ""}},
                  {"/same", file(1), file(1)}};
  told.warnings = {{"no-idl", "/envi\n", true, "mend it"}, {"blanks", "", false, "move it"}};
  told.notes = {"A note"};
  told.diff_of = [](const change &one) {
    return one.path == "/d" ? std::string("--- /d\n+++ /d\n@@ -1 +1 @@\n-a\n+\xfe\n") : std::string();
  };
  return told;
}

std::string json_of(const report &told) {
  std::ostringstream out;
  write_json(out, told);
  return out.str();
}

std::string text_of(const report &told, const text_style &style = {}) {
  std::ostringstream out;
  write_text(out, told, style);
  return out.str();
}

TEST(Report, IsOneJsonObjectAndALineEnd) {
  EXPECT_EQ(
      json_of(full_report()),
      "{\"version\":1,\"command\":\"install\",\"status\":0,"
      "\"installer\":{\"status\":0,\"output\":\"out\\u001b\\n\",\"errors\":\"err\xef\xbf\xbd\\n\","
      "\"errors_base64\":\"ZXJy/wo=\"},"
      "\"changes\":["
      "{\"path\":\"/a/new\xef\xbf\xbd\",\"path_base64\":\"L2EvbmV3/"
      "w==\",\"change\":\"new\",\"type\":\"file\","
      "\"mode\":\"0644\",\"owner\":\"0:0\"},"
      "{\"path\":\"/b\",\"change\":\"removed\",\"type\":\"directory\",\"mode\":\"1777\",\"owner\":\"1:2\"},"
      "{\"path\":\"/c\",\"change\":\"type\",\"type\":\"link\",\"mode\":\"0777\",\"owner\":\"3:4\"},"
      "{\"path\":\"/d\",\"change\":\"content\",\"type\":\"file\",\"mode\":\"0644\",\"owner\":\"0:0\","
      "\"diff\":\"--- /d\\n+++ /d\\n@@ -1 +1 @@\\n-a\\n+\xef\xbf\xbd\\n\","
      "\"diff_base64\":\"LS0tIC9kCisrKyAvZApAQCAtMSArMSBAQAotYQor/go=\"},"
      "{\"path\":\"/e\",\"change\":\"mode\",\"type\":\"file\",\"mode\":\"6755\",\"owner\":\"0:0\"},"
      "{\"path\":\"/f\",\"change\":\"owner\",\"type\":\"file\",\"mode\":\"0644\",\"owner\":\"0:7\"}],"
      "\"warnings\":[{\"code\":\"no-idl\",\"path\":\"/envi\\n\",\"refuses\":true,\"text\":\"mend it\"},"
      "{\"code\":\"blanks\",\"refuses\":false,\"text\":\"move it\"}]}\n");
}

TEST(Report, HasBothListsAndTheErrorWhereNothingElseIsToBeTold) {
  report told;
  told.status = 1;
  told.error = "no";
  EXPECT_EQ(json_of(told), "{\"version\":1,\"status\":1,\"changes\":[],\"warnings\":[],\"error\":\"no\"}\n");
}

TEST(Report, TellsPeopleTheSameWithNothingThatSpeaksToTheTerminal) {
  const text_style style{false, [](const std::string &path) { return path == "/d"; }};
  EXPECT_EQ(
      text_of(full_report(), style),
      "  new       /a/new\\xFF\n"
      "  removed   /b/\n"
      "  replaced  /c\n"
      "  patched   /d\n"
      "      --- /d\n      +++ /d\n      @@ -1 +1 @@\n      -a\n      +\\xFE\n"
      "  mode      /e  (6755, was 0644)\n"
      "  owner     /f  (0:7, was 0:0)\n"
      "\nThe installer printed:\n      out\\x1B\n  and on standard error:\n      err\\xFF\n  and ended with "
      "status 0.\n"
      "\n1 new, 1 replaced, 1 patched, 1 removed, 1 mode, 1 owner.\n"
      "\nwarning that refuses an installation [no-idl] /envi\\x0A\n  mend it.\n"
      "\nwarning [blanks]\n  move it.\n"
      "\nA note.\n");
}

TEST(Report, ColorsTheLinesOfADifferenceByWhatTheyTell) {
  report told;
  told.changes = {{"/d", file(1), file(2)}};
  told.diff_of = [](const change &) {
    return std::string("--- /d\n+++ /d\n@@ -1,2 +1,2 @@\n same\n-a\n+b\n");
  };
  EXPECT_EQ(text_of(told, {true, [](const std::string &) { return true; }}),
            "  \x1b[36mpatched   \x1b[0m/d\n"
            "      \x1b[1m--- /d\x1b[0m\n      \x1b[1m+++ /d\x1b[0m\n"
            "      \x1b[36m@@ -1,2 +1,2 @@\x1b[0m\n       same\n"
            "      \x1b[31m-a\x1b[0m\n      \x1b[32m+b\x1b[0m\n\n1 patched.\n");
}

TEST(Report, TellsPeopleOnceWhatWarningsOfOneCodeSayOfSeveralPaths) {
  report told;
  told.warnings = {{"changed-since", "/a", false, "it stays"},
                   {"shared-file", "/b\n", false, "it goes"},
                   {"shared-file", "/c", false, "given as \"/d\": it goes"},
                   {"shared-file", "/e", false, "it goes"},
                   {"stale-backup", "/f", false, "it goes"}};
  EXPECT_EQ(text_of(told), "\nwarning [changed-since] /a\n  it stays.\n"
                           "\nwarning [shared-file] 2 times\n    /b\\x0A\n    /e\n  it goes.\n"
                           "\nwarning [shared-file] /c\n  given as \"/d\": it goes.\n"
                           "\nwarning [stale-backup] /f\n  it goes.\n");
}

TEST(Report, IsColoredWhereAsked) {
  report told;
  told.changes = {{"/a", {}, file(1)}};
  EXPECT_EQ(text_of(told, {true, [](const std::string &) { return false; }}),
            "  \x1b[32mnew       \x1b[0m/a\n\n1 new.\n");
}

} // namespace
