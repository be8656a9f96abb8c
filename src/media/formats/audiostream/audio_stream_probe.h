// Audio file streams, which have no container: MPEG audio (MP3 and its layer I and II kin, after
// any ID3v2 tags), AAC in ADTS, AMR (narrow and wide band) and AC-3. One sound track (ID 1).
// The duration is exact when an information frame counts the frames ('Xing', 'Info', 'VBRI') or
// when every frame was walked within the read budget; otherwise it is estimated from the frames
// walked and the bytes they cover.
#pragma once

#include "common/status.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

Status AudioStreamProbe(ProbeReader& reader, ContainerProbe* out);
