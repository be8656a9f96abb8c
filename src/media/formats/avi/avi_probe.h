// AVI files: RIFF 'AVI ' with its header list (the main header and one stream list per
// stream). Streams of type vids, auds, txts and mids are presented as tracks numbered from 1 in
// header order; the duration is the longest stream's start plus length in its own time scale.
// Later RIFF 'AVIX' parts of large files need not be read.
#pragma once

#include "common/status.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

Status AVIProbe(ProbeReader& reader, ContainerProbe* out);
