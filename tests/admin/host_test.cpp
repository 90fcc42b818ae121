// What the host is and has.
#include "admin/host.h"

#include "support/files.h"

#include <gtest/gtest.h>

using namespace korvalen::admin;
using support::write_file;
namespace fs = std::filesystem;

namespace {

class Host : public support::scratch_test {
protected:
  bool is_stale_with(const char *script, const char *backup) const {
    write_file("script", script);
    write_file("backup", backup);
    return is_stale(open_tree_at(""), {path("script"), path("backup"), true});
  }
};

TEST_F(Host, HasAStaleBackupWhereAScriptWithoutABlockDiffersFromIt) {
  EXPECT_TRUE(is_stale_with("new\n", "old\n"));
  EXPECT_TRUE(is_stale_with("new\n", ""));
  EXPECT_FALSE(is_stale_with("same\n", "same\n"));
  EXPECT_FALSE(is_stale_with("export KORVALEN_INIT_DIR\n", "old\n")) << "it is patched";
}

TEST_F(Host, HasNoStaleBackupWhereThatIsTheScriptItselfOrOneOfThemIsMissing) {
  write_file("script", "new\n");
  const launch_script script{path("script"), path("backup"), true};
  EXPECT_FALSE(is_stale(open_tree_at(""), script));
  fs::create_symlink("script", "backup");
  EXPECT_FALSE(is_stale(open_tree_at(""), script));
  fs::remove("script");
  fs::remove("backup");
  write_file("backup", "old\n");
  EXPECT_FALSE(is_stale(open_tree_at(""), script));
}

TEST_F(Host, DeploysNamesWithADotThatDoNotBeginWithOne) {
  for (const char *name : {"a.sav", "a.", "a b.c.d"})
    EXPECT_TRUE(is_deployed_name(name)) << name;
  for (const char *name : {".a", ".a.sav", "a", ""})
    EXPECT_FALSE(is_deployed_name(name)) << name;
}

} // namespace
