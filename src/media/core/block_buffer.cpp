#include "media/core/block_buffer.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "media/core/error_signal.h"

struct MxBlockBufferTree {
  using Slot = MxBlockBuffer::Slot;
  using Kind = MxBlockBuffer::SlotKind;
  template <class B>
  static auto& Used(B* b) {
    return b->subBlockCount;
  }
  template <class B>
  static auto& SlotCount(B* b) {
    return b->slotCount;
  }
  template <class B>
  static auto& Length(B* b) {
    return b->totalDataLength;
  }
  template <class B>
  static auto* Slots(B* b) {
    return b->slots.get();
  }
  template <class B>
  static auto& SlotStorage(B* b) {
    return b->slots;
  }
};

using Slot = MxBlockBufferTree::Slot;
using Kind = MxBlockBufferTree::Kind;

namespace {
template <class B>
auto& Used(B* b) {
  return MxBlockBufferTree::Used(b);
}
template <class B>
auto& SlotCount(B* b) {
  return MxBlockBufferTree::SlotCount(b);
}
template <class B>
auto& Length(B* b) {
  return MxBlockBufferTree::Length(b);
}
template <class B>
auto* Slots(B* b) {
  return MxBlockBufferTree::Slots(b);
}
}  // namespace

namespace {

// One leaf piece of a buffer's data: `length` bytes that live in slot `slot` of `owner`,
// starting `inSlot` bytes into that slot's data and `ownerOffset` bytes into the owner's data.
struct Piece {
  MxBlockBuffer* owner;
  int32_t slot;
  uint64_t ownerOffset;
  uint64_t inSlot;
  uint64_t length;
};

constexpr Status kStopWalk =
    static_cast<Status>(1);  // a visitor's way of ending the walk early, not an error

// One level of a walk through the slot tree.
struct Frame {
  MxBlockBuffer* buffer;
  int32_t slot;
  uint64_t slotStart;  // owner offset at which the current slot's data starts
  uint64_t skip;       // bytes still to skip before the range starts
  uint64_t left;       // bytes this frame still has to produce
};

// The walk's stack: the first levels live inline, so reading a shallow buffer (every cue read
// for output) allocates nothing; deeper trees continue on the heap.
class FrameStack {
 public:
  bool empty() const { return size_ == 0; }
  Frame& back() { return size_ <= kInline ? inline_[size_ - 1] : heap_.back(); }
  void push_back(const Frame& f) {
    if (size_ < kInline) {
      inline_[size_] = f;
    } else {
      heap_.push_back(f);
    }
    size_++;
  }
  void pop_back() {
    if (size_ > kInline) heap_.pop_back();
    size_--;
  }

 private:
  static constexpr size_t kInline = 8;
  Frame inline_[kInline];
  std::vector<Frame> heap_;
  size_t size_ = 0;
};

MxBlockBuffer* ReferencedBuffer(const Slot& slot) {
  return static_cast<MxBlockBuffer*>(slot.data);
}

// Visits, in order, the leaf pieces that make up [offset, offset + length) of `buffer`,
// descending into nested and referenced buffers with an explicit stack rather than recursion,
// so that a deep tree cannot exhaust the call stack. `*delivered` receives the bytes visited,
// which is less than `length` only when the tree holds less data than it claims.
template <class Visitor>
Status ForEachPiece(MxBlockBuffer* buffer, uint64_t offset, uint64_t length, Visitor&& visit,
                    uint64_t* delivered = nullptr) {
  FrameStack stack;
  stack.push_back({buffer, 0, 0, offset, length});
  uint64_t done = 0;
  Status status = kNoErr;
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.left == 0 || f.slot >= Used(f.buffer)) {
      stack.pop_back();
      continue;
    }
    const int32_t index = f.slot;
    const Slot& s = Slots(f.buffer)[index];
    if (f.skip >= s.dataLength) {
      f.skip -= s.dataLength;
      f.slotStart += s.dataLength;
      f.slot++;
      continue;
    }
    const uint64_t inSlot = f.skip;
    const uint64_t take = std::min(s.dataLength - inSlot, f.left);
    const Piece piece{f.buffer, index, f.slotStart + inSlot, inSlot, take};
    f.left -= take;
    f.skip = 0;
    f.slotStart += s.dataLength;
    f.slot++;
    if (s.kind == Kind::kReference) {
      stack.push_back({ReferencedBuffer(s), 0, 0, s.offset + inSlot, take});  // invalidates f
      continue;
    }
    status = visit(piece);
    if (status != kNoErr) break;
    done += take;
  }
  if (delivered) *delivered = done;
  return status == kStopWalk ? kNoErr : status;
}

const Slot& SlotOf(const Piece& p) {
  return Slots(p.owner)[p.slot];
}

bool IsAllocated(const Slot& s) {
  return s.kind == Kind::kAllocatorBlock || s.kind == Kind::kCustomBlock;
}

char* PieceBytes(const Piece& p) {
  const Slot& s = SlotOf(p);
  return static_cast<char*>(s.data) + s.offset + p.inSlot;
}

// Finds room for `length` new bytes: the next free slot of the deepest buffer, creating a
// nested buffer (one slot larger than its parent) in the last slot when a buffer is full. The
// data lengths along the path grow only once the slot is secured.
Status TakeSlot(MxBlockBuffer* root, uint64_t length, Slot** out) {
  MxBlockBuffer* leaf = root;
  while (Used(leaf) >= SlotCount(leaf) - 1) {
    Slot& last = Slots(leaf)[SlotCount(leaf) - 1];
    if (last.kind == Kind::kUnused) {
      MxBlockBufferRef nested;
      Status status =
          MxBlockBufferCreateEmpty(nullptr, static_cast<uint32_t>(SlotCount(leaf)), 0, &nested);
      if (status != kNoErr) return status;
      last.kind = Kind::kReference;
      last.offset = 0;
      last.dataLength = 0;
      last.data = nested.Detach();
      Used(leaf)++;
    }
    leaf = ReferencedBuffer(last);
  }
  Slot& slot = Slots(leaf)[Used(leaf)++];
  slot.dataLength = length;
  for (MxBlockBuffer* b = root;; b = ReferencedBuffer(Slots(b)[SlotCount(b) - 1])) {
    Length(b) += length;
    if (b == leaf) break;
    Slots(b)[SlotCount(b) - 1].dataLength += length;
  }
  *out = &slot;
  return kNoErr;
}

void FreeSlot(Slot& s) {
  switch (s.kind) {
    case Kind::kReference:
      ReferencedBuffer(s)->Release();
      break;
    case Kind::kAllocatorBlock:
      s.allocator->Deallocate(s.data, s.blockLength);
      break;
    case Kind::kCustomBlock:
      if (s.customSource->FreeBlock)
        s.customSource->FreeBlock(s.customSource->refCon, s.data, s.blockLength);
      break;
    default:
      break;
  }
  if (s.allocator) s.allocator->Release();
}

// Allocates the memory of a slot whose block was appended without it.
Status AllocateSlotBlock(Slot& s) {
  void* memory = nullptr;
  if (s.kind == Kind::kCustomBlockPending) {
    memory = s.customSource->AllocateBlock(s.customSource->refCon, s.blockLength);
    if (!memory) return QorSignalErrorAt(kMxBlockBufferBlockAllocationFailed);
    s.kind = Kind::kCustomBlock;
  } else if (s.kind == Kind::kAllocatorBlockPending) {
    memory = s.allocator->Allocate(s.blockLength);
    if (!memory) return QorSignalErrorAt(kMxBlockBufferBlockAllocationFailed);
    s.kind = Kind::kAllocatorBlock;
  }
  if (memory) s.data = memory;
  return kNoErr;
}

// The checks shared by the operations that read or write an existing byte range.
Status CheckRange(const MxBlockBuffer* buffer, size_t offset, size_t length) {
  if (length == 0) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  if (Length(buffer) == 0) return QorSignalErrorAt(kMxBlockBufferEmptyBBuf);
  if (offset >= Length(buffer)) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
  if (length > Length(buffer) - offset) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  return kNoErr;
}

// Copies between the buffer's pieces and flat memory, in either direction.
Status CopyPieces(MxBlockBuffer* buffer, size_t offset, size_t length, char* flat,
                  bool intoBuffer) {
  uint64_t delivered = 0;
  uint64_t cursor = 0;
  Status status = ForEachPiece(
      buffer, offset, length,
      [&](const Piece& p) -> Status {
        if (!IsAllocated(SlotOf(p))) return QorSignalErrorAt(kMxBlockBufferUnallocatedBlock);
        if (intoBuffer) {
          memcpy(PieceBytes(p), flat + cursor, p.length);
        } else {
          memcpy(flat + cursor, PieceBytes(p), p.length);
        }
        cursor += p.length;
        return kNoErr;
      },
      &delivered);
  if (status == kNoErr && delivered < length)
    status = QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  return status;
}

}  // namespace

MxBlockBuffer::~MxBlockBuffer() {
  for (int32_t i = 0; i < subBlockCount; i++) FreeSlot(Slots(this)[i]);
}

void QorBlockBufferRetain(MxBlockBuffer* buffer) {
  if (buffer) buffer->Retain();
}

void QorBlockBufferRelease(MxBlockBuffer* buffer) {
  if (buffer) buffer->Release();
}

Status MxBlockBufferCreateEmpty(MxAllocator* structureAllocator, uint32_t subBlockCapacity,
                                uint32_t flags, MxBlockBufferRef* out) {
  (void)flags;
  if (out == nullptr) return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  *out = nullptr;
  // The null allocator cannot make anything, the structure included.
  if (structureAllocator == MxAllocatorGetNull())
    return QorSignalErrorAt(kMxBlockBufferStructureAllocationFailed);
  uint64_t slotCount = std::max<uint64_t>(uint64_t{subBlockCapacity} + 1, 2);
  if (slotCount > INT32_MAX) return QorSignalErrorAt(kMxBlockBufferStructureAllocationFailed);
  auto* buffer = new (std::nothrow) MxBlockBuffer;
  if (buffer == nullptr) return QorSignalErrorAt(kMxBlockBufferStructureAllocationFailed);
  MxBlockBufferTree::SlotStorage(buffer).reset(new (std::nothrow) Slot[slotCount]);
  if (!Slots(buffer)) {
    buffer->Release();
    return QorSignalErrorAt(kMxBlockBufferStructureAllocationFailed);
  }
  SlotCount(buffer) = static_cast<int32_t>(slotCount);
  *out = MxBlockBufferRef::Adopt(buffer);
  return kNoErr;
}

Status MxBlockBufferCreateWithMemoryBlock(MxAllocator* structureAllocator, void* memoryBlock,
                                          size_t blockLength, MxAllocator* blockAllocator,
                                          const MxBlockBufferCustomBlockSource* customSource,
                                          size_t offsetToData, size_t dataLength, uint32_t flags,
                                          MxBlockBufferRef* out) {
  MxBlockBufferRef buffer;
  Status status = MxBlockBufferCreateEmpty(structureAllocator, 0, flags, &buffer);
  if (status == kNoErr) {
    status = MxBlockBufferAppendMemoryBlock(buffer.get(), memoryBlock, blockLength, blockAllocator,
                                            customSource, offsetToData, dataLength, flags);
  }
  if (out) *out = status == kNoErr ? std::move(buffer) : nullptr;
  return status;
}

Status MxBlockBufferCreateWithBufferReference(MxAllocator* structureAllocator,
                                              MxBlockBuffer* target, size_t offset,
                                              size_t dataLength, uint32_t flags,
                                              MxBlockBufferRef* out) {
  MxBlockBufferRef buffer;
  Status status = MxBlockBufferCreateEmpty(structureAllocator, 0, flags, &buffer);
  if (status == kNoErr)
    status = MxBlockBufferAppendBufferReference(buffer.get(), target, offset, dataLength, flags);
  if (out) *out = status == kNoErr ? std::move(buffer) : nullptr;
  return status;
}

Status MxBlockBufferAppendMemoryBlock(MxBlockBuffer* buffer, void* memoryBlock, size_t blockLength,
                                      MxAllocator* blockAllocator,
                                      const MxBlockBufferCustomBlockSource* customSource,
                                      size_t offsetToData, size_t dataLength, uint32_t flags) {
  if (buffer == nullptr) return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  if (blockLength == 0 || dataLength == 0)
    return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  if (offsetToData >= blockLength) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
  if (dataLength > blockLength - offsetToData)
    return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);

  std::unique_ptr<MxBlockBufferCustomBlockSource> sourceCopy;
  MxAllocator* allocator = nullptr;
  if (customSource) {
    bool usable =
        customSource->version == 0 &&
        (memoryBlock ? customSource->FreeBlock != nullptr : customSource->AllocateBlock != nullptr);
    if (!usable) return QorSignalErrorAt(kMxBlockBufferBadCustomBlockSource);
    sourceCopy.reset(new (std::nothrow) MxBlockBufferCustomBlockSource(*customSource));
    if (!sourceCopy) return QorSignalErrorAt(kMxBlockBufferStructureAllocationFailed);
  } else {
    allocator = MxAllocatorResolve(blockAllocator);
    if (!memoryBlock && allocator == MxAllocatorGetNull())
      return QorSignalErrorAt(kMxBlockBufferBlockAllocationFailed);
  }

  void* allocatedNow = nullptr;
  if (!memoryBlock && (flags & kMxBlockBufferAssureMemoryNowFlag)) {
    allocatedNow = sourceCopy ? sourceCopy->AllocateBlock(sourceCopy->refCon, blockLength)
                              : allocator->Allocate(blockLength);
    if (!allocatedNow) return QorSignalErrorAt(kMxBlockBufferBlockAllocationFailed);
    memoryBlock = allocatedNow;
  }

  Slot* slot = nullptr;
  Status status = TakeSlot(buffer, dataLength, &slot);
  if (status != kNoErr) {
    if (allocatedNow) {
      if (sourceCopy) {
        sourceCopy->FreeBlock(sourceCopy->refCon, allocatedNow, blockLength);
      } else {
        allocator->Deallocate(allocatedNow, blockLength);
      }
    }
    return status;
  }
  if (sourceCopy) {
    slot->kind = memoryBlock ? Kind::kCustomBlock : Kind::kCustomBlockPending;
    slot->customSource = std::move(sourceCopy);
  } else {
    slot->kind = memoryBlock ? Kind::kAllocatorBlock : Kind::kAllocatorBlockPending;
    allocator->Retain();
    slot->allocator = allocator;
  }
  slot->offset = offsetToData;
  slot->data = memoryBlock;
  slot->blockLength = blockLength;
  return kNoErr;
}

Status MxBlockBufferAppendBufferReference(MxBlockBuffer* buffer, MxBlockBuffer* target,
                                          size_t offset, size_t dataLength, uint32_t flags) {
  // A buffer referencing itself would make a cycle that is never freed.
  if (buffer == nullptr || target == nullptr || buffer == target)
    return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  const uint64_t targetLength = Length(target);
  bool withinTarget = false;
  if (targetLength != 0) {
    if (offset >= targetLength) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
    if (dataLength > targetLength - offset)
      return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
    if (dataLength == 0) dataLength = targetLength - offset;
    withinTarget = true;
  } else if (!(flags & kMxBlockBufferPermitEmptyReferenceFlag)) {
    return QorSignalErrorAt(kMxBlockBufferEmptyBBuf);
  }
  if (dataLength == 0) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);

  auto appendReference = [buffer](MxBlockBuffer* to, uint64_t at, uint64_t length) -> Status {
    Slot* slot = nullptr;
    Status status = TakeSlot(buffer, length, &slot);
    if (status != kNoErr) return status;
    to->Retain();
    slot->kind = Kind::kReference;
    slot->offset = at;
    slot->data = to;
    return kNoErr;
  };
  if (withinTarget && !(flags & kMxBlockBufferDontOptimizeDepthFlag)) {
    // Flatten: reference the buffers that hold the memory directly, so that reading never has
    // to go through chains of references.
    return ForEachPiece(target, offset, dataLength, [&](const Piece& p) {
      return appendReference(p.owner, p.ownerOffset, p.length);
    });
  }
  return appendReference(target, offset, dataLength);
}

size_t MxBlockBufferGetDataLength(const MxBlockBuffer* buffer) {
  return buffer ? Length(buffer) : 0;
}

bool MxBlockBufferIsEmpty(const MxBlockBuffer* buffer) {
  return buffer == nullptr || Used(buffer) == 0;
}

Status MxBlockBufferGetDataPointer(MxBlockBuffer* buffer, size_t offset, size_t* lengthAtOffset,
                                   size_t* totalLength, char** dataPointer) {
  if (buffer == nullptr) return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  if (offset >= Length(buffer)) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
  Piece first{};
  bool found = false;
  Status status =
      ForEachPiece(buffer, offset, Length(buffer) - offset, [&](const Piece& p) -> Status {
        first = p;
        found = true;
        return kStopWalk;
      });
  if (status != kNoErr) return status;
  if (!found) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
  if (!IsAllocated(SlotOf(first))) return QorSignalErrorAt(kMxBlockBufferUnallocatedBlock);
  if (lengthAtOffset) *lengthAtOffset = first.length;
  if (totalLength) *totalLength = Length(buffer);
  if (dataPointer) *dataPointer = PieceBytes(first);
  return kNoErr;
}

Status MxBlockBufferCopyDataBytes(MxBlockBuffer* buffer, size_t offset, size_t length,
                                  void* destination) {
  if (buffer == nullptr || destination == nullptr)
    return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  Status status = CheckRange(buffer, offset, length);
  if (status != kNoErr) return status;
  return CopyPieces(buffer, offset, length, static_cast<char*>(destination), false);
}

Status MxBlockBufferReplaceDataBytes(const void* source, MxBlockBuffer* destination, size_t offset,
                                     size_t length) {
  if (source == nullptr || destination == nullptr)
    return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  Status status = CheckRange(destination, offset, length);
  if (status != kNoErr) return status;
  char* bytes = const_cast<char*>(static_cast<const char*>(source));
  status = CopyPieces(destination, offset, length, bytes, true);
  if (status == kMxBlockBufferUnallocatedBlock) {
    status = MxBlockBufferAssureBlockMemory(destination);
    if (status == kNoErr) status = CopyPieces(destination, offset, length, bytes, true);
  }
  return status;
}

Status MxBlockBufferAssureBlockMemory(MxBlockBuffer* buffer) {
  if (buffer == nullptr) return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  if (Used(buffer) == 0) return QorSignalErrorAt(kMxBlockBufferEmptyBBuf);
  std::vector<MxBlockBuffer*> pending{buffer};
  while (!pending.empty()) {
    MxBlockBuffer* b = pending.back();
    pending.pop_back();
    for (int32_t i = 0; i < Used(b); i++) {
      Slot& s = Slots(b)[i];
      if (s.kind == Kind::kReference) {
        pending.push_back(ReferencedBuffer(s));
      } else {
        Status status = AllocateSlotBlock(s);
        if (status != kNoErr) return status;
      }
    }
  }
  return kNoErr;
}

Status MxBlockBufferAccessDataBytes(MxBlockBuffer* buffer, size_t offset, size_t length,
                                    void* temporaryBlock, char** returnedPointer) {
  if (buffer == nullptr || temporaryBlock == nullptr || returnedPointer == nullptr)
    return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  *returnedPointer = nullptr;
  if (length == 0) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  size_t here = 0;
  char* pointer = nullptr;
  Status status = MxBlockBufferGetDataPointer(buffer, offset, &here, nullptr, &pointer);
  if (status != kNoErr) return status;
  if (here >= length) {
    *returnedPointer = pointer;
    return kNoErr;
  }
  if (length > Length(buffer) - offset) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  status = CopyPieces(buffer, offset, length, static_cast<char*>(temporaryBlock), false);
  if (status == kNoErr) *returnedPointer = static_cast<char*>(temporaryBlock);
  return status;
}

Status MxBlockBufferCreateContiguous(MxAllocator* structureAllocator, MxBlockBuffer* source,
                                     MxAllocator* blockAllocator,
                                     const MxBlockBufferCustomBlockSource* customSource,
                                     size_t offset, size_t dataLength, uint32_t flags,
                                     MxBlockBufferRef* out) {
  if (source == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxBlockBufferBadPointerParameter);
  *out = nullptr;
  const uint64_t total = Length(source);
  if (total == 0) return QorSignalErrorAt(kMxBlockBufferEmptyBBuf);
  if (offset >= total) return QorSignalErrorAt(kMxBlockBufferBadOffsetParameter);
  if (dataLength > total - offset) return QorSignalErrorAt(kMxBlockBufferBadLengthParameter);
  if (dataLength == 0) dataLength = total - offset;

  if (!(flags & kMxBlockBufferAlwaysCopyDataFlag) &&
      MxBlockBufferIsRangeContiguous(source, offset, dataLength)) {
    return MxBlockBufferCreateWithBufferReference(structureAllocator, source, offset, dataLength,
                                                  flags, out);
  }
  MxBlockBufferRef copy;
  Status status = MxBlockBufferCreateWithMemoryBlock(
      structureAllocator, nullptr, dataLength, blockAllocator, customSource, 0, dataLength,
      flags | kMxBlockBufferAssureMemoryNowFlag, &copy);
  if (status != kNoErr) return status;
  char* bytes = nullptr;
  status = MxBlockBufferGetDataPointer(copy.get(), 0, nullptr, nullptr, &bytes);
  if (status == kNoErr) status = CopyPieces(source, offset, dataLength, bytes, false);
  if (status == kNoErr) *out = std::move(copy);
  return status;
}

bool MxBlockBufferIsRangeContiguous(MxBlockBuffer* buffer, size_t offset, size_t length) {
  if (buffer == nullptr) {
    // The answer to a missing buffer is "not contiguous"; the signal only counts the error.
    static_cast<void>(QorSignalErrorAt(kMxBlockBufferBadPointerParameter));
    return false;
  }
  const uint64_t total = Length(buffer);
  if (offset >= total || length > total - offset) return false;
  if (length == 0) length = total - offset;
  size_t here = 0;
  if (MxBlockBufferGetDataPointer(buffer, offset, &here, nullptr, nullptr) != kNoErr) return false;
  return here >= length;
}

std::string MxBlockBuffer::CopyDebugDescription() const {
  char text[48];
  snprintf(text, sizeof text, "[MxBlockBuffer %p]", static_cast<const void*>(this));
  return text;
}

std::string MxBlockBuffer::CopyDebugDump(int indent) const {
  // Nesting deeper than this is summarised rather than followed.
  constexpr int kMaxDumpDepth = 32;
  char line[256];
  snprintf(line, sizeof line,
           "%*sMxBlockBuffer %p totalDataLength: %ld retainCount: %ld allocator: %p "
           "subBlockCapacity: %d\n",
           indent, "", static_cast<const void*>(this), static_cast<long>(totalDataLength),
           RetainCount(), static_cast<const void*>(MxAllocatorGetDefault()), slotCount - 1);
  std::string out = line;
  for (int32_t i = 0; i < slotCount; i++) {
    const Slot& s = Slots(this)[i];
    snprintf(line, sizeof line, "%*s", indent + 2, "");
    out += line;
    if (s.kind == kUnused) {
      out += "UNUSED!!!\n";
      continue;
    }
    snprintf(line, sizeof line, "%ld bytes @ offset %ld ", static_cast<long>(s.dataLength),
             static_cast<long>(s.offset));
    out += line;
    if (s.kind == kReference) {
      out += "reference\n";
      if (indent / 2 < kMaxDumpDepth) {
        out += ReferencedBuffer(s)->CopyDebugDump(indent + 4);
      } else {
        out += "...\n";
      }
    } else {
      snprintf(line, sizeof line, "block %p length %ld kind %u\n", s.data,
               static_cast<long>(s.blockLength), s.kind);
      out += line;
    }
  }
  return out;
}
