#include "master/segment_pts.h"

#include "media/core/file_byte_stream.h"
#include "media/core/value.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "media/formats/probe_reader.h"

Status ReadSegmentFirstPTS(const std::string& path, int64_t* pts) {
  MxURL url;
  if (Status status = MxURLCreateWithFileSystemPath(path.c_str(), false, &url)) return status;
  MxByteStreamRef stream;
  if (Status status = MxByteStreamCreateForFileURL(nullptr, url, 0, &stream)) return status;
  ProbeReader reader = ProbeReader::ForMemory(nullptr, 0);
  if (Status status = ProbeReader::ForByteStream(stream.get(), &reader)) return status;
  return MPEGTransportStreamGetFirstPTS(reader, pts);
}
