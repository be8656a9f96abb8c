// The format reader for movie files (ISO base media files and classic movie files): the header
// is read once when the reader is made; tracks, cursors and the sample generator read sample
// bytes through the reader's byte stream only when a sample is asked for.
#include <algorithm>
#include <new>

#include "media/core/error_signal.h"
#include "media/core/file_byte_stream.h"
#include "media/formatreader/text_format_description.h"
#include "media/formats/movie/language_code.h"
#include "media/formats/movie/movie_header.h"
#include "media/formats/movie/sample_table.h"
#include "media/formats/movie/track_name.h"
#include "media/formats/reader_table.h"

namespace {

constexpr char kForcedReferenceKey[] = "forc";
constexpr char kAuxiliaryContentTag[] = "public.auxiliary-content";

struct TrackState {
  const MovieTrack* boxes = nullptr;
  SampleTable table;
  EditShift shift;
  int32_t mediaTimescale = 1;
  std::string language;                         // from the media header
  std::optional<std::string> extendedLanguage;  // a well-formed 'elng' tag
  std::vector<uint32_t> forcedReferences;       // tracks this one names as forced
  Status descriptionStatus = kNoErr;
  MxArray descriptions;
  std::vector<MxFormatDescriptionRef> descriptionObjects;
};

bool IsTextMediaType(uint32_t type) {
  return type == MxFourCC("sbtl") || type == MxFourCC("text");
}

class MovieFormatReader final : public QorFormatReader {
 public:
  const char* ClassName() const override { return "QorMovieFormatReader"; }

  Status Open(MxByteStream* stream);

  Status CopyProperty(const std::string& key, MxValue* out) override;
  Status GetTrackCount(int64_t* count) override {
    *count = int64_t(tracks_.size());
    return kNoErr;
  }
  Status CopyTrackByIndex(int64_t index, QorTrackReaderRef* track, FourCC* mediaType,
                          QorTrackID* trackID) override;

  const TrackState& Track(size_t index) const { return tracks_[index]; }
  // Where sample bytes are read.
  MxByteStream* SampleStream() const { return sampleStream_.get(); }
  int64_t FileLength() const { return fileLength_; }
  int32_t MovieTimescale() const { return int32_t(header_->mvhd->timescale); }

 private:
  void KeepForcedReferences();

  MxByteStreamRef sampleStream_;
  std::unique_ptr<MovieHeader> header_;
  int64_t fileLength_ = 0;
  std::vector<TrackState> tracks_;
};

class MovieTrackReader final : public QorTrackReader {
 public:
  MovieTrackReader(MxRef<MovieFormatReader> reader, size_t index)
      : reader_(std::move(reader)), index_(index) {}
  const char* ClassName() const override { return "QorMovieTrackReader"; }

  Status GetTrackInfo(QorTrackID* trackID, FourCC* mediaType) override {
    const TrackState& t = State();
    *trackID = QorTrackID(t.boxes->tkhd->trackID);
    if (mediaType) *mediaType = t.boxes->hdlr->handlerType;
    return kNoErr;
  }
  Status CopySampleCursorService(QorSampleCursorServiceRef* out) override;
  Status CopyProperty(const std::string& key, MxValue* out) override;

  const TrackState& State() const { return reader_->Track(index_); }
  MovieFormatReader* Reader() const { return reader_.get(); }

 private:
  MxRef<MovieFormatReader> reader_;
  size_t index_;
};

class MovieSampleCursor final : public QorSampleCursor {
 public:
  MovieSampleCursor(MxRef<MovieTrackReader> track, SamplePosition position)
      : track_(std::move(track)), position_(position) {}
  const char* ClassName() const override { return "QorMovieSampleCursor"; }

  Status Step(int64_t stepCount, int64_t* stepped) override {
    int64_t moved = 0;
    if (stepCount > 0) {
      while (moved < stepCount && position_.StepForward()) ++moved;
    } else {
      while (moved > stepCount && position_.StepBackward()) --moved;
    }
    if (moved != 0) currentKnown_ = false;
    *stepped = moved;
    return kNoErr;
  }

  Status CopySampleLocation(QorSampleLocation* out) override {
    SampleInfo info;
    if (Status err = Current(&info)) return err;
    const uint64_t fileLength = uint64_t(track_->Reader()->FileLength());
    if (info.fileOffset > fileLength || info.size > fileLength - info.fileOffset) {
      return QorSignalErrorBecause(kMovieErrSampleOutOfRange,
                                   "a sample of # bytes at byte # ends past the # byte file",
                                   {info.size, info.fileOffset, fileLength});
    }
    out->byteStream = MxByteStreamRef::Retained(track_->Reader()->SampleStream());
    out->offset = int64_t(info.fileOffset);
    out->length = int64_t(info.size);
    return kNoErr;
  }

  Status GetOutputTiming(MxTime* presentationTimeStamp, MxTime* duration) override {
    SampleInfo info;
    if (Status err = Current(&info)) return err;
    const TrackState& t = track_->State();
    MxTime pts = MxTimeMake(info.presentationTime, t.mediaTimescale);
    if (t.shift.emptyDuration != 0) {
      pts = MxTimeAdd(
          pts, MxTimeMake(int64_t(t.shift.emptyDuration), track_->Reader()->MovieTimescale()));
    }
    if (presentationTimeStamp) *presentationTimeStamp = pts;
    if (duration) *duration = MxTimeMake(int64_t(info.duration), t.mediaTimescale);
    return kNoErr;
  }

  Status CopyFormatDescription(MxFormatDescriptionRef* out) override {
    SampleInfo info;
    if (Status err = Current(&info)) return err;
    const TrackState& t = track_->State();
    if (t.descriptionStatus) return t.descriptionStatus;
    // The sample table check keeps the index within the sample descriptions.
    if (info.descriptionIndex == 0 || info.descriptionIndex > t.descriptionObjects.size())
      return QorSignalErrorAt(kMovieErrMalformed);
    *out = t.descriptionObjects[info.descriptionIndex - 1];
    return kNoErr;
  }

 private:
  // The sample at the position, worked out once per position: its location, timing and
  // description are asked for one after the other.
  Status Current(SampleInfo* out) {
    if (!currentKnown_) {
      currentStatus_ = position_.Current(&current_);
      currentKnown_ = true;
    }
    if (currentStatus_ == kNoErr) *out = current_;
    return currentStatus_;
  }

  MxRef<MovieTrackReader> track_;
  SamplePosition position_;
  SampleInfo current_{};
  Status currentStatus_ = kNoErr;
  bool currentKnown_ = false;
};

class MovieSampleCursorService final : public QorSampleCursorService {
 public:
  explicit MovieSampleCursorService(MxRef<MovieTrackReader> track) : track_(std::move(track)) {}
  const char* ClassName() const override { return "QorMovieSampleCursorService"; }

  Status CreateCursorAtFirstSample(QorSampleCursorRef* out) override {
    SamplePosition first = SamplePosition::First(track_->State().table);
    if (first.Empty()) return kMxErrEndOfTrack;  // a track without samples has no first sample
    auto* cursor = new (std::nothrow) MovieSampleCursor(track_, first);
    if (!cursor) return QorSignalErrorAt(kMxErrAllocationFailed);
    *out = QorSampleCursorRef::Adopt(cursor);
    return kNoErr;
  }

 private:
  MxRef<MovieTrackReader> track_;
};

Status MovieTrackReader::CopySampleCursorService(QorSampleCursorServiceRef* out) {
  auto* service =
      new (std::nothrow) MovieSampleCursorService(MxRef<MovieTrackReader>::Retained(this));
  if (!service) return QorSignalErrorAt(kMxErrAllocationFailed);
  *out = QorSampleCursorServiceRef::Adopt(service);
  return kNoErr;
}

Status MovieTrackReader::CopyProperty(const std::string& key, MxValue* out) {
  const TrackState& t = State();
  if (key == kQorTrackProperty_LanguageCode) {
    *out = MxValue(t.language);
  } else if (key == kQorTrackProperty_ExtendedLanguageTagString) {
    // An absent or ill-formed tag is a property without a value.
    *out = t.extendedLanguage ? MxValue(*t.extendedLanguage) : MxValue();
  } else if (key == kQorTrackProperty_TrackName) {
    if (!t.boxes->name) {
      *out = MxValue();
    } else {
      MxDictionary names;
      names.emplace(t.extendedLanguage ? *t.extendedLanguage : t.language,
                    MxValue(TrackNameFromUserData(*t.boxes->name)));
      *out = MxValue(std::move(names));
    }
  } else if (key == kQorTrackProperty_Enabled) {
    *out = MxValue(t.boxes->tkhd->Enabled());
  } else if (key == kQorTrackProperty_ExcludeFromAutoSelection) {
    const std::vector<std::string>& tags = t.boxes->contentTags;
    *out = MxValue(std::find(tags.begin(), tags.end(), kAuxiliaryContentTag) != tags.end());
  } else if (key == kQorTrackProperty_ContentTags) {
    MxArray tags;
    for (const std::string& tag : t.boxes->contentTags) tags.emplace_back(tag);
    *out = MxValue(std::move(tags));
  } else if (key == kQorTrackProperty_FormatDescriptionArray) {
    if (t.descriptionStatus) return t.descriptionStatus;
    *out = MxValue(t.descriptions);
  } else {
    return kMxErrPropertyNotSupported;
  }
  return kNoErr;
}

Status MovieFormatReader::CopyProperty(const std::string& key, MxValue* out) {
  const MovieHeaderBox& mvhd = *header_->mvhd;
  if (key == kQorFormatReaderProperty_Duration ||
      key == kQorFormatReaderProperty_EstimatedDuration) {
    *out = MxValue(
        MxTimeCopyAsDictionary(MxTimeMake(int64_t(mvhd.duration), int32_t(mvhd.timescale))));
  } else if (key == kQorFormatReaderProperty_AccurateDurationIsKnown) {
    *out = MxValue(true);
  } else if (key == kQorFormatReaderProperty_TrackReferenceDictionary) {
    // Pairs of (referring track, forced-subtitle track), in track order.
    MxArray pairs;
    for (const TrackState& t : tracks_) {
      for (uint32_t referenced : t.forcedReferences) {
        pairs.emplace_back(int64_t(t.boxes->tkhd->trackID));
        pairs.emplace_back(int64_t(referenced));
      }
    }
    MxDictionary references;
    references.emplace(kForcedReferenceKey, MxValue(std::move(pairs)));
    *out = MxValue(std::move(references));
  } else {
    return kMxErrPropertyNotSupported;
  }
  return kNoErr;
}

Status MovieFormatReader::CopyTrackByIndex(int64_t index, QorTrackReaderRef* track,
                                           FourCC* mediaType, QorTrackID* trackID) {
  if (index < 0 || uint64_t(index) >= tracks_.size())
    return QorSignalErrorAt(kMxErrInvalidParameter);
  auto* reader =
      new (std::nothrow) MovieTrackReader(MxRef<MovieFormatReader>::Retained(this), size_t(index));
  if (!reader) return QorSignalErrorAt(kMxErrAllocationFailed);
  const TrackState& t = tracks_[size_t(index)];
  *track = QorTrackReaderRef::Adopt(reader);
  if (mediaType) *mediaType = t.boxes->hdlr->handlerType;
  if (trackID) *trackID = QorTrackID(t.boxes->tkhd->trackID);
  return kNoErr;
}

// One description per sample entry: a text description for text and subtitle tracks, the media
// type and entry type alone for other tracks. A text entry that cannot be described makes the
// track's descriptions unavailable (with the reason) without failing the other tracks.
void MakeDescriptions(TrackState& t) {
  const uint32_t mediaType = t.boxes->hdlr->handlerType;
  const SampleDescriptionBox& stsd = *t.boxes->stsd;
  for (size_t i = 0; i < stsd.entries.size(); ++i) {
    MxFormatDescriptionRef description;
    Status err;
    if (IsTextMediaType(mediaType)) {
      err = MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
          nullptr, stsd.entries[i].data(), stsd.entries[i].size(), nullptr, mediaType,
          &description);
    } else {
      err = MxFormatDescriptionCreate(nullptr, mediaType, stsd.EntryType(i), nullptr, &description);
    }
    if (err) {
      t.descriptionStatus = err;
      t.descriptions.clear();
      t.descriptionObjects.clear();
      return;
    }
    t.descriptions.emplace_back(description);
    t.descriptionObjects.push_back(std::move(description));
  }
}

// A track's samples lie scattered through the file between other tracks' samples. Through the
// source stream's 4096-byte cache each small sample would cost a 4096-byte read, mostly of
// the neighbouring video; so when the source is a file, samples are read through a second,
// uncached stream on it, which reads each sample's bytes and nothing more. The second stream is
// used only when it sees a file of the length the header was read from.
MxByteStreamRef SampleStreamFor(MxByteStream* source, int64_t fileLength) {
  MxValue value;
  MxByteStreamRef uncached;
  int64_t length = -1;
  if (source->CopyProperty(kMxByteStreamProperty_URL, &value) == kNoErr && value.GetURL() &&
      QorByteStreamCreateUncachedForFileURL(nullptr, *value.GetURL(), &uncached) == kNoErr &&
      uncached->GetLength(0, &length) == kNoErr && length == fileLength)
    return uncached;
  return MxByteStreamRef::Retained(source);
}

Status MovieFormatReader::Open(MxByteStream* stream) {
  if (Status err = MovieHeaderRead(stream, &header_, &fileLength_)) return err;
  sampleStream_ = SampleStreamFor(stream, fileLength_);
  const MovieHeaderBox& mvhd = *header_->mvhd;
  if (mvhd.timescale > uint32_t(INT32_MAX))
    return QorSignalErrorBecause(kMovieErrMalformed, "'mvhd' timescale # is over 2^31 - 1",
                                 {mvhd.timescale});
  if (mvhd.duration > uint64_t(INT64_MAX))
    return QorSignalErrorBecause(kMovieErrMalformed, "'mvhd' duration is over 2^63 - 1");

  tracks_.resize(header_->tracks.size());
  for (size_t i = 0; i < tracks_.size(); ++i) {
    TrackState& t = tracks_[i];
    t.boxes = &header_->tracks[i];
    if (t.boxes->mdhd->timescale > uint32_t(INT32_MAX)) {
      return QorSignalErrorBecause(kMovieErrMalformed, "'mdhd' timescale # is over 2^31 - 1",
                                   {t.boxes->mdhd->timescale});
    }
    t.mediaTimescale = int32_t(t.boxes->mdhd->timescale);
    if (Status err = SampleTable::Make(*t.boxes, &t.table)) {
      const MovieBoxPlace& place = t.boxes->sampleTablePlace;
      QorErrorOriginPlaceInBox(err, MxFourCC("stbl"), place.offset, place.inflated);
      return err;
    }
    t.shift = InterpretEditList(t.boxes->editList);
    if (t.shift.emptyDuration > uint64_t(INT64_MAX))
      return QorSignalErrorBecause(kMovieErrMalformed, "the empty edits last over 2^63 - 1");
    t.language = LanguageTagFromMediaLanguage(t.boxes->mdhd->language);
    if (t.boxes->elng && IsWellFormedLanguageTag(t.boxes->elng->tag))
      t.extendedLanguage = t.boxes->elng->tag;
    if (t.boxes->stsd) MakeDescriptions(t);
  }
  KeepForcedReferences();
  return kNoErr;
}

// A forced reference is kept only when it names a track of the movie that no earlier reference
// names: the references then hold at most one pair per track, however many IDs the header lists.
void MovieFormatReader::KeepForcedReferences() {
  std::vector<uint32_t> ids;
  ids.reserve(tracks_.size());
  for (const TrackState& t : tracks_) ids.push_back(t.boxes->tkhd->trackID);
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  std::vector<bool> named(ids.size(), false);
  for (size_t i = 0; i < tracks_.size(); ++i) {
    std::vector<uint32_t>& listed = header_->tracks[i].forcedTrackIDs;
    for (uint32_t id : listed) {
      auto it = std::lower_bound(ids.begin(), ids.end(), id);
      if (it == ids.end() || *it != id || named[size_t(it - ids.begin())]) continue;
      named[size_t(it - ids.begin())] = true;
      tracks_[i].forcedReferences.push_back(id);
    }
    std::vector<uint32_t>().swap(listed);
  }
}

}  // namespace

Status CinemoxMovieFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*,
                                                const MxDictionary*, QorFormatReaderRef* out) {
  if (byteStream == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto* raw = new (std::nothrow) MovieFormatReader;
  if (!raw) return QorSignalErrorAt(kMxErrAllocationFailed);
  MxRef<MovieFormatReader> reader = MxRef<MovieFormatReader>::Adopt(raw);
  if (Status err = reader->Open(byteStream)) return err;
  *out = std::move(reader);
  return kNoErr;
}
