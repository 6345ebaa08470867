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

// What a command other than a bind carries.
std::string payloadText(const kv::Frame& frame) {
  const auto size = frame.payload.size();
  if (frame.code == kv::kRemovePassword.code) return "";
  if (frame.code == kv::kLossDelay.code && size == 2) {
    return " " + std::to_string(kv::lossDelayOf(frame.payload));
  }
  const bool isSwitch = frame.code == kv::kBell.code || frame.code == kv::kLossAlert.code;
  if (isSwitch && size == 1) return frame.payload.front() == 0 ? " on" : " off";
  return " ?";
}

std::string nameOf(std::uint8_t code) {
  if (code == kv::kButtonEvent) return "button";
  const auto index = kv::commandIndex(code);
  return index ? std::string(kv::kCommands[*index].name) : "command " + std::to_string(code);
}

std::string distanceText(std::uint8_t byte) {
  if (byte == kv::distanceByte(KVDistanceFar)) return "far";
  if (byte == kv::distanceByte(KVDistanceMiddle)) return "middle";
  if (byte == kv::distanceByte(KVDistanceNear)) return "near";
  return "? (" + std::to_string(static_cast<std::int8_t>(byte)) + ")";
}

}  // namespace

Exchange::~Exchange() {
  if (sessionKey_) std::ranges::fill(*sessionKey_, std::uint8_t{0});
}

std::string Exchange::secret(const std::string& text) const {
  return showSecrets_ ? text : "(hidden)";
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
    print_("> loss distance " + distanceText(value.front()) + "  " + hex(value));
  }
}

bool Exchange::verificationToken(std::uint16_t handle, KVBytes value) {
  const KVData token = decrypted(value, kv::staticKey());
  if (!kv::isVerificationToken(token)) return false;
  const KVBytes ours = *kv::randomHalf(token);

  commandHandle_ = handle;
  sessionKey_.reset();
  if (opening_) {
    const KVData tagToken = decrypted(*opening_, kv::staticKey());
    const KVBytes half = *kv::randomHalf(tagToken);
    print_("< opening value, the tag's half of the key " + secret(hex(half)) + "  " +
           hex(*opening_));
    sessionKey_ = KVData(half.begin(), half.end());
    sessionKey_->insert(sessionKey_->end(), ours.begin(), ours.end());
  }
  print_("> verification token for " + hex(kv::addressOf(token)) + ", our half " +
         secret(hex(ours)) + "  " + hex(value));
  print_(sessionKey_ ? "  session key " + secret(hex(*sessionKey_))
                     : "  no session key: the opening value is not in the capture");
  return true;
}

void Exchange::command(KVBytes value) {
  const KVData block = decrypted(value, *sessionKey_);
  const auto frame = kv::Frame::read(block);
  std::string text = "not a command frame";
  if (frame && frame->is(kv::FrameType::Command)) {
    const KVBytes payload = frame->payload;
    text = nameOf(frame->code);
    if (frame->code == kv::kBind.code) {
      text += ", password " + secret(std::string(payload.begin(), payload.end())) + " of " +
              std::to_string(payload.size()) + " bytes";
    } else {
      text += payloadText(*frame);
    }
  }
  print_("> " + text + "  " + hex(value));
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
  std::string text = "not an answer frame";
  if (second || (frame && frame->is(kv::FrameType::Answer))) {
    text = nameOf(frame->code);
    if (second) text += " (answer of the second kind)";
    if (frame->code != kv::kButtonEvent) {
      text += kv::accepts(frame->payload)
                  ? ": accepted"
                  : ": refused, status " + std::to_string(frame->payload.front());
    }
  }
  print_("< " + text + "  " + hex(value));
}

}  // namespace kvfob
