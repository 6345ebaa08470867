// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include "protocol/block.h"

#include <string>

namespace kv {

std::optional<KVData> cipherBlock(const KVCipher& cipher, KVLog& log, KVBytes data, KVBytes key,
                                  bool encrypt) {
  if (key.size() != kBlockSize || data.size() != kBlockSize) {
    log.write("Cipher Key Error!");
    return std::nullopt;
  }
  KVData result(kBlockSize);
  if (!cipher.aes128Block(key.first<kBlockSize>(), data.first<kBlockSize>(),
                          std::span(result).first<kBlockSize>(), encrypt)) {
    // The place in this line is part of its text: log readers match it as it stands.
    log.write(std::string("[FuncName:+[KVCommonTool enDecryptWithData:keyData:encrypt:]]\n"
                          "[@Line:170] \n") +
              (encrypt ? "AES128 encrypt failed!" : "AES128 decrypt failed!"));
    return std::nullopt;
  }
  return result;
}

}  // namespace kv
