// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

/// The helpers that the library shares with applications.
#ifndef KVFOBLINK_KVCOMMONTOOL_H
#define KVFOBLINK_KVCOMMONTOOL_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "KVFobLink/KVExport.h"
#include "KVFobLink/KVTypes.h"

/// Stateless helpers: cipher, digest, checksum, hexadecimal text, patterns, error records. All may
/// be called from any thread, and none throws but for lack of memory. Text is UTF-8; a "character"
/// is a 16-bit unit of its UTF-16 form, and a malformed sequence counts as U+FFFD.
class KVFOB_EXPORT KVCommonTool {
 public:
  /// Encrypts or decrypts exactly one 16-byte block: AES-128, ECB, no padding (FIPS 197).
  ///
  /// @return 16 bytes; nothing when the key or the data is not 16 bytes long (logs
  ///         "Cipher Key Error!"), or when the platform's cipher fails (logs that with the place).
  static std::optional<KVData> enDecryptWithData(KVBytes data, KVBytes keyData, bool encrypt);

  /// `enDecryptWithData` with `encrypt` true.
  static std::optional<KVData> encryptWithData(KVBytes data, KVBytes keyData);

  /// `enDecryptWithData` with `encrypt` false.
  static std::optional<KVData> decryptWithData(KVBytes data, KVBytes keyData);

  /// The MD5 digest (RFC 1321) of a text as 32 lower-case hexadecimal digits. Only what stands
  /// before the first zero byte is hashed.
  static std::string md5Encrypt(std::string_view text);

  /// CRC-16/CCITT-FALSE from 0xFFFF (see `crc16_compute`) as two bytes, high byte first.
  static KVData crs16Checksum(KVBytes data);

  /// Reads pairs of hexadecimal digits, in either case, after removing every space. Never fails: an
  /// odd last character is dropped, and a pair is read as `strtol` in base 16 reads it, so "G1"
  /// gives 0x00, "1G" 0x01 and "-1" 0xFF. Of each character only the low 8 bits count.
  ///
  ///     KVCommonTool::dataFromHexString("0a 1B ff");  // 0A 1B FF
  static KVData dataFromHexString(std::string_view text);

  /// Whether the whole text matches a regular expression (ICU's dialect), case-sensitively. False
  /// for an absent text, an invalid pattern, and a match that takes longer than about a second.
  static bool validateString(const std::optional<std::string>& text, std::string_view regExp);

  /// The first match of a regular expression anywhere in the text, ignoring case; nothing when
  /// there is none or when the pattern is invalid or runs away.
  static std::optional<std::string> validatedString(std::string_view text, std::string_view regExp);

  /// An error record with `message` as its domain.
  static KVError errorCode(std::int64_t code, std::string_view message,
                           std::optional<std::map<std::string, std::string>> userInfo);

  KVCommonTool() = delete;
};

#endif  // KVFOBLINK_KVCOMMONTOOL_H
