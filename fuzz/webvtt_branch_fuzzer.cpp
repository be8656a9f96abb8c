// The whole WebVTT branch in memory: source bytes through the parser, the cue scheduler and the
// segment writer into chunk files that keep their segments in a memory buffer. Besides crashes
// it catches runaway scheduling: a run may not produce more than a fixed number of output bytes
// per input byte, nor run into the fuzzer's time limit.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "driver/chunk_file_settings.h"
#include "driver/cue_scheduler.h"
#include "log/output.h"
#include "media/core/memory_byte_stream.h"

namespace {

// Every cue is written with at most two 12-byte times, " --> ", three line breaks and its own
// bytes, and each segment adds a 57-byte header, so a sane schedule stays far below this.
constexpr size_t kOutputPerInputByte = 256;
constexpr size_t kOutputAllowance = 65536;

std::string& Directory() {
  static std::string dir = [] {
    char templ[] = "/tmp/webvtt-branch-fuzz-XXXXXX";
    const char* made = mkdtemp(templ);
    if (made == nullptr) abort();
    return std::string(made);
  }();
  return dir;
}

// Memory-buffer mode still creates each segment's (empty) file; they go between inputs.
void EmptyDirectory() {
  const std::string command = "rm -f '" + Directory() + "'/*";
  if (system(command.c_str()) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    OutputInit(false);
    OutputBeQuiet();
    return true;
  }();
  static_cast<void>(quiet);

  RunSettings settings;
  settings.targetDuration = 10;
  settings.fileBase = Directory().c_str();
  const size_t bound = kOutputAllowance + kOutputPerInputByte * size;
  size_t written = 0;
  RunEnvironment environment;
  environment.writeFault = [&](WriteStep step, size_t length) -> Status {
    if (step == WriteStep::kWrite && (written += length) > bound) {
      fprintf(stderr, "output passed %zu bytes for a %zu-byte input\n", bound, size);
      abort();
    }
    return kNoErr;
  };
  ChunkFileSettings chunkSettings =
      MakeChunkFileSettings(settings, environment, settings.fileBase, nullptr);
  chunkSettings.bufferInMemory = 1;

  MxByteStreamRef stream;
  if (MxByteStreamCreateForMemory(data, size, &stream) == kNoErr) {
    // Malformed input fails the run; only crashes, hangs and runaway output matter here.
    static_cast<void>(RunWebVTTSourceInto(settings, stream.get(), chunkSettings));
  }
  EmptyDirectory();
  return 0;
}
