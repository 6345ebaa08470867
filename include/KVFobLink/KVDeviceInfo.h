// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/* The flags of a tag's device-information value. This header can be included from C. */
#ifndef KVFOBLINK_KVDEVICEINFO_H
#define KVFOBLINK_KVDEVICEINFO_H

#include <stdint.h>

#include "KVFobLink/KVExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Six flags, each 1 when the bit that it is named after is set. Bit 0 feeds the fourth field:
 * clients address the record by field position, so the order is fixed. What a flag means is the
 * firmware's own.
 */
typedef struct dev_info_t {
  uint8_t flag_b1; /* bit 1, mask 0x02 */
  uint8_t flag_b2; /* bit 2, mask 0x04 */
  uint8_t flag_b3; /* bit 3, mask 0x08 */
  uint8_t flag_b0; /* bit 0, mask 0x01 */
  uint8_t flag_b4; /* bit 4, mask 0x10 */
  uint8_t flag_b5; /* bit 5, mask 0x20 */
} dev_info_t;

/*
 * Sets to 1 each field of `info` whose bit is set in the second byte of `data`, and leaves the
 * others as they are: clear the record first for a clean result. The first byte and the bits 6 and
 * 7 are not read.
 *
 * `data` must hold at least two bytes and `info` must be writable; neither is checked. Any thread.
 */
KVFOB_EXPORT void dev_info_decode(const uint8_t* data, dev_info_t* info);

#ifdef __cplusplus
}
#endif

#endif /* KVFOBLINK_KVDEVICEINFO_H */
