#include "media/formats/mpeg/transport_stream.h"

#include <algorithm>

#include "media/core/byte_cursor.h"
#include "media/formats/mpeg/mpeg_stream_types.h"

namespace {

constexpr uint8_t kSyncByte = 0x47;
// Packets whose sync bytes must line up before a layout is believed (fewer when the whole
// file holds fewer, but never fewer than two).
constexpr size_t kSyncsToConfirm = 8;
// The most program map pids and sections followed at once; real streams have a handful.
constexpr size_t kMaxProgramMaps = 64;
// Longest program table section: 1021 bytes after the 3-byte section header.
constexpr size_t kMaxSectionSize = 1024;

bool SyncsLineUp(const uint8_t* head, size_t size, size_t packetSize, size_t start) {
  const size_t syncAt = packetSize == 192 ? 4 : 0;
  const size_t available = start < size ? (size - start) / packetSize : 0;
  const size_t needed = std::min(kSyncsToConfirm, available);
  if (needed < 2) return false;
  for (size_t k = 0; k < needed; k++)
    if (head[start + k * packetSize + syncAt] != kSyncByte) return false;
  return true;
}

}  // namespace

bool TransportStreamFindLayout(const uint8_t* head, size_t size, TransportStreamLayout* out) {
  for (size_t packetSize : {size_t{188}, size_t{192}}) {
    for (size_t start = 0; start < packetSize; start++) {
      if (SyncsLineUp(head, size, packetSize, start)) {
        *out = {packetSize, static_cast<int64_t>(start)};
        return true;
      }
    }
  }
  return false;
}

void TransportStreamWalker::Walk(const uint8_t* bytes, size_t size, Visitor* visitor) {
  const size_t syncAt = layout_.packetSize - kTransportPacketSize;
  for (size_t at = 0; at + layout_.packetSize <= size; at += layout_.packetSize) {
    const uint8_t* packet = bytes + at + syncAt;
    if (packet[0] != kSyncByte) continue;  // a damaged packet is skipped, not fatal
    if (packet[1] & 0x80) continue;        // transport error indicator
    const bool unitStart = (packet[1] & 0x40) != 0;
    const uint16_t pid = static_cast<uint16_t>(((packet[1] & 0x1F) << 8) | packet[2]);
    const uint8_t control = (packet[3] >> 4) & 3;
    size_t payload = 4;
    if (control & 2) {
      const size_t adaptationLength = packet[4];
      if (adaptationLength > kTransportPacketSize - 5) continue;
      if (adaptationLength >= 7 && (packet[5] & 0x10)) {
        const uint8_t* pcr = packet + 6;
        const uint64_t base = (uint64_t{pcr[0]} << 25) | (uint64_t{pcr[1]} << 17) |
                              (uint64_t{pcr[2]} << 9) | (uint64_t{pcr[3]} << 1) | (pcr[4] >> 7);
        visitor->ProgramClock(pid, base);
      }
      payload = 5 + adaptationLength;
    }
    if (!(control & 1) || payload >= kTransportPacketSize) continue;
    const uint8_t* p = packet + payload;
    const size_t n = kTransportPacketSize - payload;
    if (pid == 0 || IsProgramMapPid(pid)) {
      Payload(pid, unitStart, p, n);
    } else if (unitStart) {
      visitor->PacketStart(pid, p, n);
    }
  }
}

bool TransportStreamWalker::IsProgramMapPid(uint16_t pid) const {
  return std::find(programMapPids_.begin(), programMapPids_.end(), pid) != programMapPids_.end();
}

TransportStreamWalker::Section* TransportStreamWalker::SectionFor(uint16_t pid) {
  for (Section& section : sections_)
    if (section.pid == pid) return &section;
  if (sections_.size() > kMaxProgramMaps) return nullptr;
  sections_.push_back(Section{pid, {}, false});
  return &sections_.back();
}

void TransportStreamWalker::Payload(uint16_t pid, bool unitStart, const uint8_t* p, size_t size) {
  Section* section = SectionFor(pid);
  if (section == nullptr) return;
  if (!unitStart) {
    if (section->active) SectionBytes(pid, p, size);
    return;
  }
  const size_t pointer = p[0];
  if (1 + pointer > size) {
    section->active = false;
    return;
  }
  if (section->active) SectionBytes(pid, p + 1, pointer);
  section = SectionFor(pid);
  if (section == nullptr) return;
  section->bytes.clear();
  section->active = true;
  SectionBytes(pid, p + 1 + pointer, size - 1 - pointer);
}

// Appends payload bytes to the section being collected and hands every complete section on.
// After a section, a 0xFF byte means the rest of the packet is stuffing.
void TransportStreamWalker::SectionBytes(uint16_t pid, const uint8_t* p, size_t size) {
  while (size > 0) {
    // Table() may add section records, so the record is looked up afresh on every turn.
    Section* section = SectionFor(pid);
    if (section == nullptr || !section->active) return;
    if (section->bytes.empty() && p[0] == 0xFF) {
      section->active = false;
      return;
    }
    const size_t want =
        section->bytes.size() < 3
            ? 3
            : 3 + (static_cast<uint16_t>(MxLoadBigEndian(&section->bytes[1], 2)) & 0x0FFF);
    // A section too long to be a program table, or with no body at all, ends the collection.
    if (want > kMaxSectionSize || (section->bytes.size() >= 3 && want == 3)) {
      section->active = false;
      return;
    }
    const size_t take = std::min(size, want - section->bytes.size());
    section->bytes.insert(section->bytes.end(), p, p + take);
    p += take;
    size -= take;
    if (want > 3 && section->bytes.size() == want) {
      std::vector<uint8_t> complete;
      complete.swap(section->bytes);
      Table(pid, complete.data(), complete.size());
    }
  }
}

void TransportStreamWalker::Table(uint16_t pid, const uint8_t* p, size_t size) {
  MxByteCursor cursor(p, size);
  uint8_t tableId = 0;
  uint16_t sectionLength = 0;
  if (!cursor.ReadU8(&tableId) || !cursor.ReadU16(&sectionLength)) return;
  MxByteCursor body(nullptr, 0);
  // The section body ends with a 4-byte checksum, which is not needed to list the streams.
  if ((sectionLength & 0x0FFF) < 9 || !cursor.Sub((sectionLength & 0x0FFF) - 4, &body)) return;
  if (pid == 0 && tableId == 0) {
    if (!body.Skip(5)) return;  // stream id, version, section numbers
    uint16_t program = 0, mapPid = 0;
    while (body.ReadU16(&program) && body.ReadU16(&mapPid)) {
      mapPid &= 0x1FFF;
      if (program != 0 && mapPid != 0 && !IsProgramMapPid(mapPid) &&
          programMapPids_.size() < kMaxProgramMaps)
        programMapPids_.push_back(mapPid);
    }
    return;
  }
  if (tableId != 2 || !IsProgramMapPid(pid)) return;
  uint16_t infoLength = 0;
  if (!body.Skip(7) || !body.ReadU16(&infoLength) || !body.Skip(infoLength & 0x0FFF)) return;
  sawProgramMap_ = true;
  uint8_t streamType = 0;
  uint16_t esPid = 0, esInfoLength = 0;
  while (body.ReadU8(&streamType) && body.ReadU16(&esPid) && body.ReadU16(&esInfoLength)) {
    MxByteCursor descriptors(nullptr, 0);
    if (!body.Sub(esInfoLength & 0x0FFF, &descriptors)) return;
    esPid &= 0x1FFF;
    const bool known = std::any_of(streams_.begin(), streams_.end(),
                                   [esPid](const auto& s) { return s.pid == esPid; });
    if (known) continue;
    streams_.push_back(
        {esPid, streamType,
         MPEGStreamTypeMediaType(streamType, descriptors.Current(), descriptors.Remaining())});
  }
}
