#include "admin/texts.h"

#include "admin/failure.h"

#include <gtest/gtest.h>

using namespace korvalen::admin;

namespace {

TEST(Texts, TellsUtf8FromOtherBytes) {
  for (const char *text :
       {"", "a", "\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
        "\xef\xbf\xbd", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf", "caf\xc3\xa9 \xe2\x82\xac"})
    EXPECT_TRUE(is_utf8(text)) << text;
  for (const char *text :
       {"\x80", "\xc0\x80", "\xc1\xbf", "\xc2", "\xc2\x41", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xe2\x82",
        "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "a\xfe z"})
    EXPECT_FALSE(is_utf8(text)) << text;
}

TEST(Texts, PutsOneReplacementForEachWrongByte) {
  EXPECT_EQ(to_utf8("a\xff\xfe z"), "a\xef\xbf\xbd\xef\xbf\xbd z");
  EXPECT_EQ(to_utf8("\xe2\x82"), "\xef\xbf\xbd\xef\xbf\xbd");
  EXPECT_EQ(to_utf8("caf\xc3\xa9"), "caf\xc3\xa9");
}

TEST(Texts, LetsNoControlCharacterReachATerminal) {
  EXPECT_EQ(visible(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(visible("\x1b[31m\r\n\t\x7f"), "\\x1B[31m\\x0D\\x0A\\x09\\x7F");
  EXPECT_EQ(visible("\t\n", true), "\t\\x0A");
  EXPECT_EQ(visible("\xc2\x9b"
                    "31m"),
            "\\xC2\\x9B31m")
      << "an 8-bit control";
  EXPECT_EQ(visible("\xc2\x9f\xc2\xa0"), "\\xC2\\x9F\xc2\xa0") << "the last of them, and a blank";
  EXPECT_EQ(visible("\x9b\xff"), "\\x9B\\xFF");
  EXPECT_EQ(visible("caf\xc3\xa9 \xe2\x82\xac"), "caf\xc3\xa9 \xe2\x82\xac");
}

TEST(Texts, FindsTheFirstLineThatIsNotEmpty) {
  EXPECT_EQ(first_line(""), "");
  EXPECT_EQ(first_line("\n\n"), "");
  EXPECT_EQ(first_line("\n\na b\nc"), "a b");
  EXPECT_EQ(first_line("a"), "a");
}

TEST(Texts, WritesAndReadsBase64) {
  const std::pair<std::string, const char *> pairs[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"},
                                                        {std::string("\0\xff\x10", 3), "AP8Q"},
                                                        {"\xfb\xef\xbe", "++++"},
                                                        {"\xff\xff\xff", "////"}};
  for (const auto &[bytes, text] : pairs) {
    EXPECT_EQ(base64(bytes), text);
    EXPECT_EQ(from_base64(text), bytes);
  }
  std::string all;
  for (int byte = 0; byte < 256; ++byte)
    all += static_cast<char>(byte);
  EXPECT_EQ(from_base64(base64(all)), all);
}

TEST(Texts, RefusesWhatIsNoBase64) {
  for (const char *text : {"Zg= =", "Z-8=", "Zm9v\n", "=Zg="})
    EXPECT_THROW(from_base64(text), failure) << text;
}

} // namespace
