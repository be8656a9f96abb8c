#include "master/segment_pts.h"

#include <cstring>

#include "master/text_file.h"
#include "media/core/file_byte_stream.h"
#include "media/core/four_cc.h"
#include "media/core/value.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "media/formats/probe_reader.h"

namespace {

Status OpenFile(const std::string& path, MxByteStreamRef* stream) {
  MxURL url;
  if (Status status = MxURLCreateWithFileSystemPath(path.c_str(), false, &url)) return status;
  return MxByteStreamCreateForFileURL(nullptr, url, 0, stream);
}

}  // namespace

Status ReadSegmentFirstPTS(const std::string& path, int64_t* pts) {
  MxByteStreamRef stream;
  if (Status status = OpenFile(path, &stream)) return status;
  ProbeReader reader = ProbeReader::ForMemory(nullptr, 0);
  if (Status status = ProbeReader::ForByteStream(stream.get(), &reader)) return status;
  return MPEGTransportStreamGetFirstPTS(reader, pts);
}

bool LooksLikeFragmentedMovie(const std::string& path) {
  std::string head;
  if (ReadFileHead(path, 8, &head) != kNoErr || head.size() < 8) return false;
  const std::string type = head.substr(4, 4);
  for (const char* box : {"ftyp", "styp", "moov", "moof", "sidx", "prft", "emsg"})
    if (type == box) return true;
  return false;
}

Status ReadFragmentedSegmentStart(const std::string& initPath, const std::string& segmentPath,
                                  int64_t* pts, FragmentStart* start, std::string* problem,
                                  std::string* problemFile) {
  MxByteStreamRef init, segment;
  *problemFile = initPath;
  if (Status status = OpenFile(initPath, &init)) return status;
  if (Status status = ReadFragmentInitTrack(init.get(), start, problem)) return status;
  *problemFile = segmentPath;
  if (Status status = OpenFile(segmentPath, &segment)) return status;
  if (Status status = ReadFirstFragmentTiming(segment.get(), start, problem)) return status;
  if (Status status = FragmentStartIn90kHz(*start, pts)) {
    *problem = "the start time does not fit in 64 bits";
    return status;
  }
  return kNoErr;
}

namespace {

Status ReadTransportStreamStart(const std::string& path, int64_t* pts, std::string* error) {
  Status status = ReadSegmentFirstPTS(path, pts);
  if (status == kMxErrNotMPEGStream && LooksLikeFragmentedMovie(path)) {
    *error = path + " is fragmented MP4: give its init segment first (pts INIT " + path + ")";
  } else if (status == kMxErrNotMPEGStream) {
    *error = path + " is not an MPEG transport stream";
  } else if (status == kMxErrPropertyNotAvailable) {
    *error = path + " has no video or audio stream with a time stamp near its start";
  } else if (status > 0) {
    *error = "cannot read " + path + ": " + strerror(status);
  } else if (status != kNoErr) {
    *error = "cannot read " + path + " as an MPEG transport stream (error " +
             std::to_string(static_cast<int>(status)) + ")";
  }
  return status;
}

}  // namespace

Status ReadSegmentStart(const FirstSegmentFiles& files, int64_t* pts, std::string* warning,
                        std::string* error) {
  if (files.init.empty()) return ReadTransportStreamStart(files.segment, pts, error);
  FragmentStart start;
  std::string problem, file;
  Status status =
      ReadFragmentedSegmentStart(files.init, files.segment, pts, &start, &problem, &file);
  if (status > 0) {
    *error = "cannot read " + file + ": " + strerror(status);
  } else if (status != kNoErr) {
    *error = file + ": " + (problem.empty() ? "cannot be read as fragmented MP4" : problem);
  } else if (start.handlerType != MxFourCC("vide")) {
    *warning = files.init + " has no video track; the start is that of track " +
               std::to_string(start.trackID) + " ('" + MxFourCCToString(start.handlerType) + "')";
  }
  return status;
}
