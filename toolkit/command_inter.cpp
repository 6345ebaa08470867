// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVCommandInter.h"

#include "KVFobLink/KVPlatform.h"
#include "protocol/block.h"
#include "protocol/frame.h"

std::optional<KVData> KVCommandInter::getCommandData(std::uint64_t command,
                                                     const std::optional<KVData>& append) {
  const KVPlatform& platform = KVPlatform::current();
  KVData frame = kv::commandFrame(command, append ? KVBytes(*append) : KVBytes(), *platform.random,
                                  *platform.log);
  if (frame.empty()) return std::nullopt;
  return frame;
}

void KVCommandInter::interCommandData(const std::optional<KVData>& data,
                                      const Completion& completion) {
  if (!completion) return;
  if (!data || data->size() != kv::kBlockSize) {
    completion(0, 0, std::nullopt);
    return;
  }
  const auto frame = kv::Frame::read(*data);
  if (!frame) return;
  const KVData payload(frame->payload.begin(), frame->payload.end());
  if (frame->is(kv::FrameType::Answer)) completion(frame->code, 0, payload);
  if (frame->is(kv::FrameType::SecondAnswer)) completion(0, frame->code, payload);
}
