// MPEG-2 transport streams (188-byte packets, and 192-byte packets with a 4-byte arrival time
// in front) and MPEG-1/MPEG-2 program streams: their elementary streams as tracks, and the
// duration from the first and last presentation time stamps (or clock references when no
// stream carries time stamps), read from the head and the tail of the file only.
#pragma once

#include <cstdint>

#include "common/status.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

// Finds the tracks and estimates the duration. Data that is neither kind of stream answers
// kMxErrNotMPEGStream; a stream without its program tables answers kMxErrFormatDamaged.
// `preciseTiming` reads larger windows at the head and the tail, nothing else.
Status MPEGProbe(ProbeReader& reader, bool preciseTiming, ContainerProbe* out);

// The first presentation time stamp, in 90 kHz units, of the first video stream of a transport
// stream, else of its first audio stream: the stamp of that stream's first packet in file order.
// kMxErrPropertyNotAvailable when no such stream carries a time stamp near the head.
Status MPEGTransportStreamGetFirstPTS(ProbeReader& reader, int64_t* pts);
