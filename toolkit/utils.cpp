// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVUtils.h"

#include "protocol/advertisement.h"

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
