// Feeds arbitrary bytes to encoding detection and to the converting stream, in an encoding the
// first byte chooses, read in pieces of a size the second byte chooses. The converted text must
// be valid UTF-8, and reading it again from the start must give the same bytes.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "media/core/converting_byte_stream.h"
#include "media/core/encoding_detection.h"
#include "media/core/memory_byte_stream.h"
#include "media/core/utf8_checking_byte_stream.h"

namespace {

const char* const kEncodings[] = {"windows-1252", "Shift_JIS", "GB18030", "EUC-KR",      "UTF-16LE",
                                  "UTF-16BE",     "UTF-32LE",  "UTF-8",   "ISO-2022-JP", "Big5"};

std::string ReadAll(MxByteStream* stream, size_t step) {
  std::string all, piece(step, '\0');
  for (;;) {
    size_t n = 0;
    const Status status = stream->Read(step, static_cast<int64_t>(all.size()), piece.data(), &n);
    if (status != kNoErr || n == 0) return all;
    all.append(piece, 0, n);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const char* encoding = kEncodings[data[0] % (sizeof kEncodings / sizeof kEncodings[0])];
  const size_t step = 1 + data[1] * 37u;
  data += 2;
  size -= 2;
  EncodingGuess guess;
  if (GuessEncoding(data, size, &guess) != kNoErr) return 0;
  if (!IsKnownEncoding(guess.encoding.c_str())) abort();
  MxByteStreamRef source;
  if (MxByteStreamCreateForMemory(data, size, &source) != kNoErr) return 0;
  MxRef<UTF8CheckingByteStream> checking;
  if (UTF8CheckingByteStreamCreate(source.get(), &checking) != kNoErr) return 0;
  if (ReadAll(checking.get(), step).size() != size) abort();

  const ByteOrderMark mark = FindByteOrderMark(data, size);
  MxRef<ConvertingByteStream> converted;
  if (ConvertingByteStreamCreate(source.get(), mark.encoding ? mark.encoding : encoding,
                                 static_cast<int64_t>(mark.length), &converted) != kNoErr)
    abort();
  const std::string text = ReadAll(converted.get(), step);
  UTF8Checker checker;
  checker.Feed(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  checker.Finish();
  if (!checker.valid()) abort();
  if (converted->invalidCount() > 0 &&
      (converted->firstInvalid() < 0 || converted->firstInvalid() > static_cast<int64_t>(size)))
    abort();
  if (ReadAll(converted.get(), 4096) != text) abort();
  return 0;
}
