// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The commands of a tag and its answers, and what an observer is told of them.
#include "tests/simulator/tag_fixture.h"

namespace kvsim {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(TagLinkTest, ObserverIsToldEverything) {
  const Block key = reachSession();
  EXPECT_THAT(took(), ElementsAre("a client connected", "notifications on",
                                  "opening value with the tag's half of the key",
                                  "token with the client's half of the key", "bind with a password",
                                  "answer to command 19, status 0"));
  struct Case {
    std::uint8_t code;
    KVData payload;
    const char* text;
    const char* status;
  };
  // The status of a refusal is 1. The loss delay is little-endian.
  const Case kCases[] = {
      {kBellCommand, {0x00}, "ring the bell", "0"},
      {kBellCommand, {0x01}, "silence the bell", "0"},
      {kBellCommand, {0x02}, "silence the bell", "1"},
      {kBellCommand, {0x00, 0x00}, "ring the bell", "1"},
      {kAlertCommand, {0x00}, "switch the loss alert on", "0"},
      {kAlertCommand, {0x02}, "switch the loss alert off", "1"},
      {kDelayCommand, {0x58, 0x1B}, "set the loss delay to 7000", "0"},
      {kDelayCommand, {0x59, 0x1B}, "set the loss delay to 7001", "1"},
      {kDelayCommand, {0x01}, "set the loss delay", "1"},
      {kDelayCommand, {0x01, 0x00, 0x00}, "set the loss delay to 1", "1"},
      {kRemovePasswordCommand, {0x01}, "remove the password", "1"},
      {kRemovePasswordCommand, {0x00, 0x00}, "remove the password", "1"},
      {kRemovePasswordCommand, {0x00}, "remove the password", "0"},
      {99, {0x00}, "unknown command 99", "1"},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(ask(key, c.code, c.payload), c.status) << c.text;
    EXPECT_THAT(took(), ElementsAre(c.text, "answer to command " + std::to_string(c.code) +
                                                ", status " + c.status));
  }
  EXPECT_FALSE(tag.state().bellRinging);
  EXPECT_TRUE(tag.state().alertOn);
  EXPECT_EQ(tag.state().lossDelay, 7000);
  EXPECT_EQ(tag.state().settings.at(kBellCommand), KVData{0x01}) << "not what was refused";
  EXPECT_EQ(tag.state().settings.count(99), 0U);
  EXPECT_FALSE(tag.state().passwordSet);
  EXPECT_EQ(tag.state().commands.at(kDelayCommand), 4U);

  tag.pressButton();
  tag.inject(KVData{0x01});
  tag.sendFrame(77, KVData{0x01});
  tag.write(kDistance, KVData{0xEC});  // -20
  tag.subscribe(kCommand, /*enabled=*/false);
  tag.disconnect();
  tag.disconnect();
  EXPECT_THAT(took(),
              ElementsAre("the button was pressed", "raw bytes", "frame with code 77",
                          "set the loss distance to -20", "notifications off", "the link ended"));
  EXPECT_FALSE(tag.state().connected);
  EXPECT_FALSE(tag.state().bound);
  EXPECT_FALSE(tag.state().subscribed);
  EXPECT_EQ(tag.state().sessions, 1U);
}

TEST_F(TagLinkTest, EventsCarryTheBytes) {
  using Bytes = std::pair<KVData, KVData>;  // on the air, in the clear
  const auto bytes = [this] { return Bytes(last.wire, last.plain); };
  tag.subscribe(kCommand, true);
  EXPECT_EQ(bytes(), Bytes());
  const Block key = agree();
  EXPECT_EQ(decryptBlock(kFixedKey, *toBlock(last.wire)), *toBlock(last.plain));
  bind(key);
  EXPECT_EQ(decryptBlock(key, *toBlock(last.wire)), *toBlock(last.plain));
  EXPECT_EQ(last.wire, sent.at(0).value);
  tag.sendFrame(77, KVData{0x0A, 0x0B});
  EXPECT_EQ(decryptBlock(key, *toBlock(last.wire)), *toBlock(last.plain));
  // Type 01, length 3, code 77, the payload.
  EXPECT_EQ(KVData(last.plain.begin(), last.plain.begin() + 5),
            (KVData{0x01, 0x03, 77, 0x0A, 0x0B}));
  tag.inject(KVData{0x05});
  EXPECT_EQ(bytes(), Bytes(KVData{0x05}, {}));
  tag.write(kDistance, KVData{0xF8});
  EXPECT_EQ(bytes(), Bytes(KVData{0xF8}, {}));
  tag.write(kCommand, KVData{0x00});
  EXPECT_EQ(last.kind, TagEventKind::FrameRejected);
  EXPECT_EQ(bytes(), Bytes(KVData{0x00}, {}));
}

TEST_F(TagLinkTest, FramesAtTheEdgesOfTheFormat) {
  const Block key = reachSession();
  struct Case {
    std::uint8_t type;
    std::uint8_t length;
    const char* answer;
  };
  // The length counts the code and the payload, which has 1 to 13 bytes.
  const Case kCases[] = {{0x00, 0, "none"}, {0x00, 1, "none"},  {0x00, 2, "0"},
                         {0x00, 14, "1"},   {0x00, 15, "none"}, {0x01, 2, "none"}};
  unsigned rejected = 0;
  for (const Case& c : kCases) {
    Block plain{};
    plain[0] = c.type;
    plain[1] = c.length;
    plain[2] = kBellCommand;
    EXPECT_EQ(askRaw(key, plain), c.answer) << int{c.length};
    if (std::string_view(c.answer) == "none") ++rejected;
    EXPECT_EQ(tag.state().rejected, rejected);
  }
}

TEST_F(TagLinkTest, PasswordsOfEverySize) {
  tag.subscribe(kCommand, true);
  const Block key = agree();
  EXPECT_EQ(bind(key, "123456789abcd"), "0");
  EXPECT_EQ(tag.spec().password, "123456789abcd");
  EXPECT_EQ(bind(key, "123456789abcx"), "1");
  EXPECT_EQ(last.text, "answer to command 19, status 1");
  EXPECT_EQ(tag.state().sessions, 1U);
  EXPECT_TRUE(tag.state().passwordSet);
}

TEST_F(TagLinkTest, CommandsThatAreToldHowToBeAnswered) {
  tag.subscribe(kCommand, true);
  const Block key = agree();
  auto& commands = tag.behaviour().commands;
  commands[kBindCommand].status = 5;
  EXPECT_EQ(bind(key), "5");
  EXPECT_FALSE(tag.state().passwordSet) << "a refused password is not kept";
  commands[kBindCommand] = {.mute = true};
  EXPECT_EQ(bind(key), "none");
  EXPECT_FALSE(tag.state().bound);
  commands.clear();
  EXPECT_EQ(bind(key, "first"), "0");
  commands[kBindCommand].status = 0;
  EXPECT_EQ(bind(key, "other"), "0") << "any password will do";
  EXPECT_EQ(tag.spec().password, "first");
  commands[kBellCommand].status = 7;
  EXPECT_EQ(ask(key, kBellCommand, KVData{0x00}), "7");
  EXPECT_FALSE(tag.state().bellRinging);
  commands[kBellCommand].status = 0;
  EXPECT_EQ(ask(key, kBellCommand, KVData{0x00}), "0");
  EXPECT_TRUE(tag.state().bellRinging);
  commands[kBellCommand] = {.mute = true};
  EXPECT_EQ(ask(key, kBellCommand, KVData{0x01}), "none");
  EXPECT_TRUE(tag.state().bellRinging);
}

TEST_F(TagLinkTest, FaultsOfTheTwoAnswers) {
  struct Case {
    Procedure step;
    std::uint8_t code;
    KVData payload;
  };
  const Block key = reachSession();
  const Case kCases[] = {{Procedure::BindAnswer, kBindCommand, {'s', 'e', 'c', 'r', 'e', 't'}},
                         {Procedure::CommandAnswer, kBellCommand, {0x00}}};
  for (const Case& c : kCases) {
    StepBehaviour& step = tag.behaviour().steps[c.step] = {.times = 0};
    tag.behaviour().answerDelay = 1s;
    EXPECT_EQ(ask(key, c.code, c.payload), "0");
    EXPECT_EQ(sent.at(0).delay, 1s);
    step = {StepFault::Delay, 1, 2s};
    EXPECT_EQ(ask(key, c.code, c.payload), "0");
    EXPECT_EQ(sent.at(0).delay, 3s);
    for (const StepFault silent : {StepFault::Mute, StepFault::Fail}) {
      step = {silent, 1};
      EXPECT_EQ(ask(key, c.code, c.payload), "none");
    }
    drops.clear();
    step = {StepFault::Drop, 1, 3s};
    EXPECT_EQ(ask(key, c.code, c.payload), "none");
    EXPECT_THAT(drops, ElementsAre(3s));
  }
}

TEST_F(TagLinkTest, AnswersAsTheyAreInTheClear) {
  const Block key = reachSession();
  struct Case {
    AnswerFault fault;
    KVData plain;  // the beginning: type, length, code, status
  };
  const Case kCases[] = {
      {AnswerFault::None, {0x01, 2, kBellCommand, 0}},
      {AnswerFault::SecondType, {0xFF, 2, kBellCommand, 0}},
      {AnswerFault::UnknownType, {0x02, 2, kBellCommand, 0}},
      {AnswerFault::WrongLength, {0x01, 15, kBellCommand, 0}},
      {AnswerFault::ZeroLength, {0x01, 0, kBellCommand, 0}},
      {AnswerFault::NoPayload, {0x01, 1, kBellCommand}},
      {AnswerFault::OtherCode, {0x01, 2, 0x7E, 0}},
  };
  for (const Case& c : kCases) {
    sent.clear();
    tag.behaviour().commands[kBellCommand].fault = c.fault;
    tag.write(kCommand, encryptBlock(key, frame(0x00, kBellCommand, KVData{0x00}, Block{})));
    ASSERT_EQ(sent.size(), 1U);
    const Block answer = decryptBlock(key, *toBlock(sent.at(0).value));
    EXPECT_TRUE(std::equal(c.plain.begin(), c.plain.end(), answer.begin())) << int{c.plain[0]};
  }
  sent.clear();
  tag.behaviour().commands[kBellCommand].fault = AnswerFault::WrongKey;
  tag.write(kCommand, encryptBlock(key, frame(0x00, kBellCommand, KVData{0x00}, Block{})));
  EXPECT_EQ(decryptBlock(kFixedKey, *toBlock(sent.at(0).value))[2], kBellCommand);
}

TEST_F(TagLinkTest, ReplayOfTheFirstAnswerIsSilence) {
  tag.subscribe(kCommand, true);
  tag.behaviour().commands[kBindCommand].fault = AnswerFault::Replay;
  const Block key = agree();
  EXPECT_EQ(bind(key), "none");
  EXPECT_EQ(bind(key), "none") << "what was not sent is not replayed";
  tag.behaviour().commands.clear();
  EXPECT_EQ(bind(key), "0");
  const KVData good = sent.at(0).value;
  tag.behaviour().commands[kBellCommand].fault = AnswerFault::Replay;
  for (int i = 0; i < 2; ++i) {
    sent.clear();
    tag.write(kCommand, encryptBlock(key, frame(0x00, kBellCommand, KVData{0x00}, Block{})));
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent.at(0).value, good);
  }
}

TEST_F(TagLinkTest, ObserverMayEndTheLinkBeforeTheAnswer) {
  const Block key = reachSession();
  tag.setObserver([this](const TagEvent& event) {
    if (event.text == "ring the bell") tag.disconnect();
  });
  EXPECT_EQ(ask(key, kBellCommand, KVData{0x00}), "none");
  EXPECT_TRUE(tag.state().bellRinging);
}

}  // namespace
}  // namespace kvsim
