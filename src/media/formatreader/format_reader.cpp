#include "media/formatreader/format_reader.h"

#include "media/core/error_signal.h"

const char* const kQorFormatReaderProperty_Duration = "Duration";
const char* const kQorFormatReaderProperty_AccurateDurationIsKnown = "AccurateDurationIsKnown";
const char* const kQorFormatReaderProperty_EstimatedDuration = "EstimatedDuration";
const char* const kQorFormatReaderProperty_TrackReferenceDictionary = "TrackReferenceDictionary";
const char* const kQorTrackProperty_LanguageCode = "TrackLanguageCode";
const char* const kQorTrackProperty_TrackName = "TrackName";
const char* const kQorTrackProperty_Enabled = "TrackEnabled";
const char* const kQorTrackProperty_ExcludeFromAutoSelection = "TrackExcludeFromAutoSelection";
const char* const kQorTrackProperty_ExtendedLanguageTagString = "ExtendedLanguageTagString";
const char* const kQorTrackProperty_FormatDescriptionArray = "TrackFormatDescriptionArray";
const char* const kQorByteStreamProperty_SuggestedFileName = "QBS_SuggestedFileName";
const char* const kQorFormatReaderOption_PreferPreciseDurationAndTiming =
    "Instantiation_PreferPreciseDurationAndTiming";

OSStatus QorSampleCursor::Step(int64_t, int64_t*) {
  return kMxErrUnimplemented;
}
OSStatus QorSampleCursor::CopySampleLocation(QorSampleLocation*) {
  return kMxErrUnimplemented;
}
OSStatus QorSampleCursor::GetOutputTiming(MxTime*, MxTime*) {
  return kMxErrUnimplemented;
}
OSStatus QorSampleCursor::CopyFormatDescription(MxFormatDescriptionRef*) {
  return kMxErrUnimplemented;
}
OSStatus QorSampleCursorService::CreateCursorAtFirstSample(QorSampleCursorRef*) {
  return kMxErrUnimplemented;
}
OSStatus QorTrackReader::GetTrackInfo(QorTrackID*, FourCharCode*) {
  return kMxErrUnimplemented;
}
OSStatus QorTrackReader::CopySampleCursorService(QorSampleCursorServiceRef*) {
  return kMxErrUnimplemented;
}
OSStatus QorSampleGenerator::CreateSampleBufferAtCursor(QorSampleCursor*, MxSampleBufferRef*) {
  return kMxErrUnimplemented;
}
OSStatus QorFormatReader::GetTrackCount(int64_t*) {
  return kMxErrUnimplemented;
}
OSStatus QorFormatReader::CopyTrackByIndex(int64_t, QorTrackReaderRef*, FourCharCode*,
                                           QorTrackID*) {
  return kMxErrUnimplemented;
}

namespace {

// Loads each sample whole from the byte stream its cursor names, into one contiguous block.
class ByteStreamSampleGenerator final : public QorSampleGenerator {
 public:
  const char* ClassName() const override { return "QorByteStreamSampleGenerator"; }

  OSStatus CreateSampleBufferAtCursor(QorSampleCursor* cursor, MxSampleBufferRef* out) override {
    QorSampleLocation location;
    OSStatus status = cursor->CopySampleLocation(&location);
    if (status != kNoErr) return status;
    MxTime pts, duration;
    status = cursor->GetOutputTiming(&pts, &duration);
    if (status != kNoErr) return status;
    MxFormatDescriptionRef description;
    status = cursor->CopyFormatDescription(&description);
    if (status != kNoErr) return status;
    if (!location.byteStream || location.offset < 0 || location.length < 0 ||
        location.length > kQorSampleGeneratorMaxSampleLength)
      return QorSignalErrorAt(kMxErrInvalidParameter);

    MxBlockBufferRef data;
    if (location.length > 0) {
      size_t bytesRead = 0;
      status = MxCreateContiguousBlockBufferFromStream(location.byteStream.get(),
                                                       static_cast<size_t>(location.length),
                                                       location.offset, &data, &bytesRead);
      if (status != kNoErr) return status;
      // A sample that the stream cannot deliver whole is not handed on cut short.
      if (bytesRead != static_cast<size_t>(location.length))
        return QorSignalErrorAt(kMxErrEndOfStream);
    } else {
      status = MxBlockBufferCreateEmpty(nullptr, 0, 0, &data);
      if (status != kNoErr) return status;
    }
    return MxSampleBufferCreate(nullptr, data.get(), description.get(), pts, duration, out);
  }
};

}  // namespace

OSStatus QorFormatReader::CreateSampleGeneratorUsingByteStreams(MxAllocator*, QorTrackReader*,
                                                                QorSampleGeneratorRef* out) {
  *out = QorSampleGeneratorRef::Adopt(new ByteStreamSampleGenerator);
  return kNoErr;
}

OSStatus QorFormatReaderGetTrackCount(QorFormatReader* reader, int64_t* count) {
  if (reader == nullptr || count == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return reader->GetTrackCount(count);
}

OSStatus QorFormatReaderCopyTrackByIndex(QorFormatReader* reader, int64_t index,
                                         QorTrackReaderRef* track, FourCharCode* mediaType,
                                         QorTrackID* trackID) {
  if (reader == nullptr || track == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  FourCharCode type = 0;
  QorTrackID id = 0;
  OSStatus status = reader->CopyTrackByIndex(index, track, &type, &id);
  if (status != kNoErr) return status;
  if (mediaType) *mediaType = type;
  if (trackID) *trackID = id;
  return kNoErr;
}

OSStatus QorTrackReaderGetTrackInfo(QorTrackReader* track, QorTrackID* trackID,
                                    FourCharCode* mediaType) {
  if (track == nullptr || trackID == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  FourCharCode type = 0;
  OSStatus status = track->GetTrackInfo(trackID, &type);
  if (status == kNoErr && mediaType) *mediaType = type;
  return status;
}

OSStatus QorTrackReaderCopySampleCursorService(QorTrackReader* track,
                                               QorSampleCursorServiceRef* out) {
  if (track == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return track->CopySampleCursorService(out);
}

OSStatus QorSampleCursorServiceCreateCursorAtFirstSample(QorSampleCursorService* service,
                                                         QorSampleCursorRef* out) {
  if (service == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return service->CreateCursorAtFirstSample(out);
}

OSStatus QorSampleCursorStep(QorSampleCursor* cursor, int64_t stepCount, int64_t* stepped) {
  if (cursor == nullptr || stepped == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return cursor->Step(stepCount, stepped);
}

OSStatus QorSampleGeneratorCreateSampleBufferAtCursor(QorSampleGenerator* generator,
                                                      QorSampleCursor* cursor,
                                                      MxSampleBufferRef* out) {
  if (generator == nullptr || cursor == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  return generator->CreateSampleBufferAtCursor(cursor, out);
}

OSStatus QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
    MxAllocator* allocator, QorFormatReader* reader, QorTrackReader* track,
    const MxDictionary* options, uint32_t flags, uint32_t reserved, QorSampleGeneratorRef* out) {
  if (reader == nullptr || track == nullptr || out == nullptr || options != nullptr || flags != 0 ||
      reserved != 0)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  return reader->CreateSampleGeneratorUsingByteStreams(allocator, track, out);
}
