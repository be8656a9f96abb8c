#include "master/segment_pts.h"

#include "media/core/file_byte_stream.h"
#include "media/core/value.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "media/formats/probe_reader.h"

OSStatus ReadSegmentFirstPTS(const std::string& path, int64_t* pts) {
  MxURL url;
  if (OSStatus status = MxURLCreateWithFileSystemPath(path.c_str(), false, &url)) return status;
  MxByteStreamRef stream;
  if (OSStatus status = MxByteStreamCreateForFileURL(nullptr, url, 0, &stream)) return status;
  ProbeReader reader = ProbeReader::ForMemory(nullptr, 0);
  if (OSStatus status = ProbeReader::ForByteStream(stream.get(), &reader)) return status;
  return MPEGTransportStreamGetFirstPTS(reader, pts);
}
