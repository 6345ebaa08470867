/* SPDX-FileCopyrightText: The KVFobLink authors
   SPDX-License-Identifier: Apache-2.0 */

/* The plain symbols, as a C program sees them. */
#include <stdio.h>
#include <string.h>

#include "KVFobLink/KVCrc16.h"
#include "KVFobLink/KVDeviceInfo.h"
#include "KVFobLink/KVVersion.h"

static int failures = 0;

static void expect(int holds, const char* what) {
  if (!holds) {
    printf("wrong: %s\n", what);
    ++failures;
  }
}

int main(void) {
  const uint8_t digits[] = "123456789";
  const uint8_t flags[] = {0xFF, 0x21};
  dev_info_t info = {0, 0, 0, 0, 0, 0};
  const uint16_t head = crc16_compute(digits, 4, NULL);
  dev_info_decode(flags, &info);

  expect(gen_crc16(digits, 9) == 0xBB3D, "gen_crc16");
  expect(crc16_compute(digits, 9, NULL) == 0x29B1, "crc16_compute");
  expect(crc16_compute(digits + 4, 5, &head) == 0x29B1, "crc16_compute in two pieces");
  expect(memcmp(&info, "\0\0\0\1\0\1", sizeof(info)) == 0, "dev_info_decode");
  expect(strcmp((const char*)KVFobLinkVersionString, "KVFobLink 1.0") == 0, "version string");
  expect(KVFobLinkVersionNumber == 1.0, "version number");
  return failures;
}
