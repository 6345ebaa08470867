#include "apps/kvfob/listing.h"

#include <gtest/gtest.h>

#include <sstream>

#include "KVFobLink/KVTrackerCollections.h"

namespace kvfob {
namespace {

std::shared_ptr<KVTracker> trackerAt(const std::string& address, std::int64_t rssi) {
  auto tracker = std::make_shared<KVTracker>();
  tracker->updateData(KVTrackerDataMac, address);
  tracker->updateData(KVTrackerDataRssi, rssi);
  tracker->updateData(KVTrackerDataBattery, std::int64_t{92});
  tracker->updateData(KVTrackerDataModel, std::int64_t{3});
  tracker->updateData(KVTrackerDataRadioTx, std::int64_t{-12});
  tracker->updateData(KVTrackerDataAdvUpdate, KVTracker::Date{} + std::chrono::milliseconds(1));
  return tracker;
}

TEST(Listing, JsonNamesWhatIsKnown) {
  const auto tracker = trackerAt("0a1b2c3d4e5f", -68);
  tracker->setBound(true);
  EXPECT_EQ(toJson(*tracker),
            R"({"address":"0a1b2c3d4e5f","rssi":-68,"battery":92,"tx":-12,"model":3,)"
            R"("distance":"middle","last_heard":"1970-01-01T00:00:00.001Z"})");
}

TEST(Listing, JsonHasNullForWhatIsNotKnown) {
  const auto tracker = trackerAt("0a1b2c3d4e5f", 0);
  tracker->updateData(KVTrackerDataModel, std::int64_t{-1});
  EXPECT_EQ(toJson(*tracker),
            R"({"address":"0a1b2c3d4e5f","rssi":null,"battery":92,"tx":null,"model":null,)"
            R"("distance":null,"last_heard":"1970-01-01T00:00:00.001Z"})");
}

TEST(Listing, TableIsSortedByStrengthAndClipped) {
  KVTrackerMap map;
  for (const int number : {1, 2, 3, 4, 5}) {
    const auto address = "00000000000" + std::to_string(number);
    map.set(address, trackerAt(address, number == 3 ? 0 : -90 + number));
  }
  std::ostringstream sink;
  const Console console(sink, sink, /*color=*/false, /*live=*/false);
  const auto table = toTable(map.values(), console);
  EXPECT_LT(table.find("000000000005"), table.find("000000000004"));
  EXPECT_LT(table.find("000000000001"), table.find("000000000003"));
  const auto clipped = toTable(map.values(), console, 4);
  EXPECT_EQ(std::count(clipped.begin(), clipped.end(), '\n'), 4);
  EXPECT_NE(clipped.find("and 3 more"), std::string::npos);
}

}  // namespace
}  // namespace kvfob
