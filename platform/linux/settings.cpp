// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/settings.h"

#include <utility>

KVLinuxSettings::KVLinuxSettings() : data_(std::make_unique<Data>()) {}

KVLinuxSettings::~KVLinuxSettings() = default;

void KVLinuxSettings::set(Text field, std::string_view value) {
  KVBlueZOptions& bluez = data_->options.bluez;
  if (field == Text::Adapter) bluez.adapter = value;
  if (field == Text::BusAddress) bluez.busAddress = value;
}

void KVLinuxSettings::set(Time field, std::chrono::milliseconds value) {
  KVBlueZOptions& bluez = data_->options.bluez;
  if (field == Time::Connect) bluez.connectTimeout = value;
  if (field == Time::Services) bluez.servicesTimeout = value;
  if (field == Time::Request) bluez.requestTimeout = value;
  if (field == Time::Disconnect) bluez.disconnectTimeout = value;
  if (field == Time::ScanWatchdog) bluez.scanWatchdog = value;
  if (field == Time::RetryFirst) bluez.retryFirst = value;
  if (field == Time::RetryMost) bluez.retryMost = value;
}

void KVLinuxSettings::setLog(std::function<void(std::string_view line)> log) {
  data_->options.log = std::move(log);
}
