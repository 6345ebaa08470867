// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/base/text.h"

#include <gtest/gtest.h>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

TEST(TextTest, Addresses) {
  const struct {
    const char* text;
    std::optional<std::string> address;
  } kCases[] = {
      {"0a1b2c3d4e5f", "0a1b2c3d4e5f"},
      {"0A1B2C3D4E5F", "0a1b2c3d4e5f"},
      {"0A:1b:2C:3d:4E:5f", "0a1b2c3d4e5f"},
      {"0a1b2c3d4e5", {}},
      {"0a1b2c3d4e5ff", {}},
      {"0a1b2c3d4e5g", {}},
      {"0a-1B-2c-3d-4e-5f", "0a1b2c3d4e5f"},
      {"0A1B.2c3d.4e5f", "0a1b2c3d4e5f"},
      {"0a-1b-2c-3d-4e:5f", {}},
      {"0a1b:2c3d:4e5f", {}},
      {"0a.1b.2c.3d.4e.5f", {}},
      {"0a1b.2c3d.4e5.f", {}},
      {"0a:1b:2c:3d:4e5:f", {}},
      {"0a1b2c3d4e5f00:00", {}},
      {"", {}},
  };
  for (const auto& [text, address] : kCases) EXPECT_EQ(parseAddress(text), address) << text;
}

TEST(TextTest, Durations) {
  const struct {
    const char* text;
    std::optional<std::chrono::milliseconds> duration;
  } kCases[] = {
      {"10", 10s},    {"10s", 10s},   {"1.5m", 90s}, {"500ms", 500ms}, {"2h", 7200s},
      {"0.001", 1ms}, {"168h", 168h}, {"169h", {}},  {"0", {}},        {"-1", {}},
      {"1e3", {}},    {"0x10", {}},   {"inf", {}},   {"nan", {}},      {"s", {}},
      {"1.2.3", {}},  {"10 s", {}},   {"10d", {}},   {"", {}},         {".", {}},
  };
  for (const auto& [text, duration] : kCases) EXPECT_EQ(parseDuration(text), duration) << text;
}

TEST(TextTest, Numbers) {
  const struct {
    const char* text;
    std::optional<std::uint64_t> number;
  } kCases[] = {{"5", 5},   {"7", 7},    {"4", {}},   {"8", {}},  {"", {}},  {"-5", {}},
                {"+5", {}}, {"5.0", {}}, {"0x5", {}}, {" 5", {}}, {"5 ", {}}};
  for (const auto& [text, number] : kCases) EXPECT_EQ(parseNumber(text, 5, 7), number) << text;
  EXPECT_EQ(parseNumber("18446744073709551616", 0, UINT64_MAX), std::nullopt);
  EXPECT_EQ(durationText(90s), "90s");
  EXPECT_EQ(durationText(1500ms), "1500ms");
}

TEST(TextTest, TimesAreInUtcWithMilliseconds) {
  const std::chrono::system_clock::time_point epoch{};
  EXPECT_EQ(isoTime(epoch + 1'700'000'000s + 7ms), "2023-11-14T22:13:20.007Z");
  EXPECT_EQ(isoTime(epoch - 1ms), "1969-12-31T23:59:59.999Z");
}

}  // namespace
}  // namespace kvfob
