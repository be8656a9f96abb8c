#include "driver/movie_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "common/status_text.h"
#include "driver/chunk_file_settings.h"
#include "driver/movie_output_size.h"
#include "driver/subtitle_variant_playlist.h"
#include "driver/track_display_name.h"
#include "driver/track_paths.h"
#include "log/output.h"
#include "media/core/error_signal.h"
#include "media/formatreader/format_reader.h"
#include "media/formatreader/text_format_description.h"
#include "media/formats/reader_table.h"
#include "webvtt/segment_writer.h"
#include "webvtt/text_track_converter.h"

namespace {

constexpr char kForcedSuffix[] = "(forced)";
constexpr char kForcedReferenceKey[] = "forc";
// Display flags of a description whose track holds only forced subtitles.
constexpr uint32_t kAllSubtitlesForced = 0x80000000u;
constexpr uint32_t kForcedSubtitlesPresent = 0x40000000u;
// The longest segment file name the chunk file can make: its base name, a 32-bit number and the
// extension.
constexpr char kLongestSegmentSuffix[] = "4294967295.webvtt";

// Where a failure of the media library began, when it recorded that: one message at level 1,
// after the level-0 message that reports the failure.
void ReportFailureOrigin(Status status) {
  if (const QorErrorOrigin* origin = QorErrorOriginOf(status))
    OutputMessage(1, "%s", QorDescribeErrorOrigin(*origin).c_str());
}

// A property of a library object; a property without a value is an empty MxValue.
Status CopyProperty(MxObject* object, const char* key, MxValue* out) {
  return object->CopyProperty(key, out);
}

// The track's language: its extended language tag, else its language code.
Status CopyTrackLanguage(QorTrackReader* track, std::optional<std::string>* out) {
  MxValue tag;
  if (CopyProperty(track, kQorTrackProperty_ExtendedLanguageTagString, &tag) == kNoErr &&
      tag.GetString() != nullptr) {
    *out = *tag.GetString();
    return kNoErr;
  }
  MxValue code;
  Status status = CopyProperty(track, kQorTrackProperty_LanguageCode, &code);
  if (status != kNoErr) return status;
  if (code.GetString() != nullptr) *out = *code.GetString();
  return kNoErr;
}

// Where one output stream goes: its directory on disk, the prefix of its playlist entries (empty
// without -b) and its playlist's URI in the variant playlist.
struct StreamPaths {
  std::string directory;
  std::string urlDirectory;
  std::string uri;
};

// The paths of the stream written into the directory `name` under -f: the directory, the files
// the stream makes in it and the URI must all fit; ENAMETOOLONG otherwise.
Status MakeStreamPaths(const RunSettings& s, const std::string& name, StreamPaths* out) {
  const std::string segmentName =
      std::string(s.baseMediaFileName ? s.baseMediaFileName : "fileSequence") +
      kLongestSegmentSuffix;
  std::string file;
  Status status = JoinPath(s.fileBase, name.c_str(), &out->directory);
  if (status == kNoErr) status = JoinPath(out->directory.c_str(), s.indexFileName, &file);
  if (status == kNoErr) status = JoinPath(out->directory.c_str(), segmentName.c_str(), &file);
  if (status != kNoErr) return status;
  std::string uri = name + "/" + s.indexFileName;
  if (s.baseURL != nullptr) {
    status = JoinPath(s.baseURL, name.c_str(), &out->urlDirectory);
    if (status != kNoErr) return status;
    uri = std::string(s.baseURL) + "/" + uri;
  }
  if (uri.size() > kMaxTrackPathLength) return StatusFromErrno(ENAMETOOLONG);
  out->uri = std::move(uri);
  return kNoErr;
}

void ReportLongPaths(unsigned index) {
  OutputMessage(0,
                "The output paths of track %u are longer than %zu bytes; shorten -f, -b, -i or -B",
                index, kMaxTrackPathLength);
}

// Checks, before anything is written, that every path the movie's streams need fits: each
// subtitle track's directory with its "-forced" name (the longer of its two), the files the
// stream makes in it, its URIs, and the variant playlist. Returns ENAMETOOLONG with a message
// naming the option to shorten; tracks whose properties cannot be read are left to the main pass,
// which reports them. A directory name made distinct later is checked again when it is made.
Status CheckOutputPathLengths(const RunSettings& s, QorFormatReader* reader, int64_t trackCount) {
  unsigned subtitleTracks = 0;
  for (int64_t index = 0; index < trackCount; ++index) {
    QorTrackReaderRef track;
    if (!CopySubtitleTrackAt(reader, index, &track)) continue;
    ++subtitleTracks;
    std::optional<std::string> language;
    if (CopyTrackLanguage(track.get(), &language) != kNoErr) continue;
    std::string name;
    StreamPaths paths;
    if (MakeTrackDirectoryName(language, unsigned(index), true, &name) != kNoErr ||
        MakeStreamPaths(s, name, &paths) != kNoErr) {
      ReportLongPaths(unsigned(index));
      return StatusFromErrno(ENAMETOOLONG);
    }
  }
  // Without subtitle tracks no variant playlist is written.
  if (subtitleTracks > 0) {
    std::string variantPath;
    if (JoinPath(s.fileBase, s.subtitleVariantName, &variantPath) != kNoErr) {
      OutputMessage(0,
                    "The subtitle variant playlist path is longer than %zu bytes; shorten -f or -s",
                    kMaxTrackPathLength);
      return StatusFromErrno(ENAMETOOLONG);
    }
  }
  return kNoErr;
}

// The track's name dictionary, enabled state and auto-selection exclusion.
struct TrackFlags {
  MxValue names;
  std::optional<bool> enabled;
  bool excludeFromAutoSelection = false;
  std::string characteristics;
};

// The CHARACTERISTICS value that the track's content tags call for (empty for none). A reader
// that keeps no content tags gives none.
Status ReadCharacteristics(QorTrackReader* track, std::string* out) {
  MxValue tags;
  Status status = CopyProperty(track, kQorTrackProperty_ContentTags, &tags);
  if (status == kMxErrPropertyNotSupported) return kNoErr;
  if (status != kNoErr) return status;
  std::vector<std::string> texts;
  if (const MxArray* array = tags.GetArray()) {
    for (const MxValue& tag : *array)
      if (const std::string* text = tag.GetString()) texts.push_back(*text);
  }
  *out = AccessibilityCharacteristics(texts);
  return kNoErr;
}

class MovieSegmenter {
 public:
  MovieSegmenter(const RunSettings& settings, const RunEnvironment& environment,
                 QorFormatReader* reader, int64_t fileLength)
      : s_(settings), environment_(environment), reader_(reader), fileLength_(fileLength) {}

  Status Run();

 private:
  Status ReadDuration(double* seconds);
  Status SegmentTrack(unsigned index);
  [[nodiscard]] bool IsForcedByDisplayFlags(const MxValue& descriptions) const;
  Status MakeStreamPathsFor(unsigned index, const std::optional<std::string>& language, bool forced,
                            StreamPaths* out);
  Status MakeDirectory(const std::string& path, const char* failureFormat, bool* made);
  Status WriteStream(unsigned index, const StreamPaths& paths, bool forcedPass,
                     QorTrackReader* track, uint8_t* sawForced, bool* hasCues);
  Status MakeStream(unsigned index, const StreamPaths& paths, bool forcedPass,
                    const char* failureFormat, QorTrackReader* track, uint8_t* sawForced);
  void AddEntry(const TrackFlags& flags, const std::optional<std::string>& language, bool forced,
                bool autoSelect, const std::string& uri);

  const RunSettings& s_;
  const RunEnvironment& environment_;
  QorFormatReader* reader_;
  int64_t fileLength_;
  double maxDuration_ = 0;
  std::unordered_set<int64_t> forcedTrackIDs_;
  std::vector<SubtitleVariantEntry> entries_;
  std::set<std::string> directoryNames_;  // every stream's directory so far
  long nameCounter_ = 1;
  unsigned subtitleTrackCount_ = 0;
};

Status MovieSegmenter::ReadDuration(double* seconds) {
  MxValue known;
  Status status = CopyProperty(reader_, kQorFormatReaderProperty_AccurateDurationIsKnown, &known);
  if (status != kNoErr) {
    OutputMessage(0, "Can't get if accuration duration is known");
    return status;
  }
  const bool accurate = known.GetBool().value_or(false);
  MxValue duration;
  status = CopyProperty(
      reader_,
      accurate ? kQorFormatReaderProperty_Duration : kQorFormatReaderProperty_EstimatedDuration,
      &duration);
  if (status != kNoErr) {
    OutputMessage(0, "Could not get at format reader's duration property. Accurate duration is %s",
                  accurate ? "[known]" : "[not known]");
    return status;
  }
  *seconds = MillisecondSeconds(MxTimeMakeFromDictionary(duration.GetDictionary()));
  return kNoErr;
}

bool MovieSegmenter::IsForcedByDisplayFlags(const MxValue& descriptions) const {
  const MxArray* array = descriptions.GetArray();
  if (array == nullptr || array->empty()) return false;
  int32_t flags = 0;
  if (MxTextFormatDescriptionGetDisplayFlags(array->front().GetObjectAs<MxFormatDescription>(),
                                             &flags) != kNoErr)
    return false;
  const uint32_t bits = uint32_t(flags);
  return (bits & kAllSubtitlesForced) && (bits & kForcedSubtitlesPresent);
}

Status MovieSegmenter::MakeStreamPathsFor(unsigned index,
                                          const std::optional<std::string>& language, bool forced,
                                          StreamPaths* out) {
  std::string name;
  Status status = MakeTrackDirectoryName(language, index, forced, &name);
  if (status == kNoErr) {
    // Two streams never share a directory: a name an earlier stream took gets "_2", "_3", ...
    // appended. No language tag or generated name holds "_", so this never takes the plain
    // name of a later track.
    const std::string plain = name;
    for (unsigned n = 2; directoryNames_.count(name) != 0; ++n)
      name = plain + "_" + std::to_string(n);
    status = MakeStreamPaths(s_, name, out);
  }
  if (status != kNoErr) {
    ReportLongPaths(index);
    return status;
  }
  directoryNames_.insert(name);
  return kNoErr;
}

Status MovieSegmenter::MakeDirectory(const std::string& path, const char* failureFormat,
                                     bool* made) {
  *made = false;
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) {
    if (mkdir(path.c_str(), 0777) != 0) {
      const Status error = StatusFromErrno(errno);
      OutputMessage(0, failureFormat, path.c_str());
      return error;
    }
    *made = true;
  } else if (!S_ISDIR(info.st_mode)) {
    OutputMessage(0, "%s is already created, and is not a directory", path.c_str());
    // A link is never followed: whatever it points at, nothing is written through it.
    if (S_ISLNK(info.st_mode)) return StatusFromErrno(ENOTDIR);
  }
  return kNoErr;
}

void MovieSegmenter::AddEntry(const TrackFlags& flags, const std::optional<std::string>& language,
                              bool forced, bool autoSelect, const std::string& uri) {
  SubtitleVariantEntry entry;
  entry.trackName = CopyTrackDisplayName(flags.names.GetDictionary(), language, nameCounter_,
                                         forced ? kForcedSuffix : nullptr);
  entry.isDefault = flags.enabled;
  entry.languageCode = language;
  entry.autoSelect = autoSelect;
  entry.forced = forced;
  entry.uri = uri;
  entry.characteristics = flags.characteristics;
  entries_.push_back(std::move(entry));
  ++nameCounter_;
}

Status MovieSegmenter::WriteStream(unsigned index, const StreamPaths& paths, bool forcedPass,
                                   QorTrackReader* track, uint8_t* sawForced, bool* hasCues) {
  ChunkFile* chunk = ChunkFileCreate(MakeChunkFileSettings(
      s_, environment_, paths.directory.empty() ? nullptr : paths.directory.c_str(),
      paths.urlDirectory.empty() ? nullptr : paths.urlDirectory.c_str()));
  if (chunk == nullptr) {
    OutputMessage(0, "can't set up the output stream in %s", paths.directory.c_str());
    return kErrCreateFailed;
  }
  double lastSegmentDuration = 0, lastEndTime = 0;
  QorErrorOriginClear();
  Status status = WriteTextTrackAsWebVTT(chunk, forcedPass ? 1 : 0, s_.targetDuration,
                                         TimestampMapValue(s_), reader_, track, sawForced,
                                         &lastSegmentDuration, &lastEndTime, maxDuration_);
  if (status != kNoErr) {
    OutputMessage(0, "Failed to generate chunk files with index %u, file %s: %s", index,
                  s_.inputPath, DescribeStatus(status).c_str());
    ReportFailureOrigin(status);
    // A broken stream gets no playlist that would look complete.
    ChunkFileAbandon(chunk);
    return status;
  }
  // A stream with a segment open or closed has cues, and so a playlist.
  *hasCues = ChunkFileSegmentOpen(chunk) || ChunkFileSegmentCount(chunk) > 0;
  return ChunkFileReleaseSecs(chunk, lastSegmentDuration, lastEndTime);
}

// Makes the stream's directory and writes the stream. A stream without cues has no playlist:
// its entry (the last one added) is taken back and the directory, when this run made it, removed.
Status MovieSegmenter::MakeStream(unsigned index, const StreamPaths& paths, bool forcedPass,
                                  const char* failureFormat, QorTrackReader* track,
                                  uint8_t* sawForced) {
  bool made = false;
  Status status = MakeDirectory(paths.directory, failureFormat, &made);
  if (status != kNoErr) return status;
  bool hasCues = false;
  status = WriteStream(index, paths, forcedPass, track, sawForced, &hasCues);
  if (status != kNoErr || hasCues) return status;
  OutputMessage(0, "Track %u of %s has no cues: it gets no playlist and is left out of %s", index,
                s_.inputPath, s_.subtitleVariantName);
  entries_.pop_back();
  --nameCounter_;
  if (made) rmdir(paths.directory.c_str());
  return kNoErr;
}

Status MovieSegmenter::SegmentTrack(unsigned index) {
  QorTrackReaderRef track;
  FourCC mediaType = 0;
  Status status = QorFormatReaderCopyTrackByIndex(reader_, index, &track, &mediaType, nullptr);
  if (status != kNoErr) {
    OutputMessage(0, "can't get track index %u %s %d", index, s_.inputPath, status);
    return status;
  }
  // Only subtitle tracks are segmented; other text-bearing media types are not.
  if (mediaType != MxFourCC("sbtl")) return kNoErr;
  ++subtitleTrackCount_;

  bool forced = false;
  QorTrackID trackID = 0;
  status = QorTrackReaderGetTrackInfo(track.get(), &trackID, nullptr);
  if (status != kNoErr) {
    OutputMessage(0, "Can't get the identifier of track with index %u, file %s: %s", index,
                  s_.inputPath, DescribeStatus(status).c_str());
    return status;
  }
  if (forcedTrackIDs_.contains(int64_t(trackID))) forced = true;
  if (!forced) {
    MxValue descriptions;
    status = CopyProperty(track.get(), kQorTrackProperty_FormatDescriptionArray, &descriptions);
    if (status != kNoErr) {
      OutputMessage(0, "Can't read the sample descriptions of track with index %u, file %s: %s",
                    index, s_.inputPath, DescribeStatus(status).c_str());
      return status;
    }
    forced = IsForcedByDisplayFlags(descriptions);
    if (forced) OutputMessage(2, "forced subtitle track from format description");
  }

  std::optional<std::string> language;
  status = CopyTrackLanguage(track.get(), &language);
  if (status != kNoErr) {
    OutputMessage(0,
                  "Failed to get the language code track property of track with index %u, file "
                  "%s.",
                  index, s_.inputPath);
    return status;
  }

  TrackFlags flags;
  auto readFlags = [&](const char* nameFailure, const char* enabledFailure) -> Status {
    Status err = CopyProperty(track.get(), kQorTrackProperty_TrackName, &flags.names);
    if (err != kNoErr) {
      OutputMessage(0, nameFailure, index, s_.inputPath);
      return err;
    }
    MxValue enabled;
    err = CopyProperty(track.get(), kQorTrackProperty_Enabled, &enabled);
    if (err != kNoErr) {
      OutputMessage(0, enabledFailure, index, s_.inputPath, err);
      return err;
    }
    flags.enabled = enabled.GetBool();
    MxValue exclude;
    err = CopyProperty(track.get(), kQorTrackProperty_ExcludeFromAutoSelection, &exclude);
    if (err != kNoErr) {
      OutputMessage(0,
                    "Failed to  get the exclude from auto selection track property of track "
                    "with index %u, file %s",
                    index, s_.inputPath);
      return err;
    }
    flags.excludeFromAutoSelection = exclude.GetBool().value_or(false);
    err = ReadCharacteristics(track.get(), &flags.characteristics);
    if (err != kNoErr) {
      OutputMessage(0, "Can't read the content tags of track with index %u, file %s: %s", index,
                    s_.inputPath, DescribeStatus(err).c_str());
    }
    return err;
  };
  status = readFlags("Failed to get the track name dictionary of track with index %u, file %s.",
                     "Can't get enabled status of track index %u, file %s, error %d");
  if (status != kNoErr) return status;

  StreamPaths paths;
  status = MakeStreamPathsFor(index, language, forced, &paths);
  if (status != kNoErr) return status;
  AddEntry(flags, language, forced, !flags.excludeFromAutoSelection, paths.uri);

  uint8_t sawForced = 0;
  status = MakeStream(index, paths, false, "Couldn't make %s", track.get(), &sawForced);
  if (status != kNoErr) return status;
  if (forced || !sawForced) return kNoErr;

  // The track's forced subtitles also get a stream of their own.
  flags = TrackFlags{};
  status = readFlags(
      "Forced track: Failed to get the track name track property of track with index %u, file "
      "%s.",
      "Forced track: Can't get enabled status of track index %u, file %s, error %d");
  if (status != kNoErr) return status;
  StreamPaths forcedPaths;
  status = MakeStreamPathsFor(index, language, true, &forcedPaths);
  if (status != kNoErr) return status;
  // Auto-selected only when it would be the first entry, which the track's own entry precludes.
  AddEntry(flags, language, true, entries_.empty(), forcedPaths.uri);
  return MakeStream(index, forcedPaths, true, "Couldn't make forced track path at: %s", track.get(),
                    &sawForced);
}

Status MovieSegmenter::Run() {
  int64_t trackCount = 0;
  Status status = QorFormatReaderGetTrackCount(reader_, &trackCount);
  if (status != kNoErr) {
    OutputMessage(0, "can't get track count %s %d", s_.inputPath, status);
    return status;
  }
  double presentationSeconds = 0;
  status = ReadDuration(&presentationSeconds);
  if (status != kNoErr) return status;
  if (!(presentationSeconds >= 0 && presentationSeconds <= kLatestOutputSeconds)) {
    OutputMessage(0, "The duration of %s, %.3f seconds, lies outside 0 to %.0f seconds",
                  s_.inputPath, presentationSeconds, kLatestOutputSeconds);
    return kMovieErrMalformed;
  }
  const bool durationGiven = s_.duration > 0;
  if (durationGiven && presentationSeconds > s_.duration) {
    OutputMessage(0,
                  "Duration of presentation is longer than specified duration; please re-issue "
                  "without duration command");
    return kErrBadArgument;
  }
  maxDuration_ = durationGiven ? s_.duration : presentationSeconds;
  OutputMessage(2, "Max duration is %g", presentationSeconds);

  MxValue references;
  status = CopyProperty(reader_, kQorFormatReaderProperty_TrackReferenceDictionary, &references);
  if (status != kNoErr) return status;
  // The references come in pairs; the second of each names a forced-subtitle track.
  const MxValue* forced = MxDictionaryGetValue(references.GetDictionary(), kForcedReferenceKey);
  if (const MxArray* pairs = forced ? forced->GetArray() : nullptr) {
    for (size_t i = 1; i < pairs->size(); i += 2) {
      if (std::optional<int64_t> id = (*pairs)[i].GetInt64()) forcedTrackIDs_.insert(*id);
    }
  }

  status = CheckMovieOutputSize(s_, reader_, trackCount, fileLength_);
  if (status != kNoErr) return status;
  status = CheckOutputPathLengths(s_, reader_, trackCount);
  if (status != kNoErr) return status;

  for (int64_t index = 0; index < trackCount; ++index) {
    status = SegmentTrack(unsigned(index));
    if (status != kNoErr) return status;
  }
  if (subtitleTrackCount_ == 0) {
    OutputMessage(0, "No subtitle tracks found.");
    return kNoErr;
  }
  return WriteSubtitleVariantPlaylist(s_.fileBase, s_.subtitleVariantName, entries_);
}

}  // namespace

Status RunMovieSource(const RunSettings& settings, const RunEnvironment& environment,
                      MxByteStream* stream) {
  QorFormatReaderRef reader;
  QorErrorOriginClear();
  Status status = QorFormatReaderCreateForStream(stream, nullptr, nullptr, &reader);
  if (status != kNoErr) {
    OutputMessage(0, "can't create format reader %s %d", settings.inputPath, status);
    ReportFailureOrigin(status);
    return status;
  }
  int64_t fileLength = 0;
  status = stream->GetLength(0, &fileLength);
  if (status != kNoErr) {
    OutputMessage(0, "can't get the length of %s %d", settings.inputPath, status);
    return status;
  }
  MovieSegmenter segmenter(settings, environment, reader.get(), fileLength);
  return segmenter.Run();
}
