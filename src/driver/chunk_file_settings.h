// The chunk file settings the driver uses for every output stream.
#pragma once

#include "driver/run_settings.h"
#include "segments/chunk_file.h"

// One stream of the run: a VOD playlist (version 3, decimal durations), encryption when a key
// file or key URL was given. `directory` and `urlPrefix` are the stream's own.
inline ChunkFileSettings MakeChunkFileSettings(const RunSettings& s,
                                               const RunEnvironment& environment,
                                               const char* directory, const char* urlPrefix) {
  return ChunkFileSettings{
      .version = 3,
      .targetDuration = s.targetDuration,
      .notLive = 1,
      .kindSelector = -1,  // with notLive: VOD
      .directory = directory,
      .baseURL = urlPrefix,
      .indexFileName = s.indexFileName,
      .baseName = s.baseMediaFileName,
      .firstFileIndex = 0,
      .liveWindowSize = 1,     // unused by VOD
      .minEntriesToWrite = 1,  // unused by VOD
      .liveDeleteOldFiles = 0,
      .maxFileIndex = 0,  // file numbers never wrap
      .bufferInMemory = 0,
      .keyData = s.staticKey,
      .keyDataLength = s.staticKeyLength,  // 0, 16 or 32
      .keyBaseName = s.baseEncryptKeyName,
      .keyURL = s.encryptKeyURL,
      .keyLocation = s.encryptKeyFile,
      .ivSequence = s.ivSequence,
      .keyRotationPeriod = s.keyRotationPeriod,
      .ivRotateMegabytes = s.ivRotateMegabytes,
      .decimalDurations = 1,
      .segmentPostCommand = nullptr,
      .segmentDeleteCommand = nullptr,
      .keyPostCommand = nullptr,
      .keyDeleteCommand = nullptr,
      .iframeIndexFileName = nullptr,  // no I-frame playlist
      .singleFile = 0,
      .aes128 = 1,
      .streamingKeyDelivery = s.streamingKeyDelivery,
      .independentSegments = 0,
      .reportByteRanges = 0,
      .environment = environment,
  };
}
