// A format reader over what a container probe found: the tracks with their media types and
// IDs, and the duration properties. Its tracks offer no sample access (these containers carry
// no subtitle tracks); asking for a track's samples answers that the operation is absent.
#pragma once

#include "common/status.h"
#include "media/formatreader/format_reader.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

using ContainerProbeFunction = Status (*)(ProbeReader& reader, ContainerProbe* out);

// Probes the stream with `probe` and makes a reader named `className` over the result; the
// probe's status is returned when it fails.
Status QorProbedFormatReaderCreate(MxByteStream* byteStream, ContainerProbeFunction probe,
                                   const char* className, QorFormatReaderRef* out);
