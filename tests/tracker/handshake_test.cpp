// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The handshake, block by block, and the time-out of a bind request.
#include "tests/support/core_tracker_test.h"

namespace kvtest {
namespace {

class HandshakeTest : public TrackerTest {
 protected:
  // From the link coming up to the read that the tag's opening value answers.
  void openLink() {
    p->linkState = KVPeripheralStateConnected;
    tracker->setState(KVTrackerStateConnected);
    p->reportServices();
    for (std::size_t i = 0; i < 3; ++i) p->reportCharacteristics(i);
    took();
  }

  void value(std::optional<KVData> v) { p->reportValue(tracker->korvaChar(), std::move(v)); }
  void written(const std::optional<KVError>& error = {}) {
    p->reportWrite(tracker->korvaChar(), error);
  }
  std::string wroteStatic(std::string_view frame) const { return wrote(*p, kStaticKey, frame); }

  // The halves of the session key.
  const std::string kTag = "c0c1c2c3c4c5c6c7";
  const std::string kOurs = "5051525354555657";
  // The verification token for the fixture's address and the first random half.
  const std::string kToken = "a1b2c3d4e5f6 5051525354555657 9990";
};

// The blocks were made with "openssl enc -aes-128-ecb -nopad" from these plaintexts:
//   < 111213141516 c0c1c2c3c4c5c6c7 1718   under the static key
//   > a1b2c3d4e5f6 5051525354555657 9990   under the static key
//   > 000713 736563726574 58595a5b5c5d5e   under c0..c7 50..57: the password "secret"
TEST_F(HandshakeTest, AsRecorded) {
  p->linkState = KVPeripheralStateConnected;
  tracker->setState(KVTrackerStateConnected);
  p->reportServices();
  for (std::size_t i = 0; i < 3; ++i) p->reportCharacteristics(i);
  EXPECT_EQ(took(),
            (Lines{"P discover services", "updated", "log: Error When discover services:(null)",
                   "P discover 7F280001", "P discover A3C87500", "P discover 180A",
                   "P subscribe 7F280002", "P read 7F280002", "P read 2A29", "P read 2A26"}));
  EXPECT_EQ(tracker->auth(), KVAuthNone);

  value(bytes("70613287e9be1cfca86a7b86d36a6078"));
  EXPECT_EQ(took(), (Lines{"log: device token validated.",
                           "P write 7F280002 58c7a9cb4fc8cd00e0b8f89e8b5dcf02",
                           "log: Writing verification token."}));
  EXPECT_EQ(tracker->auth(), KVAuthTokenWritten);
  EXPECT_EQ(tracker->comToken(), bytes(kTag + kOurs));

  written();
  EXPECT_EQ(took(), (Lines{"log: Token check complete.",
                           "P write 7F280002 7b8f51add025daefeea125308061d6ca"}));
  EXPECT_EQ(tracker->auth(), KVAuthTokenChecked);

  written();
  EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"});
  EXPECT_EQ(tracker->auth(), KVAuthTokenChecked);
  EXPECT_EQ(tracker->comToken(), bytes(kTag + kOurs));
}

TEST_F(HandshakeTest, ReconnectAgreesOnAFreshKey) {
  open();
  const KVData first = session;
  openLink();
  EXPECT_EQ(tracker->comToken(), first);
  value(token());
  const std::string ours =
      hex(KVData(tracker->comToken()->begin() + 8, tracker->comToken()->end()));
  EXPECT_EQ(hex(*tracker->comToken()), kTag + ours);
  EXPECT_NE(tracker->comToken(), first);
  EXPECT_EQ(took().size(), 3u);
}

TEST_F(HandshakeTest, LongOpeningStallsAtOnce) {
  for (const std::size_t size : {17u, 20u}) {
    openLink();
    value(KVData(size));
    EXPECT_EQ(took(), Lines{}) << size;
    EXPECT_EQ(tracker->auth(), KVAuthTokenReceived);
    EXPECT_EQ(tracker->comToken(), std::nullopt);
    value(token());  // now an answer, which cannot be read
    EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
    EXPECT_EQ(tracker->auth(), KVAuthTokenReceived);
  }
}

TEST_F(HandshakeTest, ShortOpeningOnAFreshTrackerSendsNothing) {
  const std::optional<KVData> values[] = {std::nullopt, KVData{}, KVData(5), KVData(15)};
  for (const auto& opening : values) {
    openLink();
    p->reportValue(tracker->korvaChar(), opening, KVError{"read failed", 1, {}});
    EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"});
    EXPECT_EQ(tracker->auth(), KVAuthBindWritten);
  }
}

TEST_F(HandshakeTest, ShortOpeningReusesTheEarlierKey) {
  open();
  openLink();
  random->next = 0x70;
  value(KVData(15));
  EXPECT_EQ(took(), Lines{wrote(*p, session, "000713 736563726574 70717273747576")});
  EXPECT_EQ(tracker->auth(), KVAuthBindWritten);
  EXPECT_EQ(tracker->comToken(), session);
  written();
  EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"});
  EXPECT_EQ(tracker->auth(), KVAuthBindWritten);
}

TEST_F(HandshakeTest, UndecryptableOpeningGoesOnWithHalfAKey) {
  openLink();
  tracker->setComToken(KVData(16));
  cipher->failDecrypt = true;
  value(token());
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 4u);  // the cipher's own line comes first
  EXPECT_EQ(Lines(lines.begin() + 1, lines.end()),
            (Lines{"log: device token validated.", wroteStatic(kToken),
                   "log: Writing verification token."}));
  EXPECT_EQ(tracker->comToken(), bytes(kOurs));
  written();
  EXPECT_EQ(took(), (Lines{"log: Token check complete.", "log: Cipher Key Error!"}));
  EXPECT_EQ(tracker->auth(), KVAuthTokenChecked);
}

TEST_F(HandshakeTest, TokenThatCannotBeEncryptedStalls) {
  openLink();
  cipher->failEncrypt = true;
  value(token());
  const Lines lines = took();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "log: device token validated.");
  EXPECT_EQ(tracker->auth(), KVAuthTokenWritten);
  EXPECT_EQ(tracker->comToken(), bytes(kTag + kOurs));
}

TEST_F(HandshakeTest, AddressIsReadAsTwelveCharacters) {
  const struct {
    std::optional<std::string> mac;
    const char* address;  // the six bytes; empty when the handshake stalls
  } cases[] = {
      {"a1b2c3d4e5f6", "a1b2c3d4e5f6"},
      {"A1B2C3D4E5F6", "a1b2c3d4e5f6"},
      {"zz1Gg1-1+5\t7", "000100ff0507"},
      {"\u00e91b2c3d4e5f6", "00b2c3d4e5f6"},     // 13 bytes
      {"\U0001F600b2c3d4e5f6", "00b2c3d4e5f6"},  // two units in four bytes
      {"\u00e91b2c3d4e5f", ""},                  // 12 bytes, 11 characters
      {"\U0001F600\U0001F600\U0001F600", ""},    // 12 bytes, 6 characters
      {"a1b2c3d4e5f", ""},
      {"a1b2c3d4e5f67", ""},
      {"", ""},
      {std::nullopt, ""},
  };
  for (const auto& c : cases) {
    openLink();
    random->next = 0x50;
    tracker->updateData(KVTrackerDataMac, c.mac ? KVTrackerValue(*c.mac) : KVTrackerValue());
    value(token());
    if (*c.address == '\0') {
      EXPECT_EQ(took(), Lines{"log: device token validated."});
      EXPECT_EQ(tracker->auth(), KVAuthTokenReceived);
      EXPECT_EQ(tracker->comToken(), bytes(kTag));
      continue;
    }
    KVData plain = bytes(c.address + kOurs);
    for (const auto byte : KVCommonTool::crs16Checksum(plain)) plain.push_back(byte);
    EXPECT_EQ(took(), (Lines{"log: device token validated.", wroteStatic(hex(plain)),
                             "log: Writing verification token."}))
        << *c.mac;
  }
}

TEST_F(HandshakeTest, SpacesInTheAddressMakeTheTokenTooShort) {
  for (const char* mac : {"a1 b2 c3d4e5", " a1b2c3d4e5 ", "            "}) {
    openLink();
    random->next = 0x50;
    tracker->updateData(KVTrackerDataMac, std::string(mac));
    value(token());
    EXPECT_EQ(took(), (Lines{"log: device token validated.", "log: Cipher Key Error!"})) << mac;
    EXPECT_EQ(tracker->auth(), KVAuthTokenWritten);
    EXPECT_EQ(tracker->comToken(), bytes(kTag + kOurs));
  }
}

TEST_F(HandshakeTest, TokenIsOnlyWrittenOnceTheTagHasSpoken) {
  openLink();
  tracker->writeChecksumData();
  EXPECT_EQ(tracker->auth(), KVAuthNone);
  EXPECT_EQ(tracker->comToken(), std::nullopt);
  EXPECT_EQ(took(), Lines{});
  tracker->setAuth(KVAuthTokenChecked);
  tracker->writeChecksumData();
  EXPECT_EQ(tracker->auth(), KVAuthTokenWritten);
  EXPECT_EQ(took(), (Lines{wroteStatic(kToken), "log: Writing verification token."}));
  tracker->setAuth(KVAuthTokenReceived);
  tracker->validateDevice(KVData(15));
  EXPECT_EQ(tracker->auth(), KVAuthTokenReceived);
}

TEST_F(HandshakeTest, FailedWriteOfTheTokenCountsAsConfirmed) {
  openLink();
  value(token());
  took();
  written(KVError{"write failed", 3, {}});
  EXPECT_EQ(took(), (Lines{"log: Token check complete.",
                           wrote(*p, bytes(kTag + kOurs), "000713 736563726574 58595a5b5c5d5e")}));
}

TEST_F(HandshakeTest, ConfirmationOfAnotherCharacteristicDoesNotAdvance) {
  openLink();
  value(token());
  took();
  p->reportWrite(tracker->txChar());
  EXPECT_EQ(took(), (Lines{"log: ==a new instruction sent", "distance true"}));
  EXPECT_EQ(tracker->auth(), KVAuthTokenWritten);
}

TEST_F(HandshakeTest, ConfirmationAtOtherStagesReportsNothing) {
  openLink();
  for (const std::uint64_t stage : {KVAuthNone, KVAuthTokenReceived, KVAuthBindWritten}) {
    tracker->setAuth(stage);
    written();
    EXPECT_EQ(took(), Lines{"log: ==a new instruction sent"}) << stage;
    EXPECT_EQ(tracker->auth(), stage);
  }
}

TEST_F(HandshakeTest, PasswordMustFitOneFrame) {
  open();
  const struct {
    std::optional<std::string> password;
    const char* frame;  // type, length, code, password, random fill; empty for none
    Lines complaint;
  } cases[] = {
      {"a", "000213 61 606162636465666768696a6b", {}},
      {"p\u00e4ssword1234", "000e13 70c3a4 7373776f726431323334", {}},
      {"1234567890123", "000e13 31323334353637383930313233", {}},
      {"12345678901234", "", {"log: Cipher Key Error!"}},
      {"", "", {"log: Something wrong about appended data.", "log: Cipher Key Error!"}},
      {std::nullopt, "", {"log: Something wrong about appended data.", "log: Cipher Key Error!"}},
  };
  for (const auto& c : cases) {
    random->next = 0x60;
    tracker->setPassword(c.password);
    tracker->writeBindData();
    EXPECT_EQ(took(), *c.frame ? Lines{wrote(*p, session, c.frame)} : c.complaint);
  }
}

TEST_F(HandshakeTest, SessionCipherNeedsAWholeKey) {
  const KVData plain(16, 7);
  tracker->setComToken(bytes(kTag + kOurs));
  const auto sealedData = tracker->encryptConnectionData(plain);
  EXPECT_EQ(sealedData, block(bytes(kTag + kOurs), plain, true));
  EXPECT_EQ(tracker->decryptConnectionData(*sealedData), plain);
  for (const std::optional<KVData>& key : {std::optional<KVData>(), {KVData{}}, {KVData(8)}}) {
    tracker->setComToken(key);
    EXPECT_EQ(tracker->encryptConnectionData(plain), std::nullopt);
    EXPECT_EQ(tracker->decryptConnectionData(plain), std::nullopt);
    EXPECT_EQ(took(), (Lines{"log: Cipher Key Error!", "log: Cipher Key Error!"}));
  }
}

class BindTimeoutTest : public TrackerTest {
 protected:
  static constexpr auto kInstant = std::chrono::nanoseconds(1);
  static constexpr auto k30s = std::chrono::seconds(30);
  const Lines kFailed{"bind false Error! Binding Timeout. 400"};
};

TEST_F(BindTimeoutTest, FailsTheRequestAfterThirtySeconds) {
  tracker->setBindingBlock([this](bool success, const std::optional<KVError>& error) {
    EXPECT_FALSE(tracker->binding());
    result("bind")(success, error);
  });
  tracker->setBinding(true);
  EXPECT_TRUE(tracker->binding());
  EXPECT_EQ(queue->pending(), 1u);
  queue->runFor(k30s - kInstant);
  EXPECT_EQ(took(), Lines{});
  EXPECT_TRUE(tracker->binding());
  queue->runFor(kInstant);
  EXPECT_EQ(took(), kFailed);
  queue->runFor(k30s);
}

TEST_F(BindTimeoutTest, EarlierCheckEndsALaterRequest) {
  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(10));
  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(20) - kInstant);
  EXPECT_EQ(took(), Lines{});
  queue->runFor(kInstant);
  EXPECT_EQ(took(), kFailed);
  queue->runFor(k30s);
  EXPECT_EQ(took(), Lines{});

  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(5));
  tracker->setBinding(false);
  EXPECT_FALSE(tracker->binding());
  EXPECT_EQ(queue->pending(), 1u);  // false neither adds a check nor removes one
  queue->runFor(std::chrono::seconds(5));
  tracker->setBinding(true);
  queue->runFor(std::chrono::seconds(20));
  EXPECT_EQ(took(), kFailed);
}

TEST_F(BindTimeoutTest, NothingToEnd) {
  tracker->setBinding(true);
  tracker->setBinding(false);
  queue->runFor(k30s);
  EXPECT_EQ(took(), Lines{});
  tracker->setBinding(true);
  tracker->setBindingBlock(nullptr);
  queue->runFor(k30s);
  EXPECT_TRUE(tracker->binding());
}

TEST_F(BindTimeoutTest, KeepsTheTrackerUntilItHasRun) {
  tracker->setBinding(true);
  const std::weak_ptr<KVTracker> watched = tracker;
  tracker.reset();
  queue->runFor(k30s - kInstant);
  EXPECT_FALSE(watched.expired());
  queue->runFor(kInstant);
  EXPECT_EQ(took(), kFailed);
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace kvtest
