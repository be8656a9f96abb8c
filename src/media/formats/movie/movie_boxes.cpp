#include "media/formats/movie/movie_boxes.h"

#include <cassert>

#include "media/core/error_signal.h"

namespace {

Status Malformed(QorErrorReason reason, std::initializer_list<uint64_t> numbers = {}) {
  return QorSignalErrorBecause(kMovieErrMalformed, reason, numbers);
}

constexpr char kCutShort[] = "the box is cut short";

// Version and flags of a full box.
bool ReadFullBoxHeader(MxByteCursor& c, uint8_t* version, uint32_t* flags) {
  return c.ReadU8(version) && c.ReadU24(flags);
}

// A table of `count` entries of `entrySize` bytes that must fit in what is left of the box.
Status TakeTable(MxByteCursor& c, uint32_t count, uint32_t entrySize, EntryTable* out) {
  if (uint64_t(count) * entrySize > c.Remaining())
    return Malformed("# entries do not fit in # bytes", {count, c.Remaining()});
  out->count = count;
  out->entrySize = entrySize;
  if (!c.Take(size_t(count) * entrySize, &out->bytes)) return Malformed(kCutShort);
  return kNoErr;
}

// Reads version, flags and an entry count, then the table of entries.
Status ParseCountedTable(std::span<const uint8_t> payload, uint32_t entrySize, EntryTable* out,
                         uint8_t* version = nullptr) {
  MxByteCursor c(payload);
  uint8_t v;
  uint32_t flags, count;
  if (!ReadFullBoxHeader(c, &v, &flags) || !c.ReadU32(&count)) return Malformed(kCutShort);
  if (version) *version = v;
  return TakeTable(c, count, entrySize, out);
}

}  // namespace

Status ParseBoxHeader(MxByteCursor& cursor, uint64_t available, BoxHeader* out) {
  MxByteCursor c = cursor;
  uint32_t size32, type;
  if (!c.ReadU32(&size32) || !c.ReadU32(&type)) return Malformed("a box header is cut short");
  BoxHeader h;
  h.type = type;
  h.headerSize = 8;
  if (size32 == 1) {
    if (!c.ReadU64(&h.size)) return Malformed("a box header is cut short");
    h.headerSize = 16;
  } else if (size32 == 0) {
    h.size = available;
  } else {
    h.size = size32;
  }
  if (type == MxFourCC("uuid")) {
    if (!c.Skip(16)) return Malformed("a box header is cut short");
    h.headerSize += 16;
  }
  if (h.size < h.headerSize)
    return Malformed("a box of # bytes is smaller than its # byte header", {h.size, h.headerSize});
  if (h.size > available)
    return Malformed("a box of # bytes does not fit in the # bytes left", {h.size, available});
  cursor = c;
  *out = h;
  return kNoErr;
}

Status FileTypeBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  if (!c.ReadU32(&majorBrand) || !c.ReadU32(&minorVersion)) return Malformed(kCutShort);
  return TakeTable(c, uint32_t(c.Remaining() / 4), 4, &compatibleBrands);
}

Status MovieHeaderBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  if (!ReadFullBoxHeader(c, &version, &flags)) return Malformed(kCutShort);
  const bool wide = version == 1;
  uint64_t creation, modification;
  if (!c.ReadU32or64(wide, &creation) || !c.ReadU32or64(wide, &modification) ||
      !c.ReadU32(&timescale) || !c.ReadU32or64(wide, &duration))
    return Malformed(kCutShort);
  if (timescale == 0) return Malformed("the timescale is 0");
  return kNoErr;
}

Status TrackHeaderBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint64_t creation, modification;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32or64(version == 1, &creation) ||
      !c.ReadU32or64(version == 1, &modification) || !c.ReadU32(&trackID))
    return Malformed(kCutShort);
  return kNoErr;
}

Status TrackReferenceTypeBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  // The number of IDs is bounded by the payload, which is part of the header already in memory.
  trackIDs.reserve(c.Remaining() / 4);
  uint32_t id;
  while (c.ReadU32(&id)) trackIDs.push_back(id);
  return c.AtEnd() ? kNoErr : Malformed("# bytes follow the last track ID", {c.Remaining()});
}

EditListBox::Entry EditListBox::At(uint32_t index) const {
  Entry e;
  uint32_t o = 0;
  const uint32_t w = wide ? 8 : 4;
  e.segmentDuration = entries.Field(index, o, w);
  o += w;
  uint64_t mediaTime = entries.Field(index, o, w);
  e.mediaTime = wide ? int64_t(mediaTime) : int64_t(int32_t(uint32_t(mediaTime)));
  o += w;
  e.rateInteger = int16_t(uint16_t(entries.Field(index, o, 2)));
  e.rateFraction = int16_t(uint16_t(entries.Field(index, o + 2, 2)));
  return e;
}

Status EditListBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags, count;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32(&count)) return Malformed(kCutShort);
  wide = version == 1;
  return TakeTable(c, count, wide ? 20 : 12, &entries);
}

EditShift InterpretEditList(const std::optional<EditListBox>& editList) {
  EditShift shift;
  if (!editList || editList->entries.count == 0) return shift;
  const uint32_t n = editList->entries.count;
  uint64_t empty = 0;
  for (uint32_t i = 0; i + 1 < n; ++i) {
    EditListBox::Entry e = editList->At(i);
    if (e.mediaTime != -1) return shift;
    if (e.segmentDuration > UINT64_MAX - empty) return shift;
    empty += e.segmentDuration;
  }
  EditListBox::Entry last = editList->At(n - 1);
  if (last.mediaTime != 0 || last.rateInteger != 1 || last.rateFraction != 0) return shift;
  shift.emptyDuration = empty;
  return shift;
}

Status MediaHeaderBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  uint64_t creation, modification;
  const bool wide = payload.size() > 0 && payload[0] == 1;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32or64(wide, &creation) ||
      !c.ReadU32or64(wide, &modification) || !c.ReadU32(&timescale) ||
      !c.ReadU32or64(wide, &duration) || !c.ReadU16(&language))
    return Malformed(kCutShort);
  if (timescale == 0) return Malformed("the timescale is 0");
  return kNoErr;
}

Status HandlerBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags, componentType;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32(&componentType) ||
      !c.ReadU32(&handlerType))
    return Malformed(kCutShort);
  return kNoErr;
}

Status ExtendedLanguageBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  if (!ReadFullBoxHeader(c, &version, &flags)) return Malformed(kCutShort);
  std::span<const uint8_t> rest = c.Rest();
  size_t n = 0;
  while (n < rest.size() && rest[n] != 0) ++n;
  if (n == rest.size()) return Malformed("the language tag has no terminating NUL");
  tag.assign(reinterpret_cast<const char*>(rest.data()), n);
  return kNoErr;
}

Status SampleDescriptionBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags, count;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32(&count)) return Malformed(kCutShort);
  // Every entry has at least a size and a type.
  if (uint64_t(count) * 8 > c.Remaining())
    return Malformed("# entries do not fit in # bytes", {count, c.Remaining()});
  entries.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    MxByteCursor at = c;
    BoxHeader h;
    if (Status err = ParseBoxHeader(at, c.Remaining(), &h)) return err;
    std::span<const uint8_t> entry;
    if (!c.Take(size_t(h.size), &entry)) return Malformed(kCutShort);
    entries.push_back(entry);
  }
  return kNoErr;
}

uint32_t SampleDescriptionBox::EntryType(size_t index) const {
  if (index >= entries.size()) return 0;
  return uint32_t(MxLoadBigEndian(entries[index], 4, 4));
}

Status TimeToSampleBox::Parse(std::span<const uint8_t> payload) {
  return ParseCountedTable(payload, 8, &runs);
}

Status CompositionOffsetBox::Parse(std::span<const uint8_t> payload) {
  uint8_t version = 0;
  if (Status err = ParseCountedTable(payload, 8, &runs, &version)) return err;
  signedOffsets = version == 1;
  return kNoErr;
}

Status SampleToChunkBox::Parse(std::span<const uint8_t> payload) {
  return ParseCountedTable(payload, 12, &runs);
}

uint32_t SampleSizeBox::SizeAt(uint32_t index) const {
  assert(index < sampleCount);  // a fault of the caller; 0 where assertions are compiled out
  if (constantSize != 0) return constantSize;
  if (index >= sampleCount) return 0;
  switch (fieldBits) {
    case 4: {
      uint8_t b = table[index / 2];
      return (index % 2 == 0) ? (b >> 4) : (b & 0x0F);
    }
    case 8:
      return table[index];
    case 16:
      return uint32_t(MxLoadBigEndian(table, size_t(index) * 2, 2));
    default:
      return uint32_t(MxLoadBigEndian(table, size_t(index) * 4, 4));
  }
}

Status SampleSizeBox::Parse(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version;
  uint32_t flags;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU32(&constantSize) ||
      !c.ReadU32(&sampleCount))
    return Malformed(kCutShort);
  fieldBits = 32;
  if (constantSize != 0) return kNoErr;
  if (uint64_t(sampleCount) * 4 > c.Remaining())
    return Malformed("# entries do not fit in # bytes", {sampleCount, c.Remaining()});
  if (!c.Take(size_t(sampleCount) * 4, &table)) return Malformed(kCutShort);
  return kNoErr;
}

Status SampleSizeBox::ParseCompact(std::span<const uint8_t> payload) {
  MxByteCursor c(payload);
  uint8_t version, fieldSize;
  uint32_t flags, reserved;
  if (!ReadFullBoxHeader(c, &version, &flags) || !c.ReadU24(&reserved) || !c.ReadU8(&fieldSize) ||
      !c.ReadU32(&sampleCount))
    return Malformed(kCutShort);
  if (fieldSize != 4 && fieldSize != 8 && fieldSize != 16)
    return Malformed("the field size is # bits, not 4, 8 or 16", {fieldSize});
  constantSize = 0;
  fieldBits = fieldSize;
  const uint64_t bytes = (uint64_t(sampleCount) * fieldSize + 7) / 8;
  if (bytes > c.Remaining())
    return Malformed("# entries do not fit in # bytes", {sampleCount, c.Remaining()});
  if (!c.Take(size_t(bytes), &table)) return Malformed(kCutShort);
  return kNoErr;
}

Status ChunkOffsetBox::Parse(std::span<const uint8_t> payload, bool wide) {
  return ParseCountedTable(payload, wide ? 8 : 4, &offsets);
}
