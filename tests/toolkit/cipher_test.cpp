// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

// The block cipher and the digest.
#include "tests/support/core_test.h"

namespace kvtest {
namespace {

class CommonToolCipherTest : public CoreTest {
 protected:
  const KVData key = bytes("000102030405060708090a0b0c0d0e0f");
  const KVData plain = bytes("00112233445566778899aabbccddeeff");
  const KVData secret = bytes("69c4e0d86a7b0430d8cdb78070b4c55a");
};

TEST_F(CommonToolCipherTest, StandardVectors) {
  // FIPS 197, appendices C.1 (the members above) and B.
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(KVCommonTool::encryptWithData(plain, key), secret);
    EXPECT_EQ(KVCommonTool::decryptWithData(secret, key), plain);
  }
  const KVData other = bytes("2b7e151628aed2a6abf7158809cf4f3c");
  const KVData in = bytes("3243f6a8885a308d313198a2e0370734");
  const KVData out = bytes("3925841d02dc09fbdc118597196a0b32");
  EXPECT_EQ(KVCommonTool::enDecryptWithData(in, other, /*encrypt=*/true), out);
  EXPECT_EQ(KVCommonTool::enDecryptWithData(out, other, /*encrypt=*/false), in);
}

TEST_F(CommonToolCipherTest, WrongSizesAreRefusedWithOneLine) {
  const struct {
    std::size_t key, data;
  } cases[] = {{15, 16}, {17, 16}, {0, 16},  {32, 16}, {16, 0},
               {16, 15}, {16, 17}, {16, 32}, {0, 0}};
  for (const auto& c : cases) {
    for (const bool encrypt : {true, false}) {
      EXPECT_EQ(KVCommonTool::enDecryptWithData(KVData(c.data), KVData(c.key), encrypt),
                std::nullopt);
      EXPECT_EQ(took(), Lines{"log: Cipher Key Error!"}) << c.key << " " << c.data;
    }
  }
}

TEST_F(CommonToolCipherTest, FailureIsLoggedWithItsPlace) {
  const std::string place =
      "log: [FuncName:+[KVCommonTool enDecryptWithData:keyData:encrypt:]]\n[@Line:170] \n";
  cipher->failEncrypt = true;
  EXPECT_EQ(KVCommonTool::encryptWithData(plain, key), std::nullopt);
  EXPECT_EQ(took(), Lines{place + "AES128 encrypt failed!"});
  EXPECT_EQ(KVCommonTool::decryptWithData(secret, key), plain);

  cipher->failEncrypt = false;
  cipher->failDecrypt = true;
  EXPECT_EQ(KVCommonTool::decryptWithData(secret, key), std::nullopt);
  EXPECT_EQ(took(), Lines{place + "AES128 decrypt failed!"});
  EXPECT_EQ(KVCommonTool::encryptWithData(plain, key), secret);
}

TEST_F(CommonToolCipherTest, Digest) {
  using std::string_view_literals::operator""sv;
  // RFC 1321, appendix A.5; the accented one is made with Python's hashlib.
  const std::pair<std::string_view, std::string> cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {"caf\u00e9", "07117fe4a1ebd544965dc19573183da2"},
      {"abc\0def"sv, "900150983cd24fb0d6963f7d28e17f72"},
      {"\0abc"sv, "d41d8cd98f00b204e9800998ecf8427e"},
  };
  for (const auto& [text, digest] : cases) EXPECT_EQ(KVCommonTool::md5Encrypt(text), digest);
  // Not a whole of a terminated string.
  EXPECT_EQ(KVCommonTool::md5Encrypt("abcdef"sv.substr(0, 3)), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace kvtest
