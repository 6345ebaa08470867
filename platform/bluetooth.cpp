// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVBluetooth.h"

#include <utility>

KVCharacteristic::KVCharacteristic(KVUUID uuid, std::weak_ptr<KVService> service)
    : uuid_(uuid), service_(std::move(service)) {}

KVService::KVService(KVUUID uuid) : uuid_(uuid) {}
