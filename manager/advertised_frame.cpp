#include "manager/advertised_frame.h"

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

}  // namespace

std::optional<AdvertisedFrame> AdvertisedFrame::accept(KVBytes bytes) {
  if (bytes.size() != kShortFrame && bytes.size() != kLongFrame) return std::nullopt;
  if (bytes[0] != kFrameType) return std::nullopt;
  if (bytes[1] < kFirstProduct || bytes[1] > kLastProduct) return std::nullopt;
  return AdvertisedFrame(bytes);
}

std::int64_t AdvertisedFrame::battery() const { return bytes_[2]; }

/// Most significant byte first; on the air it is the last.
std::optional<std::string> AdvertisedFrame::mac() const {
  std::optional<std::string> text(std::in_place, 2 * kAddressSize, '0');
  const auto address = bytes_.subspan<kAddressOffset, kAddressSize>();
  for (std::size_t i = 0; i < kAddressSize; ++i) {
    std::memcpy(text->data() + 2 * i, kPairs[address[kAddressSize - 1 - i]].data(), 2);
  }
  return text;
}

std::int64_t AdvertisedFrame::radioTx() const {
  return bytes_[9] < 0x80 ? bytes_[9] : bytes_[9] - 0x100;  // signed
}

std::int64_t AdvertisedFrame::model() const {
  return bytes_.size() == kLongFrame ? bytes_[10] : kNoModel;
}

}  // namespace kv

void KVUtils::validateAdv(KVBytes data, std::optional<std::int64_t> rssi,
                          const Completion& completion) {
  if (!completion) return;
  constexpr std::int64_t kRejected = -1;
  constexpr std::int64_t kRejectedRssi = -100;
  if (const auto frame = kv::AdvertisedFrame::accept(data)) {
    const auto mac = frame->mac();
    completion(true, frame->battery(), mac, frame->radioTx(), rssi, frame->model());
  } else {
    completion(false, kRejected, std::nullopt, kRejected, kRejectedRssi, kRejected);
  }
}
