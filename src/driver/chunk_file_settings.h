// The chunk file settings the driver uses for every output stream.
#pragma once

#include "driver/run_settings.h"
#include "segments/chunk_file.h"

// One stream of the run: a VOD playlist (version 3, decimal durations), encryption when a key
// file or key URL was given. `directory` and `urlPrefix` are the stream's own.
inline ChunkFileSettings MakeChunkFileSettings(const RunSettings& s, const char* directory,
                                               const char* urlPrefix) {
  return ChunkFileSettings{
      3,                       // playlist version
      s.targetDuration,        //
      1,                       // not live ...
      -1,                      // ... with a negative selector: VOD
      directory,               //
      urlPrefix,               //
      s.indexFileName,         //
      s.baseMediaFileName,     //
      0,                       // first file number
      1,                       // live window (unused by VOD)
      1,                       // live minimum / EVENT first write (unused by VOD)
      0,                       // live deletion (unused by VOD)
      0,                       // file numbers never wrap
      0,                       // no memory buffer
      s.staticKey,             //
      s.staticKeyLength,       // 0, 16 or 32
      s.baseEncryptKeyName,    //
      s.encryptKeyURL,         //
      s.encryptKeyFile,        //
      s.ivSequence,            //
      s.keyRotationPeriod,     //
      s.ivRotateMegabytes,     //
      1,                       // decimal durations
      nullptr,                 // no post-processing commands
      nullptr,                 //
      nullptr,                 //
      nullptr,                 //
      nullptr,                 // no I-frame playlist
      0,                       // separate files
      1,                       // AES-128
      s.streamingKeyDelivery,  //
      0,                       // independent segments off
      0,                       // no byte ranges
  };
}
