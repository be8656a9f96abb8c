#include "media/core/sample_buffer.h"

#include "media/core/error_signal.h"

std::string MxSampleBuffer::CopyDebugDescription() const {
  return "<MxSampleBuffer " + std::to_string(data_ ? MxBlockBufferGetDataLength(data_.get()) : 0) +
         " bytes, pts " + MxTimeCopyDescription(outputPresentationTimeStamp_) + ", duration " +
         MxTimeCopyDescription(outputDuration_) + ">";
}

Status MxSampleBufferCreate(MxAllocator*, MxBlockBuffer* data,
                            MxFormatDescription* formatDescription,
                            MxTime outputPresentationTimeStamp, MxTime outputDuration,
                            MxSampleBufferRef* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto* sampleBuffer = new MxSampleBuffer;
  sampleBuffer->data_ = MxBlockBufferRef::Retained(data);
  sampleBuffer->formatDescription_ = MxFormatDescriptionRef::Retained(formatDescription);
  sampleBuffer->outputPresentationTimeStamp_ = outputPresentationTimeStamp;
  sampleBuffer->outputDuration_ = outputDuration;
  *out = MxSampleBufferRef::Adopt(sampleBuffer);
  return kNoErr;
}

MxBlockBuffer* MxSampleBufferGetDataBuffer(const MxSampleBuffer* sampleBuffer) {
  return sampleBuffer ? sampleBuffer->data_.get() : nullptr;
}

MxFormatDescription* MxSampleBufferGetFormatDescription(const MxSampleBuffer* sampleBuffer) {
  return sampleBuffer ? sampleBuffer->formatDescription_.get() : nullptr;
}

MxTime MxSampleBufferGetOutputPresentationTimeStamp(const MxSampleBuffer* sampleBuffer) {
  return sampleBuffer ? sampleBuffer->outputPresentationTimeStamp_ : kMxTimeInvalid;
}

MxTime MxSampleBufferGetOutputDuration(const MxSampleBuffer* sampleBuffer) {
  return sampleBuffer ? sampleBuffer->outputDuration_ : kMxTimeInvalid;
}
