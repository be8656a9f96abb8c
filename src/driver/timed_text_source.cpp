#include "driver/timed_text_source.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "driver/chunk_file_settings.h"
#include "driver/cue_scheduler.h"
#include "log/output.h"
#include "media/formats/ttml/timed_text_cues.h"
#include "webvtt/segment_writer.h"

namespace {

// Cue times are kept to whole milliseconds, rounded, as a WebVTT source states them.
double Milliseconds(double seconds) {
  return std::round(seconds * 1000) / 1000;
}

// Reads the first `limit` bytes of the stream (all of it when shorter) into `bytes`; `*length`
// is the stream's length.
Status ReadStart(MxByteStream* stream, size_t limit, std::string* bytes, int64_t* length) {
  Status status = stream->GetLength(0, length);
  if (status != kNoErr) return status;
  if (*length < 0) return kErrParse;
  bytes->resize(static_cast<size_t>(std::min<uint64_t>(static_cast<uint64_t>(*length), limit)));
  if (bytes->empty()) return kNoErr;
  size_t read = 0;
  status = MxByteStreamReadBytes(stream, bytes->size(), 0, bytes->data(), &read);
  bytes->resize(read);
  return status;
}

Status StoreCue(WebVTTCueStore* store, double start, double end, std::string_view settings,
                std::string_view payload) {
  WebVTTCueRecord record;
  record.start = start;
  record.end = end;
  const size_t size = settings.size() + payload.size();
  if (size < kOwnTextBlockThreshold) return store->AppendCopy(record, "", settings, payload);
  char* bytes = static_cast<char*>(malloc(size));
  if (bytes == nullptr) return kMxErrAllocationFailed;
  memcpy(bytes, settings.data(), settings.size());
  memcpy(bytes + settings.size(), payload.data(), payload.size());
  return store->AppendOwned(record, bytes, 0, settings.size(), payload.size());
}

}  // namespace

bool IsTimedTextExtension(const std::string& extension) {
  return strcasecmp(extension.c_str(), "ttml") == 0 || strcasecmp(extension.c_str(), "dfxp") == 0 ||
         strcasecmp(extension.c_str(), "xml") == 0;
}

Status RunTimedTextSource(const RunSettings& settings, const RunEnvironment& environment,
                          MxByteStream* stream, bool* taken) {
  *taken = false;
  const char* source = settings.inputPath ? settings.inputPath : "(source)";
  std::string bytes;
  int64_t length = 0;
  // The root element is looked for in the start of the file before the whole is read: in its
  // first 4 KiB, and again in more when a long prolog keeps the root further on.
  Status status = kNoErr;
  for (size_t probe : {size_t{4096}, kTimedTextProbeBytes}) {
    status = ReadStart(stream, probe, &bytes, &length);
    if (status != kNoErr) return kNoErr;
    if (IsTimedTextDocument(bytes)) break;
    if (bytes.size() < probe || probe == kTimedTextProbeBytes) return kNoErr;
  }
  *taken = true;
  if (static_cast<uint64_t>(length) > kMaxTimedTextSourceBytes) {
    OutputMessage(0, "%s: cannot read the source: larger than %zu bytes", source,
                  kMaxTimedTextSourceBytes);
    return kErrParse;
  }
  bytes = std::string();

  TimedTextDocument document;
  TimedTextCues cues;
  std::string message;
  TimedTextOpenEnds openEnds;
  // The document is read straight into the parser's buffer.
  status = ReadTimedTextDocument(
      static_cast<size_t>(length),
      [stream](char* buffer, size_t size) {
        size_t read = 0;
        return MxByteStreamReadFully(stream, size, 0, buffer, &read);
      },
      source, &document, &message);
  if (status != kNoErr && message.empty()) {
    OutputMessage(0, "%s: cannot read the source (error %d)", source, status);
    return status;
  }
  if (status == kNoErr) {
    status = BuildTimedTextCues(document, &cues, &message, &openEnds);
    if (status != kNoErr) message = std::string(source) + ": " + message;
  }
  if (status != kNoErr) {
    OutputMessage(0, "cannot read the source: %s", message.c_str());
    return kErrParse;
  }
  document = TimedTextDocument();

  WebVTTCueStore store;
  for (const TimedTextCue& cue : cues.list) {
    double start = Milliseconds(cue.start), end = Milliseconds(cue.end);
    if (!(start < end)) continue;
    if (end > kLatestOutputSeconds) {
      OutputMessage(0, "%s: cannot read the source: a cue ends after %.0f seconds", source,
                    kLatestOutputSeconds);
      return kErrParse;
    }
    status = StoreCue(&store, start, end, cues.Settings(cue), cues.Payload(cue));
    if (status != kNoErr) return status;
  }
  if (openEnds.paragraphs != 0) {
    auto ms = static_cast<uint64_t>(Milliseconds(openEnds.end) * 1000 + 0.5);
    OutputMessage(0,
                  "%s: %zu paragraph%s shown without an end, ended at %02llu:%02llu:%02llu.%03llu "
                  "(the last time in the document)",
                  source, openEnds.paragraphs, openEnds.paragraphs == 1 ? "" : "s",
                  static_cast<unsigned long long>(ms / 3600000),
                  static_cast<unsigned long long>(ms / 60000 % 60),
                  static_cast<unsigned long long>(ms / 1000 % 60),
                  static_cast<unsigned long long>(ms % 1000));
  }
  cues = TimedTextCues();
  if (store.empty()) OutputMessage(1, "%s: no cues found in the timed-text document", source);
  return ScheduleCuesInto(
      settings, store,
      MakeChunkFileSettings(settings, environment, settings.fileBase, settings.baseURL));
}
