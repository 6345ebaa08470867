// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/* Two 16-bit cyclic redundancy checks. This header can be included from C. */
#ifndef KVFOBLINK_KVCRC16_H
#define KVFOBLINK_KVCRC16_H

#include <stdint.h>

#include "KVFobLink/KVExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * CRC-16/ARC: polynomial 0x8005, initial value 0, reflected in and out, no final XOR.
 * Check value over the nine ASCII digits "123456789": 0xBB3D.
 *
 * A null `data` and a `size` of 0 both give 0. Any thread.
 */
KVFOB_EXPORT uint16_t gen_crc16(const uint8_t* data, uint16_t size);

/*
 * CRC-16/CCITT-FALSE: polynomial 0x1021, not reflected, no final XOR. Starts from `*seed`, or from
 * 0xFFFF when `seed` is null. Check value over "123456789": 0x29B1.
 *
 * The result of one call is the seed that continues it: data may arrive in pieces. A `size` of 0
 * gives the seed back; only then may `data` be null. Any thread.
 */
KVFOB_EXPORT uint16_t crc16_compute(const uint8_t* data, uint32_t size, const uint16_t* seed);

#ifdef __cplusplus
}
#endif

#endif /* KVFOBLINK_KVCRC16_H */
