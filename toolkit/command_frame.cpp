#include <algorithm>

#include "KVFobLink/KVCommandInter.h"
#include "KVFobLink/KVPlatform.h"

namespace {

constexpr std::size_t kFrameSize = 16;
constexpr std::size_t kHeaderSize = 3;
constexpr std::size_t kMostPayload = kFrameSize - kHeaderSize;

constexpr std::uint8_t kCommandType = 0x00;
constexpr std::uint8_t kAnswerType = 0x01;
constexpr std::uint8_t kSecondAnswerType = 0xFF;

}  // namespace

std::optional<KVData> KVCommandInter::getCommandData(std::uint64_t command,
                                                     const std::optional<KVData>& append) {
  const KVPlatform& platform = KVPlatform::current();
  if (!append || append->empty()) {
    platform.log->write("Something wrong about appended data.");
    return std::nullopt;
  }
  if (append->size() > kMostPayload) return std::nullopt;

  KVData frame(kFrameSize);
  frame[0] = kCommandType;
  frame[1] = static_cast<std::uint8_t>(append->size() + 1);
  frame[2] = static_cast<std::uint8_t>(command & 0xFFU);
  std::ranges::copy(*append, frame.begin() + kHeaderSize);
  platform.random->fill(std::span(frame).subspan(kHeaderSize + append->size()));
  return frame;
}

void KVCommandInter::interCommandData(const std::optional<KVData>& data,
                                      const Completion& completion) {
  if (!completion) return;
  if (!data || data->size() != kFrameSize) {
    completion(0, 0, std::nullopt);
    return;
  }
  const std::uint8_t type = data->front();
  const std::size_t length = (*data)[1];
  const std::uint8_t code = (*data)[2];
  if (length < 1 || length > kMostPayload + 1) return;

  const auto begin = data->begin() + kHeaderSize;
  const KVData payload(begin, begin + static_cast<std::ptrdiff_t>(length - 1));
  if (type == kAnswerType) completion(code, 0, payload);
  if (type == kSecondAnswerType) completion(0, code, payload);
}
