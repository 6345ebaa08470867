// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The handshake and the commands on one link, as they look from outside.
#ifndef APPS_KVFOB_DECODE_EXCHANGE_H
#define APPS_KVFOB_DECODE_EXCHANGE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "KVFobLink/KVTypes.h"
#include "apps/kvfob/decode/found.h"

namespace kvfob {

/// Follows the attribute traffic of one link. It needs no discovery in the capture: a verification
/// token gives itself away by its checksum, and the opening value is the block that the tag sent
/// last before it.
class Exchange {
 public:
  /// Takes one thing that was understood.
  using Print = std::function<void(const Found& found)>;

  Exchange(bool showSecrets, Print print) : showSecrets_(showSecrets), print_(std::move(print)) {}
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  /// Takes one attribute protocol PDU.
  void take(KVBytes message);

 private:
  void written(std::uint16_t handle, KVBytes value);
  void notified(std::uint16_t handle, KVBytes value);
  void sentBlock(KVBytes value);
  bool verificationToken(std::uint16_t handle, KVBytes value);
  void command(KVBytes value);
  void answer(KVBytes value);
  void printToken(KVBytes token, KVBytes value);
  std::string secret(const std::string& text) const;
  Json secretFact(const std::string& text) const;

  const bool showSecrets_;
  const Print print_;
  std::optional<KVData> opening_;  // the last block that the tag sent before a key was agreed
  std::optional<std::uint16_t> commandHandle_;
  std::optional<KVData> sessionKey_;
};

}  // namespace kvfob

#endif  // APPS_KVFOB_DECODE_EXCHANGE_H
