// Feeds arbitrary bytes to the MPEG program and transport stream probe, both timing modes, and the
// first time stamp, checking that what it reports is sane and that it never reads more than its
// budget.
#include <cstdint>
#include <cstdlib>

#include "media/formats/mpeg/mpeg_probe.h"
#include "probe_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ContainerProbe probe;
  for (bool precise : {false, true}) {
    ProbeReader reader = ProbeReader::ForMemory(data, size);
    if (MPEGProbe(reader, precise, &probe) == kNoErr) CheckProbeResult(probe, reader);
  }
  ProbeReader reader = ProbeReader::ForMemory(data, size);
  int64_t pts = 0;
  if (MPEGTransportStreamGetFirstPTS(reader, &pts) == kNoErr &&
      (pts < 0 || pts >= (int64_t{1} << 33)))
    abort();
  return 0;
}
