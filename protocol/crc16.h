// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The checksum of a handshake's token; see KVCrc16.h for the CRCs themselves.
#ifndef PROTOCOL_CRC16_H
#define PROTOCOL_CRC16_H

#include <array>
#include <cstdint>

#include "KVFobLink/KVCrc16.h"
#include "KVFobLink/KVTypes.h"

namespace kv {

/// CRC-16/CCITT-FALSE from 0xFFFF, high byte first.
std::array<std::uint8_t, 2> checksum(KVBytes data);

}  // namespace kv

#endif  // PROTOCOL_CRC16_H
