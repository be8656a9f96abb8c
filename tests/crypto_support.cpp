#include "crypto_support.h"

#include <openssl/evp.h>

#include <memory>

std::string DecryptAes128Cbc(const uint8_t key[16], const std::array<uint8_t, 16>& iv,
                             const std::string& cipher) {
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  std::string plain(cipher.size() + 16, '\0');
  int n = 0, m = 0;
  if (EVP_DecryptInit_ex(ctx.get(), EVP_aes_128_cbc(), nullptr, key, iv.data()) != 1 ||
      EVP_DecryptUpdate(ctx.get(), reinterpret_cast<unsigned char*>(plain.data()), &n,
                        reinterpret_cast<const unsigned char*>(cipher.data()),
                        static_cast<int>(cipher.size())) != 1 ||
      EVP_DecryptFinal_ex(ctx.get(), reinterpret_cast<unsigned char*>(plain.data()) + n, &m) != 1)
    return "<decrypt failed>";
  plain.resize(static_cast<size_t>(n + m));
  return plain;
}

std::array<uint8_t, 16> IVFromHex(const std::string& hex) {
  std::array<uint8_t, 16> iv{};
  // Right-aligned: the hex text is a number, so missing leading digits are zeros.
  int byte = 15;
  for (size_t end = hex.size(); end > 0 && byte >= 0; byte--) {
    size_t start = end >= 2 ? end - 2 : 0;
    iv[static_cast<size_t>(byte)] =
        static_cast<uint8_t>(std::stoul(hex.substr(start, end - start), nullptr, 16));
    end = start;
  }
  return iv;
}
