#include "media/formats/webvtt/cue_store.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "media/core/error_signal.h"

Status WebVTTCueStore::AddBlock(MxBlockBufferRef block, char* bytes, bool shared) {
  if (blocks_.size() >= std::numeric_limits<uint32_t>::max())
    return QorSignalErrorAt(kMxErrAllocationFailed);
  try {
    blocks_.reserve(blocks_.size() + 1);
    blockShared_.reserve(blockShared_.size() + 1);
    blockBytes_.push_back(bytes);
  } catch (const std::bad_alloc&) {
    return QorSignalErrorAt(kMxErrAllocationFailed);
  }
  blocks_.push_back(std::move(block));  // room was reserved: cannot fail
  blockShared_.push_back(shared);
  return kNoErr;
}

Status WebVTTCueStore::AppendRecord(const WebVTTCueRecord& cue) {
  if (count_ % kRecordsPerChunk == 0) {
    std::unique_ptr<WebVTTCueRecord[]> chunk(new (std::nothrow) WebVTTCueRecord[kRecordsPerChunk]);
    if (!chunk) return QorSignalErrorAt(kMxErrAllocationFailed);
    try {
      chunks_.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
      return QorSignalErrorAt(kMxErrAllocationFailed);
    }
  }
  chunks_[count_ / kRecordsPerChunk][count_ % kRecordsPerChunk] = cue;
  count_++;
  return kNoErr;
}

Status WebVTTCueStore::AppendCopy(WebVTTCueRecord cue, std::string_view identifier,
                                  std::string_view settings, std::string_view payload) {
  const size_t size = identifier.size() + settings.size() + payload.size();
  if (size > kCueTextBlockSize) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (size > kCueTextBlockSize - sharedUsed_) {
    MxBlockBufferRef fresh;
    Status status = MxBlockBufferCreateWithMemoryBlock(nullptr, nullptr, kCueTextBlockSize, nullptr,
                                                       nullptr, 0, kCueTextBlockSize,
                                                       kMxBlockBufferAssureMemoryNowFlag, &fresh);
    char* bytes = nullptr;
    if (status == kNoErr)
      status = MxBlockBufferGetDataPointer(fresh.get(), 0, nullptr, nullptr, &bytes);
    if (status == kNoErr) status = AddBlock(std::move(fresh), bytes, true);
    if (status != kNoErr) return status;
    shared_ = static_cast<uint32_t>(blocks_.size() - 1);
    sharedUsed_ = 0;
  }
  char* at = blockBytes_[shared_] + sharedUsed_;
  memcpy(at, identifier.data(), identifier.size());
  memcpy(at + identifier.size(), settings.data(), settings.size());
  memcpy(at + identifier.size() + settings.size(), payload.data(), payload.size());
  cue.block = shared_;
  cue.offset = static_cast<uint32_t>(sharedUsed_);
  cue.identifierLength = static_cast<uint32_t>(identifier.size());
  cue.settingsLength = static_cast<uint32_t>(settings.size());
  cue.payloadLength = payload.size();
  Status status = AppendRecord(cue);
  if (status == kNoErr) sharedUsed_ += size;
  return status;
}

Status WebVTTCueStore::AppendOwned(WebVTTCueRecord cue, char* bytes, size_t identifierLength,
                                   size_t settingsLength, size_t payloadLength) {
  const size_t size = identifierLength + settingsLength + payloadLength;
  if (identifierLength > std::numeric_limits<uint32_t>::max() ||
      settingsLength > std::numeric_limits<uint32_t>::max()) {
    free(bytes);
    return QorSignalErrorAt(kMxErrInvalidParameter);
  }
  // The default block allocator frees with free(), so the buffer is handed over as it is.
  MxBlockBufferRef block;
  Status status = MxBlockBufferCreateWithMemoryBlock(nullptr, bytes, size, nullptr, nullptr, 0,
                                                     size, 0, &block);
  if (status != kNoErr) {
    free(bytes);
    return status;
  }
  status = AddBlock(std::move(block), bytes, false);
  if (status != kNoErr) return status;
  cue.block = static_cast<uint32_t>(blocks_.size() - 1);
  cue.offset = 0;
  cue.identifierLength = static_cast<uint32_t>(identifierLength);
  cue.settingsLength = static_cast<uint32_t>(settingsLength);
  cue.payloadLength = payloadLength;
  return AppendRecord(cue);
}

void WebVTTCueStore::ReleaseBefore(size_t index) {
  // Shared blocks are filled in cue order and a cue with a block of its own gets a newer one,
  // so a cue in a shared block and every cue after it use that block or newer ones. Before a
  // cue with a block of its own the order is not known (a later small cue may still use the
  // older shared block), so those blocks wait for a later call.
  size_t blocks = releasedBlocks_;
  if (index >= count_) {
    blocks = blocks_.size();
  } else if (blockShared_[(*this)[index].block]) {
    blocks = (*this)[index].block;
  }
  for (; releasedBlocks_ < blocks; releasedBlocks_++) {
    blocks_[releasedBlocks_] = nullptr;
    blockBytes_[releasedBlocks_] = nullptr;
  }
  for (; releasedChunks_ < index / kRecordsPerChunk; releasedChunks_++)
    chunks_[releasedChunks_].reset();
}

void WebVTTCueStore::Clear() {
  chunks_.clear();
  count_ = 0;
  blocks_.clear();
  blockBytes_.clear();
  blockShared_.clear();
  releasedChunks_ = releasedBlocks_ = 0;
  shared_ = 0;
  sharedUsed_ = kCueTextBlockSize;
}
