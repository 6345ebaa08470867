#include "apps/kvfob/decode/exchange.h"

#include <algorithm>

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVTracker.h"
#include "apps/kvfob/decode/byte_reader.h"
#include "apps/kvfob/text.h"

namespace kvfob {
namespace {

// Attribute protocol opcodes.
constexpr std::uint8_t kReadResponse = 0x0B;
constexpr std::uint8_t kWriteRequest = 0x12;
constexpr std::uint8_t kNotification = 0x1B;
constexpr std::uint8_t kMultipleNotifications = 0x23;

constexpr std::size_t kBlock = 16;
constexpr std::size_t kAddressSize = 6;
constexpr std::size_t kHalfOffset = 6;
constexpr std::size_t kHalfSize = 8;
constexpr std::size_t kChecksumOffset = 14;

/// One block under a key; empty when it is no block.
KVData decrypted(KVBytes block, const KVData& key) {
  if (block.size() != kBlock) return {};
  return KVCommonTool::decryptWithData(block, key).value_or(KVData());
}

const KVData& staticKey() {
  static const KVData key = std::make_shared<KVTracker>()->staticKey().value_or(KVData());
  return key;
}

std::string switchText(KVBytes payload) {
  if (payload.size() != 1) return "?";
  return payload.front() == 0 ? "on" : "off";
}

std::string nameOf(std::int64_t code) {
  switch (code) {
    case 5:
      return "bell";
    case 13:
      return "button";
    case 19:
      return "bind";
    case 20:
      return "remove password";
    case 30:
      return "loss alert";
    case 32:
      return "loss delay";
    default:
      return "command " + std::to_string(code);
  }
}

std::string distanceText(std::uint8_t offset) {
  if (offset == 0x00) return "far";
  if (offset == 0xF8) return "middle";
  return offset == 0xEC ? "near" : "? (" + std::to_string(static_cast<std::int8_t>(offset)) + ")";
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
  const KVData plain = decrypted(value, staticKey());
  if (plain.empty()) return false;
  const KVBytes token(plain);
  const KVData checksum = KVCommonTool::crs16Checksum(token.first(kChecksumOffset));
  if (!std::ranges::equal(checksum, token.subspan(kChecksumOffset))) return false;

  commandHandle_ = handle;
  sessionKey_.reset();
  if (opening_) {
    const KVData tagToken = decrypted(*opening_, staticKey());
    const KVBytes half = KVBytes(tagToken).subspan(kHalfOffset, kHalfSize);
    print_("< opening value, the tag's half of the key " + secret(hex(half)) + "  " +
           hex(*opening_));
    sessionKey_ = KVData(half.begin(), half.end());
    sessionKey_->insert(sessionKey_->end(), token.begin() + kHalfOffset,
                        token.begin() + kChecksumOffset);
  }
  print_("> verification token for " + hex(token.first(kAddressSize)) + ", our half " +
         secret(hex(token.subspan(kHalfOffset, kHalfSize))) + "  " + hex(value));
  print_(sessionKey_ ? "  session key " + secret(hex(*sessionKey_))
                     : "  no session key: the opening value is not in the capture");
  return true;
}

void Exchange::command(KVBytes value) {
  const KVData frame = decrypted(value, *sessionKey_);
  ByteReader reader(frame);
  const std::uint8_t type = reader.u8();
  const std::uint8_t length = reader.u8();
  const std::int64_t code = reader.u8();
  const KVBytes payload = reader.take(length > 0 ? length - 1U : 0U);
  std::string text = "not a command frame";
  if (reader.ok() && type == 0 && length > 0) {
    text = nameOf(code);
    if (code == 19) {
      text += ", password " + secret(std::string(payload.begin(), payload.end())) + " of " +
              std::to_string(payload.size()) + " bytes";
    } else if (code == 32 && payload.size() == 2) {
      text += " " + std::to_string(payload[0] + 256 * payload[1]);
    } else if (code != 20) {
      text += " " + switchText(payload);
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
  if (value.size() == kBlock) opening_ = KVData(value.begin(), value.end());
}

void Exchange::answer(KVBytes value) {
  const KVData frame = decrypted(value, *sessionKey_);
  std::string text = "not an answer frame";
  KVCommandInter::interCommandData(
      frame, [&](std::int64_t code, std::int64_t second, const std::optional<KVData>& payload) {
        if (!payload) return;
        text = nameOf(code != 0 ? code : second);
        if (code == 0) text += " (answer of the second kind)";
        if (code == 13) return;
        const bool accepted = payload->empty() || payload->front() == 0;
        text += accepted ? ": accepted" : ": refused, status " + std::to_string(payload->front());
      });
  print_("< " + text + "  " + hex(value));
}

}  // namespace kvfob
