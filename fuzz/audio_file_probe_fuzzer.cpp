// Feeds arbitrary bytes to the WAV, RF64, AIFF, AIFC, CAF and AU probe, checking that what it
// reports is sane and that it never reads more than its budget.
#include <cstdint>
#include <cstdlib>

#include "media/formats/audiofile/audio_file_probe.h"
#include "probe_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ContainerProbe probe;
  ProbeReader reader = ProbeReader::ForMemory(data, size);
  if (AudioFileProbe(reader, &probe) == kNoErr) CheckProbeResult(probe, reader);
  return 0;
}
