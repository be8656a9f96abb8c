// Feeds arbitrary bytes to the MPEG audio, ADTS, AMR and AC-3 stream probe, checking that what it
// reports is sane and that it never reads more than its budget.
#include <cstdint>
#include <cstdlib>

#include "media/formats/audiostream/audio_stream_probe.h"
#include "probe_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ContainerProbe probe;
  ProbeReader reader = ProbeReader::ForMemory(data, size);
  if (AudioStreamProbe(reader, &probe) == kNoErr) CheckProbeResult(probe, reader);
  return 0;
}
