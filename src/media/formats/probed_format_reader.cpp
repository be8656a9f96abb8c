#include "media/formats/probed_format_reader.h"

#include <new>

#include "media/core/error_signal.h"

namespace {

class QorProbedTrackReader final : public QorTrackReader {
 public:
  explicit QorProbedTrackReader(ProbedTrack track) : track_(track) {}
  const char* ClassName() const override { return "QorProbedTrackReader"; }

  Status GetTrackInfo(QorTrackID* trackID, FourCC* mediaType) override {
    if (trackID) *trackID = static_cast<QorTrackID>(track_.trackID);
    if (mediaType) *mediaType = track_.mediaType;
    return kNoErr;
  }

  Status CopyProperty(const std::string& key, MxValue* out) override {
    if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    if (key == kQorTrackProperty_Enabled) {
      *out = MxValue(true);
      return kNoErr;
    }
    return kMxErrPropertyNotSupported;
  }

 private:
  ProbedTrack track_;
};

class QorProbedFormatReader final : public QorFormatReader {
 public:
  QorProbedFormatReader(ContainerProbe probe, const char* className)
      : probe_(std::move(probe)), className_(className) {}
  const char* ClassName() const override { return className_; }

  Status GetTrackCount(int64_t* count) override {
    if (count == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    *count = static_cast<int64_t>(probe_.tracks.size());
    return kNoErr;
  }

  Status CopyTrackByIndex(int64_t index, QorTrackReaderRef* track, FourCC* mediaType,
                          QorTrackID* trackID) override {
    if (index < 0 || static_cast<uint64_t>(index) >= probe_.tracks.size())
      return QorSignalErrorAt(kMxErrInvalidParameter);
    const ProbedTrack& probed = probe_.tracks[static_cast<size_t>(index)];
    if (track) {
      auto* reader = new (std::nothrow) QorProbedTrackReader(probed);
      if (reader == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
      *track = QorTrackReaderRef::Adopt(reader);
    }
    if (mediaType) *mediaType = probed.mediaType;
    if (trackID) *trackID = static_cast<QorTrackID>(probed.trackID);
    return kNoErr;
  }

  // An exact duration answers "Duration" and "EstimatedDuration"; an estimate only the latter.
  // These containers have no track references: the dictionary is empty.
  Status CopyProperty(const std::string& key, MxValue* out) override {
    if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    if (key == kQorFormatReaderProperty_TrackReferenceDictionary) {
      *out = MxValue(MxDictionary{});
      return kNoErr;
    }
    const bool known = MxTimeIsNumeric(probe_.duration);
    if (key == kQorFormatReaderProperty_AccurateDurationIsKnown) {
      *out = MxValue(known && probe_.durationIsExact);
      return kNoErr;
    }
    if (key == kQorFormatReaderProperty_Duration) {
      if (!known || !probe_.durationIsExact) return kMxErrPropertyNotAvailable;
      *out = MxValue(MxTimeCopyAsDictionary(probe_.duration));
      return kNoErr;
    }
    if (key == kQorFormatReaderProperty_EstimatedDuration) {
      if (!known) return kMxErrPropertyNotAvailable;
      *out = MxValue(MxTimeCopyAsDictionary(probe_.duration));
      return kNoErr;
    }
    return kMxErrPropertyNotSupported;
  }

 private:
  ContainerProbe probe_;
  const char* className_;
};

}  // namespace

Status QorProbedFormatReaderCreate(MxByteStream* byteStream, ContainerProbeFunction probe,
                                   const char* className, QorFormatReaderRef* out) {
  if (byteStream == nullptr || probe == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  ProbeReader reader = ProbeReader::ForMemory(nullptr, 0);
  Status status = ProbeReader::ForByteStream(byteStream, &reader);
  if (status != kNoErr) return status;
  ContainerProbe result;
  status = probe(reader, &result);
  if (status != kNoErr) return status;
  auto* formatReader = new (std::nothrow) QorProbedFormatReader(std::move(result), className);
  if (formatReader == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = QorFormatReaderRef::Adopt(formatReader);
  return kNoErr;
}
