// DV files: a sequence of DIF frames, 120000 bytes each for 525-line 60 Hz systems and 144000
// bytes for 625-line 50 Hz systems. One video track (ID 1) and one audio track (ID 2); the
// duration is the number of whole frames at the system's frame rate.
#pragma once

#include "common/status.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

Status DVProbe(ProbeReader& reader, ContainerProbe* out);
