// Feeds arbitrary bytes to the MPEG audio, ADTS, AMR and AC-3 stream probe, checking that what it
// reports is sane and that it never reads more than its budget.
#include <cstdint>
#include <cstdlib>

#include "media/formats/audiostream/audio_stream_probe.h"

namespace {

void Check(const ContainerProbe& probe, const ProbeReader& reader) {
  if (reader.BytesRead() > kProbeReadBudget) abort();
  for (const ProbedTrack& track : probe.tracks)
    if (track.mediaType == 0) abort();
  if (MxTimeIsValid(probe.duration) && (probe.duration.timescale <= 0 || probe.duration.value < 0))
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ContainerProbe probe;
  ProbeReader reader = ProbeReader::ForMemory(data, size);
  if (AudioStreamProbe(reader, &probe) == kNoErr) Check(probe, reader);
  return 0;
}
