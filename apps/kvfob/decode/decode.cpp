// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/decode.h"

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>

#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVUtils.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/btsnoop.h"
#include "apps/kvfob/decode/exchange.h"
#include "apps/kvfob/decode/hci.h"

namespace kvfob {
namespace {

constexpr int kUnknownRssi = 127;  // as the HCI has it

// The frame in words; nothing when it is no tag's.
std::optional<std::string> advertisementText(KVBytes frame, std::optional<int> rssi) {
  std::optional<std::string> text;
  KVUtils::validateAdv(frame, std::nullopt,
                       [&](bool valid, auto battery, const auto& mac, auto tx, auto, auto model) {
                         if (!valid) return;
                         std::ostringstream line;
                         line << *mac << "  battery " << battery << "  tx " << tx << " dBm";
                         if (model >= 0) line << "  model " << model;
                         if (rssi && *rssi != kUnknownRssi) line << "  rssi " << *rssi << " dBm";
                         text = line.str();
                       });
  return text;
}

// Prints what a capture holds, a line each with time and adapter.
class CapturePrinter final : public HciListener {
 public:
  CapturePrinter(bool showSecrets, Console& console)
      : showSecrets_(showSecrets), console_(console) {}

  void serviceDataReceived(const HciPacket& packet, std::uint16_t /*uuid*/, KVBytes data,
                           int rssi) override {
    if (const auto text = advertisementText(data, rssi)) line(packet, "adv   " + *text);
  }

  void linkUp(const HciPacket& packet, LinkId link, const std::string& peer) override {
    links_.erase(link);
    line(packet, "link  up to " + peer);
  }

  void linkDown(const HciPacket& packet, LinkId link, std::uint8_t reason) override {
    links_.erase(link);
    line(packet, "link  down, reason 0x" + hex({&reason, 1}));
  }

  void attribute(const HciPacket& packet, LinkId link, KVBytes message) override {
    current_ = &packet;
    const auto [it, isNew] = links_.try_emplace(
        link, showSecrets_, [this](const std::string& text) { line(*current_, "tag " + text); });
    it->second.take(message);
  }

 private:
  void line(const HciPacket& packet, const std::string& text) {
    console_.line(clockTime(packet.time) + " hci" + std::to_string(packet.adapter) + " " + text);
  }

  const bool showSecrets_;
  Console& console_;
  const HciPacket* current_ = nullptr;
  std::map<LinkId, Exchange> links_;
};

Outcome decodeCapture(KVBytes capture, bool showSecrets, Console& console) {
  CapturePrinter printer(showSecrets, console);
  HciDecoder decoder(printer);
  BtsnoopReader reader(capture);
  while (const auto packet = reader.next()) decoder.decode(*packet);
  if (!reader.error().empty()) return {kUsage, reader.error()};
  return {};
}

Outcome decodeText(const std::string& input, Console& console) {
  std::istringstream lines(input);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::erase_if(line, [](char c) { return c == ' ' || c == ':' || c == '\t' || c == '\r'; });
    if (line.empty() || line.front() == '#') continue;
    const bool digits = line.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (!digits || line.size() % 2 != 0) {
      return {kUsage, "line " + std::to_string(number) +
                          " is neither hexadecimal text nor the start of a capture"};
    }
    const auto text = advertisementText(KVCommonTool::dataFromHexString(line), std::nullopt);
    console.line(text.value_or("not a tag's frame: " + line));
  }
  return {};
}

}  // namespace

Outcome decode(const std::string& file, std::istream& in, bool showSecrets, Console& console) {
  std::ifstream opened;
  if (file != "-") {
    opened.open(file, std::ios::binary);
    if (!opened) return {kUsage, "cannot read " + file};
  }
  std::istream& source = file == "-" ? in : opened;
  const std::string input{std::istreambuf_iterator<char>(source), std::istreambuf_iterator<char>()};
  if (source.bad()) return {kUsage, "cannot read " + file};
  const KVBytes bytes(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  return BtsnoopReader::recognises(bytes) ? decodeCapture(bytes, showSecrets, console)
                                          : decodeText(input, console);
}

}  // namespace kvfob
