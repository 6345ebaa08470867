#include "apps/kvfob/listing.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <vector>

#include "apps/kvfob/text.h"

namespace kvfob {
namespace {

// The library holds 0 for a signal that the radio did not measure, and for the transmit power of a
// tag that is not bound.
std::optional<std::int64_t> knownRssi(const KVTracker& tracker) {
  return tracker.rssi() == 0 ? std::nullopt : std::optional(tracker.rssi());
}

std::optional<std::int64_t> knownModel(const KVTracker& tracker) {
  return tracker.model() < 0 ? std::nullopt : std::optional(tracker.model());
}

std::string number(std::optional<std::int64_t> value, std::string_view absent) {
  return value ? std::to_string(*value) : std::string(absent);
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

}  // namespace

std::string toJson(const KVTracker& tracker) {
  const auto tx = tracker.bound() ? std::optional(tracker.radioTx()) : std::nullopt;
  std::string json = "{\"address\":" + quoted(tracker.mac().value_or(""));
  json += ",\"rssi\":" + number(knownRssi(tracker), "null");
  json += ",\"battery\":" + std::to_string(tracker.battery());
  json += ",\"tx\":" + number(tx, "null");
  json += ",\"model\":" + number(knownModel(tracker), "null");
  json += ",\"distance\":";
  json += knownRssi(tracker) ? quoted(levelName(tracker.distance())) : "null";
  json += ",\"last_heard\":";
  json += tracker.advUpdate() ? quoted(isoTime(*tracker.advUpdate())) : "null";
  return json + "}";
}

std::string toTable(const KVTrackers& trackers, const Console& console, std::size_t height) {
  if (trackers.empty()) return console.styled(Style::dim, "no tag heard yet") + "\n";
  std::vector<std::shared_ptr<KVTracker>> sorted(trackers.begin(), trackers.end());
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    const auto strength = [](const auto& t) { return knownRssi(*t).value_or(-1000); };
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
    const auto level = knownRssi(*tracker) ? levelName(tracker->distance()) : "-";
    const auto heard = tracker->advUpdate() ? clockTime(*tracker->advUpdate()) : "-";
    std::snprintf(row.data(), row.size(), kRow, tracker->mac().value_or("").c_str(),
                  number(knownRssi(*tracker), "-").c_str(), std::string(level).c_str(),
                  std::to_string(tracker->battery()).c_str(),
                  number(knownModel(*tracker), "-").c_str(), heard.c_str());
    table += std::string(row.data()) + "\n";
  }
  if (clipped) table += "and " + std::to_string(all - sorted.size()) + " more\n";
  return table;
}

}  // namespace kvfob
