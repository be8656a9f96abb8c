// MxSampleBuffer: one media sample. Its data as a block buffer, its format description, and its
// output presentation time stamp and output duration. Immutable once made.
#pragma once

#include "media/core/block_buffer.h"
#include "media/core/format_description.h"
#include "media/core/mx_time.h"

class MxSampleBuffer final : public MxObject {
 public:
  const char* ClassName() const override { return "MxSampleBuffer"; }
  std::string CopyDebugDescription() const override;

 private:
  friend Status MxSampleBufferCreate(MxAllocator*, MxBlockBuffer*, MxFormatDescription*, MxTime,
                                     MxTime, MxRef<MxSampleBuffer>*);
  friend MxBlockBuffer* MxSampleBufferGetDataBuffer(const MxSampleBuffer*);
  friend MxFormatDescription* MxSampleBufferGetFormatDescription(const MxSampleBuffer*);
  friend MxTime MxSampleBufferGetOutputPresentationTimeStamp(const MxSampleBuffer*);
  friend MxTime MxSampleBufferGetOutputDuration(const MxSampleBuffer*);
  MxSampleBuffer() = default;

  MxBlockBufferRef data_;
  MxFormatDescriptionRef formatDescription_;
  MxTime outputPresentationTimeStamp_ = kMxTimeInvalid;
  MxTime outputDuration_ = kMxTimeInvalid;
};

using MxSampleBufferRef = MxRef<MxSampleBuffer>;

// The sample buffer keeps its own references to `data` and `formatDescription` (either may be
// null).
Status MxSampleBufferCreate(MxAllocator* allocator, MxBlockBuffer* data,
                            MxFormatDescription* formatDescription,
                            MxTime outputPresentationTimeStamp, MxTime outputDuration,
                            MxSampleBufferRef* out);

// Getters hand out the buffer's own objects without a new reference; a null sample buffer
// answers null or kMxTimeInvalid.
MxBlockBuffer* MxSampleBufferGetDataBuffer(const MxSampleBuffer* sampleBuffer);
MxFormatDescription* MxSampleBufferGetFormatDescription(const MxSampleBuffer* sampleBuffer);
MxTime MxSampleBufferGetOutputPresentationTimeStamp(const MxSampleBuffer* sampleBuffer);
MxTime MxSampleBufferGetOutputDuration(const MxSampleBuffer* sampleBuffer);
