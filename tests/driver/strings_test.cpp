#include "driver/strings.h"

#include <gtest/gtest.h>

using namespace korvalen;

TEST(FormatNew, JoinsADirectoryASlashAndAName) {
  EXPECT_STREQ(str_format_new("%s%s%s", "/a", "/", "b.ini").get(), "/a/b.ini");
}
