// ChunkFile: one output stream cut into numbered segment files, optionally encrypted with
// AES-128-CBC, each finished file reported to the stream's playlist. The caller decides where a
// segment ends (ChunkFileMoveToNextFileSecs); ChunkFileReleaseSecs closes the last one and
// destroys the playlist object, which writes the final playlist.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/status.h"
#include "playlist/index_file.h"
#include "segments/aes_encryptor.h"
#include "segments/crypt_key.h"
#include "segments/segment_file.h"

// Creation settings of a stream. Fill them by name (designated initializers), never by
// position: several neighbours share a type.
struct ChunkFileSettings {
  uint32_t version = 0;                 // EXT-X-VERSION
  uint32_t targetDuration = 0;          // seconds
  uint8_t notLive = 0;                  // with a negative kindSelector: VOD
  int64_t kindSelector = 0;             // 0 with notLive clear: live; otherwise EVENT
  const char* directory = nullptr;      // output directory, kept alive by the caller
  const char* baseURL = nullptr;        // prefix of playlist entries; none = relative
  const char* indexFileName = nullptr;  // playlist file name
  const char* baseName = nullptr;       // segment base name, kept alive by the caller
  uint32_t firstFileIndex = 0;
  uint32_t liveWindowSize = 0;     // live playlists only
  uint32_t minEntriesToWrite = 0;  // live minimum / EVENT first write count
  uint8_t liveDeleteOldFiles = 0;  // live playlists only
  uint32_t maxFileIndex = 0;       // file numbers wrap to 0 here; 0 = never
  uint8_t bufferInMemory = 0;
  const uint8_t* keyData = nullptr;  // 16 key bytes, then 16 IV bytes with streaming delivery
  size_t keyDataLength = 0;          // 0 = no key file
  const char* keyBaseName = nullptr;
  const char* keyURL = nullptr;
  const char* keyLocation = nullptr;  // a key file, or the directory for generated keys
  uint8_t ivSequence = 0;
  uint32_t keyRotationPeriod = 0;  // segments per key; 0 = one key
  uint32_t ivRotateMegabytes = 0;
  uint8_t decimalDurations = 0;
  const char* segmentPostCommand = nullptr;
  const char* segmentDeleteCommand = nullptr;
  const char* keyPostCommand = nullptr;
  const char* keyDeleteCommand = nullptr;
  const char* iframeIndexFileName = nullptr;  // none = no I-frame playlist
  uint8_t singleFile = 0;
  uint8_t aes128 = 0;  // 0 = SAMPLE-AES (key URL only, bytes unencrypted)
  uint8_t streamingKeyDelivery = 0;
  uint8_t independentSegments = 0;
  uint8_t reportByteRanges = 0;
};

struct ChunkFile {
  std::unique_ptr<SegmentFile> file;
  bool bufferInMemory = false;
  bool singleFile = false;
  bool reportByteRanges = false;
  bool encrypt = false;
  bool aes128 = false;
  bool streamingKeyDelivery = false;
  bool keyChanged = false;
  bool ivSequence = false;
  uint32_t keyRotationPeriod = 0;
  uint64_t ivRotationBytes = 0;
  std::unique_ptr<std::string> keyBaseName;
  std::unique_ptr<std::string> keyDirectory;
  std::unique_ptr<std::string> keyURL;
  uint8_t iv[16] = {};
  CryptKeyState keyState;
  std::unique_ptr<CryptKey, decltype(&CryptKeyDestroy)> key{nullptr, &CryptKeyDestroy};
  std::unique_ptr<Aes128CbcEncryptor> cryptor;
  std::vector<uint8_t> cipherScratch;  // output of the encryptor, reused by every write
  const char* directory = nullptr;
  const char* baseName = nullptr;
  std::unique_ptr<std::string> extension;
  std::unique_ptr<CIndexFileBase> indexFile;
  std::unique_ptr<CIndexFileBase> iframeIndexFile;
  uint32_t fileIndex = 0;
  uint32_t segmentCount = 0;
  uint32_t maxFileIndex = 0;
  char fileName[kPathLimit] = {};
  char filePath[kPathLimit] = {};
  std::unique_ptr<uint8_t[]> buffer;
  uint64_t bufferUsed = 0, bufferCapacity = 0;
  uint64_t bytesWritten = 0;
  uint64_t plainBytesWritten = 0;
  uint64_t totalBytesWritten = 0;
  uint64_t bytesSinceIVChange = 0;
  double maxBitRate = 0;
  Status writeError = kNoErr;  // first failed write of the current file, reported at finalize
  Status openError = kNoErr;   // last failure to create a file, reported once until it changes
};

// Returns none when the playlist or the key could not be made.
ChunkFile* ChunkFileCreate(const ChunkFileSettings& settings);
void ChunkFileSetFileExtension(ChunkFile* chunk, const char* extension);
Status ChunkFileWriteData(ChunkFile* chunk, const void* data, size_t length);
Status ChunkFileMoveToNextFileSecs(ChunkFile* chunk, double seconds);
// Returns the status of closing (or failing to create) the last segment, so that a failure
// there is not lost.
Status ChunkFileReleaseSecs(ChunkFile* chunk, double lastSeconds, double totalSeconds);
// Ends a stream that failed: closes the open file and frees everything without writing a
// playlist, so that no finished-looking playlist lists a broken stream.
void ChunkFileAbandon(ChunkFile* chunk);
void ChunkFileGetBitRates(ChunkFile* chunk, int64_t elapsedTicks, double* average, double* maximum);
void ChunkFileDisplayBitRate(ChunkFile* chunk, int64_t elapsedTicks);
// Formats a rate into `text` (at least 40 bytes).
void ChunkFileFormatBitRate(double bitsPerSecond, char* text);

// The steps of writing a segment that can fail part-way through it.
enum class ChunkFileStep { kEncrypt, kWrite };
// Asked before every encryptor step and every write to a segment file (or to the memory buffer)
// of every stream, with the number of bytes; a non-zero answer fails that step with the status
// given, exactly as if the encryptor or the file had reported it. Normal runs install none; tests
// install one to make the n-th step fail. Returns the hook installed before.
using ChunkFileFaultHook = std::function<Status(ChunkFileStep step, size_t length)>;
ChunkFileFaultHook ChunkFileSetFaultHook(ChunkFileFaultHook hook);
