// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/terminal/password.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <vector>

#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

TEST(PasswordTest, FromAFile) {
  const struct {
    std::string content;
    std::string password;  // empty: refused
  } kCases[] = {
      {"secret", "secret"},
      {"secret\n", "secret"},
      {"secret\r\n", "secret"},
      {"thirteen byte", "thirteen byte"},
      {" \xC3\xA4 ", " \xC3\xA4 "},
      {"fourteen bytes", ""},
      {"", ""},
      {"\n", ""},
      {"one\ntwo", ""},
      {std::string(5000, 'x'), ""},
  };
  const auto path = ::testing::TempDir() + "kvfob-password-" + std::to_string(getpid());
  for (const auto& [content, password] : kCases) {
    std::ofstream(path) << content;
    const auto result = readPassword(path);
    if (password.empty()) {
      ASSERT_TRUE(std::holds_alternative<Outcome>(result)) << content;
      EXPECT_EQ(std::get<Outcome>(result).code, kBadInput);
    } else {
      ASSERT_TRUE(std::holds_alternative<Secret>(result)) << content;
      EXPECT_EQ(std::get<Secret>(result).text(), password);
    }
  }
  std::remove(path.c_str());
  EXPECT_EQ(std::get<Outcome>(readPassword(path)).code, kBadInput);
}

TEST(PasswordTest, IsWipedWhenItIsMoved) {
  Secret first{std::string("sesame")};
  const char* bytes = first.text().data();
  const Secret second = std::move(first);
  EXPECT_EQ(second.text(), "sesame");
  // A text this short lies inside the object, which is still there.
  EXPECT_EQ(std::string(bytes, 6), std::string(6, '\0'));
}

const std::vector<std::string> kRing{"--radio", "sim", "ring", "0a1b2c3d4e5f", "--unlisted"};
constexpr const char* kPrompt = "Password of 0a1b2c3d4e5f: ";

TEST(PasswordTest, PromptDoesNotEcho) {
  Child child(kRing);
  ASSERT_TRUE(child.awaitText(kPrompt));
  EXPECT_FALSE(child.echoes());
  child.type("sesame\n");
  EXPECT_EQ(child.awaitEnd(), kDone);
  EXPECT_NE(child.output().find("0a1b2c3d4e5f: ringing"), std::string::npos) << child.output();
  EXPECT_EQ(child.output().find("sesame"), std::string::npos) << child.output();
  EXPECT_TRUE(child.echoes());
}

TEST(PasswordTest, PromptRestoresTheTerminalOnSignals) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    Child child(kRing);
    ASSERT_TRUE(child.awaitText(kPrompt));
    child.type("ses");
    child.signal(number);
    EXPECT_EQ(child.awaitEnd(), kSignal + number);
    EXPECT_TRUE(child.echoes()) << number;
  }
}

TEST(PasswordTest, StoppedPromptShowsTheTerminalAsItWasAndAsksAnew) {
  Child child(kRing, /*jobs=*/true);
  ASSERT_TRUE(child.awaitText(kPrompt));
  child.type("wro\x1a");  // Ctrl-Z
  ASSERT_TRUE(child.awaitText("[stopped]")) << child.output();
  EXPECT_TRUE(child.echoes());
  child.forget();
  child.signal(SIGUSR1);
  ASSERT_TRUE(child.awaitText(kPrompt)) << child.output();
  EXPECT_FALSE(child.echoes());
  child.type("sesame\n");
  EXPECT_EQ(child.awaitEnd(), kDone) << child.output();
}

TEST(PasswordTest, BindAsksUntilBothAreTheSame) {
  Child child({"--radio", "sim", "bind", "0a1b2c3d4e60"});
  for (const char* second : {"mime", "mine"}) {
    ASSERT_TRUE(child.awaitText("Password of 0a1b2c3d4e60: ")) << child.output();
    child.type("mine\n");
    ASSERT_TRUE(child.awaitText("The same again: ")) << child.output();
    child.forget();
    child.type(std::string(second) + "\n");
  }
  EXPECT_EQ(child.awaitEnd(), kDone) << child.output();
}

TEST(PasswordTest, FileThatOthersCanReadIsTold) {
  const auto path = ::testing::TempDir() + "kvfob-readable-" + std::to_string(getpid());
  std::ofstream(path) << "secret";
  for (const auto& [mode, warned] :
       {std::pair(0600, false), {0640, true}, {0604, true}, {0620, false}}) {
    chmod(path.c_str(), static_cast<mode_t>(mode));
    EXPECT_EQ(passwordFileWarning(path).has_value(), warned) << std::oct << mode;
  }
  std::remove(path.c_str());
  EXPECT_FALSE(passwordFileWarning("-"));
  EXPECT_FALSE(passwordFileWarning("/dev/null"));
}

}  // namespace
}  // namespace kvfob
