// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "KVFobLink/KVCommonTool.h"

#include <array>

#include "KVFobLink/KVPlatform.h"
#include "protocol/block.h"
#include "protocol/crc16.h"
#include "protocol/hex.h"
#include "protocol/utf16.h"

std::optional<KVData> KVCommonTool::enDecryptWithData(KVBytes data, KVBytes keyData, bool encrypt) {
  const KVPlatform& platform = KVPlatform::current();
  return kv::cipherBlock(*platform.cipher, *platform.log, data, keyData, encrypt);
}

std::optional<KVData> KVCommonTool::encryptWithData(KVBytes data, KVBytes keyData) {
  return enDecryptWithData(data, keyData, /*encrypt=*/true);
}

std::optional<KVData> KVCommonTool::decryptWithData(KVBytes data, KVBytes keyData) {
  return enDecryptWithData(data, keyData, /*encrypt=*/false);
}

std::string KVCommonTool::md5Encrypt(std::string_view text) {
  const std::string_view hashed = text.substr(0, text.find('\0'));
  std::array<std::uint8_t, 16> digest{};
  KVPlatform::current().cipher->md5(
      {reinterpret_cast<const std::uint8_t*>(hashed.data()), hashed.size()}, digest);
  return kv::hexText(digest);
}

KVData KVCommonTool::crs16Checksum(KVBytes data) {
  const auto sum = kv::checksum(data);
  return {sum.begin(), sum.end()};
}

KVData KVCommonTool::dataFromHexString(std::string_view text) {
  return kv::bytesOfHex(kv::toUtf16(text),
                        [](char16_t unit) { return static_cast<char>(unit & 0xFFU); });
}

bool KVCommonTool::validateString(const std::optional<std::string>& text, std::string_view regExp) {
  return text && KVPlatform::current().patterns->fullMatch(*text, regExp);
}

std::optional<std::string> KVCommonTool::validatedString(std::string_view text,
                                                         std::string_view regExp) {
  return KVPlatform::current().patterns->firstMatch(text, regExp);
}

KVError KVCommonTool::errorCode(std::int64_t code, std::string_view message,
                                std::optional<std::map<std::string, std::string>> userInfo) {
  return {std::string(message), code, std::move(userInfo)};
}
