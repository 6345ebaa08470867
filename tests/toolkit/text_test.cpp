// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Hexadecimal text, patterns and error records.
#include "protocol/utf16.h"
#include "tests/support/core_test.h"

namespace kvtest {
namespace {

using std::string_view_literals::operator""sv;

TEST(HexTextTest, PairsAreReadAsStrtolReadsThem) {
  const std::pair<std::string_view, const char*> cases[] = {
      {"", ""},
      {"A", ""},
      {" ", ""},
      {"ABC", "ab"},
      {"00ff7F80", "00ff7f80"},
      {"0a 1B ff", "0a1bff"},
      {" 0 1 ", "01"},
      {"zz", "00"},
      {"G1", "00"},
      {"1G", "01"},
      {"-1", "ff"},
      {"-F", "f1"},
      {"+5", "05"},
      {"--", "00"},
      {"0x", "00"},
      {"\t5", "05"},
      {"5\n", "05"},
      {"1\t2", "01"},
      {"\0"
       "1"sv,
       "00"},
      {"1\0"sv, "01"},
      {"\0\0ab"sv, "00ab"},
      // Only the low 8 bits of a 16-bit unit count: U+0131 is read as "1", U+0120 as a space that
      // is not removed, U+1C432 (D831 DC32) as "12", U+1F600 (D83D DE00) as "=" and a zero.
      {"\u0131\u0161", "1a"},
      {"\u01205", "05"},
      {"\U0001C432", "12"},
      {"1\U0001F6002", "0100"},
      {"\u20ac1", "00"},
      // What is malformed is one unit, U+FFFD, and no digit.
      {"1\xff", "01"},
      {"\xff"
       "1ab",
       "00ab"},
      {"\xc0\x31", "00"},
  };
  for (const auto& [text, data] : cases) {
    EXPECT_EQ(hex(KVCommonTool::dataFromHexString(text)), data) << text;
  }
}

TEST(HexTextTest, MalformedTextCountsByWhatItCutsShort) {
  // How many units a text has shows in how many pairs it makes.
  const std::pair<std::string_view, const char*> cases[] = {
      {"\xc2\x80", ""},
      {"\xc1\xbf", "00"},
      {"\xdf\xbf", ""},
      {"\xe0\xa0\x80", ""},
      {"\xe0\x9f\xbf", "00"},
      {"\xe1\x80\x80", ""},
      {"\xed\x9f\xbf", ""},
      {"\xed\xa0\x80", "00"},
      {"\xee\x80\x80", ""},
      {"\xef\xbf\xbf", ""},
      {"\xf0\x90\x80\x80", "00"},
      {"\xf0\x8f\xbf\xbf", "0000"},
      {"\xf1\x80\x80\x80", "00"},
      {"\xf3\xbf\xbf\xbf", "00"},
      {"\xf4\x8f\xbf\xbf", "00"},
      {"\xf4\x90\x80\x80", "0000"},
      {"\xf5\x80\x80\x80", "0000"},
      {"\x80", ""},
      {"\x80\x80", "00"},
      {"\xe2\x82", ""},
      {"\xe2\x82"
       "ab",
       "00"},
      {"\xf0\x9f\x98", ""},
      {"1\xf0\x9f\x98", "01"},
      {"\xe2\x82\xc3\xa9", "00"},
  };
  for (const auto& [text, data] : cases) {
    EXPECT_EQ(hex(KVCommonTool::dataFromHexString(text)), data)
        << hex({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
}

TEST(Utf16Test, BordersOfEachLength) {
  const std::pair<std::string_view, std::u16string> cases[] = {
      {"\x7f", u"\x7F"},
      {"\x80", u"\xFFFD"},
      {"a\x80", u"a\xFFFD"},
      {std::string_view("\xc2\x80", 1), u"\xFFFD"},
      {"\xc2\x80", u"\x80"},
      {"\xdf\xbf", u"\x7FF"},
      {"\xe0\xa0\x80", u"\x800"},
      {"\xed\x9f\xbf", u"\xD7FF"},
      {"\xef\xbf\xbf", u"\xFFFF"},
      {"\xf0\x90\x80\x80", u"\xD800\xDC00"},
      {"\xf0\x9f\x98\x80", u"\xD83D\xDE00"},
      {"\xf4\x8f\xbf\xbf", u"\xDBFF\xDFFF"},
  };
  for (const auto& [text, units] : cases) EXPECT_TRUE(kv::toUtf16(text) == units);
}

class PatternsTest : public CoreTest {};

TEST_F(PatternsTest, ValidateIsAnchoredAndCaseSensitive) {
  EXPECT_TRUE(KVCommonTool::validateString("abc", "[a-c]+"));
  EXPECT_FALSE(KVCommonTool::validateString("abc", "ab"));
  EXPECT_FALSE(KVCommonTool::validateString("abc", "bc"));
  EXPECT_FALSE(KVCommonTool::validateString("ABC", "abc"));
  EXPECT_FALSE(KVCommonTool::validateString("(", "("));
  EXPECT_TRUE(KVCommonTool::validateString("", ".*"));
  EXPECT_FALSE(KVCommonTool::validateString(std::nullopt, ".*"));
}

TEST_F(PatternsTest, ValidatedSearchesAnywhereWhateverTheCase) {
  EXPECT_EQ(KVCommonTool::validatedString("xxABCyyabc", "abc"), "ABC");
  EXPECT_EQ(KVCommonTool::validatedString("id=42;", "[a-z]+=([0-9]+)"), "id=42");
  EXPECT_EQ(KVCommonTool::validatedString("xyz", "abc"), std::nullopt);
  EXPECT_EQ(KVCommonTool::validatedString("xyz", "("), std::nullopt);
  EXPECT_EQ(KVCommonTool::validatedString("xyz", "q*"), "");
}

TEST(ErrorRecordTest, CarriesWhatItIsGiven) {
  EXPECT_EQ(KVCommonTool::errorCode(200, "ring device failed.", std::nullopt),
            (KVError{"ring device failed.", 200, std::nullopt}));
  const std::map<std::string, std::string> info{{"key", "value"}};
  EXPECT_EQ(KVCommonTool::errorCode(INT64_MIN, "", info), (KVError{"", INT64_MIN, info}));
}

}  // namespace
}  // namespace kvtest
