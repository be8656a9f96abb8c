// The reader classes of the media library: a format reader presents a media file as tracks; a
// track reader hands out a sample cursor service; the service makes sample cursors; a sample
// generator turns the sample under a cursor into an MxSampleBuffer with its data loaded.
//
// Each class's table of operations is its set of virtual functions. The base versions answer
// kMxErrUnimplemented (-12782): a container reader overrides what it provides. The free functions
// below are the entry points the rest of the system calls; they check their arguments and
// dispatch.
#pragma once

#include <cstdint>

#include "media/core/byte_stream.h"
#include "media/core/format_description.h"
#include "media/core/four_cc.h"
#include "media/core/mx_time.h"
#include "media/core/object.h"
#include "media/core/sample_buffer.h"
#include "media/core/value.h"

using QorTrackID = int32_t;

// Property keys read from format readers.
extern const char* const kQorFormatReaderProperty_Duration;                  // "Duration"
extern const char* const kQorFormatReaderProperty_AccurateDurationIsKnown;   // boolean
extern const char* const kQorFormatReaderProperty_EstimatedDuration;         // time dictionary
extern const char* const kQorFormatReaderProperty_TrackReferenceDictionary;  // dictionary
// Property keys read from track readers.
extern const char* const kQorTrackProperty_LanguageCode;               // "TrackLanguageCode"
extern const char* const kQorTrackProperty_TrackName;                  // "TrackName"
extern const char* const kQorTrackProperty_Enabled;                    // "TrackEnabled"
extern const char* const kQorTrackProperty_ExcludeFromAutoSelection;   // boolean
extern const char* const kQorTrackProperty_ExtendedLanguageTagString;  // string
extern const char* const kQorTrackProperty_FormatDescriptionArray;     // array of descriptions
extern const char* const kQorTrackProperty_ContentTags;  // array of texts, as the track lists them
// Byte-stream property read during reader selection (the others are in byte_stream.h).
extern const char* const kQorByteStreamProperty_SuggestedFileName;  // "QBS_SuggestedFileName"
// Instantiation option: true asks the MPEG reader for precise durations and timing.
extern const char* const kQorFormatReaderOption_PreferPreciseDurationAndTiming;

// Where the bytes of one sample are.
struct QorSampleLocation {
  MxByteStreamRef byteStream;
  int64_t offset = 0;
  int64_t length = 0;
};

class QorSampleCursor : public MxObject {
 public:
  // Moves by `stepCount` samples (negative: backwards) and reports how far it moved; moving
  // past either end stops there and reports the shorter count (0 at the last sample).
  virtual Status Step(int64_t stepCount, int64_t* stepped);
  // The sample under the cursor: where its bytes are, its output presentation time stamp and
  // output duration, and its format description.
  virtual Status CopySampleLocation(QorSampleLocation* out);
  virtual Status GetOutputTiming(MxTime* presentationTimeStamp, MxTime* duration);
  virtual Status CopyFormatDescription(MxFormatDescriptionRef* out);
};

class QorSampleCursorService : public MxObject {
 public:
  virtual Status CreateCursorAtFirstSample(MxRef<QorSampleCursor>* out);
};

class QorTrackReader : public MxObject {
 public:
  virtual Status GetTrackInfo(QorTrackID* trackID, FourCC* mediaType);
  virtual Status CopySampleCursorService(MxRef<QorSampleCursorService>* out);
};

class QorSampleGenerator : public MxObject {
 public:
  virtual Status CreateSampleBufferAtCursor(QorSampleCursor* cursor, MxRef<MxSampleBuffer>* out);
};

class QorFormatReader : public MxObject {
 public:
  virtual Status GetTrackCount(int64_t* count);
  virtual Status CopyTrackByIndex(int64_t index, MxRef<QorTrackReader>* track, FourCC* mediaType,
                                  QorTrackID* trackID);
  // The generator that reads sample data through byte streams. The base version makes the
  // library's byte-stream generator, which asks the cursor for the sample's location, timing
  // and format description; a reader with its own way of loading samples overrides this.
  virtual Status CreateSampleGeneratorUsingByteStreams(MxAllocator* allocator,
                                                       QorTrackReader* track,
                                                       MxRef<QorSampleGenerator>* out);
};

using QorFormatReaderRef = MxRef<QorFormatReader>;
using QorTrackReaderRef = MxRef<QorTrackReader>;
using QorSampleCursorServiceRef = MxRef<QorSampleCursorService>;
using QorSampleCursorRef = MxRef<QorSampleCursor>;
using QorSampleGeneratorRef = MxRef<QorSampleGenerator>;

// Entry points. A null object answers kMxErrInvalidParameter; outputs documented as optional
// may be null.
Status QorFormatReaderGetTrackCount(QorFormatReader* reader, int64_t* count);
// `mediaType` and `trackID` are optional.
Status QorFormatReaderCopyTrackByIndex(QorFormatReader* reader, int64_t index,
                                       QorTrackReaderRef* track, FourCC* mediaType,
                                       QorTrackID* trackID);
// `mediaType` is optional.
Status QorTrackReaderGetTrackInfo(QorTrackReader* track, QorTrackID* trackID, FourCC* mediaType);
Status QorTrackReaderCopySampleCursorService(QorTrackReader* track, QorSampleCursorServiceRef* out);
Status QorSampleCursorServiceCreateCursorAtFirstSample(QorSampleCursorService* service,
                                                       QorSampleCursorRef* out);
Status QorSampleCursorStep(QorSampleCursor* cursor, int64_t stepCount, int64_t* stepped);
Status QorSampleGeneratorCreateSampleBufferAtCursor(QorSampleGenerator* generator,
                                                    QorSampleCursor* cursor,
                                                    MxSampleBufferRef* out);
// `options` must be null and `flags` and `reserved` zero: they are kept for generators with
// other read scheduling.
Status QorSampleGeneratorCreateForFormatReaderUsingByteStreams(
    MxAllocator* allocator, QorFormatReader* reader, QorTrackReader* track,
    const MxDictionary* options, uint32_t flags, uint32_t reserved, QorSampleGeneratorRef* out);

// Largest sample the byte-stream generator loads; a bigger one is refused with
// kMxErrInvalidParameter rather than read into memory.
inline constexpr int64_t kQorSampleGeneratorMaxSampleLength = int64_t{256} << 20;
