#include "webvtt/text_track_converter.h"

#include <memory>
#include <string>
#include <string_view>

#include "log/output.h"
#include "media/core/cue_text_escape.h"
#include "media/core/text_encoding.h"
#include "media/formatreader/text_sample.h"
#include "webvtt/segment_writer.h"

namespace {

bool AttributeIsTrue(const MxDictionary* attributes, const char* key) {
  const MxValue* value = MxDictionaryGetValue(attributes, key);
  if (value == nullptr) return false;
  std::optional<bool> flag = value->GetBool();
  return flag && *flag;
}

const struct {
  const char* key;
  const char* open;
  const char* close;
} kTags[] = {{kMxTextMarkupAttribute_BoldStyle, "<b>", "</b>"},
             {kMxTextMarkupAttribute_ItalicStyle, "<i>", "</i>"},
             {kMxTextMarkupAttribute_UnderlineStyle, "<u>", "</u>"}};

class TrackConverter {
 public:
  TrackConverter(ChunkFile* chunk, uint32_t targetDurationSecs, uint64_t timestampMapValue)
      : chunk_(chunk),
        target_(targetDurationSecs),
        timestampMapValue_(timestampMapValue),
        nextBoundary_(target_) {}

  // Writes one kept cue, opening a new segment first when it starts past the boundary.
  Status WriteCueText(double start, double end, const MxAttributedString& text) {
    Status status = kNoErr;
    if (segmentOpen_ && start > nextBoundary_) {
      status = ChunkFileMoveToNextFileSecs(chunk_, start - segmentStart_);
      if (status != kNoErr) return status;
      nextBoundary_ = start + target_;
      segmentStart_ = start;
      status = WriteSegmentHeader(chunk_, timestampMapValue_);
    } else if (!segmentOpen_) {
      status = WriteSegmentHeader(chunk_, timestampMapValue_);
    }
    segmentOpen_ = true;
    if (status != kNoErr) return status;
    // The cue goes out in one write: the same bytes as writing its parts one by one.
    char time[20];
    cue_.assign(time, static_cast<size_t>(FormatWebVTTTimestamp(start, time)));
    cue_.append(" --> ");
    cue_.append(time, static_cast<size_t>(FormatWebVTTTimestamp(end, time)));
    cue_.push_back('\n');
    AppendPayload(text);
    cue_.append("\n\n");
    return ChunkFileWriteData(chunk_, cue_.data(), cue_.size());
  }

  double segmentStart() const { return segmentStart_; }

 private:
  // The tags a run's attributes open: bold, italic, underline, in that order.
  struct Tags {
    bool on[3];
  };
  // Runs of many cues share a few dictionaries, so the tags of the last few are kept with a
  // reference to each dictionary, which keeps its address from being reused.
  Tags TagsOf(const std::shared_ptr<const MxDictionary>& attributes) {
    if (!attributes) return {};
    for (const KnownTags& known : knownTags_) {
      if (known.attributes == attributes) return known.tags;
    }
    Tags tags{};
    for (int t = 0; t < 3; ++t) tags.on[t] = AttributeIsTrue(attributes.get(), kTags[t].key);
    knownTags_[nextKnown_] = {attributes, tags};
    nextKnown_ = (nextKnown_ + 1) % std::size(knownTags_);
    return tags;
  }

  // Appends the cue text, attribute run by attribute run: tags open in the order b, i, u and
  // close in reverse within each run, so no tag stays open across runs.
  void AppendPayload(const MxAttributedString& text) {
    const int64_t length = text.length();
    int64_t position = 0;
    while (position < length) {
      MxRange run{position, length - position};
      const Tags tags = TagsOf(
          text.SharedAttributesAtIndex(position, MxRange{position, length - position}, &run));
      if (run.End() <= position) run = MxRange{position, length - position};
      for (int t = 0; t < 3; ++t) {
        if (tags.on[t]) cue_.append(kTags[t].open, 3);
      }
      if (MxTextCreateUTF8FromUTF16(text.string().data() + position, size_t(run.End() - position),
                                    &utf8_) != kNoErr) {
        OutputMessage(0, "couldn't create string");
      } else {
        AppendCueTextEscaped(&cue_, utf8_);
      }
      for (int t = 2; t >= 0; --t) {
        if (tags.on[t]) cue_.append(kTags[t].close, 4);
      }
      position = run.End();
    }
  }

  struct KnownTags {
    std::shared_ptr<const MxDictionary> attributes;
    Tags tags;
  };
  KnownTags knownTags_[4];
  size_t nextKnown_ = 0;
  std::string utf8_;  // one run's text, reused from run to run
  std::string cue_;   // one cue, written at once
  ChunkFile* chunk_;
  const double target_;
  const uint64_t timestampMapValue_;
  double segmentStart_ = 0.0;
  double nextBoundary_;
  bool segmentOpen_ = false;
};

}  // namespace

double MillisecondSeconds(MxTime time) {
  return MxTimeGetSeconds(
      MxTimeConvertScale(time, 1000, kMxTimeRoundingMethod_RoundHalfAwayFromZero));
}

Status WriteTextTrackAsWebVTT(ChunkFile* chunk, uint32_t forcedOnly, uint32_t targetDurationSecs,
                              uint64_t timestampMapValue, QorFormatReader* formatReader,
                              QorTrackReader* trackReader, uint8_t* sawForced,
                              double* lastSegmentDuration, double* lastEndTime,
                              double presentationEnd) {
  ChunkFileSetFileExtension(chunk, ".webvtt");

  MxValue descriptions;
  Status status =
      trackReader->CopyProperty(kQorTrackProperty_FormatDescriptionArray, &descriptions);
  if (status != kNoErr) {
    OutputMessage(0, "can't get track format reader. error: %d", status);
    return status;
  }
  const MxArray* array = descriptions.GetArray();
  MxFormatDescription* description =
      array && !array->empty() ? array->front().GetObjectAs<MxFormatDescription>() : nullptr;
  if (description == nullptr) {
    // Such a track gives no output, and that is not a failure.
    OutputMessage(0, "couldn't get first format description");
    return kNoErr;
  }

  QorTextSampleBufferState state{};
  status = QorTextSampleBufferSetUpState(&state, nullptr, description);
  if (status != kNoErr) {
    OutputMessage(0, "Couldn't init state %d", status);
    return status;
  }

  QorSampleCursorServiceRef service;
  status = QorTrackReaderCopySampleCursorService(trackReader, &service);
  if (status != kNoErr) return status;
  QorSampleCursorRef cursor;
  status = QorSampleCursorServiceCreateCursorAtFirstSample(service.get(), &cursor);
  // A track without samples has no first sample: it simply ends at once.
  const bool emptyTrack = status == kMxErrEndOfTrack;
  if (status != kNoErr && !emptyTrack) return status;

  QorSampleGeneratorRef generator;
  if (!emptyTrack) {
    status = QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
        nullptr, formatReader, trackReader, nullptr, 0, 0, &generator);
  }

  TrackConverter converter(chunk, targetDurationSecs, timestampMapValue);
  const bool forcedPass = (forcedOnly & 0xFF) == 1;
  double lastEnd = 0.0;
  while (status == kNoErr) {
    MxSampleBufferRef sample;
    status = QorSampleGeneratorCreateSampleBufferAtCursor(generator.get(), cursor.get(), &sample);
    if (status != kNoErr) return status;

    MxAttributedStringRef text;
    bool isForced = false;
    MxTextRect textBox{};
    status = QorTextSampleBufferCopyAttributedString(&state, nullptr, sample.get(), &text,
                                                     &isForced, nullptr, &textBox);
    if (status != kNoErr) {
      OutputMessage(0, "QorTextSampleBufferCopyAttributedString() returned err=%d", status);
      break;
    }
    if (text->length() == 0) {
      OutputMessage(2, "Empty string so set attributedString to NULL");
      text = nullptr;
    } else if (isForced) {
      *sawForced = 1;
    } else if (forcedPass) {
      text = nullptr;  // a normal sample in the forced pass writes nothing
    }

    const MxTime pts = MxSampleBufferGetOutputPresentationTimeStamp(sample.get());
    const double start = MillisecondSeconds(pts);
    const double end =
        MillisecondSeconds(MxTimeAdd(pts, MxSampleBufferGetOutputDuration(sample.get())));
    // Every sample's times count, also those that write nothing: the last one sets the
    // stream's end.
    if (!(start >= 0 && end >= start && end <= kLatestOutputSeconds)) {
      OutputMessage(0,
                    "a sample from %.3f to %.3f seconds lies outside the times a cue can carry "
                    "(0 to %.0f seconds)",
                    start, end, kLatestOutputSeconds);
      return kMovieErrMalformed;
    }
    lastEnd = end;

    if (text) {
      status = converter.WriteCueText(start, end, *text);
      if (status != kNoErr) return status;
    }

    int64_t stepped = 0;
    status = QorSampleCursorStep(cursor.get(), 1, &stepped);
    if (status == kNoErr && stepped != 1) status = kMxErrEndOfTrack;
  }
  if (status == kMxErrEndOfTrack) status = kNoErr;

  *lastEndTime = lastEnd;
  if (presentationEnd > lastEnd) {
    OutputMessage(1, "last PTS is %g - making %g to change to match presentation", lastEnd,
                  presentationEnd);
    *lastEndTime = presentationEnd;
  }
  *lastSegmentDuration = *lastEndTime - converter.segmentStart();
  return status;
}
