// The WebVTT/SRT source parser. It reads a byte stream in 1024-byte blocks, cuts it into lines,
// groups lines into cue blocks and parses each block into a WebVTTCue. A cue keeps a reference
// to the one contiguous buffer holding its whole block; identifier, settings and payload are
// (offset, length) ranges into it, never copies. Malformed blocks are dropped and reading goes
// on; only a few conditions end the read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "media/core/block_buffer.h"
#include "media/core/byte_stream.h"

struct WebVTTCue {
  WebVTTCue* next = nullptr;
  WebVTTCue** prev = nullptr;  // the previous element's forward link
  MxBlockBufferRef text;
  double start = 0;
  double end = 0;
  uint64_t identifierOffset = 0, identifierLength = 0;
  uint64_t settingsOffset = 0, settingsLength = 0;
  uint64_t payloadOffset = 0, payloadLength = 0;
};

// A doubly linked tail queue of cues: constant-time append, prepend and removal. It refers to
// its own address, so it is never copied or moved.
struct WebVTTCueQueue {
  WebVTTCue* first = nullptr;
  WebVTTCue** last = &first;

  WebVTTCueQueue() = default;
  WebVTTCueQueue(const WebVTTCueQueue&) = delete;
  WebVTTCueQueue& operator=(const WebVTTCueQueue&) = delete;

  bool empty() const { return first == nullptr; }
  void InsertTail(WebVTTCue* cue);
  void InsertHead(WebVTTCue* cue);
  void Remove(WebVTTCue* cue);
};

constexpr size_t kCueTextBlockSize = 65536;

struct WebVTTParser {
  MxBlockBufferRef partialLine;  // a line begun in an earlier block
  uint32_t state = 0;            // 0 signature, 1 header, 3 cue blocks
  // The lines of the cue block being collected, terminators included; empty when no block is
  // being collected. One buffer reused for every block, so collecting a line costs no allocation.
  std::string cueLines;
  WebVTTCueQueue cueQueue;
  double lastStart = 0;
  bool haveLastStart = false;
  uint32_t commaDecimal = 0;  // 1: "," separates the fraction (SRT)
  // Accepted cue blocks are copied into shared text blocks of kCueTextBlockSize bytes; each cue
  // references its block. One allocation serves hundreds of cues, and a block is freed with the
  // last cue that uses it.
  MxBlockBufferRef textBlock;
  char* textBytes = nullptr;
  size_t textUsed = 0, textCapacity = 0;
};

bool WebVTTHasSignature(const uint8_t* bytes, size_t length);
[[nodiscard]] OSStatus WebVTTParserCreate(WebVTTParser** out, uint32_t commaDecimal);
[[nodiscard]] OSStatus WebVTTParserReadByteStream(WebVTTParser* parser, MxByteStream* stream);
WebVTTCueQueue* WebVTTParserGetCueQueue(WebVTTParser* parser);
[[nodiscard]] OSStatus WebVTTParserRelease(WebVTTParser* parser);
// Frees a cue that is in no queue.
void WebVTTCueFree(WebVTTCue* cue);
[[nodiscard]] OSStatus WebVTTParseTimestamp(WebVTTParser* parser, const char** cursor,
                                            size_t* remaining, double* seconds,
                                            bool requireSpaceAfter, bool* spaceSeen);
