// What every container probe must guarantee for any input: it never reads more than its budget,
// every track it lists has a media type, and a duration it reports is a valid, non-negative time.
#pragma once

#include <cstdlib>

#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

inline void CheckProbeResult(const ContainerProbe& probe, const ProbeReader& reader) {
  if (reader.BytesRead() > kProbeReadBudget) abort();
  for (const ProbedTrack& track : probe.tracks)
    if (track.mediaType == 0) abort();
  if (MxTimeIsValid(probe.duration) && (probe.duration.timescale <= 0 || probe.duration.value < 0))
    abort();
}
