#include "admin/records.h"

#include "admin/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <nlohmann/json.hpp>

using namespace korvalen::admin;
using json = nlohmann::ordered_json;

namespace {

const std::string odd_name = "/host/\xff\x01 caf\xc3\xa9\n\"\\";

state file_state(std::uint64_t size) {
  return {file_type::file, 06754, 12, 4294967294U, size, 0xfedcba9876543210U, ""};
}

receipt full_receipt() {
  receipt record;
  record.run = 18446744073709551615U;
  record.installations.push_back(
      {7, "/given", "/host/\xfe envi", odd_name, "/real envi", true, {"/a", odd_name}, true});
  record.installations.push_back({8, "/given too", std::nullopt, "/", std::nullopt, false, {}});
  record.paths.push_back({"/a", {}, file_state(0), {7, 8}, std::nullopt});
  record.paths.push_back({odd_name, file_state(1ULL << 40U), {file_type::directory, 01777, 1, 2}, {}, 12});
  record.paths.push_back({"/z",
                          {file_type::link, 0777, 3, 4, 0, std::nullopt, "../\x80"},
                          {file_type::special, 0600, 0, 0},
                          {8},
                          0});
  return record;
}

journal full_journal() {
  journal record;
  record.run = 3;
  record.paths.push_back({"/a", {}, file_state(5), std::nullopt, 9, ""});
  record.paths.push_back({odd_name, file_state(2), {}, 4, std::nullopt, odd_name});
  return record;
}

std::string refusal(const std::function<void()> &read) {
  try {
    read();
  } catch (const failure &problem) {
    return problem.what();
  }
  return "it was believed";
}

std::string refusal_of_receipt(const std::string &text) {
  return refusal([&] { receipt_from(text, "FILE"); });
}

// A receipt whose content is changed before it is sealed.
std::string sealed(json content) {
  char checksum[17];
  const std::string text = content.dump();
  std::snprintf(checksum, sizeof checksum, "%016llx",
                static_cast<unsigned long long>(XXH3_64bits(text.data(), text.size())));
  return json{{"version", 1}, {"checksum", checksum}, {"content", std::move(content)}}.dump() + "\n";
}

void expect_same(const state &a, const state &b) {
  EXPECT_TRUE(is_same(a, b));
}

TEST(Records, GiveAReceiptBackAsItWasWhateverItsNamesHold) {
  const receipt written = full_receipt();
  const receipt read = receipt_from(text_of(written), "FILE");
  EXPECT_EQ(read.run, 18446744073709551615U);
  ASSERT_EQ(read.installations.size(), 2U);
  EXPECT_EQ(read.installations[0].id, 7U);
  EXPECT_EQ(read.installations[0].product_dir, "/given");
  EXPECT_EQ(read.installations[0].envi_dir, "/host/\xfe envi");
  EXPECT_EQ(read.installations[0].real_product_dir, odd_name);
  EXPECT_EQ(read.installations[0].real_envi_dir, "/real envi");
  EXPECT_TRUE(read.installations[0].local_layout);
  EXPECT_TRUE(read.installations[0].is_leaving);
  EXPECT_EQ(read.installations[0].directories, (std::vector<std::string>{"/a", odd_name}));
  EXPECT_EQ(read.installations[1].envi_dir, std::nullopt);
  EXPECT_FALSE(read.installations[1].local_layout);
  EXPECT_FALSE(read.installations[1].is_leaving);
  ASSERT_EQ(read.paths.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(read.paths[i].path, written.paths[i].path);
    expect_same(read.paths[i].before, written.paths[i].before);
    expect_same(read.paths[i].after, written.paths[i].after);
    EXPECT_EQ(read.paths[i].used_by, written.paths[i].used_by);
    EXPECT_EQ(read.paths[i].kept, written.paths[i].kept);
  }
}

TEST(Records, GiveAJournalBackAsItWas) {
  const journal written = full_journal();
  const journal read = journal_from(text_of(written), "FILE");
  EXPECT_EQ(read.run, 3U);
  ASSERT_EQ(read.paths.size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(read.paths[i].path, written.paths[i].path);
    expect_same(read.paths[i].found, written.paths[i].found);
    expect_same(read.paths[i].after, written.paths[i].after);
    EXPECT_EQ(read.paths[i].kept, written.paths[i].kept);
    EXPECT_EQ(read.paths[i].after_kept, written.paths[i].after_kept);
    EXPECT_EQ(read.paths[i].source, written.paths[i].source);
  }
}

TEST(Records, RefuseATextThatEndsAnywhereBeforeItsEnd) {
  const std::string whole = text_of(full_receipt());
  const std::string other = text_of(full_journal());
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_EQ(refusal_of_receipt(whole.substr(0, size)), "FILE cannot be trusted: it is cut off") << size;
  for (std::size_t size = 0; size < other.size(); ++size)
    EXPECT_EQ(refusal([&] { journal_from(other.substr(0, size), "FILE"); }),
              "FILE cannot be trusted: it is cut off")
        << size;
}

TEST(Records, RefuseATextWithOneBitChangedAnywhere) {
  const std::string whole = text_of(full_receipt());
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (const int bits : {1, 0x20, 0x80}) {
      std::string text = whole;
      text[at] = static_cast<char>(text[at] ^ bits);
      EXPECT_THAT(refusal_of_receipt(text), testing::StartsWith("FILE cannot be trusted: "))
          << "bits " << bits << " of byte " << at << ": " << text;
    }
}

TEST(Records, RefuseWhatALaterVersionWroteWithoutLookingFurther) {
  EXPECT_EQ(refusal_of_receipt("{\"version\":2,\"anything\":[]}\n"),
            "FILE cannot be trusted: it was written by a later version");
}

TEST(Records, RefuseWhatIsNoObject) {
  for (const char *text : {"\n", "null\n", "[]\n", "{}\n", "{\"version\":1}\n", "{\"version\":\"1\"}\n",
                           "1\n", "\xff\n", "{\"version\":1,\"checksum\":3,\"content\":{}}\n"})
    EXPECT_THAT(refusal_of_receipt(text), testing::StartsWith("FILE cannot be trusted: ")) << text;
}

TEST(Records, RefuseEveryPathThatIsNotAbsoluteAndPlain) {
  const std::string whole = text_of(full_receipt());
  const json content = json::parse(whole)["content"];
  EXPECT_EQ(refusal_of_receipt(sealed(content)), "it was believed") << "the seal of this test is wrong";
  for (const char *path :
       {"", "a", "./a", "..", "/..", "/a/..", "/a/../b", "/a/./b", "/.", "//", "//a", "/a//b", "/a/"}) {
    json changed = content;
    changed["paths"][0]["path"] = path;
    EXPECT_EQ(refusal_of_receipt(sealed(changed)), "FILE cannot be trusted: it holds the path \"" +
                                                       std::string(path) +
                                                       "\", which is not absolute and plain");
    changed = content;
    changed["installations"][0]["real_envi_dir"] = path;
    EXPECT_THAT(refusal_of_receipt(sealed(changed)), testing::HasSubstr("not absolute and plain")) << path;
    changed = content;
    changed["installations"][0]["directories"][1] = path;
    EXPECT_THAT(refusal_of_receipt(sealed(changed)), testing::HasSubstr("not absolute and plain")) << path;
  }
}

TEST(Records, RefuseAPathWithANulAndSayItVisibly) {
  json content = json::parse(text_of(full_receipt()))["content"];
  content["paths"][0]["path"] = std::string("/a\0b", 4);
  EXPECT_EQ(refusal_of_receipt(sealed(content)),
            R"(FILE cannot be trusted: it holds the path "/a\x00b", which is not absolute and plain)");
  content["paths"][0]["path"] = json{{"base64", "L2EAYg=="}};
  EXPECT_EQ(refusal_of_receipt(sealed(content)),
            R"(FILE cannot be trusted: it holds the path "/a\x00b", which is not absolute and plain)");
}

TEST(Records, RefuseTypesAndNumbersThatNobodyWrites) {
  const json content = json::parse(text_of(full_receipt()))["content"];
  const std::vector<std::pair<const char *, json>> changes = {
      {"/paths/0/after/type", "socket"}, {"/paths/0/after/size", "1"},       {"/paths/0/used_by", "all"},
      {"/paths/1/kept", "12"},           {"/paths/0/after/hash", "nothing"}, {"/installations/0/id", "7"},
  };
  for (const auto &[place, value] : changes) {
    json changed = content;
    changed[json::json_pointer(place)] = value;
    EXPECT_THAT(refusal_of_receipt(sealed(changed)), testing::StartsWith("FILE cannot be trusted: "))
        << place << " " << value;
  }
}

} // namespace
