// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/book/bindings.h"

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

  const struct {
    std::vector<std::string> arguments;
    int status;
    const char* out;
    const char* err;
  } kCases[] = {
      {{"ring", "my keys"}, kDone, "0a1b2c3d4e60: ringing\n", ""},
      {{"ring", "my keys", "0a1b2c3d4e60", "--all"}, kUsage, "", "--all excludes TAG"},
      {{"ring", "my keys", "0a1b2c3d4e60"}, kDone, "0a1b2c3d4e60: ringing\n", ""},
      {{"rename", "my keys", "car"}, kDone, "my keys is called car now\n", ""},
      {{"ring", "my keys"}, kUnlisted, "", "there is no tag \"my keys\""},
      {{"list", "--names"}, kDone, "car\n", ""},
      {{"list", "--json"},
       kDone,
       "{\"event\":\"listed\",\"address\":\"0a1b2c3d4e60\",\"name\":\"car\",\"radio\":\"sim\","
       "\"binding\":\"bound\",\"password_saved\":true}\n",
       ""},
      {{"unbind", "car"}, kDone, "0a1b2c3d4e60: unbound\n", ""},
      {{"list"}, kDone, "sim    unbound  asked for", ""},
      {{"ring", "car"}, kUnlisted, "", "\"kvfob bind car --radio sim\" binds it anew"},
      {{"unbind", "car"}, kUnlisted, "", "car is not bound"},
      {{"ring", "--all"}, kUnlisted, "", "no tag is bound"},
      {{"forget", "car"}, kDone, "car is forgotten\n", ""},
      {{"forget", "car"}, kUnlisted, "", "there is no tag"},
      {{"list", "--json"}, kDone, "", ""},
  };
  for (const auto& [arguments, expected, out, err] : kCases) {
    const auto result = run(arguments);
    const auto shown = ::testing::PrintToString(arguments) + "\n" + result.out + result.err;
    EXPECT_EQ(result.status, expected) << shown;
    EXPECT_NE(result.out.find(out), std::string::npos) << shown;
    EXPECT_NE(result.err.find(err), std::string::npos) << shown;
  }
}

TEST_F(BookTest, NamesAreOfOneRadioAndOneTag) {
  ASSERT_EQ(bind("0a1b2c3d4e60", {"--name", "keys", "--save-password"}).status, kDone);
  const auto other = bind("0a1b2c3d4e61", {"--name", "keys"});
  EXPECT_EQ(other.status, kUnlisted);
  EXPECT_NE(other.err.find("name of 0a1b2c3d4e60"), std::string::npos) << other.err;
  EXPECT_EQ(bind("0a1b2c3d4e61", {"--name", "car"}).status, kDone);
  EXPECT_EQ(run({"rename", "car", "keys"}).status, kUnlisted);
  for (const auto& arguments :
       {std::vector<std::string>{"rename", "keys", "car"}, {"ring", "keys"}}) {
    const auto result = runProgram(arguments);
    EXPECT_EQ(result.status, kUnlisted);
    EXPECT_NE(result.err.find("keys is on the radio sim: add --radio sim"), std::string::npos);
  }
  EXPECT_EQ(run({"forget", "keys"}).status, kUsage) << "its password would be lost";
  EXPECT_EQ(run({"forget", "keys", "--yes"}).status, kDone);
  EXPECT_EQ(run({"forget", "car"}).status, kDone) << "there is nothing to lose";
}

TEST_F(BookTest, NothingBindsButBind) {
  for (const auto& command :
       {std::vector<std::string>{"ring"}, {"silence"}, {"watch"}, {"unbind"}}) {
    auto arguments = command;
    arguments.insert(arguments.end(), {"0a1b2c3d4e60", "--password-file", "-"});
    const auto result = run(arguments, "mine\n");
    EXPECT_EQ(result.status, kUnlisted);
    EXPECT_EQ(result.err.find("radio:"), std::string::npos) << "before anything is sent";
    EXPECT_NE(result.err.find("\"kvfob bind 0a1b2c3d4e60 --radio sim\""), std::string::npos);
  }
  EXPECT_EQ(run({"list", "--names"}).out, "");
  EXPECT_EQ(run({"ring", "0a1b2c3d4e60", "--unlisted", "--password-file", "-"}, "x").status, kDone);
}

TEST_F(BookTest, NothingIsBoundThatCannotBeRemembered) {
  // A file in the place of the folder, a folder in the place of the lock or of the file.
  std::filesystem::create_directories(folder);
  std::ofstream(folder + "/kvfob") << "";
  auto result = bind("0a1b2c3d4e60", {});
  EXPECT_EQ(result.status, kStateFile) << result.err;
  EXPECT_EQ(result.out, "");
  for (const char* inTheWay : {"tags.lock", "tags"}) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder + "/kvfob/" + inTheWay);
    result = bind("0a1b2c3d4e60", {});
    EXPECT_EQ(result.status, kStateFile) << inTheWay << result.err;
    EXPECT_EQ(result.out, "");
  }
  unsetenv("XDG_STATE_HOME");
  const std::string home = getenv("HOME") != nullptr ? getenv("HOME") : "";
  unsetenv("HOME");
  EXPECT_EQ(beginBinding(RadioKind::Sim, "0a1b2c3d4e60", "", Secret("x"), true).code, kStateFile);
  setenv("HOME", home.c_str(), 1);
}

TEST_F(BookTest, BindingIsWrittenDownBeforeItIsDone) {
  const auto begin = [](const char* password, bool save, const char* name = "") {
    return beginBinding(RadioKind::Sim, "0a1b2c3d4e60", name, Secret(password), save).code;
  };
  const auto entry = [] {
    const auto book = std::get<Book>(Book::read());
    const auto* found = book.find(RadioKind::Sim, "0a1b2c3d4e60");
    return found == nullptr ? std::string("none")
                            : found->name + "," + found->password.text() + "," +
                                  std::to_string(static_cast<int>(found->binding));
  };
  const auto end = [](bool bound) {
    return endBinding(RadioKind::Sim, "0a1b2c3d4e60", bound).code;
  };

  EXPECT_EQ(begin("one", true, "keys"), kDone);
  EXPECT_EQ(entry(), "keys,one,1") << "begun";
  EXPECT_EQ(run({"ring", "keys"}).status, kUnlisted);
  EXPECT_EQ(end(false), kDone);
  EXPECT_EQ(entry(), "none") << "refused: nothing is left of it";
  EXPECT_EQ(begin("one", true, "keys"), kDone);
  EXPECT_EQ(begin("two", true, "keys"), kDone);
  EXPECT_EQ(end(true), kDone);
  EXPECT_EQ(entry(), "keys,two,0") << "the second attempt counts";
  EXPECT_EQ(begin("three", false), kDone);
  EXPECT_EQ(entry(), "keys,two,0") << "what holds until the tag has answered";
  EXPECT_EQ(end(true), kDone);
  EXPECT_EQ(entry(), "keys,three,0") << "kept, as one was kept before";
  EXPECT_EQ(begin("four", true, "car"), kDone);
  EXPECT_EQ(end(false), kDone);
  EXPECT_EQ(entry(), "keys,three,0");
  EXPECT_EQ(begin("four", true), kDone);
  std::filesystem::remove(file + ".lock");
  std::filesystem::create_directory(file + ".lock");
  EXPECT_EQ(end(true), kNotRemembered);
  EXPECT_EQ(rememberUnbound(RadioKind::Sim, "0a1b2c3d4e60").code, kNotRemembered);
  EXPECT_NE(content().find("666f7572\tbegun"), std::string::npos) << "the new password is safe";
}

TEST_F(BookTest, BadLinesAreToldAndKeptAndStopNothing) {
  // Radio, address, name, and the password ("mine") in hexadecimal.
  const std::string good = "sim\t0a1b2c3d4e60\tkeys\t6d696e65\n";
  const struct {
    std::string line;
    const char* why;
    bool foreign = false;
  } kCases[] = {
      {"sim\t0a1b2c3d4e61\tcar", "four fields"},
      {"\x01\xFF", "four fields"},
      {"Sim!\t0a1b2c3d4e61\tcar\t", "does not begin with a radio"},
      {"sim\t0a1b2c3d4e6\tcar\t", "address"},
      {"sim\t0a1b2c3d4e61\tcar\t6d6", "password"},
      {"sim\t0a1b2c3d4e61\tcar\t6g", "password"},
      {"sim\t0a1b2c3d4e61\tcar\t" + std::string(28, '6'), "password"},
      {"sim\t0a1b2c3d4e61\t\xC3(\t", "UTF-8"},
      {"sim\t0a1b2c3d4e61\tc\xC2\x9B[31m\t", "control characters"},
      {"fm\t0a1b2c3d4e61\tcar\t", "the radio \"fm\" is not known here", true},
      {"sim\t0a1b2c3d4e61\tcar\t\tlent", "state", true},
      {"sim\t0a1b2c3d4e61\tcar\t\tunbound\tred", "more fields", true},
  };
  for (const auto& [line, why, foreign] : kCases) {
    write("# mine\n" + line + "\n" + good);
    const auto list = run({"list", "--names"});
    EXPECT_EQ(list.status, kDone);
    EXPECT_EQ(list.out, "keys\n") << line;
    EXPECT_NE(list.err.find("line 2: "), std::string::npos) << list.err;
    EXPECT_NE(list.err.find(why), std::string::npos) << line << list.err;
    EXPECT_EQ(list.err.find("car"), std::string::npos) << "the line itself may hold a password";
    const auto ring = run({"ring", "keys"});
    EXPECT_EQ(ring.status, kDone) << ring.err;
    EXPECT_EQ(ring.err.find("line 2") == std::string::npos, foreign) << ring.err;
    EXPECT_EQ(run({"rename", "keys", "bicycle"}).status, kDone);
    EXPECT_NE(content().find("\n# mine\n" + line + "\nsim\t0a1b2c3d4e60\tbicycle\t6d696e65\n"),
              std::string::npos)
        << content();
  }
}

TEST_F(BookTest, FileThatIsNobodysIsNotUsed) {
  write("sim\t0a1b2c3d4e60\tkeys\t6d696e65\n", 0640);
  for (const auto& arguments :
       {std::vector<std::string>{"list"}, {"forget", "keys"}, {"ring", "keys"}}) {
    const auto result = run(arguments);
    EXPECT_EQ(result.status, kStateFile);
    EXPECT_NE(result.err.find("chmod 600"), std::string::npos) << result.err;
  }
  const auto scan = run({"scan", "--for", "300ms"});
  EXPECT_EQ(scan.status, kDone) << "it misses the names alone";
  EXPECT_NE(scan.err.find("chmod 600"), std::string::npos) << scan.err;
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
