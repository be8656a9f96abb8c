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
  uint32_t keyNumber = 0;    // number of the next generated key file
  int randomFd = -1;         // the random device, negative when it could not be opened
  std::string randomDevice;  // its path, for messages
};

struct CryptKey {
  std::unique_ptr<uint8_t[]> keyBytes;
  uint32_t keyLength = 0;
  std::unique_ptr<std::string> path;      // where the key file lies, or none
  std::unique_ptr<std::string> fileName;  // the key file's own name, or none
  std::unique_ptr<std::string> url;       // the URI for the playlist, or none
};

// Opens `randomDevice` (normally "/dev/random"); a failure shows at the first draw, not here.
Status CryptKeyInitState(CryptKeyState* state, const char* randomDevice);
int CryptKeyDestroyState(CryptKeyState* state);
// Fills `count` bytes from the random device. A device that could not be opened or read ends the
// process (abort): encrypting with predictable keys or IVs would be worse than stopping.
void CryptKeyFillRandomBuffer(CryptKeyState* state, uint8_t* buffer, size_t count);
Status CryptKeyCreateRandomFromBase(CryptKeyState* state, const char* directory,
                                    const char* urlPrefix, const char* baseName, CryptKey** out);
Status CryptKeyCreateStatic(const char* url, const char* keyPath, const uint8_t* bytes,
                            size_t length, CryptKey** out);
void CryptKeyDestroy(CryptKey* key);
