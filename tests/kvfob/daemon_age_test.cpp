// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/radio/daemon_age.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace kvfob {
namespace {

using namespace std::chrono_literals;

class DaemonAgeTest : public ::testing::Test {
 protected:
  ~DaemonAgeTest() override { std::filesystem::remove_all(proc); }

  // A process that began so many seconds after the machine.
  void add(const std::string& folder, const std::string& name, long begin) const {
    std::filesystem::create_directories(proc + "/" + folder);
    std::ofstream file(proc + "/" + folder + "/stat");
    file << folder << " (" << name << ") S";
    for (int field = 4; field < 22; ++field) file << " 9";
    file << " " << begin * sysconf(_SC_CLK_TCK) << " 9 9\n";
  }

  const std::string proc = ::testing::TempDir() + "kvfob-proc-" + std::to_string(getpid());
};

TEST_F(DaemonAgeTest, IsThatOfTheYoungestThatIsCalledSo) {
  EXPECT_FALSE(daemonAge(proc)) << "no such folder";
  add("1", "init", 0);
  add("20", "a) R (b", 90);
  std::ofstream(proc + "/uptime") << "100.50 3.00\n";
  std::filesystem::create_directories(proc + "/net/stat");
  EXPECT_FALSE(daemonAge(proc));
  add("30", "bluetoothd", 40);
  EXPECT_EQ(daemonAge(proc), 60'500ms);
  add("31", "bluetoothd", 98);
  EXPECT_EQ(daemonAge(proc), 2'500ms);
  std::ofstream(proc + "/31/stat") << "31 (bluetoothd) S 1";
  EXPECT_EQ(daemonAge(proc), 60'500ms) << "it is ending: its fields are gone";
}

}  // namespace
}  // namespace kvfob
