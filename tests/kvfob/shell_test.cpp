// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "apps/kvfob/base/exit_code.h"
#include "apps/kvfob/cli/offered_words.h"
#include "apps/kvfob/shell/words.h"
#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(WordsTest, SplitsAsAShellDoes) {
  const struct {
    const char* line;
    std::vector<std::string> words;
    bool open = false;
  } kCases[] = {
      {"", {}},
      {" \t ", {}},
      {"ring  keys\tcar ", {"ring", "keys", "car"}},
      {R"(ring "my keys" 'my car')", {"ring", "my keys", "my car"}},
      {R"(ring my\ keys a"b c"d)", {"ring", "my keys", "ab cd"}},
      {R"(rename keys "")", {"rename", "keys", ""}},
      {R"("it's" 'a "b" \c' "a \" b")", {"it's", R"(a "b" \c)", R"(a " b)"}},
      {R"(ring "my)", {"ring", "my"}, true},
      {R"(ring \)", {"ring", R"(\)"}},
  };
  for (const auto& [line, words, open] : kCases) {
    const auto result = splitWords(line);
    EXPECT_EQ(result.words, words) << line;
    EXPECT_EQ(result.open, open) << line;
  }
  for (const char* word : {"keys", "my keys", "a\tb", R"(it's "\")"}) {
    EXPECT_THAT(splitWords(quoteWord(word)).words, ElementsAre(word));
  }
}

TEST(OfferedWordsTest, AreThoseOfTheirPlace) {
  EXPECT_THAT(offeredWords({""}),
              AllOf(Contains("ring"), Contains("quit"), Not(Contains("--json"))));
  EXPECT_THAT(offeredWords({"alert", ""}),
              AllOf(Contains("on"), Contains("off"), Contains("--json")));
  EXPECT_THAT(offeredWords({"alert", "keys", "--json", ""}), Contains("on"));
  EXPECT_THAT(offeredWords({"scan", "--sort", ""}),
              ElementsAre("rssi", "battery", "name", "heard", "address"));
  EXPECT_THAT(offeredWords({"bind", "--name", ""}), ElementsAre());
  EXPECT_THAT(offeredWords({"sing", ""}), ElementsAre());
}

class ShellTest : public ::testing::Test {
 protected:
  ShellTest() {
    std::filesystem::remove_all(folder);
    setenv("XDG_STATE_HOME", folder.c_str(), /*overwrite=*/1);
  }
  ~ShellTest() override { std::filesystem::remove_all(folder); }

  void bindMyKeys() const {
    const auto result = runProgram({"--radio", "sim", "bind", "0a1b2c3d4e5f", "--name", "my keys",
                                    "--save-password", "--password-file", "-"},
                                   "sesame\n");
    ASSERT_EQ(result.status, kDone) << result.err;
  }

  const std::string folder = ::testing::TempDir() + "kvfob-shell-" + std::to_string(getpid());
};

TEST_F(ShellTest, KeepsOneLinkForAllCommands) {
  bindMyKeys();
  const auto result = runProgram({"--radio", "sim", "--log", "all", "shell"},
                                 "# what follows is one link's\n"
                                 "ring 'my keys'\n\nsilence --all\nalert my\\ keys on --json\n");
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_THAT(result.out,
              HasSubstr("0a1b2c3d4e5f: ringing\n0a1b2c3d4e5f: silent\n{\"event\":\"result\""));
  const auto first = result.err.find("Token check complete.");
  ASSERT_NE(first, std::string::npos) << result.err;
  EXPECT_EQ(result.err.find("Token check complete.", first + 1), std::string::npos) << result.err;
}

TEST_F(ShellTest, ScriptEndsWithTheFirstFailure) {
  bindMyKeys();
  const struct {
    const char* input;
    int status;
    const char* err;
  } kCases[] = {
      {"list\nquit\nring nothing\n", kDone, ""},
      {"ring nothing\nlist\n", kUnlisted, "no tag \"nothing\""},
      {"sing\nlist\n", kUsage, ""},
      {"ring 'my keys\nlist\n", kUsage, "quotation mark"},
      {"shell\nlist\n", kUsage, "not a command of the shell"},
      {"demo\nlist\n", kUsage, "not a command of the shell"},
  };
  for (const auto& [input, status, err] : kCases) {
    const auto result = runProgram({"--radio", "sim", "shell"}, input);
    EXPECT_EQ(result.status, status) << input << result.err;
    EXPECT_THAT(result.err, HasSubstr(err));
    EXPECT_EQ(result.out.empty(), status != kDone) << "what follows a failure is not done";
  }
}

TEST_F(ShellTest, EditsCompletesAndRemembersLines) {
  bindMyKeys();
  Child child({"--radio", "sim", "shell"});
  const auto prompted = [&] {
    const bool come = child.awaitText("kvfob> ");
    child.forget();
    return come;
  };
  ASSERT_TRUE(prompted());
  child.type("ri\tmy\t\n");
  ASSERT_TRUE(child.awaitText("0a1b2c3d4e5f: ringing")) << child.output();
  ASSERT_TRUE(prompted());
  child.type("alert my\\ keys ona\x7f\n");
  ASSERT_TRUE(child.awaitText("loss alert on")) << child.output();
  ASSERT_TRUE(prompted());
  child.type("nonsense\x03");
  ASSERT_TRUE(prompted()) << "Ctrl-C drops the line";
  child.type("nonsense\n");
  ASSERT_TRUE(prompted()) << "a mistake ends nothing";
  child.type("\x1b[A\x1b[A\n");
  ASSERT_TRUE(child.awaitText("loss alert on")) << child.output();
  ASSERT_TRUE(prompted());
  child.type("ring 0a1b2c3d4e60 --unlisted\n");
  ASSERT_TRUE(child.awaitText("Password of 0a1b2c3d4e60: "));
  child.type("\x03");
  ASSERT_TRUE(prompted()) << "Ctrl-C ends the command";
  child.type("\x04");
  EXPECT_EQ(child.awaitEnd(), kDone) << child.output();
  EXPECT_TRUE(child.echoes());
  struct stat status {};
  ASSERT_EQ(stat((folder + "/kvfob/history").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

}  // namespace
}  // namespace kvfob
