// The registry's instantiators for the containers read by probing: AVI, MPEG program and
// transport streams, DV, audio files and audio file streams.
#include "media/formats/audiofile/audio_file_probe.h"
#include "media/formats/audiostream/audio_stream_probe.h"
#include "media/formats/avi/avi_probe.h"
#include "media/formats/dv/dv_probe.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "media/formats/probed_format_reader.h"
#include "media/formats/reader_table.h"

namespace {

Status MPEGProbeForPlayback(ProbeReader& reader, ContainerProbe* out) {
  return MPEGProbe(reader, false, out);
}

Status MPEGProbeForPreciseTiming(ProbeReader& reader, ContainerProbe* out) {
  return MPEGProbe(reader, true, out);
}

}  // namespace

Status AVIFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*, const MxDictionary*,
                                       QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, AVIProbe, "QorAVIFormatReader", out);
}

Status MPEGFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*, const MxDictionary*,
                                        QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, MPEGProbeForPlayback, "QorMPEGFormatReader", out);
}

Status MPEGFormatReaderCreateFromStreamForPreciseTiming(MxByteStream* byteStream, MxAllocator*,
                                                        const MxDictionary*,
                                                        QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, MPEGProbeForPreciseTiming, "QorMPEGFormatReader",
                                     out);
}

Status DVFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*, const MxDictionary*,
                                      QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, DVProbe, "QorDVFormatReader", out);
}

Status QorAudioFileFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*,
                                                const MxDictionary*, QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, AudioFileProbe, "QorAudioFileFormatReader", out);
}

Status QorAudioFileStreamFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator*,
                                                      const MxDictionary*,
                                                      QorFormatReaderRef* out) {
  return QorProbedFormatReaderCreate(byteStream, AudioStreamProbe, "QorAudioFileStreamFormatReader",
                                     out);
}
