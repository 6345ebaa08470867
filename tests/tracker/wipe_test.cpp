// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Secrets leave nothing behind: what is wiped, and when.
#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

Lines* wiped = nullptr;

void wipe(void* buffer, std::size_t size) {
  auto* const bytes = static_cast<std::uint8_t*>(buffer);
  if (wiped != nullptr) wiped->push_back(hex({bytes, size}));
  std::fill_n(static_cast<volatile std::uint8_t*>(bytes), size, std::uint8_t{0});
}

}  // namespace

// They stand for the C library's, in this program alone; the second is what a fortified build
// calls.
extern "C" void wipeForTest(void* buffer, std::size_t size) noexcept __asm__("explicit_bzero");
extern "C" void wipeFortified(void* buffer, std::size_t size, std::size_t room) noexcept
    __asm__("__explicit_bzero_chk");
void wipeForTest(void* buffer, std::size_t size) noexcept { wipe(buffer, size); }
void wipeFortified(void* buffer, std::size_t size, std::size_t) noexcept { wipe(buffer, size); }

namespace {

class WipeTest : public TrackerTest {
 protected:
  // What a call wipes, in order.
  static Lines during(const std::function<void()>& call) {
    Lines lines;
    wiped = &lines;
    call();
    wiped = nullptr;
    return lines;
  }

  // The parts of the session key.
  const std::string kTag = "c0c1c2c3c4c5c6c7";
  const std::string kOurs = "5051525354555657";
};

TEST_F(WipeTest, EachSecretOfASession) {
  p->linkState = KVPeripheralStateConnected;
  tracker->setState(KVTrackerStateConnected);
  p->reportServices();
  for (std::size_t i = 0; i < 3; ++i) p->reportCharacteristics(i);
  const KVData opening = token();
  // The tag's token, ours (the address, our half, the checksum), and our half by itself.
  EXPECT_EQ(during([&] { p->reportValue(tracker->korvaChar(), opening); }),
            (Lines{"111213141516" + kTag + "1718", "a1b2c3d4e5f6" + kOurs + "9990", kOurs}));
  // The bind frame (type, length, code, "secret", random bytes), and the password's copy.
  EXPECT_EQ(during([&] { p->reportWrite(tracker->korvaChar()); }),
            (Lines{"00071373656372657458595a5b5c5d5e", "736563726574"}));
  EXPECT_EQ(during([&] { tracker->setComToken(bytes("0102")); }), Lines{kTag + kOurs});
  // The old password, and the argument.
  EXPECT_EQ(during([&] { tracker->setPassword("abc"); }), (Lines{"736563726574", "616263"}));
  EXPECT_EQ(during([&] { tracker.reset(); }), (Lines{"0102", "616263"}));
  took();
}

TEST_F(WipeTest, PasswordOfAManager) {
  auto manager = std::make_shared<KVTrackerManager>();
  EXPECT_EQ(during([&] { manager->setPassword("abc"); }), Lines{"616263"});
  EXPECT_EQ(during([&] { manager->setPassword("d"); }), (Lines{"616263", "64"}));
  EXPECT_EQ(during([&] { manager.reset(); }), Lines{"64"});
}

TEST_F(WipeTest, SessionKeyGrowsWhereItStands) {
  tracker->updateData(KVTrackerDataMac, KVTrackerValue());  // the handshake stops after one half
  tracker->validateDevice(token());
  ASSERT_EQ(tracker->comToken(), bytes(kTag));
  const auto* const place = tracker->comToken()->data();
  tracker->updateData(KVTrackerDataMac, std::string(kMac));
  tracker->setAuth(KVAuthTokenReceived);
  tracker->writeChecksumData();
  EXPECT_EQ(tracker->comToken(), bytes(kTag + kOurs));
  EXPECT_EQ(tracker->comToken()->data(), place);
  took();
}

}  // namespace
}  // namespace kvtest
