// AES-128-CBC with PKCS#7 padding through OpenSSL's EVP interface. Each segment is its own CBC
// stream: Reset starts a new one with a new IV and the same key.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/status.h"

class Aes128CbcEncryptor {
 public:
  static Status Create(const uint8_t* key, size_t keyLength, const uint8_t iv[16],
                       std::unique_ptr<Aes128CbcEncryptor>* out);
  Status Reset(const uint8_t iv[16]);
  // `out` must have room for length + 16 bytes.
  Status Update(const uint8_t* in, size_t length, uint8_t* out, size_t* produced);
  // `out` must have room for 16 bytes (the padding block).
  Status Final(uint8_t* out, size_t* produced);

 private:
  struct ContextFree {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
  };
  std::unique_ptr<EVP_CIPHER_CTX, ContextFree> context_;
};
