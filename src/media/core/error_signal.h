// The library reports every error at its origin through QorSignalErrorAt, which counts it and
// hands the code back unchanged, so "return QorSignalErrorAt(code);" reads naturally. It prints
// nothing.
//
// It also records where the failure began, for the caller that reports it: the function that
// signalled and, given by parsers, the box and its byte offset and a short reason. Each thread
// keeps one record. A failure travels up with the same code, so a later signal of the code already
// recorded leaves the record alone (the first origin stays); a signal of another code starts a new
// record. A caller clears the record before an operation whose failure it will report, and reads it
// when the operation fails with the recorded code.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "common/status.h"
#include "media/core/four_cc.h"

// Where a failure began. Fixed size: recording one never allocates.
struct QorErrorOrigin {
  Status code = kNoErr;            // kNoErr: nothing recorded
  const char* function = nullptr;  // the function that signalled
  uint32_t line = 0;               // its line in this program's source
  FourCC box = 0;                  // the box being read, or 0
  int64_t byteOffset = -1;         // the box's first byte, or -1 when not known
  bool inInflatedHeader = false;   // the offset counts in an inflated compressed header
  char reason[120] = "";           // what is wrong, or empty
};

// A reason with the function and line that give it (the caller's, by default). In the text each
// "#" stands for the next of the numbers given with it, written with thousands separators
// ("2,147,483,647").
struct QorErrorReason {
  QorErrorReason(const char* reasonText, const char* signallingFunction = __builtin_FUNCTION(),
                 uint32_t signallingLine = __builtin_LINE())
      : text(reasonText), function(signallingFunction), line(signallingLine) {}
  const char* text;
  const char* function;
  uint32_t line;
};

// Counts the failure, records the calling function as its origin, and returns `code`.
Status QorSignalErrorAt(Status code, const char* function = __builtin_FUNCTION(),
                        uint32_t line = __builtin_LINE());
// The same, with the reason the failure is recorded with.
Status QorSignalErrorBecause(Status code, QorErrorReason reason,
                             std::initializer_list<uint64_t> numbers = {});
uint64_t QorSignalledErrorCount();

// Places the recorded failure `code` in a box whose first byte is at `byteOffset`, unless it is
// placed already: the innermost box that knows its offset names it.
void QorErrorOriginPlaceInBox(Status code, FourCC box, int64_t byteOffset, bool inInflatedHeader);

void QorErrorOriginClear();
// The recorded origin of `code`, or nullptr when the record is of another failure or empty.
const QorErrorOrigin* QorErrorOriginOf(Status code);

// "'stsz' at byte 1,234: 2,147,483,647 entries do not fit in 20 bytes"; for an origin without a
// reason, the function that signalled it.
std::string QorDescribeErrorOrigin(const QorErrorOrigin& origin);
// A number with a comma between each group of three digits.
std::string QorGroupDigits(uint64_t value);
