// The run settings: everything the command line decides, read once at start-up.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/status.h"

struct RunSettings {
  const char* indexFileName = "prog_index.m3u8";
  uint32_t targetDuration = 60;
  const char* subtitleVariantName = "subtitle_media.m3u8";
  bool outputTimestamps = true;
  uint64_t mpegtsStartOffset = 900000;  // ten seconds at 90 kHz
  bool mpegtsStartOffsetGiven = false;
  // --timestamp-map-mpegts: the timestamp map's MPEGTS value, written as given (0 to 2^33 - 1);
  // it takes the place of -m, with which it cannot be combined.
  bool timestampMapMpegtsGiven = false;
  uint64_t timestampMapMpegts = 0;
  uint32_t keyRotationPeriod = 0;
  uint32_t ivRotateMegabytes = 50;
  double duration = 0.0;
  bool ivSequence = false;
  const char* baseMediaFileName = nullptr;
  bool quiet = false;
  bool debug = false;
  bool streamingKeyDelivery = false;
  const char* encryptKeyURL = nullptr;
  const char* encryptKeyFile = nullptr;
  const char* fileBase = nullptr;
  const char* baseURL = nullptr;
  const char* baseEncryptKeyName = nullptr;
  uint8_t staticKey[32] = {};
  size_t staticKeyLength = 0;
  const char* inputPath = nullptr;
  // --srt-markup=webvtt: an SRT source's tags and position codes become WebVTT markup.
  bool srtMarkupToWebVTT = false;
  // --source-encoding: none (bytes as they are), "auto", or the name of an encoding.
  const char* sourceEncoding = nullptr;
};

// Reads the options into `settings`, validating each as it is met. Returns true when the run
// goes on; false when it ends here (help, version, a bad option, a wrong count of input files),
// with the run's result in `*result`. Option texts stay in `argv`, which may be edited in place.
bool ParseCommandLine(int argc, char** argv, RunSettings* settings, Status* result);

// Loads the static key named by -k, or accepts a directory for generated keys.
Status LoadStaticKey(RunSettings* settings);

void PrintUsage(const char* programName);

// The MPEGTS value of every segment's timestamp map: --timestamp-map-mpegts as given, else the
// low 32 bits of -m read as a signed number and widened with its sign (-m 4294967295 gives
// 18446744073709551615).
uint64_t TimestampMapValue(const RunSettings& settings);

// Exposed for tests: the in-place slash trimming of path-like options and the character rule
// for file-name options.
bool TrimTrailingSlashes(char* text);
bool IsLegalFileName(const char* name);
