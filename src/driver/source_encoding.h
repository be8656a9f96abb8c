// Reading a WebVTT or SRT source into cues, in the encoding the run settings ask for. Without
// --source-encoding the bytes are parsed as they are; a source found not to be UTF-8 on the way
// gets one warning naming its likeliest encoding. With "auto" a byte-order mark decides, then
// valid UTF-8 is taken as it is, and anything else is converted from the detected encoding when
// detection is sure enough. With a name the source is converted from that encoding. Conversion
// runs as the parser reads; every byte offset printed is an offset in the source file.
#pragma once

#include <memory>

#include "driver/run_settings.h"
#include "media/core/byte_stream.h"
#include "media/formats/webvtt/webvtt_parser.h"

struct ParserRelease {
  // Releasing frees memory and cannot fail.
  void operator()(WebVTTParser* p) const { static_cast<void>(WebVTTParserRelease(p)); }
};
using WebVTTParserHandle = std::unique_ptr<WebVTTParser, ParserRelease>;

// Parses `file` into `*parser`. Returns the parser's read status; when no parser could be made
// (or no converter), `*parser` is left empty and kErrCreateFailed is returned.
Status ReadSourceCues(const RunSettings& settings, MxByteStream* file, WebVTTParserHandle* parser);

// Whether --source-encoding accepts the value: "auto" (any case) or an encoding with a converter.
bool IsSourceEncodingValue(const char* value);
