// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/decode.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVUtils.h"
#include "apps/kvfob/base/result.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/btsnoop.h"
#include "apps/kvfob/decode/exchange.h"
#include "apps/kvfob/decode/file_input.h"
#include "apps/kvfob/decode/hci.h"

namespace kvfob {
namespace {

constexpr int kUnknownRssi = 127;  // as the HCI has it
// Far more than an adapter has; a capture may claim any number of them.
constexpr std::size_t kLinksMost = 256;
// Many times the longest advertisement.
constexpr std::size_t kLineMost = 4096;

// Absent when the frame is no tag's.
std::optional<Found> advertisement(KVBytes frame, std::optional<int> rssi) {
  std::optional<Found> found;
  if (rssi == kUnknownRssi) rssi.reset();
  KVUtils::validateAdv(frame, std::nullopt,
                       [&](bool valid, auto battery, const auto& mac, auto tx, auto, auto model) {
                         if (!valid) return;
                         std::ostringstream line;
                         line << *mac << "  battery " << battery << "  tx " << tx << " dBm";
                         if (model >= 0) line << "  model " << model;
                         if (rssi) line << "  rssi " << *rssi << " dBm";
                         found = Found{line.str(),
                                       "advertisement",
                                       {{"address", *mac},
                                        {"battery", battery},
                                        {"tx", tx},
                                        {"model", model >= 0 ? Json(model) : Json()},
                                        {"rssi", orNull(rssi)}}};
                       });
  return found;
}

// Prints what is found, a line each.
class Printer {
 public:
  Printer(bool json, Console& console, std::uint64_t& count)
      : json_(json), console_(console), count_(count) {}

  // What a packet held, with its time and adapter.
  void print(const HciPacket& packet, const Found& found) {
    const auto adapter = "hci" + std::to_string(packet.adapter);
    if (json_) return printJson(isoTime(packet.time), adapter, found);
    printText(clockTime(packet.time) + " " + adapter + " " + found.text);
  }

  // What a line held.
  void print(const Found& found) {
    json_ ? printJson(nullptr, nullptr, found) : printText(found.text);
  }

 private:
  void printText(const std::string& line) {
    ++count_;
    console_.line(line);
  }

  void printJson(const Json& time, const Json& adapter, const Found& found) {
    ++count_;
    Json line{{"event", found.event}, {"time", time}, {"adapter", adapter}};
    line.update(found.facts);
    console_.line(jsonLine(line));
  }

  const bool json_;
  Console& console_;
  std::uint64_t& count_;
};

// Prints what a capture holds.
class CapturePrinter final : public HciListener {
 public:
  CapturePrinter(bool showSecrets, Printer& printer)
      : showSecrets_(showSecrets), printer_(printer) {}

  void serviceDataReceived(const HciPacket& packet, std::uint16_t /*uuid*/, KVBytes data,
                           int rssi) override {
    auto found = advertisement(data, rssi);
    if (!found) return;
    found->text.insert(0, "adv   ");
    printer_.print(packet, *found);
  }

  void linkUp(const HciPacket& packet, LinkId link, const std::string& peer) override {
    links_.erase(link);
    printer_.print(packet, {"link  up to " + peer,
                            "link-up",
                            {{"link", link.handle}, {"peer", parseAddress(peer).value_or(peer)}}});
  }

  void linkDown(const HciPacket& packet, LinkId link, std::uint8_t reason) override {
    links_.erase(link);
    printer_.print(packet, {"link  down, reason 0x" + hex({&reason, 1}),
                            "link-down",
                            {{"link", link.handle}, {"reason", reason}}});
  }

  void attribute(const HciPacket& packet, LinkId link, KVBytes message) override {
    current_ = &packet;
    if (links_.size() >= kLinksMost && !links_.contains(link)) links_.erase(links_.begin());
    const auto [it, isNew] =
        links_.try_emplace(link, showSecrets_, [this, link](const Found& found) {
          Json facts{{"link", link.handle}};
          facts.update(found.facts);
          printer_.print(*current_, {"tag " + found.text, found.event, std::move(facts)});
        });
    it->second.take(message);
  }

 private:
  const bool showSecrets_;
  Printer& printer_;
  const HciPacket* current_ = nullptr;
  std::map<LinkId, Exchange> links_;
};

Outcome decodeCapture(InputBuffer& input, bool showSecrets, Printer& printer, Console& console,
                      DecodeCounts& counts) {
  CapturePrinter found(showSecrets, printer);
  HciDecoder decoder(found);
  BtsnoopReader reader(input);
  while (const auto packet = console.good() ? reader.next() : std::nullopt) {
    decoder.decode(*packet);
  }
  counts.packets = reader.packets();
  if (!reader.error().empty()) return {kBadInput, reader.error()};
  return {};
}

Outcome decodeText(InputBuffer& input, Printer& printer, Console& console) {
  bool any = false;
  for (int number = 1; console.good(); ++number) {
    const auto read = input.line(kLineMost + 1);
    if (!read) break;
    std::string line(*read);
    std::erase_if(line, [](char c) { return c == ' ' || c == ':' || c == '\t' || c == '\r'; });
    const bool remark = line.empty() || line.front() == '#';
    const bool digits = line.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const auto where = "line " + std::to_string(number);
    if (!remark && (!digits || (line.size() % 2 != 0 && read->size() <= kLineMost))) {
      return {kBadInput, where + " is neither hexadecimal text nor the start of a capture"};
    }
    if (read->size() > kLineMost) return {kBadInput, where + " is too long for a frame"};
    if (remark) continue;
    any = true;
    const auto frame = advertisement(KVCommonTool::dataFromHexString(line), std::nullopt);
    printer.print(
        frame.value_or(Found{"not a tag's frame: " + line, "not-a-tag", {{"frame", line}}}));
  }
  return any || !console.good() ? Outcome() : Outcome{kBadInput, "there is nothing in it"};
}

}  // namespace

Outcome decodeInput(Input& input, const DecodeStyle& style, Console& console,
                    DecodeCounts& counts) {
  InputBuffer buffer(input);
  Printer printer(style.json, console, counts.found);
  return BtsnoopReader::recognises(buffer)
             ? decodeCapture(buffer, style.showSecrets, printer, console, counts)
             : decodeText(buffer, printer, console);
}

Outcome decode(const Options& options, const SignalFd& signals, Console& console) {
  const auto start = std::chrono::steady_clock::now();
  FileInput input(options.file, signals, console);
  DecodeCounts counts;
  auto outcome = input.outcome();
  if (outcome.code == kDone) {
    outcome = decodeInput(input, {options.showSecrets, options.json}, console, counts);
    if (!outcome.message.empty()) outcome.message.insert(0, input.name() + ": ");
    // Input that broke off looks like one that ends there.
    if (input.outcome().code != kDone) outcome = input.outcome();
  }
  if (options.json) {
    console.line(jsonLine(resultOf(
        "decode", {{"file", options.file}, {"packets", counts.packets}, {"found", counts.found}},
        outcome, std::chrono::steady_clock::now() - start)));
  } else if (outcome.code == kDone && counts.found == 0 && console.good()) {
    console.note(input.name() + " holds nothing of a tag, in " + std::to_string(counts.packets) +
                 " packets");
  }
  return outcome;
}

}  // namespace kvfob
