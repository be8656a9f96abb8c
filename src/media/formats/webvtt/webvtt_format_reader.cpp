// The format reader for WebVTT streams: one 'text' track whose samples are the cues, in source
// order. The whole stream is parsed once, when the reader is made, by the WebVTT source parser;
// each cue then becomes one sample whose data is its payload (a reference into the parser's
// text block, never a copy), whose output presentation time stamp is the cue's start and whose
// output duration is its end minus its start, in milliseconds.
#include <cmath>
#include <memory>
#include <new>
#include <vector>

#include "media/core/error_signal.h"
#include "media/formatreader/text_format_description.h"
#include "media/formats/reader_table.h"
#include "media/formats/webvtt/webvtt_parser.h"

namespace {

constexpr QorTrackID kCueTrackID = 1;
constexpr FourCC kTextMediaType = MxFourCC("text");
constexpr int32_t kMillisecondTimescale = 1000;
// Bytes looked at for the signature: a byte-order mark, "WEBVTT" and the white space after it.
constexpr size_t kSignatureProbeSize = 16;
// Cue times at or above 2^53 ms (about 285,000 years) are refused: below it every millisecond
// count is exact as a double, and sums of two of them stay far from the 64-bit limit.
constexpr double kMaxCueMilliseconds = 9007199254740992.0;

// The sample description of every cue: a "wvtt" sample entry whose "vttC" box holds the
// stream's signature line.
constexpr uint8_t kCueSampleEntry[] = {
    0,   0,   0,   30,  'w', 'v', 't', 't',  // entry size and type
    0,   0,   0,   0,   0,   0,   0,   1,    // reserved, data reference index 1
    0,   0,   0,   14,  'v', 'v', 't', 'C',  // configuration box
    'W', 'E', 'B', 'V', 'T', 'T',
};
static_assert(sizeof kCueSampleEntry == 30);

struct CueSample {
  int64_t start = 0;  // milliseconds
  int64_t end = 0;
  MxBlockBufferRef text;  // the parser's block holding the cue
  size_t payloadOffset = 0;
  size_t payloadLength = 0;
};

// Whole milliseconds from a cue time in seconds, or false when the time is out of range.
bool ToMilliseconds(double seconds, int64_t* out) {
  const double ms = std::round(seconds * 1000);
  if (!(ms >= 0 && ms < kMaxCueMilliseconds)) return false;  // also refuses NaN and infinity
  *out = static_cast<int64_t>(ms);
  return true;
}

class WebVTTFormatReader final : public QorFormatReader {
 public:
  const char* ClassName() const override { return "QorWebVTTFormatReader"; }

  Status Open(MxByteStream* stream);

  Status GetTrackCount(int64_t* count) override {
    if (count == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    *count = 1;
    return kNoErr;
  }
  Status CopyTrackByIndex(int64_t index, QorTrackReaderRef* track, FourCC* mediaType,
                          QorTrackID* trackID) override;
  Status CopyProperty(const std::string& key, MxValue* out) override;
  Status CreateSampleGeneratorUsingByteStreams(MxAllocator* allocator, QorTrackReader* track,
                                               QorSampleGeneratorRef* out) override;

  const std::vector<CueSample>& Cues() const { return cues_; }
  MxFormatDescription* Description() const { return description_.get(); }

 private:
  std::vector<CueSample> cues_;
  MxFormatDescriptionRef description_;
  int64_t duration_ = 0;  // milliseconds: the latest cue end
};

class WebVTTTrackReader final : public QorTrackReader {
 public:
  explicit WebVTTTrackReader(MxRef<WebVTTFormatReader> reader) : reader_(std::move(reader)) {}
  const char* ClassName() const override { return "QorWebVTTTrackReader"; }

  Status GetTrackInfo(QorTrackID* trackID, FourCC* mediaType) override {
    if (trackID) *trackID = kCueTrackID;
    if (mediaType) *mediaType = kTextMediaType;
    return kNoErr;
  }
  Status CopySampleCursorService(QorSampleCursorServiceRef* out) override;

  Status CopyProperty(const std::string& key, MxValue* out) override {
    if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    if (key == kQorTrackProperty_Enabled) {
      *out = MxValue(true);
    } else if (key == kQorTrackProperty_FormatDescriptionArray) {
      *out = MxValue(MxArray{MxValue::Retaining(reader_->Description())});
    } else {
      return kMxErrPropertyNotSupported;
    }
    return kNoErr;
  }

 private:
  MxRef<WebVTTFormatReader> reader_;
};

// A position in the reader's cue list; stepping is index arithmetic.
class WebVTTSampleCursor final : public QorSampleCursor {
 public:
  WebVTTSampleCursor(MxRef<WebVTTFormatReader> reader, size_t index)
      : reader_(std::move(reader)), index_(index) {}
  const char* ClassName() const override { return "QorWebVTTSampleCursor"; }

  Status Step(int64_t stepCount, int64_t* stepped) override {
    if (stepped == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    const int64_t index = static_cast<int64_t>(index_);
    const int64_t last = static_cast<int64_t>(reader_->Cues().size()) - 1;
    const int64_t moved =
        stepCount > 0 ? std::min(stepCount, last - index) : std::max(stepCount, -index);
    index_ = static_cast<size_t>(index + moved);
    *stepped = moved;
    return kNoErr;
  }

  Status GetOutputTiming(MxTime* presentationTimeStamp, MxTime* duration) override {
    const CueSample& cue = Cue();
    if (presentationTimeStamp)
      *presentationTimeStamp = MxTimeMake(cue.start, kMillisecondTimescale);
    // A cue that ends before it starts keeps its times: its duration is negative.
    if (duration) *duration = MxTimeMake(cue.end - cue.start, kMillisecondTimescale);
    return kNoErr;
  }

  Status CopyFormatDescription(MxFormatDescriptionRef* out) override {
    if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    *out = MxFormatDescriptionRef::Retained(reader_->Description());
    return kNoErr;
  }

  const CueSample& Cue() const { return reader_->Cues()[index_]; }
  const WebVTTFormatReader* Reader() const { return reader_.get(); }

 private:
  MxRef<WebVTTFormatReader> reader_;
  size_t index_;
};

class WebVTTSampleCursorService final : public QorSampleCursorService {
 public:
  explicit WebVTTSampleCursorService(MxRef<WebVTTFormatReader> reader)
      : reader_(std::move(reader)) {}
  const char* ClassName() const override { return "QorWebVTTSampleCursorService"; }

  Status CreateCursorAtFirstSample(QorSampleCursorRef* out) override {
    if (reader_->Cues().empty()) return kMxErrEndOfTrack;  // no cue, no first sample
    auto* cursor = new (std::nothrow) WebVTTSampleCursor(reader_, 0);
    if (cursor == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
    *out = QorSampleCursorRef::Adopt(cursor);
    return kNoErr;
  }

 private:
  MxRef<WebVTTFormatReader> reader_;
};

// Hands out the cue under a cursor of the same reader: its payload by reference into the
// parser's text block, so loading a sample copies no text.
class WebVTTSampleGenerator final : public QorSampleGenerator {
 public:
  WebVTTSampleGenerator(MxRef<WebVTTFormatReader> reader, MxAllocator* allocator)
      : reader_(std::move(reader)), allocator_(allocator) {}
  const char* ClassName() const override { return "QorWebVTTSampleGenerator"; }

  Status CreateSampleBufferAtCursor(QorSampleCursor* cursor, MxSampleBufferRef* out) override {
    auto* cueCursor = dynamic_cast<WebVTTSampleCursor*>(cursor);
    if (cueCursor == nullptr || cueCursor->Reader() != reader_.get())
      return QorSignalErrorAt(kMxErrInvalidParameter);
    const CueSample& cue = cueCursor->Cue();
    MxBlockBufferRef data;
    Status status = MxBlockBufferCreateWithBufferReference(
        allocator_, cue.text.get(), cue.payloadOffset, cue.payloadLength, 0, &data);
    if (status != kNoErr) return status;
    MxTime pts, duration;
    status = cueCursor->GetOutputTiming(&pts, &duration);
    if (status != kNoErr) return status;
    return MxSampleBufferCreate(allocator_, data.get(), reader_->Description(), pts, duration, out);
  }

 private:
  MxRef<WebVTTFormatReader> reader_;
  MxAllocator* allocator_;
};

Status WebVTTTrackReader::CopySampleCursorService(QorSampleCursorServiceRef* out) {
  auto* service = new (std::nothrow) WebVTTSampleCursorService(reader_);
  if (service == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = QorSampleCursorServiceRef::Adopt(service);
  return kNoErr;
}

Status WebVTTFormatReader::CopyTrackByIndex(int64_t index, QorTrackReaderRef* track,
                                            FourCC* mediaType, QorTrackID* trackID) {
  if (index != 0) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (track) {
    auto* reader = new (std::nothrow) WebVTTTrackReader(MxRef<WebVTTFormatReader>::Retained(this));
    if (reader == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
    *track = QorTrackReaderRef::Adopt(reader);
  }
  if (mediaType) *mediaType = kTextMediaType;
  if (trackID) *trackID = kCueTrackID;
  return kNoErr;
}

// Every cue is read, so the duration is exact: the latest cue end (0 without cues).
Status WebVTTFormatReader::CopyProperty(const std::string& key, MxValue* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (key == kQorFormatReaderProperty_AccurateDurationIsKnown) {
    *out = MxValue(true);
  } else if (key == kQorFormatReaderProperty_Duration ||
             key == kQorFormatReaderProperty_EstimatedDuration) {
    *out = MxValue(MxTimeCopyAsDictionary(MxTimeMake(duration_, kMillisecondTimescale)));
  } else {
    return kMxErrPropertyNotSupported;
  }
  return kNoErr;
}

Status WebVTTFormatReader::CreateSampleGeneratorUsingByteStreams(MxAllocator* allocator,
                                                                 QorTrackReader*,
                                                                 QorSampleGeneratorRef* out) {
  auto* generator = new (std::nothrow)
      WebVTTSampleGenerator(MxRef<WebVTTFormatReader>::Retained(this), allocator);
  if (generator == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = QorSampleGeneratorRef::Adopt(generator);
  return kNoErr;
}

struct ParserReleaser {
  void operator()(WebVTTParser* parser) const {
    // Releasing a parser cannot fail; its status is always 0.
    static_cast<void>(WebVTTParserRelease(parser));
  }
};

Status WebVTTFormatReader::Open(MxByteStream* stream) {
  // Only a stream that starts with the signature is read: SRT and anything else is refused.
  uint8_t head[kSignatureProbeSize];
  size_t count = 0;
  Status status = MxByteStreamReadBytes(stream, sizeof head, 0, head, &count);
  if (status == kMxErrEndOfStream)
    count = 0;
  else if (status != kNoErr)
    return status;
  if (!WebVTTHasSignature(head, count)) return QorSignalErrorAt(kMxErrFormatNotRecognised);

  status = MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
      nullptr, kCueSampleEntry, sizeof kCueSampleEntry, nullptr, kTextMediaType, &description_);
  if (status != kNoErr) return status;

  WebVTTParser* raw = nullptr;
  status = WebVTTParserCreate(&raw, 0);
  if (status != kNoErr) return status;
  std::unique_ptr<WebVTTParser, ParserReleaser> parser(raw);
  status = WebVTTParserReadByteStream(parser.get(), stream);
  if (status != kNoErr) return status;

  WebVTTCueQueue* queue = WebVTTParserGetCueQueue(parser.get());
  size_t queued = 0;
  for (const WebVTTCue* cue = queue->first; cue != nullptr; cue = cue->next) ++queued;
  cues_.reserve(queued);
  // Each cue is moved into the sample list and freed at once, so the two never both hold
  // every cue.
  while (WebVTTCue* cue = queue->first) {
    queue->Remove(cue);
    std::unique_ptr<WebVTTCue, decltype(&WebVTTCueFree)> owned(cue, WebVTTCueFree);
    CueSample sample;
    if (!ToMilliseconds(cue->start, &sample.start) || !ToMilliseconds(cue->end, &sample.end)) {
      // A time beyond any media time is a malformed timestamp: the cue is dropped, counted.
      static_cast<void>(QorSignalErrorAt(kWebVTTErrMalformedTimestamp));
      continue;
    }
    sample.text = std::move(cue->text);
    sample.payloadOffset = static_cast<size_t>(cue->payloadOffset);
    sample.payloadLength = static_cast<size_t>(cue->payloadLength);
    duration_ = std::max(duration_, sample.end);
    cues_.push_back(std::move(sample));
  }
  return kNoErr;
}

}  // namespace

Status WebVTTFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*,
                                          const MxDictionary*, QorFormatReaderRef* out) {
  if (byteStream == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto* raw = new (std::nothrow) WebVTTFormatReader;
  if (raw == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  MxRef<WebVTTFormatReader> reader = MxRef<WebVTTFormatReader>::Adopt(raw);
  if (Status status = reader->Open(byteStream)) return status;
  *out = std::move(reader);
  return kNoErr;
}
