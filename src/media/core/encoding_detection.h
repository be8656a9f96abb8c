// What encoding a text is in: a byte-order mark, or else a statistical guess from a sample of
// the text with a confidence from 0 (no idea) to 100 (certain).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/status.h"

// Detection looks at no more than this many bytes of a source.
constexpr size_t kEncodingSampleSize = 64 * 1024;

// A guess is sure enough to convert on when its confidence reaches kEncodingSureConfidence and
// leads the next guess by kEncodingSureMargin. Short texts fail one or the other: a few dozen
// bytes of Czech look as much like Latin-1 as like Latin-2.
constexpr int32_t kEncodingSureConfidence = 40;
constexpr int32_t kEncodingSureMargin = 15;

struct ByteOrderMark {
  const char* encoding = nullptr;  // none when the bytes start with no mark
  size_t length = 0;
};

// The mark of UTF-8, UTF-16 (either order) or UTF-32 (either order) the bytes start with.
ByteOrderMark FindByteOrderMark(const uint8_t* bytes, size_t length);

struct EncodingGuess {
  std::string encoding;  // a name the converters accept
  int32_t confidence = 0;
  int32_t runnerUp = 0;  // the confidence of the next guess
  bool sure() const {
    return confidence >= kEncodingSureConfidence && confidence - runnerUp >= kEncodingSureMargin;
  }
};

// The likeliest encoding of `bytes` other than UTF-8 (the caller knows they are not valid
// UTF-8). With nothing to go on, the guess is windows-1252 with confidence 0.
Status GuessEncoding(const uint8_t* bytes, size_t length, EncodingGuess* out);

// Whether a converter from the named encoding exists.
bool IsKnownEncoding(const char* name);
