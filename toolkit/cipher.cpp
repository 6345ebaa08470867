#include <array>

#include "KVFobLink/KVCommonTool.h"
#include "KVFobLink/KVPlatform.h"

namespace {

constexpr std::size_t kBlockSize = 16;

}  // namespace

std::optional<KVData> KVCommonTool::enDecryptWithData(KVBytes data, KVBytes keyData, bool encrypt) {
  const KVPlatform& platform = KVPlatform::current();
  if (keyData.size() != kBlockSize || data.size() != kBlockSize) {
    platform.log->write("Cipher Key Error!");
    return std::nullopt;
  }
  KVData result(kBlockSize);
  if (!platform.cipher->aes128Block(keyData.first<kBlockSize>(), data.first<kBlockSize>(),
                                    std::span(result).first<kBlockSize>(), encrypt)) {
    // The place in this line is part of its text: log readers match it as it stands.
    platform.log->write(
        std::string(
            "[FuncName:+[KVCommonTool enDecryptWithData:keyData:encrypt:]]\n[@Line:170] \n") +
        (encrypt ? "AES128 encrypt failed!" : "AES128 decrypt failed!"));
    return std::nullopt;
  }
  return result;
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

  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string result;
  result.reserve(2 * digest.size());
  for (const std::uint8_t byte : digest) {
    result += kDigits[byte >> 4U];
    result += kDigits[byte & 0x0FU];
  }
  return result;
}
