// Audio files with a header that states their length: WAV (RIFF WAVE and RF64), AIFF and AIFC,
// CAF and AU. One sound track (ID 1); the duration is exact: sample frames at the sample rate.
#pragma once

#include "common/status.h"
#include "media/formats/container_probe.h"
#include "media/formats/probe_reader.h"

Status AudioFileProbe(ProbeReader& reader, ContainerProbe* out);

// The individual kinds, each refusing data of another kind with kMxErrFormatNotRecognised.
Status WaveFileProbe(ProbeReader& reader, ContainerProbe* out);
Status AIFFFileProbe(ProbeReader& reader, ContainerProbe* out);
Status CAFFileProbe(ProbeReader& reader, ContainerProbe* out);
Status AUFileProbe(ProbeReader& reader, ContainerProbe* out);

// Audio files are chunk lists; a file with more chunks than this before its audio is not
// believed.
inline constexpr int kMaxAudioFileChunks = 4096;
