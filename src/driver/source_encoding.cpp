#include "driver/source_encoding.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "log/output.h"
#include "media/core/converting_byte_stream.h"
#include "media/core/encoding_detection.h"
#include "media/core/utf8_checking_byte_stream.h"

namespace {

// SRT files have no signature: their times use "," before the milliseconds.
uint32_t SniffCommaDecimal(MxByteStream* stream) {
  uint8_t head[16];
  size_t count = 0;
  Status status = MxByteStreamReadBytes(stream, sizeof head, 0, head, &count);
  bool signature = status == kNoErr && WebVTTHasSignature(head, std::min(sizeof head, count));
  return signature ? 0 : 1;
}

// Only a source read as SRT (no signature) has its markup rewritten: a WebVTT source's markup is
// WebVTT already.
Status Parse(MxByteStream* stream, bool srtMarkup, WebVTTParserHandle* parser) {
  parser->reset();
  const uint32_t commaDecimal = SniffCommaDecimal(stream);
  WebVTTParser* raw = nullptr;
  if (WebVTTParserCreate(&raw, commaDecimal) != kNoErr) return kErrCreateFailed;
  parser->reset(raw);
  raw->rewriteSrtMarkup = srtMarkup && commaDecimal == 1;
  return WebVTTParserReadByteStream(raw, stream);
}

bool IsAuto(const char* value) {
  return strcasecmp(value, "auto") == 0;
}

// Up to `size` bytes of the file from `offset` (fewer at its end, none if it cannot be read).
std::vector<uint8_t> ReadSample(MxByteStream* file, int64_t offset, size_t size) {
  std::vector<uint8_t> bytes(size);
  size_t count = 0;
  if (MxByteStreamReadBytes(file, size, offset, bytes.data(), &count) != kNoErr) count = 0;
  bytes.resize(count);
  return bytes;
}

// Detection looks at one bounded sample: from a little before the first byte that is not UTF-8,
// so that the sample holds the text that decides rather than a long ASCII opening.
EncodingGuess GuessFrom(MxByteStream* file, int64_t firstInvalid) {
  const int64_t start = std::max<int64_t>(0, firstInvalid - 1024);
  const std::vector<uint8_t> sample = ReadSample(file, start, kEncodingSampleSize);
  EncodingGuess guess;
  if (GuessEncoding(sample.data(), sample.size(), &guess) != kNoErr) guess = {"windows-1252", 0, 0};
  return guess;
}

void WarnBytesKept(const char* source, int64_t at, const EncodingGuess& guess, bool fromMark) {
  OutputMessage(0,
                "%s: not UTF-8 from byte %lld on: most likely %s (confidence %d of 100, %s); the "
                "segments keep its bytes (--source-encoding=auto or =NAME converts it)",
                source, static_cast<long long>(at), guess.encoding.c_str(), guess.confidence,
                fromMark       ? "from its byte-order mark"
                : guess.sure() ? "fairly sure"
                               : "unsure");
}

void WarnUnsure(const char* source, int64_t at, const EncodingGuess& guess) {
  OutputMessage(0,
                "%s: not UTF-8 from byte %lld on, and its encoding is unclear: most likely %s "
                "(confidence %d of 100, next guess %d); not converted, the segments keep its "
                "bytes (--source-encoding=NAME names the encoding)",
                source, static_cast<long long>(at), guess.encoding.c_str(), guess.confidence,
                guess.runnerUp);
}

Status ParseConverted(MxByteStream* file, const char* encoding, int64_t start, const char* source,
                      bool srtMarkup, WebVTTParserHandle* parser) {
  MxRef<ConvertingByteStream> converted;
  if (ConvertingByteStreamCreate(file, encoding, start, &converted) != kNoErr) {
    parser->reset();
    return kErrCreateFailed;
  }
  const Status status = Parse(converted.get(), srtMarkup, parser);
  if (converted->invalidCount() > 0) {
    OutputMessage(
        0, "%s: %llu byte sequences are not valid %s, the first at byte %lld; each became U+FFFD",
        source, static_cast<unsigned long long>(converted->invalidCount()), encoding,
        static_cast<long long>(converted->firstInvalid()));
  }
  return status;
}

}  // namespace

bool IsSourceEncodingValue(const char* value) {
  return IsAuto(value) || IsKnownEncoding(value);
}

Status ReadSourceCues(const RunSettings& settings, MxByteStream* file, WebVTTParserHandle* parser) {
  const char* source = settings.inputPath ? settings.inputPath : "(source)";
  const char* named = settings.sourceEncoding;
  const bool srtMarkup = settings.srtMarkupToWebVTT;
  if (named != nullptr && !IsAuto(named))
    return ParseConverted(file, named, 0, source, srtMarkup, parser);
  const bool convert = named != nullptr;

  const std::vector<uint8_t> head = ReadSample(file, 0, 4);
  const ByteOrderMark mark = FindByteOrderMark(head.data(), head.size());
  if (mark.encoding != nullptr && strcmp(mark.encoding, "UTF-8") != 0) {
    if (convert) {
      OutputMessage(1, "%s: converting from %s (byte-order mark) to UTF-8", source, mark.encoding);
      return ParseConverted(file, mark.encoding, static_cast<int64_t>(mark.length), source,
                            srtMarkup, parser);
    }
    const Status status = Parse(file, srtMarkup, parser);
    WarnBytesKept(source, 0, EncodingGuess{mark.encoding, 100, 0}, true);
    return status;
  }

  if (convert) {
    // A source whose opening is not UTF-8 is converted from the start, without a first read.
    const std::vector<uint8_t> sample = ReadSample(file, 0, kEncodingSampleSize);
    UTF8Checker opening;
    opening.Feed(sample.data(), sample.size());
    if (sample.size() < kEncodingSampleSize) opening.Finish();
    // A sequence cut by the end of the sample proves nothing.
    const int64_t at = opening.firstInvalid();
    if (at >= 0 && at + 4 < static_cast<int64_t>(sample.size())) {
      const EncodingGuess guess = GuessFrom(file, at);
      if (guess.sure()) {
        OutputMessage(1, "%s: converting from %s (confidence %d of 100) to UTF-8", source,
                      guess.encoding.c_str(), guess.confidence);
        return ParseConverted(file, guess.encoding.c_str(), 0, source, srtMarkup, parser);
      }
    }
  }

  MxRef<UTF8CheckingByteStream> checking;
  if (UTF8CheckingByteStreamCreate(file, &checking) != kNoErr) return kErrCreateFailed;
  Status status = Parse(checking.get(), srtMarkup, parser);
  const int64_t at = checking->checker().firstInvalid();
  if (at < 0) return status;
  const EncodingGuess guess = GuessFrom(file, at);
  if (!convert) {
    WarnBytesKept(source, at, guess, false);
  } else if (!guess.sure()) {
    WarnUnsure(source, at, guess);
  } else {
    // The opening was UTF-8 but later text is not: read it again, converted.
    OutputMessage(1, "%s: converting from %s (confidence %d of 100) to UTF-8", source,
                  guess.encoding.c_str(), guess.confidence);
    status = ParseConverted(file, guess.encoding.c_str(), 0, source, srtMarkup, parser);
  }
  return status;
}
