// Feeds arbitrary bytes to the WebVTT/SRT parser in both timestamp modes and writes every cue
// it accepts through the segment text formatter, checking that each range stays in its block.
#include <cstdint>
#include <cstdlib>

#include "media/core/memory_byte_stream.h"
#include "media/formats/webvtt/webvtt_parser.h"
#include "webvtt/segment_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MxByteStreamRef stream;
  if (MxByteStreamCreateForMemory(data, size, &stream) != kNoErr) return 0;
  for (uint32_t comma : {0u, 1u}) {
    WebVTTParser* parser = nullptr;
    if (WebVTTParserCreate(&parser, comma) != kNoErr) return 0;
    // A failed read is fine here: the cues read up to it are checked all the same.
    static_cast<void>(WebVTTParserReadByteStream(parser, stream.get()));
    for (WebVTTCue* cue = WebVTTParserGetCueQueue(parser)->first; cue; cue = cue->next) {
      const uint64_t length = MxBlockBufferGetDataLength(cue->text.get());
      if (cue->identifierOffset + cue->identifierLength > length ||
          cue->settingsOffset + cue->settingsLength > length ||
          cue->payloadOffset + cue->payloadLength > length || cue->payloadLength == 0)
        abort();
      char text[20];
      FormatWebVTTTimestamp(cue->start, text);
      FormatWebVTTTimestamp(cue->end, text);
    }
    static_cast<void>(WebVTTParserRelease(parser));  // releasing cannot fail
  }
  return 0;
}
