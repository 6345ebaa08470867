// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "apps/kvfob/decode/exchange.h"

#include <algorithm>

#include "KVFobLink/KVCommonTool.h"
#include "apps/kvfob/base/text.h"
#include "apps/kvfob/decode/byte_reader.h"
#include "protocol/block.h"
#include "protocol/commands.h"
#include "protocol/frame.h"
#include "protocol/token.h"

namespace kvfob {
namespace {

// Attribute protocol opcodes.
constexpr std::uint8_t kReadResponse = 0x0B;
constexpr std::uint8_t kWriteRequest = 0x12;
constexpr std::uint8_t kNotification = 0x1B;
constexpr std::uint8_t kMultipleNotifications = 0x23;

// One block under a key; empty when it is no block.
KVData decrypted(KVBytes block, KVBytes key) {
  if (block.size() != kv::kBlockSize) return {};
  return KVCommonTool::decryptWithData(block, key).value_or(KVData());
}

// What a command other than a bind carries; null when that is not known.
Json payloadOf(const kv::Frame& frame) {
  const auto size = frame.payload.size();
  if (frame.code == kv::kLossDelay.code && size == 2) return kv::lossDelayOf(frame.payload);
  const bool isSwitch = frame.code == kv::kBell.code || frame.code == kv::kLossAlert.code;
  if (isSwitch && size == 1) return frame.payload.front() == 0 ? "on" : "off";
  return nullptr;
}

std::string payloadText(const kv::Frame& frame, const Json& payload) {
  if (frame.code == kv::kRemovePassword.code) return "";
  if (payload.is_null()) return " ?";
  return " " + (payload.is_string() ? payload.get<std::string>() : payload.dump());
}

// A password may hold anything, also what would steer a terminal.
std::string printable(KVBytes text) {
  std::string result;
  for (const auto byte : text) {
    if (byte < 0x20 || byte == 0x7F) {
      result += "\\x" + hex({&byte, 1});
    } else {
      result += static_cast<char>(byte);
    }
  }
  return result;
}

std::string nameOf(std::uint8_t code) {
  if (code == kv::kButtonEvent) return "button";
  const auto index = kv::commandIndex(code);
  return index ? std::string(kv::kCommands[*index].name) : "command " + std::to_string(code);
}

std::optional<std::string_view> distanceOf(std::uint8_t byte) {
  for (const auto level : {KVDistanceFar, KVDistanceMiddle, KVDistanceNear}) {
    if (byte == kv::distanceByte(level)) return levelName(level);
  }
  return std::nullopt;
}

}  // namespace

Exchange::~Exchange() {
  if (sessionKey_) std::ranges::fill(*sessionKey_, std::uint8_t{0});
}

std::string Exchange::secret(const std::string& text) const {
  return showSecrets_ ? text : "(hidden)";
}

Json Exchange::secretFact(const std::string& text) const {
  return showSecrets_ ? Json(text) : Json();
}

void Exchange::take(KVBytes message) {
  ByteReader reader(message);
  const std::uint8_t opcode = reader.u8();
  // What is read opens a handshake; answers only ever come as notifications.
  if (opcode == kReadResponse) sentBlock(reader.rest());
  if (opcode == kWriteRequest || opcode == kNotification) {
    const std::uint16_t handle = reader.u16();
    if (!reader.ok()) return;
    if (opcode == kWriteRequest) written(handle, reader.rest());
    if (opcode == kNotification) notified(handle, reader.rest());
  }
  while (opcode == kMultipleNotifications && !reader.atEnd()) {
    const std::uint16_t handle = reader.u16();
    const KVBytes value = reader.take(reader.u16());
    if (reader.ok()) notified(handle, value);
  }
}

void Exchange::written(std::uint16_t handle, KVBytes value) {
  if (verificationToken(handle, value)) return;
  if (!sessionKey_) return;
  if (handle == commandHandle_) {
    command(value);
  } else if (value.size() == 1) {
    const auto byte = value.front();
    const auto level = distanceOf(byte);
    const auto number = std::to_string(static_cast<std::int8_t>(byte));
    print_({"> loss distance " + (level ? std::string(*level) : "? (" + number + ")") + "  " +
                hex(value),
            "command",
            {{"command", "loss distance"}, {"value", orNull(level)}, {"wire", hex(value)}}});
  }
}

bool Exchange::verificationToken(std::uint16_t handle, KVBytes value) {
  const KVData token = decrypted(value, kv::staticKey());
  if (!kv::isVerificationToken(token)) return false;
  commandHandle_ = handle;
  sessionKey_.reset();
  if (opening_) {
    const KVData tagToken = decrypted(*opening_, kv::staticKey());
    const KVBytes half = *kv::randomHalf(tagToken);
    print_(
        {"< opening value, the tag's half of the key " + secret(hex(half)) + "  " + hex(*opening_),
         "opening-value",
         {{"key_half", secretFact(hex(half))}, {"wire", hex(*opening_)}}});
    const KVBytes ours = *kv::randomHalf(token);
    sessionKey_ = KVData(half.begin(), half.end());
    sessionKey_->insert(sessionKey_->end(), ours.begin(), ours.end());
  }
  printToken(token, value);
  return true;
}

void Exchange::printToken(KVBytes token, KVBytes value) {
  const auto ours = hex(*kv::randomHalf(token));
  const auto address = hex(kv::addressOf(token));
  print_({"> verification token for " + address + ", our half " + secret(ours) + "  " + hex(value),
          "verification-token",
          {{"address", address}, {"key_half", secretFact(ours)}, {"wire", hex(value)}}});
  const auto key = sessionKey_ ? hex(*sessionKey_) : "";
  print_({sessionKey_ ? "  session key " + secret(key)
                      : "  no session key: the opening value is not in the capture",
          "session-key",
          {{"known", sessionKey_.has_value()}, {"key", key.empty() ? Json() : secretFact(key)}}});
}

void Exchange::command(KVBytes value) {
  const KVData block = decrypted(value, *sessionKey_);
  const auto frame = kv::Frame::read(block);
  if (!frame || !frame->is(kv::FrameType::Command)) {
    return print_({"> not a command frame  " + hex(value),
                   "command",
                   {{"command", nullptr}, {"value", nullptr}, {"wire", hex(value)}}});
  }
  const auto name = nameOf(frame->code);
  const auto payload = payloadOf(*frame);
  std::string text = name;
  Json facts{{"command", name}, {"value", payload}};
  if (frame->code == kv::kBind.code) {
    const auto size = frame->payload.size();
    text += ", password " + secret(printable(frame->payload)) + " of " + std::to_string(size) +
            " bytes";
    facts["password"] = secretFact(std::string(frame->payload.begin(), frame->payload.end()));
    facts["password_bytes"] = size;
  } else {
    text += payloadText(*frame, payload);
  }
  facts["wire"] = hex(value);
  print_({"> " + text + "  " + hex(value), "command", facts});
}

void Exchange::notified(std::uint16_t handle, KVBytes value) {
  if (sessionKey_ && handle == commandHandle_) {
    answer(value);
  } else {
    sentBlock(value);
  }
}

void Exchange::sentBlock(KVBytes value) {
  if (value.size() == kv::kBlockSize) opening_ = KVData(value.begin(), value.end());
}

void Exchange::answer(KVBytes value) {
  const KVData block = decrypted(value, *sessionKey_);
  const auto frame = kv::Frame::read(block);
  const bool second = frame && frame->is(kv::FrameType::SecondAnswer);
  const bool first = frame && frame->is(kv::FrameType::Answer);
  if (!first && !second) {
    return print_({"< not an answer frame  " + hex(value),
                   "answer",
                   {{"command", nullptr}, {"wire", hex(value)}}});
  }
  const auto name = nameOf(frame->code);
  const auto text = "< " + name + (second ? " (answer of the second kind)" : "");
  if (frame->code == kv::kButtonEvent) {
    return print_({text + "  " + hex(value), "button", {{"wire", hex(value)}}});
  }
  const bool accepted = kv::accepts(frame->payload);
  const auto status = accepted ? 0 : frame->payload.front();
  print_({text + (accepted ? ": accepted" : ": refused, status " + std::to_string(status)) + "  " +
              hex(value),
          "answer",
          {{"command", name},
           {"second", second},
           {"accepted", accepted},
           {"status", status},
           {"wire", hex(value)}}});
}

}  // namespace kvfob
