// Feeds arbitrary bytes to the timed-text reader and cue builder. Every cue must lie within its
// paragraph's bounds (finite, start before end), carry no empty line and have settings on one
// line.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "media/formats/ttml/timed_text_cues.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  (void)IsTimedTextDocument(bytes);
  TimedTextDocument document;
  std::string message;
  if (ReadTimedTextDocument(bytes, "fuzz.ttml", &document, &message) != kNoErr) {
    if (message.empty()) abort();
    return 0;
  }
  TimedTextCues cues;
  TimedTextOpenEnds openEnds;
  if (BuildTimedTextCues(document, &cues, &message, &openEnds) != kNoErr) {
    if (message.empty()) abort();
    return 0;
  }
  for (size_t i = 0; i < cues.list.size(); ++i) {
    const TimedTextCue& cue = cues.list[i];
    std::string_view settings = cues.Settings(cue), payload = cues.Payload(cue);
    if (!std::isfinite(cue.end) || !(cue.start < cue.end) || cue.start < 0) abort();
    if (i > 0 && cues.list[i - 1].start > cue.start) abort();
    // Text without an end is cut at the document's last time, and no cue ends after that.
    if (openEnds.paragraphs != 0 && cue.end > openEnds.end) abort();
    if (settings.find_first_of("\r\n") != std::string_view::npos ||
        settings.find("-->") != std::string_view::npos) {
      abort();
    }
    if (payload.empty() || payload.find("\n\n") != std::string_view::npos ||
        payload.front() == '\n' || payload.back() == '\n') {
      abort();
    }
  }
  return 0;
}
