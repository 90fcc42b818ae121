#include "korvalen/deploy/extension_source.h"

#include <gtest/gtest.h>

using korvalen::extension_source;

TEST(ExtensionSource, CarriesTheVersionRightBehindItsName) {
  EXPECT_STREQ(extension_source("/opt/korvalen", "_54", "envi").get(),
               "/opt/korvalen/auxiliary/envi_extensions_54/envi");
  EXPECT_STREQ(extension_source("/opt/korvalen", "54", "idl").get(),
               "/opt/korvalen/auxiliary/envi_extensions54/idl");
}

TEST(ExtensionSource, KeepsTheProductDirectoryAsItIs) {
  EXPECT_STREQ(extension_source("", "", "idl").get(), "/auxiliary/envi_extensions/idl");
  EXPECT_STREQ(extension_source("p/", "_54", "envi").get(), "p//auxiliary/envi_extensions_54/envi");
}
