#include "media/formats/audiostream/audio_stream_probe.h"

#include <algorithm>
#include <cstring>

#include "media/core/error_signal.h"
#include "media/formats/audiostream/audio_frame_header.h"

namespace {

// Bytes of frames walked before the rest of the stream is estimated from them.
constexpr size_t kWalkBudget = 4u << 20;
// Bytes read at a time while walking, and how far before the asked offset a read starts, so
// that looking a few frames ahead and coming back does not read the same bytes again.
constexpr size_t kWalkChunk = 64u << 10;
constexpr int64_t kLookBehind = 16 << 10;
// How far into the stream (after tags) the first frame is looked for.
constexpr size_t kSyncSearch = 64u << 10;
// Consecutive frames that must chain up before a stream kind is believed (fewer when the
// stream ends first).
constexpr int kFramesToConfirm = 3;
// ID3v2 tags skipped at most at the start.
constexpr int kMaxTags = 4;

// Walks forward through the stream in chunks, so that frames may be inspected wherever they are.
class FrameWindow {
 public:
  explicit FrameWindow(ProbeReader& reader) : reader_(reader) {}
  // Makes at least `size` bytes at `offset` available (fewer at the end of the data); the bytes
  // stay valid until the next call.
  Status At(int64_t offset, size_t size, const uint8_t** p, size_t* available) {
    if (offset < start_ || offset + static_cast<int64_t>(size) > start_ + Size()) {
      const int64_t start = std::max(int64_t{0}, offset - kLookBehind);
      const size_t want = static_cast<size_t>(offset - start) + std::max(size, kWalkChunk);
      Status status = reader_.ReadAt(start, want, &bytes_);
      if (status != kNoErr) return status;
      start_ = start;
    }
    // Past the end of the data, no bytes are available.
    const size_t skip = std::min(static_cast<size_t>(offset - start_), bytes_.size());
    *p = bytes_.data() + skip;
    *available = std::min(size, bytes_.size() - skip);
    return kNoErr;
  }

 private:
  int64_t Size() const { return static_cast<int64_t>(bytes_.size()); }
  ProbeReader& reader_;
  std::vector<uint8_t> bytes_;
  int64_t start_ = 0;
};

// Offset of the audio after any ID3v2 tags.
Status SkipTags(ProbeReader& reader, int64_t* offset) {
  std::vector<uint8_t> header;
  for (int i = 0; i < kMaxTags; i++) {
    Status status = reader.ReadAt(*offset, 10, &header);
    if (status != kNoErr) return status;
    if (header.size() < 10 || memcmp(header.data(), "ID3", 3) != 0) return kNoErr;
    // A synchronisation-safe size: four 7-bit groups.
    if ((header[6] | header[7] | header[8] | header[9]) & 0x80) return kNoErr;
    const int64_t size =
        (int64_t{header[6]} << 21) | (header[7] << 14) | (header[8] << 7) | header[9];
    const bool footer = (header[5] & 0x10) != 0;
    *offset += 10 + size + (footer ? 10 : 0);
  }
  return kNoErr;
}

struct Walk {
  uint64_t frames = 0;
  uint64_t samples = 0;
  uint64_t bytes = 0;
  bool reachedEnd = false;
};

// True when frames of `kind` chain up from `offset`: each header valid and of the same form,
// each next header exactly where the previous frame ends (or the data ends there).
Status Chains(FrameWindow& window, int64_t length, AudioFrameKind kind, int64_t offset,
              AudioFrame* first, bool* chains) {
  *chains = false;
  AudioFrame frame;
  for (int i = 0; i < kFramesToConfirm; i++) {
    if (offset == length && i > 0) break;
    const uint8_t* p = nullptr;
    size_t n = 0;
    Status status = window.At(offset, 16, &p, &n);
    if (status != kNoErr) return status;
    if (!ParseAudioFrameHeader(kind, p, n, &frame)) return kNoErr;
    if (i == 0) *first = frame;
    if (frame.form != first->form || frame.sampleRate != first->sampleRate) return kNoErr;
    offset += frame.size;
    if (offset > length) return kNoErr;
  }
  *chains = true;
  return kNoErr;
}

// Looks for the next place where frames of `kind` chain up, within the sync search distance.
Status Resync(FrameWindow& window, int64_t length, AudioFrameKind kind, int64_t from,
              const AudioFrame& first, int64_t* found) {
  *found = -1;
  const int64_t end = std::min(length, from + static_cast<int64_t>(kSyncSearch));
  for (int64_t offset = from; offset < end; offset++) {
    AudioFrame frame;
    bool chains = false;
    Status status = Chains(window, length, kind, offset, &frame, &chains);
    if (status != kNoErr) return status;
    if (chains && frame.form == first.form && frame.sampleRate == first.sampleRate) {
      *found = offset;
      return kNoErr;
    }
  }
  return kNoErr;
}

Status WalkFrames(FrameWindow& window, int64_t length, AudioFrameKind kind, int64_t offset,
                  const AudioFrame& first, Walk* walk) {
  while (walk->bytes < kWalkBudget) {
    if (offset >= length) {
      walk->reachedEnd = true;
      return kNoErr;
    }
    const uint8_t* p = nullptr;
    size_t n = 0;
    Status status = window.At(offset, 16, &p, &n);
    if (status != kNoErr) return status;
    AudioFrame frame;
    if (!ParseAudioFrameHeader(kind, p, n, &frame) || frame.form != first.form ||
        frame.sampleRate != first.sampleRate || offset + frame.size > length) {
      // A few trailing bytes that are no frame (a tag, a cut-off frame) end the stream; in
      // the middle of the stream, the walk goes on at the next frame.
      if (length - offset <= static_cast<int64_t>(kSyncSearch)) {
        walk->reachedEnd = true;
        return kNoErr;
      }
      int64_t next = -1;
      status = Resync(window, length, kind, offset + 1, first, &next);
      if (status != kNoErr) return status;
      if (next < 0) return kNoErr;  // no more frames found: the rest is estimated
      walk->bytes += static_cast<uint64_t>(next - offset);
      offset = next;
      continue;
    }
    walk->frames++;
    walk->samples += frame.samples;
    walk->bytes += frame.size;
    offset += frame.size;
  }
  return kNoErr;
}

// AMR storage: a magic line, then frames of a table-of-contents byte and a payload whose size
// the frame type gives; every frame is 20 ms.
constexpr char kAMRMagic[] = "#!AMR\n";
constexpr char kAMRWBMagic[] = "#!AMR-WB\n";
constexpr uint8_t kAMRSizes[16] = {12, 13, 15, 17, 19, 20, 26, 31, 5, 6, 5, 5, 0, 0, 0, 0};
constexpr uint8_t kAMRWBSizes[16] = {17, 23, 32, 36, 40, 46, 50, 58, 60, 5, 0, 0, 0, 0, 0, 0};

Status ProbeAMR(ProbeReader& reader, FrameWindow& window, bool wideBand, int64_t offset,
                ContainerProbe* out) {
  const uint8_t* sizes = wideBand ? kAMRWBSizes : kAMRSizes;
  Walk walk;
  const int64_t length = reader.Length();
  while (walk.bytes < kWalkBudget && !walk.reachedEnd) {
    const uint8_t* p = nullptr;
    size_t n = 0;
    Status status = window.At(offset, 1, &p, &n);
    if (status != kNoErr) return status;
    const int64_t frameSize = n == 0 ? 0 : 1 + sizes[(p[0] >> 3) & 0xF];
    if (n == 0 || offset + frameSize > length) {
      walk.reachedEnd = true;
      break;
    }
    walk.frames++;
    walk.bytes += static_cast<uint64_t>(frameSize);
    offset += frameSize;
  }
  out->tracks = {{kProbeMediaType_Sound, 1}};
  const int64_t audioBytes = length - (wideBand ? 9 : 6);
  if (walk.reachedEnd) {
    out->duration = ProbeDurationFromCount(walk.frames, 1, 50);
    out->durationIsExact = true;
  } else if (walk.bytes != 0) {
    out->duration =
        ProbeDurationFromSeconds(static_cast<double>(walk.frames) / 50 *
                                 static_cast<double>(audioBytes) / static_cast<double>(walk.bytes));
  }
  return kNoErr;
}

}  // namespace

Status AudioStreamProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  int64_t start = 0;
  Status status = SkipTags(reader, &start);
  if (status != kNoErr) return status;
  const int64_t length = reader.Length();
  FrameWindow window(reader);

  const uint8_t* p = nullptr;
  size_t n = 0;
  status = window.At(start, 16, &p, &n);
  if (status != kNoErr) return status;
  if (n >= 9 && memcmp(p, kAMRWBMagic, 9) == 0)
    return ProbeAMR(reader, window, true, start + 9, out);
  if (n >= 6 && memcmp(p, kAMRMagic, 6) == 0)
    return ProbeAMR(reader, window, false, start + 6, out);

  const int64_t searchEnd = std::min(length, start + static_cast<int64_t>(kSyncSearch));
  for (int64_t offset = start; offset < searchEnd; offset++) {
    status = window.At(offset, 2, &p, &n);
    if (status != kNoErr) return status;
    if (n < 2 || !((p[0] == 0xFF && (p[1] & 0xE0) == 0xE0) || (p[0] == 0x0B && p[1] == 0x77)))
      continue;
    for (AudioFrameKind kind :
         {AudioFrameKind::kMPEGAudio, AudioFrameKind::kADTS, AudioFrameKind::kAC3}) {
      AudioFrame first;
      bool chains = false;
      status = Chains(window, length, kind, offset, &first, &chains);
      if (status != kNoErr) return status;
      if (!chains) continue;
      out->tracks = {{kProbeMediaType_Sound, 1}};
      int64_t audioStart = offset;
      if (kind == AudioFrameKind::kMPEGAudio) {
        status = window.At(offset, first.size, &p, &n);
        if (status != kNoErr) return status;
        bool haveCount = false;
        uint32_t frames = 0, streamBytes = 0;
        if (MPEGAudioInfoFrame(p, n, &haveCount, &frames, &streamBytes)) {
          // A stream shorter than its information frame says was cut: its frames are counted.
          const bool cut = streamBytes != 0 && length - offset < int64_t{streamBytes};
          if (haveCount && !cut) {
            out->duration = ProbeDurationFromCount(frames, first.samples, first.sampleRate);
            out->durationIsExact = true;
            return kNoErr;
          }
          audioStart += first.size;  // the information frame holds no audio
        }
      }
      Walk walk;
      status = WalkFrames(window, length, kind, audioStart, first, &walk);
      if (status != kNoErr) return status;
      if (walk.reachedEnd) {
        out->duration = ProbeDurationFromCount(walk.samples, 1, first.sampleRate);
        out->durationIsExact = true;
      } else {
        const double seconds = static_cast<double>(walk.samples) / first.sampleRate *
                               static_cast<double>(length - audioStart) /
                               static_cast<double>(walk.bytes);
        out->duration = ProbeDurationFromSeconds(seconds);
      }
      return kNoErr;
    }
  }
  return QorSignalErrorAt(kMxErrFormatNotRecognised);
}
