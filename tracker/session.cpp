// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "tracker/session.h"

#include <string.h>

#include <array>
#include <utility>

#include "platform/describe.h"
#include "platform/wipe.h"
#include "protocol/block.h"
#include "protocol/gatt_layout.h"
#include "protocol/token.h"
#include "protocol/utf16.h"

namespace kv {

bool isCommandCharacteristic(const KVCharacteristic& characteristic) {
  const auto service = characteristic.service();
  return service && service->uuid() == commandServiceUuid() &&
         characteristic.uuid() == commandCharacteristicUuid();
}

TrackerSession::~TrackerSession() {
  wipe(key_);
  wipe(password_);
}

// ---- Discovery

void TrackerSession::discover() {
  stage = KVAuthNone;
  if (const auto peripheral = link_.peripheral()) peripheral->discoverServices();
}

void TrackerSession::servicesFound(const KVPeripheral& peripheral,
                                   const std::optional<KVError>& error) const {
  // Written without an error too: the line marks the end of service discovery in the log.
  log("Error When discover services:" + describe(error));
  const auto own = link_.peripheral();
  if (!own) return;
  for (const auto& service : peripheral.services()) own->discoverCharacteristics(service);
}

void TrackerSession::characteristicsFound(KVPeripheral& peripheral, const KVService& service) {
  for (const auto& characteristic : service.characteristics()) {
    if (service.uuid() == commandServiceUuid() &&
        characteristic->uuid() == commandCharacteristicUuid()) {
      commandCharacteristic = characteristic;
      peripheral.setNotifyValue(/*enabled=*/true, characteristic);
      // The tag answers this read with the value that opens the handshake.
      peripheral.readValue(characteristic);
    } else if (service.uuid() == distanceServiceUuid() &&
               characteristic->uuid() == distanceCharacteristicUuid()) {
      distanceCharacteristic = characteristic;
    } else if (service.uuid() == deviceInformationServiceUuid()) {
      peripheral.readValue(characteristic);
    }
  }
}

// ---- The handshake

void TrackerSession::open(KVBytes value) {
  if (value.size() < kBlockSize) {
    // Firmware without tokens: the key of the link before, if there was one, holds.
    stage = KVAuthBindWritten;
    writeBindRequest();
  } else {
    stage = KVAuthTokenReceived;
    takeTagToken(value);
  }
}

void TrackerSession::takeTagToken(KVBytes token) {
  if (token.size() != kBlockSize) return;
  auto plain =
      crypt(token, staticKey, /*encrypt=*/false);  // first: the token may be the key itself
  setKey(KVData());
  key_->reserve(kBlockSize);  // growing would leave a copy behind that nobody wipes
  if (const auto half = plain ? randomHalf(*plain) : std::nullopt) extendKey(*half);
  wipe(plain);
  log("device token validated.");
  writeVerificationToken();
}

void TrackerSession::writeVerificationToken() {
  const std::u16string address = toUtf16(record_.mac.value_or(""));
  if (!hasAddressLength(address) || stage == KVAuthNone) return;
  stage = KVAuthTokenWritten;

  std::array<std::uint8_t, kRandomHalfSize> half{};
  services_.random->fill(half);
  KVData plain = verificationToken(address, half);
  const auto token = crypt(plain, staticKey, /*encrypt=*/true);
  extendKey(half);
  wipe(plain);
  explicit_bzero(half.data(), half.size());

  if (!token) return;
  write(token, commandCharacteristic);
  log("Writing verification token.");
}

bool TrackerSession::tokenWritten(const std::shared_ptr<KVCharacteristic>& characteristic) {
  if (stage != KVAuthTokenWritten || characteristic != commandCharacteristic) return false;
  // Whether the write failed is not looked at: a tag that did not get the token will not answer
  // what follows either.
  log("Token check complete.");
  stage = KVAuthTokenChecked;
  writeBindRequest();
  return true;
}

void TrackerSession::writeBindRequest() {
  KVData payload;
  if (password_) payload.assign(password_->begin(), password_->end());
  send(kBind, payload);
  wipe(payload);
}

// ---- The session key

void TrackerSession::send(const Command& command, KVBytes payload) const {
  KVData frame = commandFrame(command.code, payload, *services_.random, *services_.log);
  write(encrypt(frame), commandCharacteristic);
  wipe(frame);
}

void TrackerSession::write(const std::optional<KVData>& value,
                           const std::shared_ptr<KVCharacteristic>& characteristic) const {
  if (const auto peripheral = link_.peripheral()) {
    peripheral->writeValue(value, characteristic, KVWriteType::WithResponse);
  }
}

std::optional<KVData> TrackerSession::crypt(KVBytes data, const std::optional<KVData>& key,
                                            bool encrypt) const {
  return cipherBlock(*services_.cipher, *services_.log, data, key ? KVBytes(*key) : KVBytes(),
                     encrypt);
}

void TrackerSession::extendKey(KVBytes half) {
  if (key_) key_->insert(key_->end(), half.begin(), half.end());
}

void TrackerSession::setKey(std::optional<KVData> key) {
  wipe(key_);
  key_ = std::move(key);
}

void TrackerSession::setPassword(std::optional<std::string> password) {
  wipe(password_);
  password_ = password;  // copied, so that the argument can be wiped: a move may leave bytes behind
  wipe(password);
}

}  // namespace kv
