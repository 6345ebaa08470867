// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVDeviceInfo.h"

extern "C" void dev_info_decode(const uint8_t* data, dev_info_t* info) {
  const unsigned flags = data[1];
  if ((flags & 0x01U) != 0) info->flag_b0 = 1;
  if ((flags & 0x02U) != 0) info->flag_b1 = 1;
  if ((flags & 0x04U) != 0) info->flag_b2 = 1;
  if ((flags & 0x08U) != 0) info->flag_b3 = 1;
  if ((flags & 0x10U) != 0) info->flag_b4 = 1;
  if ((flags & 0x20U) != 0) info->flag_b5 = 1;
}
