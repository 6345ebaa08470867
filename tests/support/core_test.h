// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The fixture of the core's tests: a fake platform, and the tag's side of the wire.
#ifndef TESTS_SUPPORT_CORE_TEST_H
#define TESTS_SUPPORT_CORE_TEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KVFobLink/KVFobLink.h"
#include "KVFobLink/KVLinuxPlatform.h"
#include "tests/support/fake_platform.h"
#include "tests/support/fake_radio.h"

namespace kvtest {

inline constexpr auto kCommandService = "7F280001-8204-F393-E0A9-E50E24DCCA9E";
inline constexpr auto kCommandChar = "7F280002-8204-F393-E0A9-E50E24DCCA9E";
inline constexpr auto kVendorService = "A3C87500-8ED3-4BDF-8A39-A01BEBEDE295";
inline constexpr auto kDistanceChar = "A3C87504-8ED3-4BDF-8A39-A01BEBEDE295";
inline constexpr auto kMac = "a1b2c3d4e5f6";

class CoreTest : public ::testing::Test {
 protected:
  CoreTest() {
    const auto set = std::make_shared<KVPlatform>(*real());
    set->eventQueue = queue;
    set->radio = radio;
    set->cipher = cipher;
    set->random = random;
    set->timers = timers;
    set->clock = clock;
    set->log = std::make_shared<FakeLog>(journal);
    KVPlatform::setCurrent(set);
  }
  ~CoreTest() override { KVPlatform::setCurrent(nullptr); }

  /// What a test has not asked about must not have happened.
  void TearDown() override { EXPECT_EQ(took(), Lines{}); }

  Lines took() { return journal->take(); }

  /// A completion that writes down what it was called with.
  KVResultCallback result(const std::string& name) {
    return [name, to = journal](bool success, const std::optional<KVError>& error) {
      to->add(name + (success ? " true" : " false") +
              (error ? " " + error->domain + " " + std::to_string(error->code) : "") +
              (error && error->userInfo ? " with info" : ""));
    };
  }

  std::shared_ptr<FakePeripheral> peripheral(const std::string& identifier) {
    auto made = std::make_shared<FakePeripheral>(identifier, journal);
    made->add(kCommandService, {kCommandChar});
    made->add(kVendorService, {kDistanceChar});
    made->add("180A", {"2A29", "2A26"});
    return made;
  }

  static KVData block(const KVData& key, const KVData& in, bool encrypt) {
    KVData out(16);
    EXPECT_TRUE(real()->cipher->aes128Block(std::span<const std::uint8_t, 16>(key),
                                            std::span<const std::uint8_t, 16>(in),
                                            std::span<std::uint8_t, 16>(out), encrypt));
    return out;
  }

  /// The tag's token: its random half is c0 to c7, the rest is of no account.
  static KVData token() {
    return block(kStaticKey, bytes("111213141516 c0c1c2c3c4c5c6c7 1718"), true);
  }

  /// A value from the tag: the frame, filled up with ee, under a session key.
  static KVData sealed(const KVData& key, std::string_view frame) {
    KVData plain = bytes(frame);
    plain.resize(16, 0xEE);
    return block(key, plain, true);
  }

  /// The journal's line of a written frame, given in full.
  static std::string wrote(const FakePeripheral& to, const KVData& key, std::string_view frame) {
    return to.identifier() + " write 7F280002 " + hex(block(key, bytes(frame), true));
  }

  /// Brings a tracker with an address and a password from the report of the link to the point where
  /// the password has been sent, and returns the session key.
  KVData reachBindRequest(KVTracker& tracker, FakePeripheral& p) {
    p.linkState = KVPeripheralStateConnected;
    tracker.setState(KVTrackerStateConnected);
    return exchangeTokens(tracker, p);
  }

  /// The same from the point where discovery has been asked for.
  KVData exchangeTokens(KVTracker& tracker, FakePeripheral& p) {
    p.reportServices();
    for (std::size_t i = 0; i < p.services().size(); ++i) p.reportCharacteristics(i);
    KVData key = bytes("c0c1c2c3c4c5c6c7");
    for (int i = 0; i < 8; ++i) key.push_back(static_cast<std::uint8_t>(random->next + i));
    p.reportValue(tracker.korvaChar(), token());
    p.reportWrite(tracker.korvaChar());
    EXPECT_EQ(tracker.comToken(), key);
    took();
    return key;
  }

  static const std::shared_ptr<KVPlatform>& real() {
    static const auto platform = KVLinuxPlatform::make();
    return platform;
  }

  static inline const KVData kStaticKey = bytes("5150525456582d486172626f6e696373");

  const std::shared_ptr<Journal> journal = std::make_shared<Journal>();
  const std::shared_ptr<FakeQueue> queue = std::make_shared<FakeQueue>();
  const std::shared_ptr<FakeRadio> radio = std::make_shared<FakeRadio>(journal);
  const std::shared_ptr<FakeCipher> cipher = std::make_shared<FakeCipher>(real()->cipher);
  const std::shared_ptr<FakeRandom> random = std::make_shared<FakeRandom>();
  const std::shared_ptr<FakeTimers> timers = std::make_shared<FakeTimers>(journal);
  const std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
};

}  // namespace kvtest

#endif  // TESTS_SUPPORT_CORE_TEST_H
