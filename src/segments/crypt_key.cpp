#include "segments/crypt_key.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "common/incomplete_files.h"
#include "log/output.h"

namespace {
constexpr uint32_t kAes128KeyLength = 16;

std::unique_ptr<std::string> JoinOrName(const char* prefix, const std::string& name) {
  return std::make_unique<std::string>(prefix ? std::string(prefix) + "/" + name : name);
}
}  // namespace

Status CryptKeyInitState(CryptKeyState* state, const char* randomDevice) {
  if (state == nullptr || randomDevice == nullptr) return kErrParse;
  srandom(static_cast<unsigned>(time(nullptr)) ^ static_cast<unsigned>(getpid()));
  state->keyNumber = 0;
  state->randomDevice = randomDevice;
  state->randomFd = open(randomDevice, O_RDONLY | O_CLOEXEC);
  return kNoErr;
}

int CryptKeyDestroyState(CryptKeyState* state) {
  if (state == nullptr || state->randomFd < 0) return -1;
  int result = close(state->randomFd);
  state->randomFd = -1;
  return result;
}

void CryptKeyFillRandomBuffer(CryptKeyState* state, uint8_t* buffer, size_t count) {
  if (state->randomFd < 0) {
    OutputMessage(0, "cannot read random bytes from %s", state->randomDevice.c_str());
    abort();
  }
  size_t done = 0;
  while (done < count) {
    ssize_t n = read(state->randomFd, buffer + done, count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      OutputMessage(0, "cannot read random bytes from %s", state->randomDevice.c_str());
      abort();
    }
    done += static_cast<size_t>(n);
  }
}

Status CryptKeyCreateRandomFromBase(CryptKeyState* state, const char* directory,
                                    const char* urlPrefix, const char* baseName, CryptKey** out) {
  if (out == nullptr || state == nullptr) return kErrParse;
  *out = nullptr;
  auto key = std::unique_ptr<CryptKey>(new (std::nothrow) CryptKey);
  if (!key) return kErrCreateFailed;
  key->keyBytes.reset(new (std::nothrow) uint8_t[kAes128KeyLength]);
  if (!key->keyBytes) return kErrCreateFailed;
  key->keyLength = kAes128KeyLength;
  CryptKeyFillRandomBuffer(state, key->keyBytes.get(), kAes128KeyLength);
  const char* base = baseName ? baseName : "crypt";
  for (;;) {
    const uint32_t n = state->keyNumber;
    key->fileName = std::make_unique<std::string>(std::string(base) + std::to_string(n) + ".key");
    key->path = JoinOrName(directory, *key->fileName);
    key->url = JoinOrName(urlPrefix, *key->fileName);
    // O_EXCL: an existing key file is never overwritten, even one that appears meanwhile.
    // Readable by the owner alone: the operator widens access where a key server needs it.
    int fd = -1;
    {
      InterruptsHeld held;
      fd = open(key->path->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd >= 0) IncompleteFileBegin(IncompleteFile::kKey, key->path->c_str());
    }
    if (fd >= 0) {
      errno = 0;
      bool written = write(fd, key->keyBytes.get(), kAes128KeyLength) ==
                     static_cast<ssize_t>(kAes128KeyLength);
      int error = written ? 0 : (errno != 0 ? errno : ENOSPC);  // a short write: no room
      if (close(fd) != 0 && error == 0) error = errno;
      if (error != 0) {
        // Leave no key file that does not hold the key.
        OutputMessage(0, "cannot write crypt key file %s: %s", key->path->c_str(), strerror(error));
        unlink(key->path->c_str());
        IncompleteFileDone(IncompleteFile::kKey);
        return StatusFromErrno(error);
      }
      IncompleteFileDone(IncompleteFile::kKey);
      state->keyNumber = n + 1;
      *out = key.release();
      return kNoErr;
    }
    if (errno == EEXIST) {
      OutputMessage(0, "Not overrwriting crypt key file %s already exists", key->path->c_str());
    } else {
      // A directory we cannot write to would make this loop endless: report it instead.
      int error = errno;
      OutputMessage(0, "cannot create crypt key file %s: %s", key->path->c_str(), strerror(error));
      return StatusFromErrno(error);
    }
    state->keyNumber++;
    if (state->keyNumber == 0) return kErrNoFreeFileIndex;  // every number is taken
  }
}

Status CryptKeyCreateStatic(const char* url, const char* keyPath, const uint8_t* bytes,
                            size_t length, CryptKey** out) {
  if (out == nullptr || bytes == nullptr || length == 0) return kErrParse;
  *out = nullptr;
  auto key = std::unique_ptr<CryptKey>(new (std::nothrow) CryptKey);
  if (!key) return kErrCreateFailed;
  key->keyBytes.reset(new (std::nothrow) uint8_t[length]);
  if (!key->keyBytes) {
    OutputMessage(0, "Could not allocate %d bytes for crypt key.", static_cast<int>(length));
    return StatusFromErrno(ENOMEM);
  }
  memcpy(key->keyBytes.get(), bytes, length);
  key->keyLength = static_cast<uint32_t>(length);
  if (url) key->url = std::make_unique<std::string>(url);
  if (keyPath) {
    const char* slash = strrchr(keyPath, '/');
    if (slash) {
      key->path = std::make_unique<std::string>(keyPath);
      key->fileName = std::make_unique<std::string>(slash + 1);
    } else {
      key->fileName = std::make_unique<std::string>(keyPath);
    }
  }
  *out = key.release();
  return kNoErr;
}

void CryptKeyDestroy(CryptKey* key) {
  delete key;
}
