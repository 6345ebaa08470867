// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#ifndef PLATFORM_LINUX_CIPHER_H
#define PLATFORM_LINUX_CIPHER_H

#include "KVFobLink/KVPlatform.h"

namespace kv {

/// AES-128 and MD5 of Mbed TLS. Nothing is allocated, and no key material stays behind.
class Cipher : public KVCipher {
 public:
  Cipher();
  bool aes128Block(std::span<const std::uint8_t, 16> key, std::span<const std::uint8_t, 16> in,
                   std::span<std::uint8_t, 16> out, bool encrypt) const override;
  void md5(KVBytes data, std::span<std::uint8_t, 16> digest) const override;
};

}  // namespace kv

#endif  // PLATFORM_LINUX_CIPHER_H
