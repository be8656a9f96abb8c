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
const char* const kQorTrackProperty_ContentTags = "TrackContentTags";
const char* const kQorTrackProperty_ExtendedLanguageTagString = "ExtendedLanguageTagString";
const char* const kQorTrackProperty_FormatDescriptionArray = "TrackFormatDescriptionArray";
const char* const kQorByteStreamProperty_SuggestedFileName = "QBS_SuggestedFileName";
const char* const kQorFormatReaderOption_PreferPreciseDurationAndTiming =
    "Instantiation_PreferPreciseDurationAndTiming";

Status QorSampleCursor::Step(int64_t, int64_t*) {
  return kMxErrUnimplemented;
}
Status QorSampleCursor::CopySampleLocation(QorSampleLocation*) {
  return kMxErrUnimplemented;
}
Status QorSampleCursor::GetOutputTiming(MxTime*, MxTime*) {
  return kMxErrUnimplemented;
}
Status QorSampleCursor::CopyFormatDescription(MxFormatDescriptionRef*) {
  return kMxErrUnimplemented;
}
Status QorSampleCursorService::CreateCursorAtFirstSample(QorSampleCursorRef*) {
  return kMxErrUnimplemented;
}
Status QorTrackReader::GetTrackInfo(QorTrackID*, FourCC*) {
  return kMxErrUnimplemented;
}
Status QorTrackReader::CopySampleCursorService(QorSampleCursorServiceRef*) {
  return kMxErrUnimplemented;
}
Status QorSampleGenerator::CreateSampleBufferAtCursor(QorSampleCursor*, MxSampleBufferRef*) {
  return kMxErrUnimplemented;
}
Status QorFormatReader::GetTrackCount(int64_t*) {
  return kMxErrUnimplemented;
}
Status QorFormatReader::CopyTrackByIndex(int64_t, QorTrackReaderRef*, FourCC*, QorTrackID*) {
  return kMxErrUnimplemented;
}

namespace {

// Loads each sample whole from the byte stream its cursor names, into one contiguous block.
class ByteStreamSampleGenerator final : public QorSampleGenerator {
 public:
  const char* ClassName() const override { return "QorByteStreamSampleGenerator"; }

  Status CreateSampleBufferAtCursor(QorSampleCursor* cursor, MxSampleBufferRef* out) override {
    QorSampleLocation location;
    Status status = cursor->CopySampleLocation(&location);
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

Status QorFormatReader::CreateSampleGeneratorUsingByteStreams(MxAllocator*, QorTrackReader*,
                                                              QorSampleGeneratorRef* out) {
  *out = QorSampleGeneratorRef::Adopt(new ByteStreamSampleGenerator);
  return kNoErr;
}

Status QorFormatReaderGetTrackCount(QorFormatReader* reader, int64_t* count) {
  if (reader == nullptr || count == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return reader->GetTrackCount(count);
}

Status QorFormatReaderCopyTrackByIndex(QorFormatReader* reader, int64_t index,
                                       QorTrackReaderRef* track, FourCC* mediaType,
                                       QorTrackID* trackID) {
  if (reader == nullptr || track == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  FourCC type = 0;
  QorTrackID id = 0;
  Status status = reader->CopyTrackByIndex(index, track, &type, &id);
  if (status != kNoErr) return status;
  if (mediaType) *mediaType = type;
  if (trackID) *trackID = id;
  return kNoErr;
}

Status QorTrackReaderGetTrackInfo(QorTrackReader* track, QorTrackID* trackID, FourCC* mediaType) {
  if (track == nullptr || trackID == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  FourCC type = 0;
  Status status = track->GetTrackInfo(trackID, &type);
  if (status == kNoErr && mediaType) *mediaType = type;
  return status;
}

Status QorTrackReaderCopySampleCursorService(QorTrackReader* track,
                                             QorSampleCursorServiceRef* out) {
  if (track == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return track->CopySampleCursorService(out);
}

Status QorSampleCursorServiceCreateCursorAtFirstSample(QorSampleCursorService* service,
                                                       QorSampleCursorRef* out) {
  if (service == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return service->CreateCursorAtFirstSample(out);
}

Status QorSampleCursorStep(QorSampleCursor* cursor, int64_t stepCount, int64_t* stepped) {
  if (cursor == nullptr || stepped == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return cursor->Step(stepCount, stepped);
}

Status QorSampleGeneratorCreateSampleBufferAtCursor(QorSampleGenerator* generator,
                                                    QorSampleCursor* cursor,
                                                    MxSampleBufferRef* out) {
  if (generator == nullptr || cursor == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  return generator->CreateSampleBufferAtCursor(cursor, out);
}

Status QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
    MxAllocator* allocator, QorFormatReader* reader, QorTrackReader* track,
    const MxDictionary* options, uint32_t flags, uint32_t reserved, QorSampleGeneratorRef* out) {
  if (reader == nullptr || track == nullptr || out == nullptr || options != nullptr || flags != 0 ||
      reserved != 0)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  return reader->CreateSampleGeneratorUsingByteStreams(allocator, track, out);
}
