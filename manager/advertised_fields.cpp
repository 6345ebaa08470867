#include "manager/advertised_fields.h"

#include <array>
#include <cstddef>
#include <cstring>
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

/// Two hexadecimal digits for each byte.
constexpr auto kPairs = [] {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte) {
    pairs[byte] = {kDigits[byte / 16], kDigits[byte % 16]};
  }
  return pairs;
}();

/// The address as text, most significant byte first; on the air it is the last.
void writeAddress(std::span<const std::uint8_t, kAddressSize> address, char* text) {
  for (std::size_t i = 0; i < kAddressSize; ++i) {
    std::memcpy(text + 2 * i, kPairs[address[kAddressSize - 1 - i]].data(), 2);
  }
}

}  // namespace

std::optional<AdvertisedFields> decodeAdvertisement(KVBytes frame) {
  std::optional<AdvertisedFields> fields;
  if (frame.size() != kShortFrame && frame.size() != kLongFrame) return fields;
  if (frame[0] != kFrameType) return fields;
  if (frame[1] < kFirstProduct || frame[1] > kLastProduct) return fields;
  fields.emplace();
  fields->battery = frame[2];
  writeAddress(frame.subspan<kAddressOffset, kAddressSize>(),
               fields->mac.emplace(2 * kAddressSize, '0').data());
  fields->radioTx = frame[9] < 0x80 ? frame[9] : frame[9] - 0x100;  // signed
  fields->model = frame.size() == kLongFrame ? frame[10] : kNoModel;
  return fields;
}

}  // namespace kv

void KVUtils::validateAdv(KVBytes data, std::optional<std::int64_t> rssi,
                          const Completion& completion) {
  if (!completion) return;
  constexpr std::int64_t kRejected = -1;
  constexpr std::int64_t kRejectedRssi = -100;
  if (const auto fields = kv::decodeAdvertisement(data)) {
    completion(true, fields->battery, fields->mac, fields->radioTx, rssi, fields->model);
  } else {
    completion(false, kRejected, std::nullopt, kRejected, kRejectedRssi, kRejected);
  }
}
