#include "media/formats/webvtt/webvtt_parser.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "media/core/error_signal.h"
#include "media/formats/webvtt/srt_markup.h"

namespace {

constexpr size_t kBlockSize = 1024;
constexpr Status kFeedLineAgain =
    static_cast<Status>(5);  // the line handler asks for the same line once more
constexpr uint32_t kStateSignature = 0, kStateHeader = 1, kStateCues = 3;

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

// A malformed block is counted and dropped; reading goes on.
Status DropBlock(Status code) {
  static_cast<void>(QorSignalErrorAt(code));
  return kNoErr;
}

// Stores a cue from its identifier and the rewritten settings and payload: a small one in a
// shared text block, a large one in a buffer of its own.
Status AppendRewritten(WebVTTParser* parser, const WebVTTCueRecord& record,
                       std::string_view identifier) {
  const std::string& settings = parser->rewrittenSettings;
  const std::string& payload = parser->rewrittenPayload;
  const size_t size = identifier.size() + settings.size() + payload.size();
  if (size < kOwnTextBlockThreshold)
    return parser->cues.AppendCopy(record, identifier, settings, payload);
  char* bytes = static_cast<char*>(malloc(size));
  if (bytes == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  memcpy(bytes, identifier.data(), identifier.size());
  memcpy(bytes + identifier.size(), settings.data(), settings.size());
  memcpy(bytes + identifier.size() + settings.size(), payload.data(), payload.size());
  return parser->cues.AppendOwned(record, bytes, identifier.size(), settings.size(),
                                  payload.size());
}

// Parses the collected cue block. Returns 0 when the block was accepted or dropped, and an
// error only when the whole read must end.
Status ParseCueBlock(WebVTTParser* parser) {
  struct ClearLines {  // the collected block is let go in every case
    GrowableBytes& lines;
    ~ClearLines() { lines.Truncate(0); }
  } clear{parser->cueLines};
  const size_t size = parser->cueLines.size();
  const char* data = parser->cueLines.data();
  const char* const end = data + size;

  const char* firstEnd = FindLineEnd(data, end);
  if (firstEnd == nullptr) return DropBlock(kWebVTTErrMalformedCue);
  const char* arrow = static_cast<const char*>(memmem(data, size, "-->", 3));
  if (arrow == nullptr) return DropBlock(kWebVTTErrMalformedCue);

  struct {  // byte ranges in `data`; the identifier, when there is one, starts at 0
    size_t identifierLength = 0;
    size_t settingsOffset = 0, settingsLength = 0;
    size_t payloadOffset = 0, payloadLength = 0;
  } ranges;

  const char* p = data;
  if (firstEnd < arrow) {
    ranges.identifierLength = static_cast<size_t>(firstEnd - data);
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
  // The end is checked against 0, not against the start: a cue whose end comes before its
  // start is accepted, and a zero end stops the read.
  if (!(finish > 0)) return QorSignalErrorAt(kWebVTTErrBadCueTime);

  const char* settingsEnd = FindLineEnd(p, end);
  if (settingsEnd == nullptr) return DropBlock(kWebVTTErrMalformedCue);
  if (settingsEnd > p) {
    ranges.settingsOffset = static_cast<size_t>(p - data);
    ranges.settingsLength = static_cast<size_t>(settingsEnd - p);
  }
  p = settingsEnd + TerminatorLength(settingsEnd, end);
  remaining = static_cast<size_t>(end - p);
  SkipBlanks(&p, &remaining);
  ranges.payloadOffset = static_cast<size_t>(p - data);

  const char* payloadEnd = end;
  while (payloadEnd > p && IsLineEnd(payloadEnd[-1])) payloadEnd--;
  if (payloadEnd <= p) return DropBlock(kWebVTTErrEmptyPayload);
  ranges.payloadLength = static_cast<size_t>(payloadEnd - p);

  if (parser->haveLastStart && start < parser->lastStart) return DropBlock(kWebVTTErrBadCueTime);

  // Accepted: identifier, settings and payload are kept one after another. A small cue is
  // copied into a shared text block; a large one keeps the collected buffer, its pieces moved
  // to its start.
  if (ranges.identifierLength > UINT32_MAX || ranges.settingsLength > UINT32_MAX)
    return DropBlock(kWebVTTErrMalformedCue);
  WebVTTCueRecord record;
  record.start = start;
  record.end = finish;
  const size_t identifierLength = ranges.identifierLength;
  const size_t settingsLength = ranges.settingsLength;
  const size_t payloadLength = ranges.payloadLength;
  Status status = kNoErr;
  bool rewritten = false;
  if (parser->rewriteSrtMarkup) {
    try {
      rewritten = RewriteSrtMarkup(std::string_view(data + ranges.settingsOffset, settingsLength),
                                   std::string_view(data + ranges.payloadOffset, payloadLength),
                                   &parser->rewrittenSettings, &parser->rewrittenPayload);
    } catch (const std::bad_alloc&) {
      return QorSignalErrorAt(kMxErrAllocationFailed);
    }
  }
  if (rewritten && parser->rewrittenPayload.empty()) {
    return DropBlock(kWebVTTErrEmptyPayload);  // nothing but position codes
  } else if (rewritten) {
    status = AppendRewritten(parser, record, std::string_view(data, identifierLength));
  } else if (identifierLength + settingsLength + payloadLength < kOwnTextBlockThreshold) {
    status = parser->cues.AppendCopy(record, std::string_view(data, identifierLength),
                                     std::string_view(data + ranges.settingsOffset, settingsLength),
                                     std::string_view(data + ranges.payloadOffset, payloadLength));
  } else {
    char* bytes = parser->cueLines.data();
    memmove(bytes + identifierLength, bytes + ranges.settingsOffset, settingsLength);
    memmove(bytes + identifierLength + settingsLength, bytes + ranges.payloadOffset, payloadLength);
    parser->cueLines.Truncate(identifierLength + settingsLength + payloadLength);
    status = parser->cues.AppendOwned(record, parser->cueLines.Release(), identifierLength,
                                      settingsLength, payloadLength);
  }
  if (status != kNoErr) return status;
  parser->haveLastStart = true;
  parser->lastStart = start;
  return kNoErr;
}

// Handles one line with its terminator (terminatorLength 0: the last line, unterminated).
Status HandleLine(WebVTTParser* parser, const char* line, size_t length, size_t terminatorLength) {
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
      if (Status status = parser->cueLines.Append(line, length)) return status;
      return blank ? ParseCueBlock(parser) : kNoErr;
    }
    default:
      return kNoErr;
  }
}

// Hands the pending partial line to the line handler. It lies at the end of the collected cue
// lines, so in a cue block it is already where the handler would put it; elsewhere it is let go
// once handled.
Status FinishPartialLine(WebVTTParser* parser, size_t terminatorLength) {
  parser->havePartialLine = false;
  const size_t start = parser->partialStart;
  const char* line = parser->cueLines.data() + start;
  const size_t length = parser->cueLines.size() - start;
  const bool blank = length == terminatorLength;
  if (parser->state != kStateCues) {
    Status status = HandleLine(parser, line, length, terminatorLength);
    parser->cueLines.Truncate(start);
    return status;
  }
  if (blank && start == 0) {  // a blank line between cues
    parser->cueLines.Truncate(start);
    return kNoErr;
  }
  return blank ? ParseCueBlock(parser) : kNoErr;
}

// Completes a line that began in an earlier block. Sets *consumed to the bytes of `block` that
// belong to it (0 when the block must be scanned from its start), or to the whole block when
// the line goes on past it.
Status ContinuePartialLine(WebVTTParser* parser, const char* data, size_t length,
                           size_t* consumed) {
  const char* const end = data + length;
  const char* lineEnd = FindLineEnd(data, end);
  *consumed = length;
  if (lineEnd == nullptr) return parser->cueLines.Append(data, length);
  size_t terminator = TerminatorLength(lineEnd, end);
  // A CR that is the last byte of the block is let go and does not end the line: the bytes
  // before it join the line, which goes on in the next block. A CR LF split there thus ends
  // its line with the LF alone.
  if (terminator == 0) return parser->cueLines.Append(data, static_cast<size_t>(lineEnd - data));
  size_t take = static_cast<size_t>(lineEnd - data) + terminator;
  if (lineEnd == data && terminator == 1) {
    // A one-byte break first in the block: when the line so far ends in CR (kept from the end
    // of an earlier block's remainder), the two make one two-byte break.
    if (parser->cueLines.data()[parser->cueLines.size() - 1] == '\r') terminator = 2;
    take = 1;
  }
  Status status = parser->cueLines.Append(data, take);
  if (status == kNoErr) status = FinishPartialLine(parser, terminator);
  if (status == kFeedLineAgain) {
    // The block is scanned again from its start; the line's earlier part is let go.
    *consumed = 0;
    return kNoErr;
  }
  *consumed = take;
  return status;
}

// Processes one block read from the stream.
Status ProcessBlock(WebVTTParser* parser, MxBlockBuffer* block) {
  const size_t length = MxBlockBufferGetDataLength(block);
  char* bytes = nullptr;
  if (length > 0) {
    if (Status status = MxBlockBufferGetDataPointer(block, 0, nullptr, nullptr, &bytes))
      return status;
  }
  const char* data = bytes;
  const char* const end = data + length;
  const char* p = data;
  if (parser->havePartialLine) {
    size_t consumed = 0;
    Status status = ContinuePartialLine(parser, data, length, &consumed);
    if (status != kNoErr) return status;
    if (parser->havePartialLine) return kNoErr;  // the line goes on in the next block
    p += consumed;
  }
  while (p < end) {
    const char* lineEnd = FindLineEnd(p, end);
    if (lineEnd == nullptr) break;
    size_t terminator = TerminatorLength(lineEnd, end);
    // A CR ending the block stays with the remainder: with an LF first in the next block it
    // makes a CR LF, otherwise it stays inside the line and the line goes on.
    if (terminator == 0) break;
    const size_t lineLength = static_cast<size_t>(lineEnd - p) + terminator;
    Status status = HandleLine(parser, p, lineLength, terminator);
    if (status == kFeedLineAgain) status = HandleLine(parser, p, lineLength, terminator);
    if (status != kNoErr) return status;
    p += lineLength;
  }
  if (p < end) {
    parser->partialStart = parser->cueLines.size();
    if (Status status = parser->cueLines.Append(p, static_cast<size_t>(end - p))) return status;
    parser->havePartialLine = true;
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

Status WebVTTParserCreate(WebVTTParser** out, uint32_t commaDecimal) {
  *out = new (std::nothrow) WebVTTParser;
  if (*out == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
  (*out)->commaDecimal = commaDecimal;
  return kNoErr;
}

WebVTTCueStore* WebVTTParserGetCueStore(WebVTTParser* parser) {
  return &parser->cues;
}

WebVTTCueQueue* WebVTTParserGetCueQueue(WebVTTParser* parser) {
  const WebVTTCueStore& store = parser->cues;
  for (size_t i = 0; i < store.size(); i++) {
    const WebVTTCueRecord& record = store[i];
    WebVTTCue* cue = new (std::nothrow) WebVTTCue;
    if (cue == nullptr) {
      static_cast<void>(QorSignalErrorAt(kMxErrAllocationFailed));  // reported by the signal
      break;
    }
    cue->text = store.Block(record);
    cue->start = record.start;
    cue->end = record.end;
    cue->identifierOffset = record.offset;
    cue->identifierLength = record.identifierLength;
    cue->settingsOffset = record.offset + record.identifierLength;
    cue->settingsLength = record.settingsLength;
    cue->payloadOffset = cue->settingsOffset + record.settingsLength;
    cue->payloadLength = record.payloadLength;
    parser->cueQueue.InsertTail(cue);
  }
  parser->cues.Clear();
  return &parser->cueQueue;
}

Status GrowableBytes::Append(const char* bytes, size_t length) {
  if (length > capacity_ - size_) {
    if (length > SIZE_MAX / 2 - size_) return QorSignalErrorAt(kMxErrAllocationFailed);
    const size_t capacity = std::max({size_ + length, capacity_ * 2, size_t{256}});
    // A large block is remapped in place by realloc: its pages are not copied.
    char* grown = static_cast<char*>(realloc(data_, capacity));
    if (grown == nullptr) return QorSignalErrorAt(kMxErrAllocationFailed);
    data_ = grown;
    capacity_ = capacity;
  }
  if (length > 0) memcpy(data_ + size_, bytes, length);
  size_ += length;
  return kNoErr;
}

char* GrowableBytes::Release() {
  char* bytes = data_;
  if (size_ < capacity_ && size_ > 0) {
    // Should shrinking fail, the larger buffer is kept.
    if (char* shrunk = static_cast<char*>(realloc(data_, size_))) bytes = shrunk;
  }
  data_ = nullptr;
  size_ = capacity_ = 0;
  return bytes;
}

void WebVTTCueFree(WebVTTCue* cue) {
  delete cue;
}

Status WebVTTParserRelease(WebVTTParser* parser) {
  if (parser == nullptr) return kNoErr;
  while (WebVTTCue* cue = parser->cueQueue.first) {
    parser->cueQueue.Remove(cue);
    WebVTTCueFree(cue);
  }
  delete parser;
  return kNoErr;
}

Status WebVTTParserReadByteStream(WebVTTParser* parser, MxByteStream* stream) {
  if (parser == nullptr || stream == nullptr) return kNoErr;
  uint8_t bom[3];
  size_t count = 0;
  Status status = MxByteStreamReadBytes(stream, 3, 0, bom, &count);
  if (status != kNoErr) return status;
  int64_t offset = (count == 3 && bom[0] == 0xEF && bom[1] == 0xBB && bom[2] == 0xBF) ? 3 : 0;
  do {
    MxBlockBufferRef block;
    count = 0;
    status = MxByteStreamReadIntoBlockBuffer(stream, kBlockSize, offset, &block, &count);
    if (status != kNoErr && status != kMxErrEndOfStream) return status;
    if (block) {
      Status blockStatus = ProcessBlock(parser, block.get());
      if (blockStatus != kNoErr) return blockStatus;
    }
    offset += static_cast<int64_t>(count);
  } while (status != kMxErrEndOfStream);

  if (!parser->havePartialLine) return kNoErr;  // a last block without a blank line stays unparsed
  status = FinishPartialLine(parser, 0);
  // The file's one line, unterminated and without a signature, asks to be fed again when
  // there is nothing left to feed: no cue can come of it.
  if (status == kFeedLineAgain) status = QorSignalErrorAt(kWebVTTErrMalformedCue);
  if (status == kNoErr && !parser->cueLines.empty() && parser->state == kStateCues)
    status = ParseCueBlock(parser);
  parser->state = kStateSignature;
  return status;
}

Status WebVTTParseTimestamp(WebVTTParser* parser, const char** cursor, size_t* remaining,
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
