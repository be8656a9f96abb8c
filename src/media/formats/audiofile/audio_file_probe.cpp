#include "media/formats/audiofile/audio_file_probe.h"

#include "media/core/error_signal.h"

Status AudioFileProbe(ProbeReader& reader, ContainerProbe* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  for (auto probe : {WaveFileProbe, AIFFFileProbe, CAFFileProbe, AUFileProbe}) {
    Status status = probe(reader, out);
    if (status != kMxErrFormatNotRecognised) return status;
  }
  return QorSignalErrorAt(kMxErrFormatNotRecognised);
}
