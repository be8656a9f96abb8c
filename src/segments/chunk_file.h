// ChunkFile: one output stream cut into numbered segment files, optionally encrypted with
// AES-128-CBC, each finished file reported to the stream's playlist. The caller decides where a
// segment ends (ChunkFileMoveToNextFileSecs); ChunkFileReleaseSecs closes the last one and
// destroys the playlist object, which writes the final playlist.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/run_environment.h"
#include "common/status.h"

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
  RunEnvironment environment = {};  // clock, random device and write faults of the stream
};

// One output stream; its state is private to the chunk file writer.
struct ChunkFile;

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
// Segments handed to the playlist so far.
uint32_t ChunkFileSegmentCount(const ChunkFile* chunk);
// Whether a segment file is open: the stream has begun one that is not finished yet.
bool ChunkFileSegmentOpen(const ChunkFile* chunk);
void ChunkFileGetBitRates(ChunkFile* chunk, int64_t elapsedTicks, double* average, double* maximum);
void ChunkFileDisplayBitRate(ChunkFile* chunk, int64_t elapsedTicks);
// Formats a rate into `text` (at least 40 bytes).
void ChunkFileFormatBitRate(double bitsPerSecond, char* text);
