// Feeds arbitrary bytes to the WebVTT/SRT parser in both timestamp modes, and in the SRT mode
// also with its markup rewritten, and writes every cue it accepts through the segment text
// formatter, checking that each range stays in its block. Rewritten text may hold neither an
// empty line nor "-->", either of which would end the cue early in a reader.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "media/core/memory_byte_stream.h"
#include "media/formats/webvtt/webvtt_parser.h"
#include "webvtt/segment_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MxByteStreamRef stream;
  if (MxByteStreamCreateForMemory(data, size, &stream) != kNoErr) return 0;
  for (uint32_t pass : {0u, 1u, 2u}) {
    const uint32_t comma = pass == 0 ? 0 : 1;
    const bool rewrite = pass == 2;
    WebVTTParser* parser = nullptr;
    if (WebVTTParserCreate(&parser, comma) != kNoErr) return 0;
    parser->rewriteSrtMarkup = rewrite;
    // A failed read is fine here: the cues read up to it are checked all the same.
    static_cast<void>(WebVTTParserReadByteStream(parser, stream.get()));
    for (WebVTTCue* cue = WebVTTParserGetCueQueue(parser)->first; cue; cue = cue->next) {
      const uint64_t length = MxBlockBufferGetDataLength(cue->text.get());
      if (cue->identifierOffset + cue->identifierLength > length ||
          cue->settingsOffset + cue->settingsLength > length ||
          cue->payloadOffset + cue->payloadLength > length || cue->payloadLength == 0)
        abort();
      if (rewrite) {
        char* bytes = nullptr;
        if (MxBlockBufferGetDataPointer(cue->text.get(), cue->payloadOffset, nullptr, nullptr,
                                        &bytes) != kNoErr)
          abort();
        const std::string_view payload(bytes, static_cast<size_t>(cue->payloadLength));
        for (const char* bad : {"-->", "\n\n", "\r\r", "\n\r"})
          if (payload.find(bad) != std::string_view::npos) abort();
      }
      char text[20];
      FormatWebVTTTimestamp(cue->start, text);
      FormatWebVTTTimestamp(cue->end, text);
    }
    static_cast<void>(WebVTTParserRelease(parser));  // releasing cannot fail
  }
  return 0;
}
