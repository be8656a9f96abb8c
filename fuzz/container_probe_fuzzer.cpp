// Feeds arbitrary bytes to every container probe (MPEG program and transport streams in both
// timing modes, AVI, DV, the WAV/RF64/AIFF/AIFC/CAF/AU audio files, and the MPEG audio, ADTS,
// AMR and AC-3 streams), checking that what each reports is sane and that none reads more than
// its budget; and to the transport stream's first time stamp, which must fit in 33 bits.
#include <cstdint>
#include <cstdlib>
#include <functional>

#include "media/formats/audiofile/audio_file_probe.h"
#include "media/formats/audiostream/audio_stream_probe.h"
#include "media/formats/avi/avi_probe.h"
#include "media/formats/dv/dv_probe.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "probe_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::function<Status(ProbeReader&, ContainerProbe*)> probes[] = {
      [](ProbeReader& r, ContainerProbe* p) { return MPEGProbe(r, false, p); },
      [](ProbeReader& r, ContainerProbe* p) { return MPEGProbe(r, true, p); },
      AVIProbe,
      DVProbe,
      AudioFileProbe,
      AudioStreamProbe};
  for (const auto& probe : probes) {
    ContainerProbe result;
    ProbeReader reader = ProbeReader::ForMemory(data, size);
    if (probe(reader, &result) == kNoErr) CheckProbeResult(result, reader);
  }
  ProbeReader reader = ProbeReader::ForMemory(data, size);
  int64_t pts = 0;
  if (MPEGTransportStreamGetFirstPTS(reader, &pts) == kNoErr &&
      (pts < 0 || pts >= (int64_t{1} << 33)))
    abort();
  return 0;
}
