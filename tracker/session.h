// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// What lasts as long as one link: the tag's characteristics, the handshake and the session key.
#ifndef TRACKER_SESSION_H
#define TRACKER_SESSION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVTracker.h"
#include "platform/services.h"
#include "protocol/commands.h"
#include "protocol/frame.h"
#include "tracker/link.h"
#include "tracker/record.h"

namespace kv {

/// From the link to the session key and the password that was sent: discovery, the tag's token, our
/// verification token, the bind request. Stages are those of `KVAuthStage`.
class TrackerSession {
 public:
  TrackerSession(const Services& services, const TrackerRecord& record, const TrackerLink& link)
      : services_(services), record_(record), link_(link) {}
  ~TrackerSession();
  TrackerSession(const TrackerSession&) = delete;
  TrackerSession& operator=(const TrackerSession&) = delete;

  /// Begins anew: asks the peripheral for its services.
  void discover();
  void servicesFound(const KVPeripheral& peripheral, const std::optional<KVError>& error) const;
  void characteristicsFound(KVPeripheral& peripheral, const KVService& service);

  /// The first value of a link: it opens the handshake.
  void open(KVBytes value);
  void takeTagToken(KVBytes token);
  void writeVerificationToken();
  void writeBindRequest();
  /// Whether the confirmation was that of the verification token, and has been dealt with.
  bool tokenWritten(const std::shared_ptr<KVCharacteristic>& characteristic);

  /// One block under the session key; absent without a key of 16 bytes.
  std::optional<KVData> encrypt(KVBytes data) const { return crypt(data, key_, /*encrypt=*/true); }
  std::optional<KVData> decrypt(KVBytes data) const { return crypt(data, key_, /*encrypt=*/false); }

  /// Encrypts and writes a command. Without a session key nothing is written.
  void send(const Command& command, KVBytes payload) const;
  void write(const std::optional<KVData>& value,
             const std::shared_ptr<KVCharacteristic>& characteristic) const;

  const std::optional<KVData>& key() const { return key_; }
  void setKey(std::optional<KVData> key);
  const std::optional<std::string>& password() const { return password_; }
  void setPassword(std::optional<std::string> password);

  std::uint64_t stage = KVAuthNone;
  std::shared_ptr<KVCharacteristic> commandCharacteristic;
  std::shared_ptr<KVCharacteristic> distanceCharacteristic;
  std::optional<KVData> staticKey;

 private:
  std::optional<KVData> crypt(KVBytes data, const std::optional<KVData>& key, bool encrypt) const;
  void extendKey(KVBytes half);
  void log(std::string_view line) const { services_.log->write(line); }

  const Services& services_;
  const TrackerRecord& record_;
  const TrackerLink& link_;
  std::optional<KVData> key_;
  std::optional<std::string> password_;
};

/// Whether a characteristic is the one on which the tag speaks.
bool isCommandCharacteristic(const KVCharacteristic& characteristic);

}  // namespace kv

#endif  // TRACKER_SESSION_H
