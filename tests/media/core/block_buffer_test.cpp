#include "media/core/block_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// A buffer over caller-owned text (the null allocator never frees it).
MxBlockBufferRef Wrap(const std::string& text) {
  MxBlockBufferRef b;
  EXPECT_EQ(
      MxBlockBufferCreateWithMemoryBlock(nullptr, const_cast<char*>(text.data()), text.size(),
                                         MxAllocatorGetNull(), nullptr, 0, text.size(), 0, &b),
      kNoErr);
  return b;
}

std::string Contents(MxBlockBuffer* b) {
  std::string text(MxBlockBufferGetDataLength(b), '\0');
  if (!text.empty()) {
    EXPECT_EQ(MxBlockBufferCopyDataBytes(b, 0, text.size(), text.data()), kNoErr);
  }
  return text;
}

TEST(BlockBuffer, AppendValidation) {
  MxBlockBufferRef b;
  ASSERT_EQ(MxBlockBufferCreateEmpty(nullptr, 4, 0, &b), kNoErr);
  char block[10];
  MxAllocator* null = MxAllocatorGetNull();
  struct Case {
    void* memory;
    size_t blockLength, offset, length;
    MxAllocator* allocator;
    Status expected;
  } cases[] = {
      {block, 10, 10, 10, null, kMxBlockBufferBadOffsetParameter},
      {block, 10, 6, 5, null, kMxBlockBufferBadLengthParameter},
      {block, 0, 0, 1, null, kMxBlockBufferBadLengthParameter},
      {block, 10, 0, 0, null, kMxBlockBufferBadLengthParameter},
      {nullptr, 10, 0, 10, null, kMxBlockBufferBlockAllocationFailed},
      {block, 10, 2, 8, null, kNoErr},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MxBlockBufferAppendMemoryBlock(b.get(), c.memory, c.blockLength, c.allocator, nullptr,
                                             c.offset, c.length, 0),
              c.expected);
  }
  EXPECT_EQ(MxBlockBufferAppendMemoryBlock(nullptr, block, 10, null, nullptr, 0, 1, 0), -12705);
  MxBlockBufferCustomBlockSource badVersion{1, nullptr, nullptr, nullptr};
  EXPECT_EQ(MxBlockBufferAppendMemoryBlock(b.get(), block, 10, nullptr, &badVersion, 0, 1, 0),
            -12702);
  MxBlockBufferCustomBlockSource noFree{0, nullptr, nullptr, nullptr};
  EXPECT_EQ(MxBlockBufferAppendMemoryBlock(b.get(), block, 10, nullptr, &noFree, 0, 1, 0), -12702);
  MxBlockBufferRef none;
  EXPECT_EQ(MxBlockBufferCreateEmpty(MxAllocatorGetNull(), 0, 0, &none), -12700);
  EXPECT_EQ(MxBlockBufferCreateEmpty(nullptr, 0, 0, nullptr), -12705);
}

struct CountingSource {
  int allocations = 0, frees = 0;
  static void* Allocate(void* refCon, size_t size) {
    static_cast<CountingSource*>(refCon)->allocations++;
    return malloc(size);
  }
  static void Free(void* refCon, void* block, size_t) {
    static_cast<CountingSource*>(refCon)->frees++;
    free(block);
  }
};

TEST(BlockBuffer, UnallocatedBlocksUntilAssured) {
  CountingSource counts;
  MxBlockBufferCustomBlockSource source{0, CountingSource::Allocate, CountingSource::Free, &counts};
  {
    MxBlockBufferRef b;
    ASSERT_EQ(
        MxBlockBufferCreateWithMemoryBlock(nullptr, nullptr, 8, nullptr, &source, 0, 8, 0, &b),
        kNoErr);
    EXPECT_EQ(counts.allocations, 0);
    char* p = nullptr;
    EXPECT_EQ(MxBlockBufferGetDataPointer(b.get(), 0, nullptr, nullptr, &p), -12707);
    // Replacing bytes allocates by itself.
    ASSERT_EQ(MxBlockBufferReplaceDataBytes("abcdefgh", b.get(), 0, 8), kNoErr);
    EXPECT_EQ(counts.allocations, 1);
    EXPECT_EQ(Contents(b.get()), "abcdefgh");

    MxBlockBufferRef lazy;
    ASSERT_EQ(
        MxBlockBufferCreateWithMemoryBlock(nullptr, nullptr, 4, nullptr, nullptr, 0, 4, 0, &lazy),
        kNoErr);
    EXPECT_EQ(MxBlockBufferGetDataPointer(lazy.get(), 0, nullptr, nullptr, &p), -12707);
    ASSERT_EQ(MxBlockBufferAssureBlockMemory(lazy.get()), kNoErr);
    EXPECT_EQ(MxBlockBufferGetDataPointer(lazy.get(), 0, nullptr, nullptr, &p), kNoErr);
  }
  EXPECT_EQ(counts.frees, 1);
}

TEST(BlockBuffer, ReferencesAreFlattenedAndKeepTargetsAlive) {
  std::string left = "0123456789", right = "abcdefghij";
  MxBlockBufferRef joined;
  ASSERT_EQ(MxBlockBufferCreateEmpty(nullptr, 0, 0, &joined), kNoErr);
  {
    MxBlockBufferRef a = Wrap(left), b = Wrap(right);
    ASSERT_EQ(MxBlockBufferAppendBufferReference(joined.get(), a.get(), 0, 0, 0), kNoErr);
    ASSERT_EQ(MxBlockBufferAppendBufferReference(joined.get(), b.get(), 5, 3, 0), kNoErr);
  }
  EXPECT_EQ(Contents(joined.get()), "0123456789fgh");

  // A reference into the joined buffer is flattened to its pieces.
  MxBlockBufferRef view;
  ASSERT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, joined.get(), 8, 4, 0, &view), kNoErr);
  EXPECT_EQ(Contents(view.get()), "89fg");
  // With the depth flag one reference to the target is kept instead; the bytes are the same.
  MxBlockBufferRef deep;
  ASSERT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, joined.get(), 8, 4, 4, &deep), kNoErr);
  EXPECT_EQ(Contents(deep.get()), "89fg");

  MxBlockBufferRef empty, ref;
  ASSERT_EQ(MxBlockBufferCreateEmpty(nullptr, 0, 0, &empty), kNoErr);
  EXPECT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, empty.get(), 0, 0, 0, &ref), -12706);
  EXPECT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, empty.get(), 0, 4, 8, &ref), kNoErr);
  EXPECT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, joined.get(), 13, 0, 0, &ref), -12703);
  EXPECT_EQ(MxBlockBufferCreateWithBufferReference(nullptr, joined.get(), 10, 4, 0, &ref), -12704);
}

TEST(BlockBuffer, PiecesBeyondCapacityCopyAccessAndContiguous) {
  // No room for a second piece: it goes into a nested buffer.
  std::string one = "abc", two = "defgh";
  MxBlockBufferRef b;
  ASSERT_EQ(MxBlockBufferCreateEmpty(nullptr, 0, 0, &b), kNoErr);
  EXPECT_TRUE(MxBlockBufferIsEmpty(b.get()));
  for (std::string* s : {&one, &two})
    ASSERT_EQ(MxBlockBufferAppendMemoryBlock(b.get(), s->data(), s->size(), MxAllocatorGetNull(),
                                             nullptr, 0, s->size(), 0),
              kNoErr);
  EXPECT_EQ(Contents(b.get()), "abcdefgh");
  size_t here = 0, total = 0;
  char* p = nullptr;
  ASSERT_EQ(MxBlockBufferGetDataPointer(b.get(), 4, &here, &total, &p), kNoErr);
  EXPECT_EQ(std::string(p, here), "efgh");
  EXPECT_EQ(total, 8u);
  EXPECT_EQ(MxBlockBufferGetDataPointer(b.get(), 8, &here, &total, &p), -12703);
  EXPECT_FALSE(MxBlockBufferIsRangeContiguous(b.get(), 2, 2));
  EXPECT_TRUE(MxBlockBufferIsRangeContiguous(b.get(), 3, 5));
  char out[8];
  EXPECT_EQ(MxBlockBufferCopyDataBytes(b.get(), 0, 0, out), -12704);
  EXPECT_EQ(MxBlockBufferCopyDataBytes(b.get(), 8, 1, out), -12703);
  EXPECT_EQ(MxBlockBufferCopyDataBytes(b.get(), 6, 3, out), -12704);
  EXPECT_EQ(MxBlockBufferCopyDataBytes(b.get(), 0, 1, nullptr), -12705);

  char temp[8];
  ASSERT_EQ(MxBlockBufferAccessDataBytes(b.get(), 1, 2, temp, &p), kNoErr);
  EXPECT_EQ(p, one.data() + 1);  // within one piece: no copy
  ASSERT_EQ(MxBlockBufferAccessDataBytes(b.get(), 1, 4, temp, &p), kNoErr);
  EXPECT_EQ(p, temp);
  EXPECT_EQ(std::string(p, 4), "bcde");
  EXPECT_EQ(MxBlockBufferAccessDataBytes(b.get(), 6, 4, temp, &p), -12704);
  EXPECT_EQ(p, nullptr);

  MxBlockBufferRef flat;
  ASSERT_EQ(MxBlockBufferCreateContiguous(nullptr, b.get(), nullptr, nullptr, 1, 0, 0, &flat),
            kNoErr);
  EXPECT_EQ(Contents(flat.get()), "bcdefgh");
  EXPECT_TRUE(MxBlockBufferIsRangeContiguous(flat.get(), 0, 0));
  // Already contiguous: a reference, no copy.
  MxBlockBufferRef same;
  ASSERT_EQ(MxBlockBufferCreateContiguous(nullptr, b.get(), nullptr, nullptr, 3, 5, 0, &same),
            kNoErr);
  ASSERT_EQ(MxBlockBufferGetDataPointer(same.get(), 0, nullptr, nullptr, &p), kNoErr);
  EXPECT_EQ(p, two.data());
  // Flag 2 copies anyway.
  ASSERT_EQ(MxBlockBufferCreateContiguous(nullptr, b.get(), nullptr, nullptr, 3, 5, 2, &same),
            kNoErr);
  ASSERT_EQ(MxBlockBufferGetDataPointer(same.get(), 0, nullptr, nullptr, &p), kNoErr);
  EXPECT_NE(p, two.data());
  EXPECT_EQ(std::string(p, 5), "defgh");
}

TEST(BlockBuffer, ManyAppendsBuildADeepTreeThatStillReadsBack) {
  // Deep nesting must neither recurse without bound nor lose bytes.
  MxBlockBufferRef b;
  ASSERT_EQ(MxBlockBufferCreateEmpty(nullptr, 0, 0, &b), kNoErr);
  std::string expected;
  static char letters[26];
  for (int i = 0; i < 26; i++) letters[i] = static_cast<char>('a' + i);
  for (int i = 0; i < 20000; i++) {
    ASSERT_EQ(MxBlockBufferAppendMemoryBlock(b.get(), letters, 26, MxAllocatorGetNull(), nullptr,
                                             static_cast<size_t>(i % 26), 1, 0),
              kNoErr);
    expected += letters[i % 26];
  }
  EXPECT_EQ(Contents(b.get()), expected);
  MxBlockBufferRef flat;
  ASSERT_EQ(MxBlockBufferCreateContiguous(nullptr, b.get(), nullptr, nullptr, 0, 0, 0, &flat),
            kNoErr);
  EXPECT_EQ(Contents(flat.get()), expected);
  EXPECT_NE(b->CopyDebugDump().find("MxBlockBuffer "), std::string::npos);
}

}  // namespace
