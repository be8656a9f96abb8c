// One small struct per box of a movie file's header, each with its own parse function. A parse
// function gets the box's payload (the bytes after its size and type) and answers kNoErr or
// kMovieErrMalformed. Tables keep a view of their entries inside the header bytes instead of a
// copy: their entry counts are checked against the payload size when they are parsed, so every
// later lookup by index is within bounds, and no allocation follows a count from the file.
#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/status.h"
#include "media/core/byte_cursor.h"
#include "media/core/four_cc.h"

// A box header: total size (header included) and the size of the header itself.
struct BoxHeader {
  uint32_t type = 0;
  uint64_t size = 0;
  uint32_t headerSize = 0;
};

// Reads a box header at the cursor. `available` is the number of bytes from the box's start to
// the end of its parent (or of the file): size 1 takes the 64-bit size that follows, size 0 means
// "to the end of the parent", and a size below the header's or beyond `available` is malformed.
Status ParseBoxHeader(MxByteCursor& cursor, uint64_t available, BoxHeader* out);

// A table of fixed-size entries inside the header bytes.
struct EntryTable {
  std::span<const uint8_t> bytes;
  uint32_t count = 0;
  uint32_t entrySize = 0;

  // The big-endian field of `width` bytes at `fieldOffset` in entry `index`. Reading outside the
  // table is a fault of the caller: it asserts, and answers 0 where assertions are compiled out.
  uint64_t Field(uint32_t index, uint32_t fieldOffset, uint32_t width) const {
    assert(index < count && fieldOffset + width <= entrySize);
    if (index >= count || fieldOffset + width > entrySize) return 0;
    return MxLoadBigEndian(bytes, size_t(index) * entrySize + fieldOffset, width);
  }
};

struct FileTypeBox {
  uint32_t majorBrand = 0;
  uint32_t minorVersion = 0;
  EntryTable compatibleBrands;
  Status Parse(std::span<const uint8_t> payload);
};

struct MovieHeaderBox {
  uint32_t timescale = 0;
  uint64_t duration = 0;
  Status Parse(std::span<const uint8_t> payload);
};

struct TrackHeaderBox {
  uint32_t flags = 0;
  uint32_t trackID = 0;
  bool Enabled() const { return (flags & 1) != 0; }
  Status Parse(std::span<const uint8_t> payload);
};

// The track IDs of one reference type in a 'tref' box.
struct TrackReferenceTypeBox {
  std::vector<uint32_t> trackIDs;
  Status Parse(std::span<const uint8_t> payload);
};

struct EditListBox {
  struct Entry {
    uint64_t segmentDuration = 0;  // movie timescale
    int64_t mediaTime = 0;         // media timescale; -1 is an empty edit
    int16_t rateInteger = 0;
    int16_t rateFraction = 0;
  };
  EntryTable entries;
  bool wide = false;  // version 1: 64-bit duration and media time

  Entry At(uint32_t index) const;
  Status Parse(std::span<const uint8_t> payload);
};

// What an edit list does to presentation times. Only these forms change nothing but a constant
// shift: no edit list, one edit that plays the media from time 0 at normal rate, or empty edits
// followed by one such edit (the empty edits' total delays every sample). Any other edit list is
// not applied: its samples keep their media times, and the shift is 0.
struct EditShift {
  uint64_t emptyDuration = 0;  // in the movie timescale
};
EditShift InterpretEditList(const std::optional<EditListBox>& editList);

struct MediaHeaderBox {
  uint32_t timescale = 0;
  uint64_t duration = 0;
  uint16_t language = 0;  // packed ISO 639-2/T letters, or a classic language number
  Status Parse(std::span<const uint8_t> payload);
};

struct HandlerBox {
  uint32_t handlerType = 0;
  Status Parse(std::span<const uint8_t> payload);
};

// 'elng': a NUL-terminated language tag (kept as read; checked where it is reported).
struct ExtendedLanguageBox {
  std::string tag;
  Status Parse(std::span<const uint8_t> payload);
};

// 'stsd': each entry's complete bytes (size and type included), for the format description.
struct SampleDescriptionBox {
  std::vector<std::span<const uint8_t>> entries;
  Status Parse(std::span<const uint8_t> payload);
  uint32_t EntryType(size_t index) const;
};

// 'stts': runs of (sample count, sample delta).
struct TimeToSampleBox {
  EntryTable runs;
  uint32_t RunCount(uint32_t i) const { return uint32_t(runs.Field(i, 0, 4)); }
  uint32_t RunDelta(uint32_t i) const { return uint32_t(runs.Field(i, 4, 4)); }
  Status Parse(std::span<const uint8_t> payload);
};

// 'ctts': runs of (sample count, composition offset); version 1 offsets are signed.
struct CompositionOffsetBox {
  EntryTable runs;
  bool signedOffsets = false;
  uint32_t RunCount(uint32_t i) const { return uint32_t(runs.Field(i, 0, 4)); }
  int64_t RunOffset(uint32_t i) const {
    uint32_t raw = uint32_t(runs.Field(i, 4, 4));
    return signedOffsets ? int64_t(int32_t(raw)) : int64_t(raw);
  }
  Status Parse(std::span<const uint8_t> payload);
};

// 'stsc': runs of (first chunk, samples per chunk, sample description index).
struct SampleToChunkBox {
  EntryTable runs;
  uint32_t FirstChunk(uint32_t i) const { return uint32_t(runs.Field(i, 0, 4)); }
  uint32_t SamplesPerChunk(uint32_t i) const { return uint32_t(runs.Field(i, 4, 4)); }
  uint32_t DescriptionIndex(uint32_t i) const { return uint32_t(runs.Field(i, 8, 4)); }
  Status Parse(std::span<const uint8_t> payload);
};

// 'stsz' or 'stz2': one size for every sample, or a table of 4, 8, 16 or 32-bit sizes.
struct SampleSizeBox {
  uint32_t constantSize = 0;
  uint32_t sampleCount = 0;
  uint32_t fieldBits = 32;  // width of the table's entries
  std::span<const uint8_t> table;

  uint32_t SizeAt(uint32_t index) const;
  Status Parse(std::span<const uint8_t> payload);         // 'stsz'
  Status ParseCompact(std::span<const uint8_t> payload);  // 'stz2'
};

// 'stco' or 'co64'.
struct ChunkOffsetBox {
  EntryTable offsets;
  uint64_t OffsetAt(uint32_t i) const { return offsets.Field(i, 0, offsets.entrySize); }
  Status Parse(std::span<const uint8_t> payload, bool wide);
};
