#include "korvalen/envi/idl_directory.h"

#include "support/files.h"

#include <cerrno>
#include <string>
#include <vector>

using namespace korvalen;
using support::fs::create_directories;

namespace {

struct IdlDirectory : support::scratch_test {
  IdlDirectory() { create_directories(path("envi")); }

  std::string found() const {
    const owned_string directory = find_idl_directory(path("envi").c_str());
    return directory ? directory.get() : "none";
  }
};

TEST_F(IdlDirectory, IsTheLowestVersionPresent) {
  create_directories(path("envi/idl86"));
  create_directories(path("envi/idl85"));
  EXPECT_EQ(found(), path("envi/idl85"));
}

TEST_F(IdlDirectory, ComesWithAOneDigitMinorBeforeATwoDigitMinor) {
  create_directories(path("envi/idl810"));
  create_directories(path("envi/idl82"));
  EXPECT_EQ(found(), path("envi/idl82"));
}

TEST_F(IdlDirectory, ComesWithALowMajorBeforeAHighMajor) {
  create_directories(path("envi/idl90"));
  create_directories(path("envi/idl819"));
  EXPECT_EQ(found(), path("envi/idl819"));
}

TEST_F(IdlDirectory, IsSearchedFrom80To1919WithEveryMinorOfAMajorInTurn) {
  std::vector<std::string> expected;
  for (int major = 8; major <= 19; ++major)
    for (int minor = 0; minor <= 19; ++minor)
      expected.push_back(path("envi/idl" + std::to_string(major) + std::to_string(minor)));
  for (const std::string &directory : expected)
    create_directories(directory);

  for (const std::string &directory : expected) {
    ASSERT_EQ(found(), directory);
    support::fs::remove(directory);
  }
  EXPECT_EQ(found(), "none");
}

TEST_F(IdlDirectory, IsNothingOutsideOfTheSearchedVersions) {
  for (const char *name :
       {"idl", "idl8", "idl79", "idl820", "idl1920", "idl200", "idl086", "IDL86", "idl86x"})
    create_directories(path("envi") + "/" + name);
  create_directories(path("idl86"));
  EXPECT_EQ(found(), "none");
}

TEST_F(IdlDirectory, MayBeAnythingThatStandsThere) {
  support::write_file(path("envi/idl86"), "");
  create_directories(path("envi/idl87"));
  support::fs::create_symlink("nowhere", path("envi/idl85"));
  EXPECT_EQ(found(), path("envi/idl86"));
}

TEST_F(IdlDirectory, LeavesNoErrorBehind) {
  errno = EACCES;
  EXPECT_EQ(found(), "none");
  EXPECT_EQ(errno, 0);
}

} // namespace
