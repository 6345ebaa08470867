// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/keys.h"

#include <gtest/gtest.h>

#include "apps/kvfob/terminal/screen.h"

namespace kvfob {
namespace {

std::string nameOf(const Key& key) {
  constexpr const char* kNames[] = {"",     "Enter", "Esc", "Erase", "Up",      "Down",     "PgUp",
                                    "PgDn", "Home",  "End", "Click", "WheelUp", "WheelDown"};
  if (key.kind == KeyKind::Character) return {key.character};
  const std::string name = kNames[static_cast<int>(key.kind)];
  return key.kind == KeyKind::Click ? name + std::to_string(key.row) : name;
}

std::string namesOf(const std::vector<Key>& keys) {
  std::string names;
  for (const auto& key : keys) names += (names.empty() ? "" : " ") + nameOf(key);
  return names;
}

TEST(KeysTest, AreToldApartHoweverTheirBytesArrive) {
  const std::pair<std::string, std::string> kCases[] = {
      {"ab\tq", "a b \t q"},
      {"\n\r\b\x7f", "Enter Enter Erase Erase"},
      {"\x01\x1f", ""},
      {"\033[A\033[B\033[H\033[F", "Up Down Home End"},
      {"\033OA\033OB\033OH\033OFx", "Up Down Home End x"},
      {"\033[1;5A", "Up"},
      {"\033[1~\033[4~\033[5~\033[6~\033[7~\033[8~", "Home End PgUp PgDn Home End"},
      {"\033[3~\033[15~\033[C\033[Zj", "j"},
      {"\033xj", "j"},
      {"\033\033[A", "Esc Up"},
      {"\033[<0;12;1M\033[<0;12;1m\033[<0;200;24M", "Click0 Click23"},
      {"\033[<64;1;1M\033[<65;1;1M\033[<80;1;1M", "WheelUp WheelDown WheelUp"},
      {"\033[<1;1;1M\033[<2;1;1M\033[<32;1;1M\033[<0;1;0M\033[M\033[<M", ""},
  };
  for (const auto& [bytes, names] : kCases) {
    KeyReader whole;
    EXPECT_EQ(namesOf(whole.take(bytes)), names) << bytes;
    EXPECT_FALSE(whole.waits()) << bytes;
    KeyReader cut;
    std::vector<Key> keys;
    for (const char byte : bytes) {
      for (const auto& key : cut.take({&byte, 1})) keys.push_back(key);
    }
    EXPECT_EQ(namesOf(keys), names) << bytes;
  }
}

TEST(KeysTest, WhatStaysAloneIsEscapeOrNothing) {
  for (const auto& [bytes, name] : {std::pair("\033", "Esc"), {"\033[", ""}, {"\033[<0;1", ""}}) {
    KeyReader reader;
    EXPECT_EQ(namesOf(reader.take(bytes)), "");
    EXPECT_TRUE(reader.waits());
    EXPECT_EQ(namesOf(reader.giveUp()), name);
    EXPECT_EQ(namesOf(reader.take("A")), "A");
  }
  KeyReader endless;
  endless.take("\033[");
  for (int i = 0; i < 40; ++i) endless.take("1");
  EXPECT_EQ(namesOf(endless.take("Aq")), "A q");  // it has no end
}

TEST(KeysTest, TypedTextGrowsToItsLimitAndLosesWholeCharacters) {
  std::string text;
  for (const char c : std::string("a\u00e9\u9375")) typeInto(text, {.character = c}, 6);
  EXPECT_EQ(text, "a\u00e9\u9375");
  typeInto(text, {.character = 'x'}, 6);
  typeInto(text, {.kind = KeyKind::Enter}, 60);
  EXPECT_EQ(text, "a\u00e9\u9375");
  for (const char* left : {"a\u00e9", "a", "", ""}) {
    typeInto(text, {.kind = KeyKind::Erase}, 6);
    EXPECT_EQ(text, left);
  }
}

TEST(KeysTest, OnlyLinesThatChangedAreWritten) {
  EXPECT_EQ(difference({}, {"a", ""}), "\033[1;1H\033[2Ka\033[2;1H\033[2K");
  EXPECT_EQ(difference({"a", "b", "c"}, {"a", "x", "c"}), "\033[2;1H\033[2Kx");
  EXPECT_EQ(difference({"a"}, {"a"}), "");
}

}  // namespace
}  // namespace kvfob
