// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// One link to a tag, request by request: what each attribute answers, and what each fault does.
#include "tests/simulator/tag_fixture.h"

namespace kvsim {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(TagLinkTest, WhatEachAttributeAnswers) {
  tag.behaviour().commandCharacteristics = 2;
  struct Case {
    GattHandle handle;
    const char* read;
    const char* writeOne;  // of one byte
    const char* subscribe;
  };
  // Errors of the Attribute Protocol: 1 no such handle, 2 not readable, 3 not writable, 6 not
  // supported; 128 is the tag's own.
  const Case kCases[] = {
      {0x000F, "error 1", "error 1", "error 1"},      {kCommand, "ok 16", "error 128", "ok"},
      {kSecondCommand, "ok 16", "error 128", "ok"},   {0x0012, "error 1", "error 1", "error 1"},
      {kDistance, "error 2", "ok", "error 6"},        {kModelNumber, "ok 11", "error 3", "error 6"},
      {kManufacturer, "ok 14", "error 3", "error 6"}, {0x0053, "error 1", "error 1", "error 1"},
  };
  const KVData one = {0x05};
  for (const Case& c : kCases) {
    EXPECT_EQ(text(tag.read(c.handle)), c.read) << c.handle;
    EXPECT_EQ(text(tag.write(c.handle, one)), c.writeOne) << c.handle;
    EXPECT_EQ(text(tag.subscribe(c.handle, true)), c.subscribe) << c.handle;
  }
  EXPECT_EQ(text(tag.write(kDistance, KVData{})), "error 13");  // a wrong length
  EXPECT_EQ(tag.state().distance, 5);
  tag.disconnect();
  EXPECT_EQ(text(tag.read(kModelNumber)), "silence");
  EXPECT_EQ(text(tag.write(kDistance, one)), "silence");
  EXPECT_EQ(text(tag.subscribe(kCommand, true)), "silence");
}

TEST_F(TagLinkTest, WhatEachCharacteristicPermits) {
  Lines flags;
  for (const GattService& service : tag.services()) {
    for (const GattCharacteristic& each : service.characteristics) {
      flags.push_back(std::string(each.readable ? "r" : "-") + (each.writable ? "w" : "-") +
                      (each.notifies ? "n" : "-"));
    }
  }
  EXPECT_THAT(flags, ElementsAre("rwn", "-w-", "r--", "r--", "r--"));
}

TEST_F(TagLinkTest, LayoutKnobsLeaveTheRestInPlace) {
  struct Case {
    void (*turn)(TagBehaviour&);
    std::vector<std::size_t> characteristics;  // of each service
  };
  const Case kCases[] = {
      {[](TagBehaviour&) {}, {1, 1, 3}},
      {[](TagBehaviour& b) { b.commandService = false; }, {1, 3}},
      {[](TagBehaviour& b) { b.commandCharacteristics = 0; }, {0, 1, 3}},
      {[](TagBehaviour& b) { b.commandCharacteristics = 1000; }, {48, 1, 3}},
      {[](TagBehaviour& b) { b.secondService = false; }, {1, 3}},
      {[](TagBehaviour& b) { b.distanceCharacteristic = false; }, {1, 0, 3}},
      {[](TagBehaviour& b) { b.informationService = false; }, {1, 1}},
  };
  for (const Case& c : kCases) {
    tag.behaviour() = {};
    c.turn(tag.behaviour());
    std::vector<std::size_t> sizes;
    for (const GattService& service : tag.services()) {
      sizes.push_back(service.characteristics.size());
      for (const GattCharacteristic& each : service.characteristics) {
        EXPECT_NE(text(tag.read(each.handle)), "error 1");
      }
    }
    EXPECT_EQ(sizes, c.characteristics);
  }
}

TEST_F(TagLinkTest, EveryFaultAtEveryRequest) {
  struct Request {
    Procedure step;
    std::string (*make)(TagLinkTest& self);
    const char* good;
  };
  const Request kRequests[] = {
      {Procedure::InformationRead, [](auto& t) { return text(t.tag.read(kModelNumber)); }, "ok 11"},
      {Procedure::OpeningRead, [](auto& t) { return text(t.tag.read(kCommand)); }, "ok 16"},
      {Procedure::Subscribe, [](auto& t) { return text(t.tag.subscribe(kCommand, true)); }, "ok"},
      {Procedure::DistanceWrite, [](auto& t) { return text(t.tag.write(kDistance, KVData{0})); },
       "ok"},
      {Procedure::TokenWrite, [](auto& t) { return text(t.tag.write(kCommand, KVData{0})); },
       "error 128"},
  };
  for (const Request& request : kRequests) {
    auto& step = tag.behaviour().steps[request.step];
    const auto with = [&](StepFault fault) {
      step = {.fault = fault, .times = 1, .after = 2s, .attError = 0x11};
      return request.make(*this);
    };
    EXPECT_EQ(with(StepFault::Mute), "silence");
    EXPECT_EQ(with(StepFault::Fail), "error 17 +2 s");
    EXPECT_EQ(with(StepFault::Refuse), "error 17 +2 s");
    EXPECT_THAT(drops, IsEmpty());
    EXPECT_EQ(with(StepFault::Drop), "silence");
    EXPECT_THAT(drops, ElementsAre(2s));
    EXPECT_EQ(with(StepFault::Delay), std::string(request.good) + " +2 s");
    EXPECT_EQ(step.times, 0U);
    EXPECT_EQ(request.make(*this), request.good) << "the fault shows once";
    step = {.fault = StepFault::Mute};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(request.make(*this), "silence");
    EXPECT_EQ(step.times, kAlways);
    step.times = 0;
    drops.clear();
  }
}

TEST_F(TagLinkTest, WhatTheTagSendsOfItself) {
  tag.inject(KVData{1});
  tag.pressButton();
  tag.sendFrame(1, {});
  EXPECT_THAT(sent, IsEmpty()) << "without a subscriber";
  tag.behaviour().commandCharacteristics = 2;
  tag.subscribe(kSecondCommand, true);
  tag.pressButton();
  tag.sendFrame(1, {});
  EXPECT_THAT(sent, IsEmpty()) << "without a session key";
  const Block key = agree(kSecondCommand);
  tag.pressButton();
  EXPECT_THAT(sent, IsEmpty()) << "without a session";
  EXPECT_EQ(askRaw(key, frame(0x00, kBindCommand, KVData{'x'}, Block{}), kSecondCommand), "0");
  sent.clear();
  tag.behaviour().duplicateNotifications = true;
  tag.pressButton();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent.at(0).value, sent[1].value);
  // Type 01, length 2, code 13, one byte.
  const Block pressed = decryptBlock(key, *toBlock(sent.at(0).value));
  EXPECT_EQ(KVData(pressed.begin(), pressed.begin() + 4), (KVData{0x01, 2, kButtonEvent, 0x01}));
  tag.behaviour().duplicateNotifications = false;
  sent.clear();
  tag.sendFrame(1, KVData(13, 0x77));
  tag.sendFrame(1, KVData(14, 0x77));
  EXPECT_EQ(sent.size(), 1U) << "a frame holds 13 bytes";
  tag.subscribe(kCommand, true);
  tag.inject(KVData{1});
  EXPECT_EQ(sent.back().handle, kCommand) << "the first of those with a subscriber";
  EXPECT_EQ(askRaw(key, frame(0x00, kBellCommand, KVData{0x00}, Block{}), kSecondCommand), "0");
  tag.subscribe(kSecondCommand, false);
  EXPECT_TRUE(tag.state().subscribed);
  EXPECT_EQ(askRaw(key, frame(0x00, kBellCommand, KVData{0x01}, Block{}), kSecondCommand), "none");
  EXPECT_FALSE(tag.state().bellRinging) << "carried out all the same";
}

TEST_F(TagLinkTest, OpeningValueLastsAsLongAsTheLink) {
  const auto opening = [this] { return tag.read(kCommand)->value; };
  const KVData first = opening();
  EXPECT_EQ(opening(), first);
  tag.connect(*this);
  EXPECT_NE(opening(), first);
  EXPECT_EQ(tag.state().connects, 2U);
  EXPECT_THAT(took(),
              ElementsAre("a client connected", "opening value with the tag's half of the key",
                          "opening value with the tag's half of the key", "the link ended",
                          "a client connected", "opening value with the tag's half of the key"));
}

TEST_F(TagLinkTest, ShortOpeningValueGoesOnWithTheFormerKey) {
  const Block former = reachSession();
  tag.connect(*this);
  tag.subscribe(kCommand, true);
  tag.behaviour().openingLength = 15;
  EXPECT_EQ(text(tag.read(kCommand)), "ok 15");
  EXPECT_EQ(bind(former), "0");
  tag.connect(*this);
  tag.behaviour().openingLength = 20;
  EXPECT_EQ(text(tag.read(kCommand)), "ok 20");
  EXPECT_EQ(bind(former), "error 128") << "a token is due";
}

TEST_F(TagLinkTest, ShortOpeningValueWithoutAFormerKeyLeadsNowhere) {
  tag.subscribe(kCommand, true);
  tag.behaviour().openingLength = 0;
  EXPECT_EQ(text(tag.read(kCommand)), "ok");
  EXPECT_EQ(bind(Block{}), "none");
  EXPECT_EQ(last.text, "a frame before there is a session key");
}

TEST_F(TagLinkTest, RejectedWritesSayWhy) {
  EXPECT_EQ(text(tag.write(kCommand, KVData(16))), "error 128");
  EXPECT_EQ(last.text, "a token before the opening value was read");
  tag.read(kCommand);
  EXPECT_EQ(text(tag.write(kCommand, KVData(15))), "error 128");
  EXPECT_EQ(last.text, "a token that is not 16 bytes long");
  EXPECT_EQ(text(tag.write(kCommand, KVData(16))), "error 128");
  EXPECT_EQ(last.text, "a token with a wrong address or checksum");
  const Block key = agree();
  EXPECT_EQ(text(tag.write(kCommand, KVData(15))), "ok");
  EXPECT_EQ(last.text, "a frame that is not 16 bytes long");
  Block answer = frame(0x01, kBellCommand, KVData{0x00}, Block{});
  EXPECT_EQ(askRaw(key, answer), "none");
  EXPECT_EQ(last.text, "not a frame, or under another key");
  EXPECT_EQ(KVData(answer.begin(), answer.end()), last.plain);
  EXPECT_EQ(tag.state().rejected, 5U);
}

TEST(TagSpecTest, Addresses) {
  struct Case {
    const char* given;
    const char* address;
  };
  const Case kCases[] = {
      {"A1B2C3D4E5F6", "a1b2c3d4e5f6"}, {"0099aaffAAFF", "0099aaffaaff"},
      {"a1b2c3d4e5f", "000000000000"},  {"a1b2c3d4e5f60", "000000000000"},
      {"a1b2c3d4e5fg", "000000000000"}, {"a1b2c3d4 5f6", "000000000000"},
      {"a1:b2:c3:d4:", "000000000000"}, {"", "000000000000"},
  };
  for (const Case& c : kCases) EXPECT_EQ(VirtualTag({.address = c.given}).address(), c.address);
}

}  // namespace
}  // namespace kvsim
