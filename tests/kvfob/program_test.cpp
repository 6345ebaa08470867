#include <gtest/gtest.h>

#include <csignal>
#include <regex>

#include "apps/kvfob/exit_code.h"
#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

TEST(Program, ExitStatuses) {
  const struct {
    std::vector<std::string> arguments;
    std::string password;
    int status;
    const char* out;
    const char* err;
  } kCases[] = {
      {{"ring", "0A:1B:2C:3D:4E:5F"}, "sesame", kDone, "0a1b2c3d4e5f: ringing", "simulated radio"},
      {{"silence", "0a1b2c3d4e5f"}, "sesame", kDone, ": silent", "simulated radio"},
      {{"alert", "0a1b2c3d4e5f", "on"}, "sesame", kDone, ": loss alert on", ""},
      {{"delay", "0a1b2c3d4e5f", "7000"}, "sesame", kDone, ": loss delay 7000", ""},
      {{"distance", "0a1b2c3d4e5f", "far"}, "sesame", kDone, ": loss distance far", ""},
      {{"unbind", "0a1b2c3d4e5f"}, "sesame", kDone, ": unbound", ""},
      {{"bind", "0a1b2c3d4e60"}, "mine", kDone, ": bound", ""},
      {{"ring", "0a1b2c3d4e5f"}, "wrong", kRefused, "", "refused the password"},
      {{"bind", "0a1b2c3d4e5f"}, "wrong", kRefused, "", "error password."},
      {{"ring", "0a1b2c3d4eff", "--timeout", "300ms"}, "x", kNotFound, "", "was not heard"},
      {{"ring", "0a1b2c3d4e5f"}, "far too long a password", kUsage, "", "1 to 13 bytes"},
      {{"watch", "0a1b2c3d4e5f", "--for", "50ms"}, "sesame", kDone, "connected", ""},
      {{"ring", "0a1b2c3d4e5f", "--radio", "bluez", "--timeout", "200ms"},
       "x",
       kNoAdapter,
       "",
       "service"},
      {{"tag", "--adapter", "hci0", "--timeout", "200ms"}, "x", kNoAdapter, "", "bus"},
  };
  // A bus that is not there stands for a machine without a Bluetooth service.
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  for (auto [arguments, password, status, out, err] : kCases) {
    if (!password.empty()) arguments.insert(arguments.end(), {"--password-file", "-"});
    const auto result = runProgram(arguments, password + "\n");
    const auto shown = ::testing::PrintToString(arguments) + "\n" + result.out + result.err;
    EXPECT_EQ(result.status, status) << shown;
    EXPECT_NE(result.out.find(out), std::string::npos) << shown;
    EXPECT_NE(result.err.find(err), std::string::npos) << shown;
    EXPECT_EQ((result.out + result.err).find("sesame"), std::string::npos) << shown;
  }
}

TEST(Program, NoTerminalToAskOn) {
  const auto result = runProgram({"ring", "0a1b2c3d4e5f"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_NE(result.err.find("--password-file"), std::string::npos);
}

TEST(Program, ScanPrintsOneObjectALine) {
  const auto result = runProgram({"scan", "--json", "--for", "500ms"});
  EXPECT_EQ(result.status, kDone);
  const std::regex line(
      R"re(\{"address":"[0-9a-f]{12}","rssi":-\d+,"battery":\d+,"tx":null,"model":(\d+|null),)re"
      R"re("distance":"(far|middle|near)","last_heard":"[-0-9]{10}T[0-9:]{8}\.\d{3}Z"\}\n)re");
  std::sregex_iterator match(result.out.begin(), result.out.end(), line);
  EXPECT_EQ(std::distance(match, {}), 3) << result.out;
  EXPECT_EQ(std::regex_replace(result.out, line, ""), "");
}

TEST(Program, SignalsEndItOrderly) {
  for (const int number : {SIGINT, SIGTERM}) {
    Child child({"watch", "0a1b2c3d4e5f"});
    ASSERT_TRUE(child.awaitText("Password"));
    child.type("sesame\n");
    ASSERT_TRUE(child.awaitText("connected")) << child.output();
    child.signal(number);
    EXPECT_EQ(child.awaitEnd(), kSignal + number);
  }
}

}  // namespace
}  // namespace kvfob
