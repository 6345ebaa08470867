// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "apps/kvfob/base/exit_code.h"
#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

TEST(ProgramTest, ExitStatuses) {
  const struct {
    std::vector<std::string> arguments;
    std::string password;
    int status;
    const char* out;
    const char* err;
  } kCases[] = {
      {{"ring", "0A:1B:2C:3D:4E:5F", "--unlisted"},
       "sesame",
       kDone,
       "0a1b2c3d4e5f: ringing",
       "simulated radio"},
      {{"silence", "0a1b2c3d4e5f", "--unlisted"}, "sesame", kDone, ": silent", "simulated radio"},
      {{"alert", "0a1b2c3d4e5f", "on", "--unlisted"}, "sesame", kDone, ": loss alert on", ""},
      {{"delay", "0a1b2c3d4e5f", "7000", "--unlisted"}, "sesame", kDone, ": loss delay 7000", ""},
      {{"distance", "0a1b2c3d4e5f", "far", "--unlisted"},
       "sesame",
       kDone,
       ": loss distance far",
       ""},
      {{"bind", "0a1b2c3d4e5f"}, "sesame", kDone, ": bound", ""},
      {{"ring", "0a1b2c3d4e5f", "--unlisted"}, "wrong", kRefused, "", "refused the password"},
      {{"bind", "0a1b2c3d4e5f"}, "wrong", kRefused, "", "error password."},
      {{"ring", "0a1b2c3d4eff", "--timeout", "300ms", "--unlisted"},
       "x",
       kNotFound,
       "",
       "was not heard"},
      {{"ring", "0a1b2c3d4e5f", "--unlisted"},
       "far too long a password",
       kBadInput,
       "",
       "1 to 13 bytes"},
      {{"watch", "0a1b2c3d4e5f", "--for", "50ms", "--unlisted"}, "sesame", kDone, "connected", ""},
      {{"ring", "0a1b2c3d4e5f", "--unlisted"}, "x", kNoAdapter, "", "--radio sim"},
      {{"ring", "0a1b"}, "", kUnlisted, "", "kvfob list"},
      {{"scan", "--for", "500ms", "--color", "always"}, "", kDone, "0a1b2c3d4e61", ""},
      {{"doctor"}, "", kNoAdapter, "PROBLEM", "cannot be used"},
      {{"doctor", "--json"},
       "",
       kNoAdapter,
       "{\"event\":\"finding\",\"topic\":\"bus\",\"verdict\":\"problem\",\"seen\":\"",
       "cannot be used"},
      {{"doctor", "--json", "--adapter", "hci3"},
       "",
       kNoAdapter,
       "\"command\":\"doctor\",\"adapter\":\"hci3\",\"ok\":false,",
       ""},
      {{"tag", "--adapter", "hci0", "--timeout", "200ms"}, "x", kNoAdapter, "", "bus"},
      {{"tag", "--adapter", "hci0", "--timeout", "200ms", "--json"},
       "x",
       kNoAdapter,
       "\"error\":{\"code\":\"no-bluetooth\",\"message\":\"the system bus cannot be reached\"}}",
       "bus"},
  };
  // A bus that is not there stands for a machine without a Bluetooth service.
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  for (auto [arguments, password, status, out, err] : kCases) {
    // The one that is tried without saying so is that of the machine.
    if (status != kNoAdapter) arguments.insert(arguments.begin(), {"--radio", "sim"});
    if (!password.empty()) arguments.insert(arguments.end(), {"--password-file", "-"});
    const auto result = runProgram(arguments, password + "\n");
    const auto shown = ::testing::PrintToString(arguments) + "\n" + result.out + result.err;
    EXPECT_EQ(result.status, status) << shown;
    EXPECT_NE(result.out.find(out), std::string::npos) << shown;
    EXPECT_NE(result.err.find(err), std::string::npos) << shown;
    EXPECT_EQ((result.out + result.err).find("sesame"), std::string::npos) << shown;
  }
}

TEST(ProgramTest, DecodesACapture) {
  const std::string capture = KVFOB_TEST_DATA "/road.btsnoop";
  const auto masked = runProgram({"decode", capture});
  const auto shown = runProgram({"decode", "--show-secrets", capture});
  EXPECT_EQ(masked.status, kDone) << masked.err;
  for (const char* text :
       {"adv   a1b2c3d4e5f6  battery 77  tx -12 dBm  model 1  rssi -60 dBm", "link  up",
        "> verification token for a1b2c3d4e5f6", "> bind, password (hidden) of 11 bytes",
        "< bind: accepted", "> bell on", "< bell: accepted", "> loss delay 600",
        "> loss distance near", "> remove password", "< remove password: accepted"}) {
    EXPECT_NE(masked.out.find(text), std::string::npos) << text << "\n" << masked.out;
  }
  EXPECT_EQ(masked.out.find("open sesame"), std::string::npos);
  EXPECT_NE(shown.out.find("open sesame"), std::string::npos);
}

TEST(ProgramTest, DecodesForScriptsAsMuchAsForPeople) {
  const std::string capture = KVFOB_TEST_DATA "/road.btsnoop";
  const auto text = runProgram({"decode", capture});
  const auto json = runProgram({"decode", "--json", capture});
  const auto lines = [](const RunResult& run) {
    return std::count(run.out.begin(), run.out.end(), '\n');
  };
  EXPECT_EQ(lines(json), lines(text) + 1) << "and the result";
  for (const char* line :
       {R"({"event":"advertisement","time":"2026-11-22T23:39:44.411Z","adapter":"hci0",)"
        R"("address":"a1b2c3d4e5f6","battery":77,"tx":-12,"model":1,"rssi":-60})",
        R"({"event":"link-up","time":"2026-11-22T23:39:44.680Z","adapter":"hci0","link":42,)"
        R"("peer":"00aa01010042"})",
        R"("adapter":"hci0","link":42,"command":"bell","value":"on","wire":")",
        R"("link":42,"reason":19})", R"({"event":"result","command":"decode","file":"/)",
        R"("packets":124,"found":44,"ok":true,)"
        R"("seconds":0.)"}) {
    EXPECT_NE(json.out.find(line), std::string::npos) << line << "\n" << json.out;
  }
}

TEST(ProgramTest, DecodeShowsHowFarItIsUntilASignal) {
  const auto fifo = ::testing::TempDir() + "kvfob-fifo-" + std::to_string(getpid());
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Child child({"decode", fifo});
  const int writer = open(fifo.c_str(), O_RDWR);
  // Frames: 0xA1, 0x0B, battery, address backwards, transmit power.
  const std::string frame = "a10b64112233445566f4\n";
  EXPECT_EQ(write(writer, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
  EXPECT_TRUE(child.awaitText("\r21 bytes read")) << child.output();
  EXPECT_EQ(write(writer, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
  EXPECT_TRUE(child.awaitText("read\033[K\r\033[K665544332211")) << child.output();
  EXPECT_TRUE(child.awaitText("\r42 bytes read")) << child.output();
  child.signal(SIGINT);
  EXPECT_EQ(child.awaitEnd(), kSignal + SIGINT);
  EXPECT_TRUE(child.output().ends_with("read\033[K\r\033[K")) << child.output();
  close(writer);
  unlink(fifo.c_str());
}

TEST(ProgramTest, DecodesFramesAndRefusesOtherInput) {
  const struct {
    std::string input;
    int status;
    const char* out;
    const char* err;
  } kCases[] = {
      // Advertised frames: 0xA1, 0x0B (0x0D is none), battery, address backwards, transmit power.
      {"# a frame\nA1 0B 64 11 22 33 44 55 66 F4\n", kDone,
       "665544332211  battery 100  tx -12 dBm\n", ""},
      {"a1:0d:64:11:22:33:44:55:66:f4\n", kDone, "not a tag's frame", ""},
      {"hello\n", kBadInput, "", "standard input: line 1 is neither"},
      {"a10\n", kBadInput, "", "line 1 is neither"},
      {"# " + std::string(4094, 'x') + "\n\nhello", kBadInput, "", "line 3 is neither"},
      {std::string(4096, 'a') + "\n" + std::string(4097, 'a'), kBadInput, "not a tag's frame: aaa",
       "line 2 is too long"},
      {"", kBadInput, "", "there is nothing in it"},
      {"# no frame\n\n", kBadInput, "", "there is nothing in it"},
      // Captures: magic, version (4, big-endian), datalink type (4), then packets.
      {std::string("btsnoop\0\0\0", 10), kBadInput, "", "inside its header"},
      {std::string("btsnoop\0\0\0\0\x02\0\0\x07\xd1", 16), kBadInput, "", "version 2"},
      {std::string("btsnoop\0\0\0\0\x01\0\0\x07\xd2", 16), kBadInput, "", "kind of link, 2002"},
      {std::string("btsnoop\0\0\0\0\x01\0\0\x07\xd1\0\0", 18), kBadInput, "", "inside packet 1"},
      {std::string("btsnoop\0\0\0\0\x01\0\0\x07\xd1", 16), kDone, "", "nothing of a tag"},
  };
  for (const auto& [input, status, out, err] : kCases) {
    const auto result = runProgram({"decode", "-"}, input);
    EXPECT_EQ(result.status, status) << result.out << result.err;
    EXPECT_NE(result.out.find(out), std::string::npos) << result.out;
    EXPECT_NE(result.err.find(err), std::string::npos) << result.err;
  }
  const std::pair<const char*, const char*> kFiles[] = {
      {"/", "cannot read /: Is a directory"},
      {"/dev/zero", "/dev/zero: line 1 is neither"},
      {"/nonexistent", "cannot read /nonexistent: No such file"},
  };
  for (const auto& [file, message] : kFiles) {
    const auto result = runProgram({"decode", "--json", file});
    EXPECT_EQ(result.status, kBadInput) << file;
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    EXPECT_NE(result.out.find(R"("error":{"code":"bad-input","message":")"), std::string::npos)
        << result.out;
  }
}

TEST(ProgramTest, LostOutputEndsWhateverWritesIt) {
  const auto state = ::testing::TempDir() + "kvfob-lost-" + std::to_string(getpid());
  setenv("XDG_STATE_HOME", state.c_str(), /*overwrite=*/1);
  ASSERT_EQ(
      runProgram({"--radio", "sim", "bind", "0a1b2c3d4e60", "--password-file", "-"}, "mine").status,
      kDone);
  const std::string capture = KVFOB_TEST_DATA "/road.btsnoop";
  const std::vector<std::string> kCases[] = {
      {},
      {"--help"},
      {"help", "ring"},
      {"ring", "--help"},
      {"-V"},
      {"completion", "bash"},
      {"manual"},
      {"config"},
      {"config", "--json"},
      {"list"},
      {"list", "--json"},
      {"--radio", "sim", "list", "--names"},
      {"demo", "--instant"},
      {"decode", capture},
      {"decode", "--json", capture},
      {"--radio", "sim", "scan", "--for", "300ms"},
      {"--radio", "sim", "scan", "--for", "300ms", "--json"},
      {"--radio", "sim", "ring", "0a1b2c3d4e5f", "--unlisted", "--password-file", "-"},
      {"--radio", "sim", "watch", "0a1b2c3d4e5f", "--unlisted", "--password-file", "-"},
  };
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  const int full = open("/dev/full", O_WRONLY);
  for (const auto& arguments : kCases) {
    const auto shown = ::testing::PrintToString(arguments);
    const auto lost = runProgram(arguments, "sesame", full);
    EXPECT_EQ(lost.status, kInternal) << shown;
    EXPECT_THAT(lost.err, ::testing::EndsWith("cannot write the output: No space left on device\n"))
        << shown;
    const auto left = runProgram(arguments, "sesame", ends[1]);
    EXPECT_EQ(left.status, kSignal + SIGPIPE) << shown;
    EXPECT_EQ(left.err.find("output"), std::string::npos) << shown << left.err;
  }
  // What is wrong with the radio is told all the same.
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  for (const int out : {full, ends[1]}) {
    EXPECT_EQ(runProgram({"doctor"}, "", out).status, kNoAdapter);
    EXPECT_EQ(runProgram({"doctor", "--json"}, "", out).status, kNoAdapter);
  }
  close(full);
  close(ends[1]);
  std::filesystem::remove_all(state);
}

TEST(ProgramTest, NoTerminalToAskOn) {
  const auto result = runProgram({"--radio", "sim", "ring", "0a1b2c3d4e5f", "--unlisted"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_NE(result.err.find("--password-file"), std::string::npos);
}

TEST(ProgramTest, ScanTellsEventsAsObjects) {
  const auto result = runProgram({"scan", "--json", "--for", "500ms", "--radio", "sim"});
  EXPECT_EQ(result.status, kDone);
  const std::string object =
      R"re(\{"event":"tag","time":"[-0-9]{10}T[0-9:]{8}\.[0-9]{3}Z","address":"[0-9a-f]{12}",)re"
      R"re("name":null,"rssi":-[0-9]+,"battery":[0-9]+,"tx":null,"model":([0-9]+|null),)re"
      R"re("distance":"(far|middle|near)","bound":(true|false),)re"
      R"re("last_heard":"[-0-9]{10}T[0-9:]{8}\.[0-9]{3}Z"\})re";
  EXPECT_THAT(result.out, ::testing::MatchesRegex("(" + object + "\n){3}"));
}

TEST(ProgramTest, ScanFollowsTheTagsWhileItsReaderReads) {
  Child child({"scan", "--json", "--follow", "--radio", "sim"});
  // The first lines come at once, and those of tags that move later.
  ASSERT_TRUE(child.awaitText("\"event\":\"tag\"")) << child.output();
  for (int i = 0; i < 4; ++i) {
    child.forgetOutput();
    ASSERT_TRUE(child.awaitText("}\r\n"));
  }
  child.signal(SIGINT);
  EXPECT_EQ(child.awaitEnd(), kSignal + SIGINT);
}

TEST(ProgramTest, CrowdIsForTheSimulatedRadio) {
  const auto refused = runProgram({"scan", "--sim-tags", "5", "--radio", "bluez"});
  EXPECT_EQ(refused.status, kUsage);
  EXPECT_NE(refused.err.find("--radio sim"), std::string::npos);
  EXPECT_EQ(runProgram({"scan", "--follow", "--radio", "sim"}).status, kUsage);
  const auto table = runProgram({"scan", "--sim-tags", "2", "--radio", "sim", "--for", "500ms"});
  EXPECT_EQ(std::count(table.out.begin(), table.out.end(), '\n'), 3) << table.out;
}

TEST(ProgramTest, SignalsEndItOrderly) {
  for (const int number : {SIGINT, SIGTERM}) {
    Child child({"--radio", "sim", "watch", "0a1b2c3d4e5f", "--unlisted"});
    ASSERT_TRUE(child.awaitText("Password"));
    child.type("sesame\n");
    ASSERT_TRUE(child.awaitText("connected")) << child.output();
    child.signal(number);
    EXPECT_EQ(child.awaitEnd(), kSignal + number);
  }
}

TEST(ProgramTest, ScreenGivesTheTerminalBack) {
  const std::string back = "\033[?1049l";  // from the alternate screen
  for (const int number : {SIGINT, SIGTERM, SIGHUP, 0}) {
    Child child({"--radio", "sim", "scan", "--for", "1m"});
    ASSERT_TRUE(child.awaitText("0a1b2c3d4e61")) << child.output();
    EXPECT_FALSE(child.echoes());
    number != 0 ? child.signal(number) : child.type("q");
    EXPECT_EQ(child.awaitEnd(), number == 0 ? kDone : kSignal + number);
    EXPECT_TRUE(child.echoes()) << number;
    EXPECT_NE(child.output().find(back), std::string::npos) << number;
  }
}

}  // namespace
}  // namespace kvfob
