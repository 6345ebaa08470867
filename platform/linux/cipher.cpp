#include "platform/linux/cipher.h"

#include <nettle/aes.h>
#include <nettle/md5.h>

#include <cstring>

namespace kv {

bool Cipher::aes128Block(std::span<const std::uint8_t, 16> key,
                         std::span<const std::uint8_t, 16> in, std::span<std::uint8_t, 16> out,
                         bool encrypt) const {
  aes128_ctx schedule;
  if (encrypt) {
    aes128_set_encrypt_key(&schedule, key.data());
    aes128_encrypt(&schedule, out.size(), out.data(), in.data());
  } else {
    aes128_set_decrypt_key(&schedule, key.data());
    aes128_decrypt(&schedule, out.size(), out.data(), in.data());
  }
  explicit_bzero(&schedule, sizeof schedule);
  return true;
}

void Cipher::md5(KVBytes data, std::span<std::uint8_t, 16> digest) const {
  md5_ctx context;
  md5_init(&context);
  md5_update(&context, data.size(), data.data());
  md5_digest(&context, digest.size(), digest.data());
  explicit_bzero(&context, sizeof context);
}

}  // namespace kv
