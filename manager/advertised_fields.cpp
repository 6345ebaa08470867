#include "manager/advertised_fields.h"

#include <cstddef>
#include <string_view>

#include "KVFobLink/KVUtils.h"

namespace kv {
namespace {

constexpr std::size_t kShortFrame = 10;
constexpr std::size_t kLongFrame = 11;  // with a model
constexpr std::uint8_t kFrameType = 0xA1;
constexpr std::uint8_t kFirstProduct = 0x0B;
constexpr std::uint8_t kLastProduct = 0x0C;
constexpr std::size_t kAddressOffset = 3;
constexpr std::size_t kAddressSize = 6;
constexpr std::int64_t kNoModel = -1;

/// The address as text, most significant byte first; on the air it is the last.
std::string addressText(KVBytes address) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text(2 * address.size(), '0');
  for (std::size_t i = 0; i < address.size(); ++i) {
    const std::uint8_t byte = address[address.size() - 1 - i];
    text[2 * i] = kDigits[byte >> 4U];
    text[2 * i + 1] = kDigits[byte & 0x0FU];
  }
  return text;
}

}  // namespace

std::optional<AdvertisedFields> decodeAdvertisement(KVBytes frame) {
  if (frame.size() != kShortFrame && frame.size() != kLongFrame) return std::nullopt;
  if (frame[0] != kFrameType) return std::nullopt;
  if (frame[1] < kFirstProduct || frame[1] > kLastProduct) return std::nullopt;
  return AdvertisedFields{
      .battery = frame[2],
      .mac = addressText(frame.subspan(kAddressOffset, kAddressSize)),
      .radioTx = static_cast<std::int8_t>(frame[9]),
      .model = frame.size() == kLongFrame ? frame[10] : kNoModel,
  };
}

}  // namespace kv

void KVUtils::validateAdv(KVBytes data, std::optional<std::int64_t> rssi,
                          const Completion& completion) {
  if (!completion) return;
  constexpr std::int64_t kRejected = -1;
  constexpr std::int64_t kRejectedRssi = -100;
  if (auto fields = kv::decodeAdvertisement(data)) {
    completion(true, fields->battery, std::move(fields->mac), fields->radioTx, rssi, fields->model);
  } else {
    completion(false, kRejected, std::nullopt, kRejected, kRejectedRssi, kRejected);
  }
}
