// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The toolkit's cipher, digest and checksums beside OpenSSL's and beside themselves.
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVCrc16.h"
#include "fuzz/input.h"

namespace {

KVData encryptedByOpenSsl(const KVData& key, const KVData& block) {
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  KVData out(32);
  int size = 0;
  EVP_EncryptInit_ex(context.get(), EVP_aes_128_ecb(), nullptr, key.data(), nullptr);
  EVP_EncryptUpdate(context.get(), out.data(), &size, block.data(), 16);
  out.resize(static_cast<std::size_t>(size));
  return out;
}

std::string digestByOpenSsl(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  std::string digits(32, '0');
  for (std::size_t i = 0; i < 16; ++i) {
    std::snprintf(&digits[2 * i], 3, "%02x", static_cast<unsigned>(digest[i]));
  }
  return digits;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kvfuzz::require;
  kvfuzz::Input input(data, size);
  const KVData key = kvfuzz::takeBytes(input, 18);
  const KVData block = kvfuzz::takeBytes(input, 18);
  const auto encrypted = KVCommonTool::encryptWithData(block, key);
  require(encrypted.has_value() == (key.size() == 16 && block.size() == 16), "one block, one key");
  if (encrypted) {
    require(*encrypted == encryptedByOpenSsl(key, block), "encryption");
    require(KVCommonTool::decryptWithData(*encrypted, key) == block, "decryption");
  }

  const std::string text = input.ConsumeRemainingBytesAsString();
  require(KVCommonTool::md5Encrypt(text) == digestByOpenSsl(text.substr(0, text.find('\0'))),
          "the digest of what stands before a zero");
  const KVBytes bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  const std::size_t half = bytes.size() / 2;
  const std::uint16_t seed = crc16_compute(bytes.data(), static_cast<std::uint32_t>(half), nullptr);
  require(
      crc16_compute(bytes.data() + half, static_cast<std::uint32_t>(bytes.size() - half), &seed) ==
          crc16_compute(bytes.data(), static_cast<std::uint32_t>(bytes.size()), nullptr),
      "a checksum in two pieces");
  return 0;
}
