#include "admin/command_line.h"

#include "admin/admin_run.h"

using namespace admin_runs;
using support::Ended;
using testing::StartsWith;

namespace {

class AdminCommandLine : public admin_run {};

TEST(PlainPath, IsAbsoluteWithoutDotsAndSlashesThatSayNothing) {
  const char *const rows[][3] = {
      {"/a/b", "/cwd", "/a/b"},
      {"a", "/cwd", "/cwd/a"},
      {"./a/./b/.", "/cwd", "/cwd/a/b"},
      {"//a///b//", "/cwd", "/a/b"},
      {"/", "/cwd", "/"},
      {"///", "/cwd", "/"},
      {".", "/cwd", "/cwd"},
      {".", "/", "/"},
      {"a", "/", "/a"},
      {"..", "/cwd", "/cwd/.."},
      {"a/../b", "/cwd", "/cwd/a/../b"},
      {"/a/..", "/cwd", "/a/.."},
      {"...", "/cwd", "/cwd/..."},
      {".a/b.", "/cwd", "/cwd/.a/b."},
      {"a b/\tc", "/c d", "/c d/a b/\tc"},
  };
  for (const auto &[given, directory, wanted] : rows)
    EXPECT_EQ(korvalen::admin::plain_path(given, directory), wanted) << given;
}

TEST_F(AdminCommandLine, NamesTheCommandsWhereItKnowsNone) {
  const std::string commands =
      "; the commands are plan, install, verify and uninstall; see korvalen_admin --help\n";
  EXPECT_EQ(admin({}).err, "korvalen_admin: no command" + commands);
  EXPECT_EQ(admin({"isntall", "/a", "/b"}).err, "korvalen_admin: unknown command \"isntall\"" + commands);
}

TEST_F(AdminCommandLine, EndsWithStatusOneAndTouchesNothingWhereverItIsWrong) {
  make_host();
  const exact_tree before = everything();
  const std::string product = this->product();
  const std::string envi = this->envi();
  const std::vector<std::vector<std::string>> lines = {
      {},
      {"remove", product},
      {"plan"},
      {"install"},
      {"verify"},
      {"uninstall"},
      {"install", ""},
      {"install", product, ""},
      {"install", product, "NotOK"},
      {"install", product, "/x/NotOK.d"},
      {"install", product, envi, "local"},
      {"install", product, envi, "--dry-run"},
      {"install", product, envi, "-n"},
      {"install", "--plan", product, envi},
      {"install", "--force", product, envi},
      {"install", "--force"},
      {"plan", "--force", "no-idl", product, envi},
      {"verify", "--plan", product, envi},
      {"uninstall", "--force", "no-idl", product, envi},
      {"install", "--color", "sometimes", product, envi},
      {"install", "--color", "always", "--color", "never", product, envi},
      {"install", "--local=perhaps", product, envi},
      {"install", product + "$x", envi},
      {"install", product, envi + ";x"},
      {"install", product + "\n", envi},
      {"plan", "install", product, envi},
      {"--json"},
      {"-h"},
  };
  for (std::vector<std::string> line : lines) {
    const std::string shown = testing::PrintToString(line);
    const support::outcome ended = admin(line);
    EXPECT_EQ(ended.status, 1) << shown << ended;
    const bool in_json = !line.empty() && line[0] == "--json";
    if (!in_json) {
      EXPECT_EQ(ended.out, "") << shown;
      EXPECT_THAT(ended.err, StartsWith("korvalen_admin: ")) << shown;
      EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << shown << ended.err;
    }
    line.emplace_back("--json");
    const support::outcome ended_in_json = admin(line);
    EXPECT_EQ(ended_in_json.status, 1) << shown;
    EXPECT_EQ(ended_in_json.err, "") << shown;
    const json object = parsed_json(ended_in_json.out);
    ASSERT_TRUE(object.is_object()) << shown << ended_in_json.out;
    EXPECT_EQ(object["status"], 1) << shown;
    EXPECT_EQ(object["changes"], json::array()) << shown;
    EXPECT_EQ(object["warnings"], json::array()) << shown;
    EXPECT_NE(object["error"], "") << shown;
  }
  EXPECT_EQ(differences(before, everything()), "");
  EXPECT_FALSE(fs::exists(state_dir));
}

} // namespace
