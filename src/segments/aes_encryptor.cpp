#include "segments/aes_encryptor.h"

#include <climits>
#include <new>

Status Aes128CbcEncryptor::Create(const uint8_t* key, size_t keyLength, const uint8_t iv[16],
                                  std::unique_ptr<Aes128CbcEncryptor>* out) {
  out->reset();
  if (key == nullptr || keyLength < 16) return kErrCryptor;
  auto encryptor = std::unique_ptr<Aes128CbcEncryptor>(new (std::nothrow) Aes128CbcEncryptor);
  if (!encryptor) return kErrCreateFailed;
  encryptor->context_.reset(EVP_CIPHER_CTX_new());
  if (!encryptor->context_) return kErrCreateFailed;
  // PKCS#7 padding is EVP's default for block ciphers.
  if (EVP_EncryptInit_ex(encryptor->context_.get(), EVP_aes_128_cbc(), nullptr, key, iv) != 1)
    return kErrCryptor;
  *out = std::move(encryptor);
  return kNoErr;
}

Status Aes128CbcEncryptor::Reset(const uint8_t iv[16]) {
  // No cipher and no key: EVP keeps both and starts a new CBC stream from this IV.
  return EVP_EncryptInit_ex(context_.get(), nullptr, nullptr, nullptr, iv) == 1 ? kNoErr
                                                                                : kErrCryptor;
}

Status Aes128CbcEncryptor::Update(const uint8_t* in, size_t length, uint8_t* out,
                                  size_t* produced) {
  *produced = 0;
  while (length > 0) {  // EVP takes an int length
    int chunk = length > INT_MAX / 2 ? INT_MAX / 2 : static_cast<int>(length);
    int written = 0;
    if (EVP_EncryptUpdate(context_.get(), out + *produced, &written, in, chunk) != 1)
      return kErrCryptor;
    *produced += static_cast<size_t>(written);
    in += chunk;
    length -= static_cast<size_t>(chunk);
  }
  return kNoErr;
}

Status Aes128CbcEncryptor::Final(uint8_t* out, size_t* produced) {
  int written = 0;
  *produced = 0;
  if (EVP_EncryptFinal_ex(context_.get(), out, &written) != 1) return kErrCryptor;
  *produced = static_cast<size_t>(written);
  return kNoErr;
}
