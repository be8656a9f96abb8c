#include "media/formats/mpeg/mpeg_probe.h"

#include <algorithm>
#include <set>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/formats/mpeg/mpeg_timeline.h"
#include "media/formats/mpeg/pes_header.h"
#include "media/formats/mpeg/program_stream.h"
#include "media/formats/mpeg/transport_stream.h"

namespace {

// How much is read at the head and at the tail. Precise timing reads more of both, which finds
// time stamps of streams that are sparse near either end.
constexpr size_t kWindow = 1u << 20;
constexpr size_t kPreciseWindow = 3u << 20;

// The head and the tail of a file: one read when the file is small enough, else two windows.
struct HeadAndTail {
  std::vector<uint8_t> head;
  std::vector<uint8_t> tail;  // empty when `head` holds the whole file
  int64_t tailOffset = 0;
};

Status ReadHead(ProbeReader& reader, size_t window, HeadAndTail* out) {
  const size_t whole = 2 * window;
  const bool small = reader.Length() <= static_cast<int64_t>(whole);
  return reader.ReadAt(0, small ? whole : window, &out->head);
}

// Reads the tail window, its start moved forward to the next packet boundary (`step` bytes
// apart from `firstPacket`; a step of 1 means no alignment).
Status ReadTail(ProbeReader& reader, size_t window, int64_t firstPacket, size_t step,
                HeadAndTail* out) {
  if (reader.Length() <= static_cast<int64_t>(2 * window)) return kNoErr;
  int64_t offset = reader.Length() - static_cast<int64_t>(window);
  const int64_t misalignment = (offset - firstPacket) % static_cast<int64_t>(step);
  if (misalignment != 0) offset += static_cast<int64_t>(step) - misalignment;
  out->tailOffset = offset;
  return reader.ReadAt(offset, window, &out->tail);
}

class TransportTiming final : public TransportStreamWalker::Visitor {
 public:
  TransportTiming(MPEGTimeline* timeline, bool head, bool tail)
      : timeline_(timeline), head_(head), tail_(tail) {}
  void PacketStart(uint16_t pid, const uint8_t* pes, size_t size) override {
    uint64_t pts = 0;
    if (!PESHeaderGetPTS(pes, size, false, &pts, nullptr)) return;
    if (head_) timeline_->AddHead(pid, pts);
    if (tail_)
      timeline_->AddTail(pid, pts,
                         size >= 6 ? static_cast<uint16_t>(MxLoadBigEndian(pes + 4, 2)) : 0);
  }
  void ProgramClock(uint16_t, uint64_t clock) override {
    if (head_) timeline_->AddHeadClock(clock);
    if (tail_) timeline_->AddTailClock(clock);
  }

 private:
  MPEGTimeline* timeline_;
  bool head_, tail_;
};

class ProgramTiming final : public ProgramStreamWalker::Visitor {
 public:
  ProgramTiming(MPEGTimeline* timeline, bool head, bool tail)
      : timeline_(timeline), head_(head), tail_(tail) {}
  void Packet(uint32_t key, uint32_t mediaType, bool havePTS, uint64_t pts,
              uint32_t size) override {
    packets++;
    if (mediaType == 0) return;
    if (head_ && std::find(keys.begin(), keys.end(), key) == keys.end()) {
      keys.push_back(key);
      mediaTypes.push_back(mediaType);
    }
    if (!havePTS) return;
    if (head_) timeline_->AddHead(key, pts);
    if (tail_) timeline_->AddTail(key, pts, size);
  }
  void SystemClock(uint64_t clock) override {
    if (head_) timeline_->AddHeadClock(clock);
    if (tail_) timeline_->AddTailClock(clock);
  }
  // Presented streams in the order of their first packet.
  size_t packets = 0;
  std::vector<uint32_t> keys;
  std::vector<uint32_t> mediaTypes;

 private:
  MPEGTimeline* timeline_;
  bool head_, tail_;
};

void SetDuration(const MPEGTimeline& timeline, const std::set<uint32_t>& streams,
                 ContainerProbe* out) {
  uint64_t ticks = 0;
  auto include = [&streams](uint32_t stream) { return streams.count(stream) != 0; };
  if (timeline.Duration(include, &ticks))
    out->duration = MxTimeMake(static_cast<int64_t>(ticks), kMPEGClockRate);
  out->durationIsExact = false;
}

Status ProbeTransportStream(ProbeReader& reader, size_t window, HeadAndTail& data,
                            TransportStreamLayout layout, ContainerProbe* out) {
  MPEGTimeline timeline;
  TransportStreamWalker walker(layout);
  const size_t first = static_cast<size_t>(layout.firstPacket);
  const bool whole = reader.Length() <= static_cast<int64_t>(2 * window);
  TransportTiming headTiming(&timeline, true, whole);
  walker.Walk(data.head.data() + first, data.head.size() - first, &headTiming);
  if (!walker.HaveProgramTables()) return QorSignalErrorAt(kMxErrFormatDamaged);
  if (!whole) {
    Status status = ReadTail(reader, window, layout.firstPacket, layout.packetSize, &data);
    if (status != kNoErr) return status;
    TransportStreamWalker tailWalker(layout);
    TransportTiming tailTiming(&timeline, false, true);
    tailWalker.Walk(data.tail.data(), data.tail.size(), &tailTiming);
  }
  std::set<uint32_t> presented;
  for (const TransportElementaryStream& stream : walker.Streams()) {
    if (stream.mediaType == 0) continue;
    out->tracks.push_back({stream.mediaType, stream.pid});
    presented.insert(stream.pid);
  }
  SetDuration(timeline, presented, out);
  return kNoErr;
}

Status ProbeProgramStream(ProbeReader& reader, size_t window, HeadAndTail& data,
                          ContainerProbe* out) {
  MPEGTimeline timeline;
  const bool whole = reader.Length() <= static_cast<int64_t>(2 * window);
  ProgramTiming headTiming(&timeline, true, whole);
  ProgramStreamWalker::Walk(data.head.data(), data.head.size(), &headTiming);
  if (headTiming.packets == 0) return QorSignalErrorAt(kMxErrFormatDamaged);
  if (!whole) {
    Status status = ReadTail(reader, window, 0, 1, &data);
    if (status != kNoErr) return status;
    ProgramTiming tailTiming(&timeline, false, true);
    ProgramStreamWalker::Walk(data.tail.data(), data.tail.size(), &tailTiming);
  }
  std::set<uint32_t> presented;
  for (size_t i = 0; i < headTiming.keys.size(); i++) {
    out->tracks.push_back({headTiming.mediaTypes[i], headTiming.keys[i]});
    presented.insert(headTiming.keys[i]);
  }
  SetDuration(timeline, presented, out);
  return kNoErr;
}

}  // namespace

Status MPEGProbe(ProbeReader& reader, bool preciseTiming, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  const size_t window = preciseTiming ? kPreciseWindow : kWindow;
  HeadAndTail data;
  Status status = ReadHead(reader, window, &data);
  if (status != kNoErr) return status;
  TransportStreamLayout layout;
  if (TransportStreamFindLayout(data.head.data(), data.head.size(), &layout))
    return ProbeTransportStream(reader, window, data, layout, out);
  if (ProgramStreamStartsWithPack(data.head.data(), data.head.size()))
    return ProbeProgramStream(reader, window, data, out);
  return QorSignalErrorAt(kMxErrNotMPEGStream);
}

Status MPEGTransportStreamGetFirstPTS(ProbeReader& reader, int64_t* pts) {
  if (pts == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  std::vector<uint8_t> head;
  Status status = reader.ReadAt(0, kPreciseWindow, &head);
  if (status != kNoErr) return status;
  TransportStreamLayout layout;
  if (!TransportStreamFindLayout(head.data(), head.size(), &layout))
    return QorSignalErrorAt(kMxErrNotMPEGStream);
  MPEGTimeline timeline;
  TransportStreamWalker walker(layout);
  TransportTiming timing(&timeline, true, false);
  const size_t first = static_cast<size_t>(layout.firstPacket);
  walker.Walk(head.data() + first, head.size() - first, &timing);
  for (uint32_t wanted : {kProbeMediaType_Video, kProbeMediaType_Sound}) {
    for (const TransportElementaryStream& stream : walker.Streams()) {
      uint64_t stamp = 0;
      if (stream.mediaType == wanted && timeline.First(stream.pid, &stamp)) {
        *pts = static_cast<int64_t>(stamp);
        return kNoErr;
      }
    }
  }
  return QorSignalErrorAt(kMxErrPropertyNotAvailable);
}
