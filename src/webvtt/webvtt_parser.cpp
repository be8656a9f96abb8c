#include "webvtt/webvtt_parser.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "media/core/error_signal.h"

namespace {

constexpr size_t kBlockSize = 1024;
constexpr OSStatus kFeedLineAgain = 5;  // the line handler asks for the same line once more
constexpr uint32_t kStateSignature = 0, kStateHeader = 1, kStateCues = 3;
// Slots of a partial line's buffer; nested buffers grow from there.
constexpr uint32_t kLineBufferCapacity = 16;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}
bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool IsLineEnd(char c) {
  return c == '\n' || c == '\r';
}

const char* FindLineEnd(const char* p, const char* end) {
  for (; p < end; p++) {
    if (IsLineEnd(*p)) return p;
  }
  return nullptr;
}

// Length of the terminator at `p` (LF, CR LF or CR); 0 for a CR that is the last byte.
size_t TerminatorLength(const char* p, const char* end) {
  if (*p == '\n') return 1;
  if (p + 1 >= end) return 0;
  return p[1] == '\n' ? 2 : 1;
}

void SkipBlanks(const char** p, size_t* remaining) {
  while (*remaining > 0 && IsBlank(**p)) {
    (*p)++;
    (*remaining)--;
  }
}

// The bytes of a contiguous buffer; none for an empty one, whose length 0 goes along with it.
char* BufferBytes(MxBlockBuffer* buffer) {
  char* bytes = nullptr;
  if (MxBlockBufferGetDataPointer(buffer, 0, nullptr, nullptr, &bytes) != kNoErr) return nullptr;
  return bytes;
}

// A new buffer holding a copy of `length` bytes, with slots for the pieces a long line may
// still gain from later blocks.
[[nodiscard]] OSStatus CopyIntoNewBuffer(const char* bytes, size_t length, MxBlockBufferRef* out) {
  OSStatus status = MxBlockBufferCreateEmpty(nullptr, kLineBufferCapacity, 0, out);
  if (status == kNoErr) {
    status = MxBlockBufferAppendMemoryBlock(out->get(), nullptr, length, nullptr, nullptr, 0,
                                            length, kMxBlockBufferAssureMemoryNowFlag);
  }
  if (status == kNoErr) status = MxBlockBufferReplaceDataBytes(bytes, out->get(), 0, length);
  if (status != kNoErr) *out = nullptr;
  return status;
}

// A malformed block is counted and dropped; reading goes on.
[[nodiscard]] OSStatus DropBlock(OSStatus code) {
  // Counted only: the block is dropped and reading goes on.
  static_cast<void>(QorSignalErrorAt(code));
  return kNoErr;
}

// Copies an accepted cue block into the current shared text block (a new one when it is full;
// a block of its own when it is larger than a shared block). Returns the block and the offset.
[[nodiscard]] OSStatus StoreCueText(WebVTTParser* parser, const char* data, size_t size,
                                    MxBlockBufferRef* block, size_t* offset) {
  if (size > parser->textCapacity - parser->textUsed) {
    const size_t capacity = std::max(size, kCueTextBlockSize);
    MxBlockBufferRef fresh;
    OSStatus status =
        MxBlockBufferCreateWithMemoryBlock(nullptr, nullptr, capacity, nullptr, nullptr, 0,
                                           capacity, kMxBlockBufferAssureMemoryNowFlag, &fresh);
    if (status != kNoErr) return status;
    parser->textBytes = BufferBytes(fresh.get());
    parser->textBlock = std::move(fresh);
    parser->textUsed = 0;
    parser->textCapacity = capacity;
  }
  memcpy(parser->textBytes + parser->textUsed, data, size);
  *offset = parser->textUsed;
  *block = parser->textBlock;
  parser->textUsed += size;
  return kNoErr;
}

// Parses the collected cue block. Returns 0 when the block was accepted or dropped, and an
// error only when the whole read must end.
[[nodiscard]] OSStatus ParseCueBlock(WebVTTParser* parser) {
  struct ClearLines {  // the collected block is let go in every case
    std::string& lines;
    ~ClearLines() { lines.clear(); }
  } clear{parser->cueLines};
  const size_t size = parser->cueLines.size();
  const char* data = parser->cueLines.data();
  const char* const end = data + size;

  const char* firstEnd = FindLineEnd(data, end);
  if (firstEnd == nullptr) return DropBlock(kWebVTTErrMalformedCue);
  const char* arrow = static_cast<const char*>(memmem(data, size, "-->", 3));
  if (arrow == nullptr) return DropBlock(kWebVTTErrMalformedCue);

  std::unique_ptr<WebVTTCue> cue(new (std::nothrow) WebVTTCue);
  if (!cue) return QorSignalErrorAt(kMxErrAllocationFailed);

  const char* p = data;
  if (firstEnd < arrow) {
    cue->identifierOffset = 0;
    cue->identifierLength = static_cast<uint64_t>(firstEnd - data);
    p = firstEnd + (firstEnd[0] == '\r' && firstEnd + 1 < end && firstEnd[1] == '\n' ? 2 : 1);
    if (FindLineEnd(p, end) == nullptr) return DropBlock(kWebVTTErrMalformedCue);
  }
  size_t remaining = static_cast<size_t>(end - p);
  SkipBlanks(&p, &remaining);

  double start = 0, finish = 0;
  bool spaceSeen = false;
  if (WebVTTParseTimestamp(parser, &p, &remaining, &start, true, &spaceSeen) != kNoErr)
    return kNoErr;
  if (!spaceSeen || remaining < 4 || memcmp(p, "-->", 3) != 0)
    return DropBlock(kWebVTTErrMalformedCue);
  p += 3;
  remaining -= 3;
  if (!IsBlank(*p)) return DropBlock(kWebVTTErrMalformedCue);
  SkipBlanks(&p, &remaining);
  if (WebVTTParseTimestamp(parser, &p, &remaining, &finish, true, nullptr) != kNoErr) return kNoErr;
  // The end is compared with the record's start before the start is stored, so this checks
  // end > 0 only: a cue whose end comes before its start is accepted, and a zero end stops
  // the read.
  if (!(finish > cue->start)) return QorSignalErrorAt(kWebVTTErrBadCueTime);
  cue->start = start;
  cue->end = finish;

  const char* settingsEnd = FindLineEnd(p, end);
  if (settingsEnd == nullptr) return DropBlock(kWebVTTErrMalformedCue);
  if (settingsEnd > p) {
    cue->settingsOffset = static_cast<uint64_t>(p - data);
    cue->settingsLength = static_cast<uint64_t>(settingsEnd - p);
  }
  p = settingsEnd + TerminatorLength(settingsEnd, end);
  remaining = static_cast<size_t>(end - p);
  SkipBlanks(&p, &remaining);
  cue->payloadOffset = static_cast<uint64_t>(p - data);

  const char* payloadEnd = end;
  while (payloadEnd > p && IsLineEnd(payloadEnd[-1])) payloadEnd--;
  if (payloadEnd <= p) return DropBlock(kWebVTTErrEmptyPayload);
  cue->payloadLength = static_cast<uint64_t>(payloadEnd - p);

  if (parser->haveLastStart && start < parser->lastStart) return DropBlock(kWebVTTErrBadCueTime);

  // Accepted: the block's bytes up to the end of the payload go into the shared text block and
  // the ranges become offsets into it.
  size_t base = 0;
  OSStatus status =
      StoreCueText(parser, data, static_cast<size_t>(payloadEnd - data), &cue->text, &base);
  if (status != kNoErr) return status;
  cue->identifierOffset += base;
  cue->settingsOffset += base;
  cue->payloadOffset += base;
  parser->haveLastStart = true;
  parser->lastStart = start;
  parser->cueQueue.InsertTail(cue.release());
  return kNoErr;
}

// Handles one line with its terminator (terminatorLength 0: the last line, unterminated).
[[nodiscard]] OSStatus HandleLine(WebVTTParser* parser, const char* line, size_t length,
                                  size_t terminatorLength) {
  const bool blank = length == terminatorLength;
  switch (parser->state) {
    case kStateSignature:
      if (!WebVTTHasSignature(reinterpret_cast<const uint8_t*>(line), length)) {
        // No signature (SRT): the same line is fed again as cue text.
        parser->state = kStateCues;
        return kFeedLineAgain;
      }
      parser->state = kStateHeader;
      return kNoErr;
    case kStateHeader:
      if (blank) parser->state = kStateCues;
      return kNoErr;
    case kStateCues: {
      if (length == 0) return kNoErr;
      if (blank && parser->cueLines.empty()) return kNoErr;  // blank lines between cues
      parser->cueLines.append(line, length);
      return blank ? ParseCueBlock(parser) : kNoErr;
    }
    default:
      return kNoErr;
  }
}

// Hands the pending partial line, made contiguous, to the line handler and releases it.
[[nodiscard]] OSStatus FinishPartialLine(WebVTTParser* parser, size_t terminatorLength) {
  MxBlockBufferRef line = std::move(parser->partialLine);
  MxBlockBufferRef flat;
  OSStatus status =
      MxBlockBufferCreateContiguous(nullptr, line.get(), nullptr, nullptr, 0, 0, 0, &flat);
  if (status != kNoErr) return status;
  line.reset();  // keep only one copy of a long line alive
  return HandleLine(parser, BufferBytes(flat.get()), MxBlockBufferGetDataLength(flat.get()),
                    terminatorLength);
}

[[nodiscard]] OSStatus AppendToPartialLine(WebVTTParser* parser, MxBlockBuffer* block,
                                           size_t length) {
  if (length == 0) return kNoErr;
  return MxBlockBufferAppendBufferReference(parser->partialLine.get(), block, 0, length, 0);
}

// Whether the pending partial line ends with a CR (one that was the last byte of a block).
[[nodiscard]] OSStatus PartialLineEndsWithCR(WebVTTParser* parser, bool* endsWithCR) {
  char last = 0;
  const size_t pending = MxBlockBufferGetDataLength(parser->partialLine.get());
  OSStatus status = MxBlockBufferCopyDataBytes(parser->partialLine.get(), pending - 1, 1, &last);
  *endsWithCR = status == kNoErr && last == '\r';
  return status;
}

// Completes a line that began in an earlier block. Sets *consumed to the bytes of `block` that
// belong to it (0 when the block must be scanned from its start), or to the whole block when
// the line goes on past it.
[[nodiscard]] OSStatus ContinuePartialLine(WebVTTParser* parser, MxBlockBuffer* block,
                                           const char* data, size_t length, size_t* consumed) {
  bool endsWithCR = false;
  OSStatus status = PartialLineEndsWithCR(parser, &endsWithCR);
  if (status != kNoErr) return status;
  size_t take = 0, terminator = 0;
  if (endsWithCR) {
    // The CR that ended the previous block ends the line: with an LF that starts this block it
    // is one CR LF, otherwise a line break of its own.
    const bool lf = length > 0 && data[0] == '\n';
    take = lf ? 1 : 0;
    terminator = lf ? 2 : 1;
  } else {
    const char* const end = data + length;
    const char* lineEnd = FindLineEnd(data, end);
    *consumed = length;
    if (lineEnd == nullptr) return AppendToPartialLine(parser, block, length);
    terminator = TerminatorLength(lineEnd, end);
    // A CR that ends the block stays pending: the next block tells whether an LF follows.
    if (terminator == 0) return AppendToPartialLine(parser, block, length);
    take = static_cast<size_t>(lineEnd - data) + terminator;
  }
  status = AppendToPartialLine(parser, block, take);
  if (status == kNoErr) status = FinishPartialLine(parser, terminator);
  if (status == kFeedLineAgain) {
    *consumed = 0;
    return kNoErr;
  }
  *consumed = take;
  return status;
}

// Processes one block read from the stream.
[[nodiscard]] OSStatus ProcessBlock(WebVTTParser* parser, MxBlockBuffer* block) {
  const size_t length = MxBlockBufferGetDataLength(block);
  const char* data = BufferBytes(block);
  const char* const end = data + length;
  const char* p = data;
  if (parser->partialLine) {
    size_t consumed = 0;
    OSStatus status = ContinuePartialLine(parser, block, data, length, &consumed);
    if (status != kNoErr) return status;
    if (parser->partialLine) return kNoErr;  // the line goes on in the next block
    p += consumed;
  }
  while (p < end) {
    const char* lineEnd = FindLineEnd(p, end);
    if (lineEnd == nullptr) break;
    size_t terminator = TerminatorLength(lineEnd, end);
    if (terminator == 0) break;  // a CR ending the block stays with the remainder
    const size_t lineLength = static_cast<size_t>(lineEnd - p) + terminator;
    OSStatus status = HandleLine(parser, p, lineLength, terminator);
    if (status == kFeedLineAgain) status = HandleLine(parser, p, lineLength, terminator);
    if (status != kNoErr) return status;
    p += lineLength;
  }
  if (p < end) {
    OSStatus status = CopyIntoNewBuffer(p, static_cast<size_t>(end - p), &parser->partialLine);
    if (status != kNoErr) return status;
  }
  return kNoErr;
}

}  // namespace

void WebVTTCueQueue::InsertTail(WebVTTCue* cue) {
  cue->next = nullptr;
  cue->prev = last;
  *last = cue;
  last = &cue->next;
}

void WebVTTCueQueue::InsertHead(WebVTTCue* cue) {
  cue->next = first;
  if (first) {
    first->prev = &cue->next;
  } else {
    last = &cue->next;
  }
  first = cue;
  cue->prev = &first;
}

void WebVTTCueQueue::Remove(WebVTTCue* cue) {
  if (cue->next) {
    cue->next->prev = cue->prev;
  } else {
    last = cue->prev;
  }
  *cue->prev = cue->next;
  cue->next = nullptr;
  cue->prev = nullptr;
}

bool WebVTTHasSignature(const uint8_t* bytes, size_t length) {
  if (length < 3) return false;
  if (bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
    bytes += 3;
    length -= 3;
  }
  return length >= 7 && memcmp(bytes, "WEBVTT", 6) == 0 && IsSpace(static_cast<char>(bytes[6]));
}

OSStatus WebVTTParserCreate(WebVTTParser** out, uint32_t commaDecimal) {
  *out = new (std::nothrow) WebVTTParser;
  if (*out == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  (*out)->commaDecimal = commaDecimal;
  return kNoErr;
}

WebVTTCueQueue* WebVTTParserGetCueQueue(WebVTTParser* parser) {
  return &parser->cueQueue;
}

void WebVTTCueFree(WebVTTCue* cue) {
  delete cue;
}

OSStatus WebVTTParserRelease(WebVTTParser* parser) {
  if (parser == nullptr) return kNoErr;
  while (WebVTTCue* cue = parser->cueQueue.first) {
    parser->cueQueue.Remove(cue);
    WebVTTCueFree(cue);
  }
  delete parser;
  return kNoErr;
}

OSStatus WebVTTParserReadByteStream(WebVTTParser* parser, MxByteStream* stream) {
  if (parser == nullptr || stream == nullptr) return kNoErr;
  uint8_t bom[3];
  size_t count = 0;
  OSStatus status = MxByteStreamReadBytes(stream, 3, 0, bom, &count);
  if (status != kNoErr) return status;
  int64_t offset = (count == 3 && bom[0] == 0xEF && bom[1] == 0xBB && bom[2] == 0xBF) ? 3 : 0;
  do {
    MxBlockBufferRef block;
    count = 0;
    status = MxByteStreamReadIntoBlockBuffer(stream, kBlockSize, offset, &block, &count);
    if (status != kNoErr && status != kMxErrEndOfStream) return status;
    if (block) {
      OSStatus blockStatus = ProcessBlock(parser, block.get());
      if (blockStatus != kNoErr) return blockStatus;
    }
    offset += static_cast<int64_t>(count);
  } while (status != kMxErrEndOfStream);

  if (!parser->partialLine) return kNoErr;  // a last block without a blank line stays unparsed
  status = FinishPartialLine(parser, 0);
  // The file's one line, unterminated and without a signature, asks to be fed again when
  // there is nothing left to feed: no cue can come of it.
  if (status == kFeedLineAgain) status = QorSignalErrorAt(kWebVTTErrMalformedCue);
  if (status == kNoErr && !parser->cueLines.empty() && parser->state == kStateCues)
    status = ParseCueBlock(parser);
  parser->state = kStateSignature;
  return status;
}

OSStatus WebVTTParseTimestamp(WebVTTParser* parser, const char** cursor, size_t* remaining,
                              double* seconds, bool requireSpaceAfter, bool* spaceSeen) {
  const char separator = parser->commaDecimal == 1 ? ',' : '.';
  const char* p = *cursor;
  size_t r = *remaining;
  if (r < 5) return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
  double first = 0;
  size_t digits = 0;
  while (r > 0 && IsDigit(*p)) {
    first = first * 10 + (*p - '0');
    p++;
    r--;
    digits++;
  }
  if (r < 3 || p[0] != ':' || !IsDigit(p[1]) || !IsDigit(p[2]))
    return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
  double value = first * 60 + ((p[1] - '0') * 10 + (p[2] - '0'));
  p += 3;
  r -= 3;
  if (r > 0) {
    if (p[0] == ':') {
      if (r < 3 || !IsDigit(p[1]) || !IsDigit(p[2]))
        return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
      value = value * 60 + ((p[1] - '0') * 10 + (p[2] - '0'));
      p += 3;
      r -= 3;
    } else if (digits != 2) {
      return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
    }
    if (r >= 4 && p[0] == separator) {
      if (!IsDigit(p[1]) || !IsDigit(p[2]) || !IsDigit(p[3]))
        return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
      value += ((p[1] - '0') * 100 + (p[2] - '0') * 10 + (p[3] - '0')) / 1000.0;
      p += 4;
      r -= 4;
    }
    if (requireSpaceAfter && r > 0 && !IsSpace(*p)) return QorSignalErrorAt(kWebVTTErrMalformedCue);
    size_t before = r;
    SkipBlanks(&p, &r);
    if (spaceSeen) *spaceSeen = r < before;
  }
  // Hours with hundreds of digits overflow to infinity; such a time is malformed.
  if (!std::isfinite(value)) return QorSignalErrorAt(kWebVTTErrMalformedTimestamp);
  *cursor = p;
  *remaining = r;
  *seconds = value;
  return kNoErr;
}
