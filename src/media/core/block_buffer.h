// MxBlockBuffer: a reference-counted logical run of bytes assembled from pieces without
// copying: memory blocks (allocated now, later, or supplied by the caller) and references into
// other block buffers. The slots form a tree: when a buffer's own slots are full, its last slot
// holds a nested buffer with one slot more, and so on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/core/object.h"

#pragma pack(push, 4)
// Caller-supplied allocation of memory blocks; a packed 28-byte record.
struct MxBlockBufferCustomBlockSource {
  uint32_t version;  // must be 0
  void* (*AllocateBlock)(void* refCon, size_t sizeInBytes);
  void (*FreeBlock)(void* refCon, void* doomedMemoryBlock, size_t sizeInBytes);
  void* refCon;
};
#pragma pack(pop)
static_assert(sizeof(MxBlockBufferCustomBlockSource) == 28);

enum : uint32_t {
  kMxBlockBufferAssureMemoryNowFlag = 1,
  kMxBlockBufferAlwaysCopyDataFlag = 2,
  kMxBlockBufferDontOptimizeDepthFlag = 4,
  kMxBlockBufferPermitEmptyReferenceFlag = 8,
};

class MxBlockBuffer final : public MxObject {
 public:
  const char* ClassName() const override { return "MxBlockBuffer"; }
  std::string CopyDebugDescription() const override;
  // Multi-line dump of the slot tree, indented by nesting depth.
  std::string CopyDebugDump(int indent = 0) const;

 private:
  // The slot tree is seen only by the block buffer functions, through this.
  friend struct MxBlockBufferTree;
  friend Status MxBlockBufferCreateEmpty(MxAllocator*, uint32_t, uint32_t, MxRef<MxBlockBuffer>*);

  enum SlotKind : uint32_t {
    kUnused = 0,
    kReference = 1,
    kAllocatorBlockPending = 2,
    kAllocatorBlock = 3,
    kCustomBlockPending = 4,
    kCustomBlock = 5,
  };
  struct Slot {
    uint32_t kind = kUnused;
    uint64_t offset = 0;      // where this slot's data starts in its block or referenced buffer
    uint64_t dataLength = 0;  // bytes this slot contributes
    void* data = nullptr;     // block memory, or the referenced MxBlockBuffer (retained)
    uint64_t blockLength = 0;
    MxAllocator* allocator = nullptr;  // retained; allocator kinds only
    std::unique_ptr<MxBlockBufferCustomBlockSource> customSource;
  };

  MxBlockBuffer() = default;
  ~MxBlockBuffer() override;

  int32_t subBlockCount = 0;  // slots in use
  int32_t slotCount = 0;      // one more than the capacity: the last slot can hold a nested buffer
  uint64_t totalDataLength = 0;
  std::unique_ptr<Slot[]> slots;
};

using MxBlockBufferRef = MxRef<MxBlockBuffer>;

void QorBlockBufferRetain(MxBlockBuffer* buffer);
void QorBlockBufferRelease(MxBlockBuffer* buffer);

Status MxBlockBufferCreateEmpty(MxAllocator* structureAllocator, uint32_t subBlockCapacity,
                                uint32_t flags, MxBlockBufferRef* out);
Status MxBlockBufferCreateWithMemoryBlock(MxAllocator* structureAllocator, void* memoryBlock,
                                          size_t blockLength, MxAllocator* blockAllocator,
                                          const MxBlockBufferCustomBlockSource* customSource,
                                          size_t offsetToData, size_t dataLength, uint32_t flags,
                                          MxBlockBufferRef* out);
Status MxBlockBufferCreateWithBufferReference(MxAllocator* structureAllocator,
                                              MxBlockBuffer* target, size_t offset,
                                              size_t dataLength, uint32_t flags,
                                              MxBlockBufferRef* out);
Status MxBlockBufferAppendMemoryBlock(MxBlockBuffer* buffer, void* memoryBlock, size_t blockLength,
                                      MxAllocator* blockAllocator,
                                      const MxBlockBufferCustomBlockSource* customSource,
                                      size_t offsetToData, size_t dataLength, uint32_t flags);
Status MxBlockBufferAppendBufferReference(MxBlockBuffer* buffer, MxBlockBuffer* target,
                                          size_t offset, size_t dataLength, uint32_t flags);
size_t MxBlockBufferGetDataLength(const MxBlockBuffer* buffer);
bool MxBlockBufferIsEmpty(const MxBlockBuffer* buffer);
Status MxBlockBufferGetDataPointer(MxBlockBuffer* buffer, size_t offset, size_t* lengthAtOffset,
                                   size_t* totalLength, char** dataPointer);
Status MxBlockBufferCopyDataBytes(MxBlockBuffer* buffer, size_t offset, size_t length,
                                  void* destination);
Status MxBlockBufferReplaceDataBytes(const void* source, MxBlockBuffer* destination, size_t offset,
                                     size_t length);
Status MxBlockBufferAssureBlockMemory(MxBlockBuffer* buffer);
Status MxBlockBufferAccessDataBytes(MxBlockBuffer* buffer, size_t offset, size_t length,
                                    void* temporaryBlock, char** returnedPointer);
Status MxBlockBufferCreateContiguous(MxAllocator* structureAllocator, MxBlockBuffer* source,
                                     MxAllocator* blockAllocator,
                                     const MxBlockBufferCustomBlockSource* customSource,
                                     size_t offset, size_t dataLength, uint32_t flags,
                                     MxBlockBufferRef* out);
bool MxBlockBufferIsRangeContiguous(MxBlockBuffer* buffer, size_t offset, size_t length);
