// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// Every fault at every step: what the application sees, and that the tag is usable
// again afterwards. docs/faults.md is what is expected; with KVFOB_FAULTS=FILE the run writes it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>

#include "tests/simulator/faults_world.h"

namespace kvsim {
namespace {

constexpr const char* kHeading = R"(# What goes wrong, and what the application sees

One tag on the simulated radio, one fault at one step between the scan and an answered command, in
virtual time. The seconds count from the beginning of the scan, of the bind request, of the loss of
the link or of the command. A row follows the tag for two minutes, lets the fault pass, and then
rings the bell. The numbers behind the texts are error codes: 100 to 500 for what the tag refuses
and for the bind time-out, else those of `KVFobLink/KVBluetoothError.h`.

- **drop**: the link is lost at this step. **silence**: the step is never answered. **refusal**: it
  is answered with an error. **garbage**: what arrives is noise, or not what this kind of tag has.
  **duplicate**: what the tag said last arrives again. **reorder**: the answer arrives before the
  confirmation of the write that asks for it. **adapter off**: for five seconds, during this step.
  **cipher failure**: the platform's cipher fails for the block of this step.
- Combinations that cannot be are left out: nothing is decrypted while a link is made, and a tag
  without a subscriber can say nothing out of turn.
- On a plain reconnect "connected" is reported twice, by rule.
- A command whose answer was lost is not sent again: its completion stays uncalled, and the
  application repeats the command once the tag is connected.
- A tag that comes back and then stalls in the handshake, with its link up, stays "connecting": that
  handshake has no time-out. `disconnect` drops the link, and the library connects again.

`./run faults` writes this page. `./run test` fails when the library does anything else.

| Step | Fault | What the application sees | Afterwards |
|---|---|---|---|
)";

std::string rowOf(const Trouble& trouble) {
  FaultsWorld world;
  const std::string seen = world.run(trouble);
  const std::string recovered = world.recover();
  EXPECT_NE(recovered, "never");
  return "| " + trouble.place.name + " | " + kFaultNames[static_cast<std::size_t>(trouble.fault)] +
         " | " + seen + " | " + recovered + ": usable again |";
}

// The lines of the page as it is, or the page being written.
class Page : public ::testing::Environment {
 public:
  Page() {
    if (target_ != nullptr) return;
    std::ifstream page(KVFOB_FAULTS_PAGE);
    for (std::string line; std::getline(page, line);) lines_.insert(line);
  }
  void TearDown() override {
    if (target_ != nullptr) std::ofstream(target_) << kHeading << written_;
  }
  void take(const std::string& row) {
    if (target_ != nullptr) {
      written_ += row + '\n';
    } else {
      EXPECT_TRUE(lines_.contains(row)) << row << "\nis not a row of " << KVFOB_FAULTS_PAGE;
    }
  }
  std::size_t rows() const {
    const auto isRow = [](const std::string& line) { return line.ends_with("usable again |"); };
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), isRow));
  }

 private:
  const char* target_ = std::getenv("KVFOB_FAULTS");
  std::set<std::string> lines_;
  std::string written_;
};

Page* const kPage = [] {
  auto* page = new Page;  // GoogleTest's from here on
  ::testing::AddGlobalTestEnvironment(page);
  return page;
}();

class Faults : public ::testing::TestWithParam<Trouble> {};

TEST(FaultsPage, HasNoOtherRows) { EXPECT_EQ(kPage->rows(), allTroubles().size()); }

TEST_P(Faults, EndUsable) { kPage->take(rowOf(GetParam())); }

INSTANTIATE_TEST_SUITE_P(All, Faults, ::testing::ValuesIn(allTroubles()), [](const auto& trouble) {
  std::string name =
      trouble.param.place.name + ' ' + kFaultNames[static_cast<std::size_t>(trouble.param.fault)];
  std::erase_if(name, [](char c) { return c == ' ' || c == ':'; });
  return name;
});

}  // namespace
}  // namespace kvsim
