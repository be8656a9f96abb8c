#include "master/segment_decryption.h"

#include <openssl/evp.h>

#include <memory>

bool SegmentIV(std::string_view ivAttribute, uint64_t mediaSequence, std::array<uint8_t, 16>* iv) {
  iv->fill(0);
  if (ivAttribute.empty()) {
    for (size_t b = 0; b < 8; b++) (*iv)[15 - b] = static_cast<uint8_t>(mediaSequence >> (8 * b));
    return true;
  }
  if (!(ivAttribute.starts_with("0x") || ivAttribute.starts_with("0X"))) return false;
  std::string_view digits = ivAttribute.substr(2);
  if (digits.empty() || digits.size() > 32) return false;
  // Right-aligned: missing leading digits are zeros.
  for (size_t i = 0; i < digits.size(); i++) {
    const char c = digits[digits.size() - 1 - i];
    int value = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
    if (value < 0) return false;
    (*iv)[15 - i / 2] |= static_cast<uint8_t>(i % 2 == 0 ? value : value << 4);
  }
  return true;
}

Status DecryptSegmentHead(std::string_view key, const std::array<uint8_t, 16>& iv,
                          std::string_view cipher, bool whole, std::string* plain) {
  if (key.size() != 16) return kErrBadArgument;
  const size_t length = cipher.size() / 16 * 16;
  if (whole && (length != cipher.size() || length == 0)) return kErrCryptor;
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                          &EVP_CIPHER_CTX_free);
  plain->assign(length + 16, '\0');
  int produced = 0;
  if (!context ||
      EVP_DecryptInit_ex(context.get(), EVP_aes_128_cbc(), nullptr,
                         reinterpret_cast<const unsigned char*>(key.data()), iv.data()) != 1 ||
      EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
      EVP_DecryptUpdate(context.get(), reinterpret_cast<unsigned char*>(plain->data()), &produced,
                        reinterpret_cast<const unsigned char*>(cipher.data()),
                        static_cast<int>(length)) != 1 ||
      static_cast<size_t>(produced) != length) {
    plain->clear();
    return kErrCryptor;
  }
  plain->resize(length);
  if (whole) {
    const size_t padding = static_cast<unsigned char>(plain->back());
    if (padding == 0 || padding > 16) return kErrCryptor;
    for (size_t i = 0; i < padding; i++)
      if (static_cast<unsigned char>((*plain)[length - 1 - i]) != padding) return kErrCryptor;
    plain->resize(length - padding);
  }
  return kNoErr;
}
