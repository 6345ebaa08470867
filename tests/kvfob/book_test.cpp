// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/book.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

// A folder for state of its own.
class BookTest : public ::testing::Test {
 protected:
  BookTest() {
    std::filesystem::remove_all(folder);
    setenv("XDG_STATE_HOME", folder.c_str(), /*overwrite=*/1);
  }
  ~BookTest() override { std::filesystem::remove_all(folder); }

  void write(const std::string& text, mode_t mode = 0600) const {
    std::filesystem::create_directories(folder + "/kvfob");
    std::ofstream(file) << text;
    chmod(file.c_str(), mode);
  }
  std::string content() const {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static RunResult run(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), {"--radio", "sim"});
    return runProgram(arguments, input);
  }
  static RunResult bind(const std::string& tag, std::vector<std::string> more) {
    more.insert(more.begin(), {"bind", tag, "--password-file", "-"});
    return run(std::move(more), "mine\n");
  }

  const std::string folder = ::testing::TempDir() + "kvfob-book-" + std::to_string(getpid());
  const std::string file = folder + "/kvfob/tags";
};

TEST_F(BookTest, TagIsKnownByItsNameUntilItIsForgotten) {
  ASSERT_EQ(bind("0a1b2c3d4e60", {"--name", "my keys", "--save-password"}).status, kDone);
  struct stat status {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  ASSERT_EQ(stat((folder + "/kvfob").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
  EXPECT_EQ(content().find("mine"), std::string::npos);

  EXPECT_EQ(run({"ring", "my keys"}).status, kDone) << "with the saved password";
  const auto other = bind("0a1b2c3d4e61", {"--name", "my keys"});
  EXPECT_EQ(other.status, kUsage);
  EXPECT_NE(other.err.find("name of 0a1b2c3d4e60"), std::string::npos) << other.err;
  EXPECT_EQ(runProgram({"rename", "my keys", "car", "--radio", "bluez"}).status, kUsage);
  EXPECT_EQ(run({"rename", "my keys", "car"}).status, kDone);
  EXPECT_EQ(run({"list", "--names"}).out, "car\n");
  EXPECT_EQ(
      run({"list", "--json"}).out,
      "{\"address\":\"0a1b2c3d4e60\",\"name\":\"car\",\"radio\":\"sim\",\"password\":true}\n");
  EXPECT_EQ(run({"unbind", "car"}).status, kDone);
  EXPECT_NE(run({"list"}).out.find("asked for"), std::string::npos) << "its password is gone";
  EXPECT_EQ(run({"ring", "car"}).status, kUsage) << "there is no terminal to ask on";
  EXPECT_EQ(run({"forget", "car"}).status, kDone);
  EXPECT_EQ(run({"list", "--json"}).out, "");
}

TEST_F(BookTest, WhatIsNotUnderstoodIsNotTouched) {
  // Radio, address, name, and the password ("mine") in hexadecimal.
  const std::string good = "sim\t0a1b2c3d4e60\tkeys\t6d696e65\n";
  const std::pair<std::string, const char*> kCases[] = {
      {good + "sim\t0a1b2c3d4e60\tkeys\n", "line 2"},
      {good + "fm\t0a1b2c3d4e60\tkeys\t\n", "line 2"},
      {good + "sim\t0a1b2c3d4e6\tkeys\t\n", "line 2"},
      {good + "sim\t0a1b2c3d4e60\tkeys\t6d6\n", "line 2"},
      {good + "sim\t0a1b2c3d4e60\tkeys\t" + std::string(28, '6') + "\n", "line 2"},
  };
  for (const auto& [text, message] : kCases) {
    write(text);
    for (const auto& arguments :
         {std::vector<std::string>{"list"}, {"forget", "keys"}, {"ring", "keys"}}) {
      const auto result = run(arguments);
      EXPECT_EQ(result.status, kUsage) << text;
      EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    }
    EXPECT_EQ(content(), text);
  }
  write(good, 0640);
  EXPECT_NE(run({"list"}).err.find("chmod 600"), std::string::npos);
  write("# a remark\n\n" + good);
  EXPECT_EQ(run({"list", "--names"}).out, "keys\n");
}

TEST_F(BookTest, WritersDoNotLoseEachOthersTags) {
  constexpr int kEach = 20;
  const auto add = [](char letter) {
    for (int i = 0; i < kEach; ++i) {
      const auto outcome = Book::update([&](std::vector<BookEntry>& entries) {
        entries.push_back({.radio = RadioKind::Sim,
                           .address = "0a1b2c3d4e5f",
                           .name = std::string(1, letter) + std::to_string(i),
                           .password = {}});
        return Outcome();
      });
      EXPECT_EQ(outcome.code, kDone) << outcome.message;
    }
  };
  std::thread other(add, 'a');
  add('b');
  other.join();
  EXPECT_EQ(std::get<Book>(Book::read()).entries().size(), std::size_t{2 * kEach});

  const auto before = content();
  std::filesystem::remove(file + ".lock");
  std::filesystem::create_directory(file + ".lock");  // cannot be locked as a file
  EXPECT_NE(Book::update([](auto& entries) {
              entries.clear();
              return Outcome();
            }).code,
            kDone);
  EXPECT_EQ(content(), before);
}

TEST_F(BookTest, BashCompletesCommandsWordsAndTags) {
  ASSERT_EQ(bind("0a1b2c3d4e60", {"--name", "my keys"}).status, kDone);
  ASSERT_EQ(bind("0a1b2c3d4e61", {"--name", "*$(date)\""}).status, kDone);
  const std::string script =
      "kvfob() { \"$program\" \"$@\"; }; eval \"$(kvfob completion bash)\";"
      "complete_words() { COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1)) COMPREPLY=(); _kvfob;"
      "  echo \"${COMPREPLY[@]}\"; };"
      "complete_words kvfob unb; complete_words kvfob --radio s; complete_words kvfob ring my;"
      "complete_words kvfob --radio sim ring my; complete_words kvfob ring --radio = sim my;"
      "complete_words kvfob --radio sim bind my; complete_words kvfob --radio sim rename \\*;"
      "complete_words kvfob alert keys o; complete_words kvfob scan --sort h;"
      "complete_words kvfob help conf; complete_words kvfob tag --ra";
  const auto command = "program=" KVFOB_PROGRAM " bash -c '" + script + "'";
  std::string shown;
  std::FILE* pipe = popen(command.c_str(), "r");
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) shown += static_cast<char>(c);
  pclose(pipe);
  EXPECT_EQ(shown,
            "unbind\nsim\n\n"
            "my\\ keys\nmy\\ keys\n"
            "\n\\*\\$\\(date\\)\\\"\n"
            "on off\nheard\n"
            "config\n\n");
}

}  // namespace
}  // namespace kvfob
