// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "platform/linux/cipher.h"

#include <mbedtls/aes.h>
#include <mbedtls/md.h>

#include <array>
#include <cassert>

namespace kv {
namespace {

constexpr unsigned kKeyBits = 128;

}  // namespace

Cipher::Cipher() {
  // The library makes its tables at its first block, without a lock.
  static const bool kTablesMade = [this] {
    std::array<std::uint8_t, kKeyBits / 8> block{};
    return Cipher::aes128Block(block, block, block, /*encrypt=*/true);
  }();
  static_cast<void>(kTablesMade);
}

bool Cipher::aes128Block(std::span<const std::uint8_t, 16> key,
                         std::span<const std::uint8_t, 16> in, std::span<std::uint8_t, 16> out,
                         bool encrypt) const {
  mbedtls_aes_context context;
  mbedtls_aes_init(&context);
  const int scheduled = encrypt ? mbedtls_aes_setkey_enc(&context, key.data(), kKeyBits)
                                : mbedtls_aes_setkey_dec(&context, key.data(), kKeyBits);
  const bool done =
      scheduled == 0 &&
      mbedtls_aes_crypt_ecb(&context, encrypt ? MBEDTLS_AES_ENCRYPT : MBEDTLS_AES_DECRYPT,
                            in.data(), out.data()) == 0;
  mbedtls_aes_free(&context);  // overwrites it
  return done;
}

void Cipher::md5(KVBytes data, std::span<std::uint8_t, 16> digest) const {
  [[maybe_unused]] const int failed = mbedtls_md(mbedtls_md_info_from_type(MBEDTLS_MD_MD5),
                                                 data.data(), data.size(), digest.data());
  assert(failed == 0);  // fails only where the library was built without MD5
}

}  // namespace kv
