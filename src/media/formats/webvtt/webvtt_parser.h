// The WebVTT/SRT source parser. It reads a byte stream in 1024-byte blocks, cuts it into lines,
// groups lines into cue blocks and parses each block into a cue record of a WebVTTCueStore.
// Malformed blocks are dropped and reading goes on; only a few conditions end the read.
// Memory stays close to the size of the source: a line is gathered in one growable buffer
// whatever its length, and a cue keeps only its identifier, settings and payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "media/core/block_buffer.h"
#include "media/core/byte_stream.h"
#include "media/formats/webvtt/cue_store.h"

// A cue as a separate record, for a reader that keeps each cue's text on its own: identifier,
// settings and payload are (offset, length) ranges into `text`.
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
  void Remove(WebVTTCue* cue);
};

// A byte buffer on malloc and realloc: a large one grows by remapping its pages rather than by
// copying them, and the whole buffer can be handed over.
class GrowableBytes {
 public:
  GrowableBytes() = default;
  GrowableBytes(const GrowableBytes&) = delete;
  GrowableBytes& operator=(const GrowableBytes&) = delete;
  ~GrowableBytes() { free(data_); }

  char* data() const { return data_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Status Append(const char* bytes, size_t length);
  void Truncate(size_t size) { size_ = size; }
  // Hands over the buffer, shrunk to its size, to be freed with free(); this one is left empty.
  char* Release();

 private:
  char* data_ = nullptr;
  size_t size_ = 0, capacity_ = 0;
};

struct WebVTTParser {
  uint32_t state = 0;  // 0 signature, 1 header, 3 cue blocks
  // The lines of the cue block being collected, terminators included, followed by the line
  // begun in an earlier block (from partialStart on) when havePartialLine is set. One buffer
  // reused for every block, so collecting a line costs no allocation.
  GrowableBytes cueLines;
  bool havePartialLine = false;
  size_t partialStart = 0;
  WebVTTCueStore cues;
  WebVTTCueQueue cueQueue;  // filled from `cues` when asked for
  double lastStart = 0;
  bool haveLastStart = false;
  uint32_t commaDecimal = 0;  // 1: "," separates the fraction (SRT)
  // Cue text is rewritten from SRT habits into WebVTT markup (see srt_markup.h). Only a cue that
  // changes is stored from the rewritten text, which is built in these reused buffers.
  bool rewriteSrtMarkup = false;
  std::string rewrittenSettings, rewrittenPayload;
};

bool WebVTTHasSignature(const uint8_t* bytes, size_t length);
Status WebVTTParserCreate(WebVTTParser** out, uint32_t commaDecimal);
Status WebVTTParserReadByteStream(WebVTTParser* parser, MxByteStream* stream);
// The accepted cues in source order.
WebVTTCueStore* WebVTTParserGetCueStore(WebVTTParser* parser);
// Moves the accepted cues out of the store into a queue of separate records, each referencing
// its text block. Should a record fail to allocate, that is signalled and the queue holds the
// cues before it.
WebVTTCueQueue* WebVTTParserGetCueQueue(WebVTTParser* parser);
Status WebVTTParserRelease(WebVTTParser* parser);
// Frees a cue that is in no queue.
void WebVTTCueFree(WebVTTCue* cue);
Status WebVTTParseTimestamp(WebVTTParser* parser, const char** cursor, size_t* remaining,
                            double* seconds, bool requireSpaceAfter, bool* spaceSeen);
