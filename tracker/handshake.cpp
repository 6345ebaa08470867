/// The handshake of one connection: the tag's token, our verification token, the bind request.
#include <algorithm>
#include <array>

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVTracker.h"
#include "platform/wipe.h"
#include "toolkit/hex.h"
#include "toolkit/utf16.h"
#include "tracker/wire.h"

namespace {

constexpr std::chrono::seconds kBindTimeout(30);
constexpr std::size_t kTokenSize = 16;
constexpr std::size_t kRandomHalfOffset = 6;
constexpr std::size_t kRandomHalfSize = 8;
constexpr std::size_t kMacLength = 12;

KVBytes bytesOf(const std::optional<KVData>& data) { return data ? KVBytes(*data) : KVBytes(); }

/// The address bytes in the order of the text. A character that is not ASCII is no digit.
KVData addressBytes(std::u16string mac) {
  kv::removeSpaces(mac);
  const auto ascii = [](char16_t unit) { return unit < 0x80 ? static_cast<char>(unit) : '?'; };
  KVData bytes;
  bytes.reserve(kTokenSize);
  for (std::size_t i = 0; i + 1 < mac.size(); i += 2) {
    bytes.push_back(kv::hexPair(ascii(mac[i]), ascii(mac[i + 1])));
  }
  return bytes;
}

void append(KVData& data, KVBytes bytes) { data.insert(data.end(), bytes.begin(), bytes.end()); }

}  // namespace

void KVTracker::setBinding(bool binding) {
  binding_ = binding;
  if (!binding) return;
  platform_->eventQueue->postAfter(kBindTimeout, [self = shared_from_this()] {
    if (!self->binding_ || !self->bindingBlock_) return;
    self->binding_ = false;
    self->bindingBlock_(false, KVError{"Error! Binding Timeout.", 400, std::nullopt});
  });
}

void KVTracker::setComToken(std::optional<KVData> token) {
  kv::wipe(comToken_);
  comToken_ = std::move(token);
}

void KVTracker::extendComToken(KVBytes bytes) {
  if (comToken_) append(*comToken_, bytes);
}

void KVTracker::validateDevice(KVBytes token) {
  if (token.size() != kTokenSize) return;
  setComToken(KVData());
  comToken_->reserve(kTokenSize);  // growing would leave a copy behind that nobody wipes
  auto plain = KVCommonTool::decryptWithData(token, bytesOf(staticKey_));
  if (plain && plain->size() == kTokenSize) {
    extendComToken(KVBytes(*plain).subspan(kRandomHalfOffset, kRandomHalfSize));
  }
  kv::wipe(plain);
  log("device token validated.");
  writeChecksumData();
}

void KVTracker::writeChecksumData() {
  const std::u16string mac = kv::toUtf16(mac_.value_or(""));
  if (mac.size() != kMacLength || auth_ == KVAuthNone) return;
  auth_ = KVAuthTokenWritten;

  std::array<std::uint8_t, kRandomHalfSize> random{};
  platform_->random->fill(random);
  KVData plain = addressBytes(mac);
  append(plain, random);
  append(plain, KVCommonTool::crs16Checksum(plain));
  const auto token = KVCommonTool::encryptWithData(plain, bytesOf(staticKey_));
  extendComToken(random);
  kv::wipe(plain);
  explicit_bzero(random.data(), random.size());

  if (!token || token->size() != kTokenSize) return;
  writeCommandCharacteristic(token);
  log("Writing verification token.");
}

void KVTracker::writeBindData() {
  auto password =
      password_ ? std::optional(KVData(password_->begin(), password_->end())) : std::nullopt;
  KVData frame = KVCommandInter::getCommandData(kv::kBindCommand, password).value_or(KVData());
  writeCommandCharacteristic(encryptConnectionData(frame));
  kv::wipe(password);
  kv::wipe(frame);
}

std::optional<KVData> KVTracker::encryptConnectionData(KVBytes data) const {
  return KVCommonTool::encryptWithData(data, bytesOf(comToken_));
}

std::optional<KVData> KVTracker::decryptConnectionData(KVBytes data) const {
  return KVCommonTool::decryptWithData(data, bytesOf(comToken_));
}

void KVTracker::didWriteValueForCharacteristic(
    KVPeripheral& /*peripheral*/, const std::shared_ptr<KVCharacteristic>& characteristic,
    const std::optional<KVError>& error) {
  if (auth_ == KVAuthTokenWritten && characteristic == korvaChar_) {
    // The error is not looked at: a tag that did not get the token will not answer what follows
    // either.
    log("Token check complete.");
    auth_ = KVAuthTokenChecked;
    writeBindData();
    return;
  }
  log("==a new instruction sent");
  if (characteristic && characteristic == txChar_) writelossDistanceBlock_(!error, error);
}
