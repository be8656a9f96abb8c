// Turns a timed-text document into cues. Every element's active interval is worked out from its
// begin, end and dur (relative to its parent's begin in a parallel container, to the end of the
// previous sibling in a sequential one) and clipped to its parent's. An element without an end or
// dur lasts as long as its content: in a parallel container until the last child ends, in a
// sequential one until the last child ends, and text lasts indefinitely in a parallel container
// and not at all in a sequential one.
//
// Each paragraph becomes one cue per interval over which its visible text stays the same (spans
// with their own timing change it); paragraphs shown at the same time are separate cues. Text is
// escaped for a cue payload; bold, italic and underline (inline, from referenced styles, and
// inherited) become <b>, <i> and <u>; a br element is a line break. Whitespace is collapsed and
// trimmed at the ends of lines unless xml:space="preserve" keeps it (with its newlines as line
// breaks). Lines that are left empty are dropped.
//
// A paragraph's tts:textAlign becomes its cues' align setting; the region it is shown in, when
// its origin and extent are given in percent, becomes the cue box: position (its left edge) and
// size (its width), and a line at its top, middle or bottom as tts:displayAlign says. Content
// that names another region than its ancestors do is not shown. The region's bold, italic,
// underline and alignment are inherited by the content shown in it, below the content's own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/status.h"
#include "media/formats/ttml/timed_text_document.h"

// A paragraph changing its text more often than this, or holding more elements and texts than
// kTimedTextMaxParagraphNodes, is refused.
constexpr size_t kTimedTextMaxParagraphIntervals = 1024;
constexpr size_t kTimedTextMaxParagraphNodes = 16384;

struct TimedTextCue {
  double start = 0, end = 0;  // seconds
  size_t offset = 0;          // where its settings start in the text of the cues
  uint32_t settingsLength = 0, payloadLength = 0;  // the payload follows the settings
};

// The cues and their settings and payloads, kept one after another in one text.
struct TimedTextCues {
  std::vector<TimedTextCue> list;
  std::string text;

  std::string_view Settings(const TimedTextCue& cue) const {
    return std::string_view(text).substr(cue.offset, cue.settingsLength);
  }
  std::string_view Payload(const TimedTextCue& cue) const {
    return std::string_view(text).substr(cue.offset + cue.settingsLength, cue.payloadLength);
  }
};

// The paragraphs whose text was still shown when their indefinite end was cut, and where.
struct TimedTextOpenEnds {
  size_t paragraphs = 0;
  double end = 0;  // seconds
};

// The cues sorted by start time (paragraphs starting together in document order).
//
// Text shown without an end (no end or dur on its paragraph or around it) is shown until the
// document's last time, the latest begin or end that any element of it resolves to; such
// paragraphs are counted in `*openEnds` when it is given. A paragraph whose text is shown without
// an end and which begins at or after that time is refused with kErrParse and `*message` naming
// its line.
Status BuildTimedTextCues(const TimedTextDocument& document, TimedTextCues* cues,
                          std::string* message, TimedTextOpenEnds* openEnds = nullptr);
