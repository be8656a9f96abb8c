// The chunk file settings the driver uses (VOD playlist "prog_index.m3u8", version 3, decimal
// durations, 10-second target, AES-128 when a key is given), for tests that drive a ChunkFile.
#pragma once

#include "segments/chunk_file.h"

inline ChunkFileSettings TestVodSettings(const char* directory) {
  return ChunkFileSettings{.version = 3,
                           .targetDuration = 10,
                           .notLive = 1,
                           .kindSelector = -1,
                           .directory = directory,
                           .indexFileName = "prog_index.m3u8",
                           .liveWindowSize = 1,
                           .minEntriesToWrite = 1,
                           .ivRotateMegabytes = 50,
                           .decimalDurations = 1,
                           .aes128 = 1};
}
