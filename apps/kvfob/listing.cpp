#include "apps/kvfob/listing.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "apps/kvfob/text.h"

namespace kvfob {
namespace {

// The library holds 0 for a signal that the radio did not measure, and for the transmit power of a
// tag that is not bound.
bool knowsRssi(const KVTracker& tracker) { return tracker.rssi() != 0; }
bool knowsTx(const KVTracker& tracker) { return tracker.bound(); }
bool knowsModel(const KVTracker& tracker) { return tracker.model() >= 0; }

std::string number(bool known, std::int64_t value, std::string_view absent) {
  return known ? std::to_string(value) : std::string(absent);
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

}  // namespace

std::string toJson(const KVTracker& tracker) {
  std::string json = "{\"address\":" + quoted(tracker.mac().value_or(""));
  json += ",\"rssi\":" + number(knowsRssi(tracker), tracker.rssi(), "null");
  json += ",\"battery\":" + std::to_string(tracker.battery());
  json += ",\"tx\":" + number(knowsTx(tracker), tracker.radioTx(), "null");
  json += ",\"model\":" + number(knowsModel(tracker), tracker.model(), "null");
  json += ",\"distance\":";
  json += knowsRssi(tracker) ? quoted(levelName(tracker.distance())) : "null";
  json += ",\"last_heard\":";
  json += tracker.advUpdate() ? quoted(isoTime(*tracker.advUpdate())) : "null";
  return json + "}";
}

std::string toTable(const KVTrackers& trackers, const Console& console, std::size_t height) {
  if (trackers.empty()) return console.styled(Style::dim, "no tag heard yet") + "\n";
  std::vector<std::shared_ptr<KVTracker>> sorted(trackers.begin(), trackers.end());
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    const auto strength = [](const auto& t) { return knowsRssi(*t) ? t->rssi() : -1000; };
    return strength(a) != strength(b) ? strength(a) > strength(b) : a->mac() < b->mac();
  });
  const auto all = sorted.size();
  const bool clipped = all >= height;  // one line is the heading's
  if (clipped) sorted.resize(height - 2);
  std::array<char, 128> row{};
  constexpr auto* kRow = "%-12s  %5s  %-6s  %7s  %5s  %s";
  std::snprintf(row.data(), row.size(), kRow, "ADDRESS", "RSSI", "LEVEL", "BATTERY", "MODEL",
                "LAST HEARD");
  std::string table = console.styled(Style::bold, row.data()) + "\n";
  for (const auto& tracker : sorted) {
    const auto level = knowsRssi(*tracker) ? levelName(tracker->distance()) : "-";
    const auto heard = tracker->advUpdate() ? clockTime(*tracker->advUpdate()) : "-";
    std::snprintf(row.data(), row.size(), kRow, tracker->mac().value_or("").c_str(),
                  number(knowsRssi(*tracker), tracker->rssi(), "-").c_str(),
                  std::string(level).c_str(), std::to_string(tracker->battery()).c_str(),
                  number(knowsModel(*tracker), tracker->model(), "-").c_str(), heard.c_str());
    table += std::string(row.data()) + "\n";
  }
  if (clipped) table += "and " + std::to_string(all - sorted.size()) + " more\n";
  return table;
}

}  // namespace kvfob
