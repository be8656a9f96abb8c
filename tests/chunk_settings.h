// The chunk file settings the driver uses (VOD playlist "prog_index.m3u8", version 3, decimal
// durations, 10-second target, AES-128 when a key is given), for tests that drive a ChunkFile.
#pragma once

#include "segments/chunk_file.h"

inline ChunkFileSettings TestVodSettings(const char* directory) {
  ChunkFileSettings s{};
  s.version = 3;
  s.targetDuration = 10;
  s.notLive = 1;
  s.kindSelector = -1;
  s.directory = directory;
  s.indexFileName = "prog_index.m3u8";
  s.liveWindowSize = 1;
  s.minEntriesToWrite = 1;
  s.ivRotateMegabytes = 50;
  s.decimalDurations = 1;
  s.aes128 = 1;
  return s;
}
