#include "apps/kvfob/scan.h"

#include <algorithm>
#include <vector>

#include "apps/kvfob/listing.h"

namespace kvfob {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kDefaultDuration = 10s;
constexpr std::chrono::milliseconds kRedraw = 250ms;

void redraw(Session& session) {
  auto& console = session.console();
  console.redraw(toTable(session.manager().scannedTrackers(), console, Console::height()));
  session.after(kRedraw, [&session] { redraw(session); });
}

void writeJson(Session& session) {
  const auto trackers = session.manager().scannedTrackers();
  std::vector<std::string> lines;
  for (const auto& tracker : trackers) lines.push_back(toJson(*tracker));
  std::sort(lines.begin(), lines.end());
  for (const auto& line : lines) session.console().line(line);
}

}  // namespace

Outcome runScan(Session& session, const Options& options) {
  const bool live = session.console().live() && !options.json;
  session.surviveAdapter();
  session.whenOn([&] {
    session.manager().startScan([](const KVTrackers&) {});
    session.after(options.duration.value_or(kDefaultDuration), [&] { session.finish({}); });
    if (live) redraw(session);
  });
  auto outcome = session.run();
  // What was heard until Ctrl-C is shown all the same.
  if (outcome.code == kNoAdapter) return outcome;
  if (options.json) {
    writeJson(session);
  } else {
    auto& console = session.console();
    const auto table = toTable(session.manager().scannedTrackers(), console);
    live ? console.redraw(table) : console.block(table);
  }
  if (!session.console().good()) return {kInternal, "cannot write the output"};
  return outcome;
}

}  // namespace kvfob
