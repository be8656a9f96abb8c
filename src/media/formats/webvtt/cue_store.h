// The accepted cues of a WebVTT/SRT source, kept compactly: a cue is a fixed-size record in
// an array that grows by whole chunks (never moved, never copied while growing), and its text
// (identifier, settings and payload, one after another) lies in a shared text block. The timing
// line is not kept: the times are in the record. Small cues share 64 KiB blocks; a large cue
// keeps the buffer it was collected in, so its text is never copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "common/status.h"
#include "media/core/block_buffer.h"

struct WebVTTCueRecord {
  double start = 0;
  double end = 0;
  uint64_t payloadLength = 0;
  uint32_t block = 0;   // index of the text block
  uint32_t offset = 0;  // where the identifier starts in that block
  uint32_t identifierLength = 0;
  uint32_t settingsLength = 0;
};

constexpr size_t kCueTextBlockSize = 65536;
// A cue whose text is at least this long gets a block of its own, so that the unused tail of a
// shared block stays below an eighth of it.
constexpr size_t kOwnTextBlockThreshold = kCueTextBlockSize / 8;

class WebVTTCueStore {
 public:
  WebVTTCueStore() = default;
  WebVTTCueStore(const WebVTTCueStore&) = delete;
  WebVTTCueStore& operator=(const WebVTTCueStore&) = delete;

  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  const WebVTTCueRecord& operator[](size_t index) const {
    return chunks_[index / kRecordsPerChunk][index % kRecordsPerChunk];
  }
  std::string_view Identifier(const WebVTTCueRecord& cue) const {
    return {blockBytes_[cue.block] + cue.offset, cue.identifierLength};
  }
  std::string_view Settings(const WebVTTCueRecord& cue) const {
    return {blockBytes_[cue.block] + cue.offset + cue.identifierLength, cue.settingsLength};
  }
  std::string_view Payload(const WebVTTCueRecord& cue) const {
    return {blockBytes_[cue.block] + cue.offset + cue.identifierLength + cue.settingsLength,
            static_cast<size_t>(cue.payloadLength)};
  }
  // The text block a cue lies in, for a caller that keeps the text beyond the store.
  const MxBlockBufferRef& Block(const WebVTTCueRecord& cue) const { return blocks_[cue.block]; }

  // Copies a small cue's three pieces into the current shared block. `cue` gives the times;
  // the rest of it is filled in here.
  Status AppendCopy(WebVTTCueRecord cue, std::string_view identifier, std::string_view settings,
                    std::string_view payload);
  // Takes a malloc'ed buffer that already holds identifier, settings and payload one after
  // another from its start, and frees it with free() when the store goes. On failure the
  // buffer is freed too.
  Status AppendOwned(WebVTTCueRecord cue, char* bytes, size_t identifierLength,
                     size_t settingsLength, size_t payloadLength);
  // Frees the records before `index` and the text blocks only they use; they are not read
  // again.
  void ReleaseBefore(size_t index);
  void Clear();

 private:
  static constexpr size_t kRecordsPerChunk = 4096;
  Status AddBlock(MxBlockBufferRef block, char* bytes, bool shared);
  Status AppendRecord(const WebVTTCueRecord& cue);

  std::vector<std::unique_ptr<WebVTTCueRecord[]>> chunks_;
  size_t count_ = 0;
  std::vector<MxBlockBufferRef> blocks_;
  std::vector<char*> blockBytes_;
  std::vector<bool> blockShared_;  // a block that small cues share, not one of a large cue's
  size_t releasedChunks_ = 0, releasedBlocks_ = 0;
  // The shared block being filled: its index, and the bytes used in it (its capacity when
  // there is none).
  uint32_t shared_ = 0;
  size_t sharedUsed_ = kCueTextBlockSize;
};
