#include "media/formats/dv/dv_probe.h"

#include "media/core/error_signal.h"

namespace {

constexpr size_t kDIFBlockSize = 80;
constexpr int64_t kFrameSize525 = 120000;  // 10 DIF sequences of 150 blocks
constexpr int64_t kFrameSize625 = 144000;  // 12 DIF sequences

// The first block of a frame is the header block of sequence 0 (section type 0, block 0); the
// one after it is a subcode block (section type 1). The top bit of the header's fourth byte
// tells the 625-line system from the 525-line one.
bool IsFrameStart(const uint8_t* p, size_t size, bool* is625) {
  if (size < 2 * kDIFBlockSize) return false;
  if ((p[0] & 0xE0) != 0x00 || (p[1] & 0xF0) != 0x00 || p[2] != 0) return false;
  if ((p[kDIFBlockSize] & 0xE0) != 0x20) return false;
  *is625 = (p[3] & 0x80) != 0;
  return true;
}

}  // namespace

Status DVProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = ContainerProbe{};
  std::vector<uint8_t> head;
  Status status = reader.ReadAt(0, 2 * kDIFBlockSize, &head);
  if (status != kNoErr) return status;
  bool is625 = false;
  if (!IsFrameStart(head.data(), head.size(), &is625))
    return QorSignalErrorAt(kMxErrFormatNotRecognised);
  const int64_t frameSize = is625 ? kFrameSize625 : kFrameSize525;
  const int64_t frames = reader.Length() / frameSize;
  if (frames == 0) return QorSignalErrorAt(kMxErrFormatDamaged);
  // The last whole frame must start like the first: a file of another kind that happens to
  // begin like a DIF frame, or one whose frame size was misjudged, fails here.
  std::vector<uint8_t> last;
  status = reader.ReadAt((frames - 1) * frameSize, 2 * kDIFBlockSize, &last);
  if (status != kNoErr) return status;
  bool lastIs625 = false;
  if (!IsFrameStart(last.data(), last.size(), &lastIs625) || lastIs625 != is625)
    return QorSignalErrorAt(kMxErrFormatDamaged);
  out->tracks = {{kProbeMediaType_Video, 1}, {kProbeMediaType_Sound, 2}};
  out->duration = is625 ? ProbeDurationFromCount(static_cast<uint64_t>(frames), 1, 25)
                        : ProbeDurationFromCount(static_cast<uint64_t>(frames), 1001, 30000);
  out->durationIsExact = true;
  return kNoErr;
}
