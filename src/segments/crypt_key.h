// Encryption keys: static keys from a key file, or random keys written to numbered key files
// (crypt0.key, crypt1.key, ...) that never overwrite an existing file. IVs come from the same
// random source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/status.h"

struct CryptKeyState {
  uint32_t keyNumber = 0;  // number of the next generated key file
  int randomFd = -1;       // the random device, negative when it could not be opened
};

struct CryptKey {
  std::unique_ptr<uint8_t[]> keyBytes;
  uint32_t keyLength = 0;
  std::unique_ptr<std::string> path;      // where the key file lies, or none
  std::unique_ptr<std::string> fileName;  // the key file's own name, or none
  std::unique_ptr<std::string> url;       // the URI for the playlist, or none
};

Status CryptKeyInitState(CryptKeyState* state);
int CryptKeyDestroyState(CryptKeyState* state);
// Fills `count` bytes from the random device. A device that could not be opened aborts.
void CryptKeyFillRandomBuffer(CryptKeyState* state, uint8_t* buffer, size_t count);
Status CryptKeyCreateRandomFromBase(CryptKeyState* state, const char* directory,
                                    const char* urlPrefix, const char* baseName, CryptKey** out);
Status CryptKeyCreateStatic(const char* url, const char* keyPath, const uint8_t* bytes,
                            size_t length, CryptKey** out);
void CryptKeyDestroy(CryptKey* key);

// Where the random bytes come from; tests point it elsewhere.
extern const char* gCryptKeyRandomDevice;
