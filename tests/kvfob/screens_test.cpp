// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The live screens on a pseudo-terminal.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "apps/kvfob/base/exit_code.h"
#include "tests/kvfob/child.h"

namespace kvfob {
namespace {

namespace fs = std::filesystem;

// A book with two simulated tags, one with its password.
class ScreensTest : public ::testing::Test {
 protected:
  ScreensTest() {
    std::string folder = ::testing::TempDir() + "kvfob-screens-XXXXXX";
    state_ = mkdtemp(folder.data());
    fs::create_directory(state_ / "kvfob");
    std::ofstream(book()) << "sim\t0a1b2c3d4e5f\tkeys\t736573616d65\nsim\t0a1b2c3d4e60\tbag\t\n";
    fs::permissions(book(), fs::perms::owner_read | fs::perms::owner_write);
    setenv("XDG_STATE_HOME", state_.c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
  }
  ~ScreensTest() override { fs::remove_all(state_); }

  fs::path book() const { return state_ / "kvfob" / "tags"; }

  // Types each text, and waits for what comes of it.
  static void play(Child& child, const std::vector<std::pair<std::string, std::string>>& steps) {
    for (const auto& [keys, expected] : steps) {
      child.forgetOutput();
      child.type(keys);
      ASSERT_TRUE(child.awaitText(expected))
          << "after " << ::testing::PrintToString(keys) << ", no " << expected << " in\n"
          << child.output();
    }
  }

 private:
  fs::path state_;
};

// Sorted by name: bag, keys, and a tag without one. Only rows that change are written, so the
// mark of the selected one tells where the selection has gone.
const std::vector<std::string> kScan{"--radio", "sim",    "--color", "never",
                                     "scan",    "--sort", "name"};
const std::string kBag = "› ●  bag ";
const std::string kKeys = "› ●  keys ";
const std::string kOther = "›              0a1b2c3d4e61";

TEST_F(ScreensTest, ScanKeysSelectAndFilter) {
  Child child(kScan);
  ASSERT_TRUE(child.awaitText(kBag));
  ASSERT_TRUE(child.awaitText("0a1b2c3d4e61"));
  EXPECT_NE(child.output().find("simulated"), std::string::npos);
  EXPECT_NE(child.output().find("\033[?1000h\033[?1006h"), std::string::npos);
  play(child, {{"j", kKeys},
               {"\033[B", kOther},
               {"k", kKeys},
               {"\033[A", kBag},
               {"\033[F", kOther},
               {"\033[H", kBag},
               {"\033[6~", kOther},
               {"\033[5~", kBag},
               {"\033[<65;9;9M", kOther},
               {"\033[<64;9;9M", kBag},
               {"\033[<0;9;5M", kKeys},
               {"\033[<0;9;6M", kOther},
               {"\033[<0;9;7M\033[<0;9;3Mk", kKeys},
               {"\r", "Bound yes, password saved"},
               {"j", "Bound not from here"},
               {"\033", "\033[20;1H\033[2K\033[21;1H\033[2K\033[?"},
               {"?", "any key"},
               {"x", "filter"},
               {"s", "sorted by heard"},
               {"/BA", "1 of 3 tags"},
               {"\x7f\x7f", "3 tags"},
               {"e60", "/e60_"},
               {"\r", "/e60 "},
               {"\033", " 3 tags  simulated   "}});
  child.type("q");
  EXPECT_EQ(child.awaitEnd(), kDone);
  EXPECT_NE(child.output().find("\033[?1006l\033[?1000l"), std::string::npos);
}

TEST_F(ScreensTest, ScanRingsWhatIsBoundFromHere) {
  Child child(kScan);
  ASSERT_TRUE(child.awaitText("0a1b2c3d4e61"));
  play(child, {{"r", "bag: its password is not saved"},
               {"\033[F", kOther},
               {"r", "to ring it, bind it first, with b"},
               {"w", "to watch it, bind it first, with b"},
               {"k", kKeys},
               {"r", "keys: connecting"},
               {"", "keys: ringing"},
               {"r", "keys: silent"},
               {"r", "keys: ringing"},
               {"rb", "keys comes first; Esc gives it up"},
               {"\033", "keys: "}});
  child.type("q");
  EXPECT_EQ(child.awaitEnd(), kDone);
}

TEST_F(ScreensTest, ScanSendsNoPasswordToATagThatMayNotBeBound) {
  std::ofstream(book()) << "sim\t0a1b2c3d4e60\tbag\t6d696e65\tbegun\n";
  Child child(kScan);
  ASSERT_TRUE(child.awaitText("bag"));
  play(child, {{"r", "bag: to ring it, bind it first, with b"}});
}

TEST_F(ScreensTest, ScanBindsAndWatches) {
  Child child(kScan);
  ASSERT_TRUE(child.awaitText("0a1b2c3d4e61"));
  play(child, {{"\033[F", kOther},
               {"b", "Password to bind with: _"},
               {"q\r", "The same once more: _"},
               {"p\r", "They differ."},
               {"\033", "nothing was bound"},
               {"b", "save it: no"},
               {"\t", "save it: yes"},
               {"geheim\r", "once more"},
               {"geheim\r", "0a1b2c3d4e61: bound, and its password is saved"},
               {"r", "0a1b2c3d4e61: ringing"},
               {"w", "connected"},
               {"s", "→ silence: sent"},
               {"", "← silence: answered after"},
               {"q", " 3 tags  simulated"},
               {"", "0a1b2c3d4e60"}});
  EXPECT_EQ(child.output().find("geheim"), std::string::npos);
  child.type("q");
  EXPECT_EQ(child.awaitEnd(), kDone);
  EXPECT_TRUE(child.echoes());
  std::ifstream file(book());
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  EXPECT_NE(text.find("sim\t0a1b2c3d4e61\t\t67656865696d\n"), std::string::npos) << text;
}

TEST_F(ScreensTest, ScanLeavesItsTableAsItWas) {
  setenv("LC_ALL", "C", 1);
  Child child(kScan);
  ASSERT_TRUE(child.awaitText("0a1b2c3d4e61"));
  play(child, {{"s", "heard"}, {"s", "address"}});
  child.forgetOutput();
  child.type("q");
  EXPECT_EQ(child.awaitEnd(), kDone);
  const auto table = child.output().substr(child.output().rfind("ADDRESS"));
  EXPECT_LT(table.find("4e5f"), table.find("4e60"));
  EXPECT_NE(table.find("####...."), std::string::npos) << table;
}

TEST_F(ScreensTest, WatchKeysGiveCommands) {
  Child child({"--radio", "sim", "--color", "never", "watch", "keys"});
  play(child, {{"", "not set"},
               {"", "● connected"},
               {"r", "→ ring: sent"},
               {"", "← ring: answered after"},
               {"s", "← silence: answered after"},
               {"a", "← loss alert on: answered after"},
               {"a", "← loss alert off: answered after"},
               {"d69\x7f", "0 to 7000: 6_"},
               {"x0x5", "0 to 7000: 605_"},
               {"\033", "silence"},
               {"d600\r", "delay 600, in the tag's own unit"},
               {"d9999\r", "a delay is 0 to 7000"},
               {"d7000\r", "delay 7000, in"},
               {"d0\r", "delay 0, in the tag's own unit"},
               {"1", "← loss distance far: answered after"},
               {"3", "distance near"},
               {"", "button pressed"}});
  child.type("q");
  EXPECT_EQ(child.awaitEnd(), kDone);
}

}  // namespace
}  // namespace kvfob
