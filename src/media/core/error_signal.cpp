#include "media/core/error_signal.h"

#include <atomic>
#include <cstring>

namespace {

std::atomic<uint64_t> signalledErrors{0};
thread_local QorErrorOrigin lastOrigin;

// Starts a new record unless `code` is the failure already recorded. True when it did.
bool Record(Status code, const char* function, uint32_t line) {
  signalledErrors.fetch_add(1, std::memory_order_relaxed);
  if (lastOrigin.code == code) return false;
  lastOrigin = QorErrorOrigin{};
  lastOrigin.code = code;
  lastOrigin.function = function;
  lastOrigin.line = line;
  return true;
}

// Appends `text` to the fixed buffer at `*used`, cutting it short at the buffer's end.
void Append(char* buffer, size_t size, size_t* used, const char* text, size_t length) {
  const size_t room = size - 1 - *used;
  const size_t n = length < room ? length : room;
  memcpy(buffer + *used, text, n);
  *used += n;
  buffer[*used] = '\0';
}

}  // namespace

Status QorSignalErrorAt(Status code, const char* function, uint32_t line) {
  Record(code, function, line);
  return code;
}

Status QorSignalErrorBecause(Status code, QorErrorReason reason,
                             std::initializer_list<uint64_t> numbers) {
  if (!Record(code, reason.function, reason.line)) return code;
  char* out = lastOrigin.reason;
  size_t used = 0;
  const uint64_t* next = numbers.begin();
  for (const char* p = reason.text; *p != '\0'; ++p) {
    if (*p == '#' && next != numbers.end()) {
      const std::string digits = QorGroupDigits(*next++);
      Append(out, sizeof lastOrigin.reason, &used, digits.data(), digits.size());
    } else {
      Append(out, sizeof lastOrigin.reason, &used, p, 1);
    }
  }
  return code;
}

uint64_t QorSignalledErrorCount() {
  return signalledErrors.load(std::memory_order_relaxed);
}

void QorErrorOriginPlaceInBox(Status code, FourCC box, int64_t byteOffset, bool inInflatedHeader) {
  if (lastOrigin.code != code || code == kNoErr || lastOrigin.box != 0) return;
  lastOrigin.box = box;
  lastOrigin.byteOffset = byteOffset;
  lastOrigin.inInflatedHeader = inInflatedHeader;
}

void QorErrorOriginClear() {
  lastOrigin = QorErrorOrigin{};
}

const QorErrorOrigin* QorErrorOriginOf(Status code) {
  return code != kNoErr && lastOrigin.code == code ? &lastOrigin : nullptr;
}

std::string QorGroupDigits(uint64_t value) {
  const std::string plain = std::to_string(value);
  std::string grouped;
  for (size_t i = 0; i < plain.size(); ++i) {
    if (i > 0 && (plain.size() - i) % 3 == 0) grouped += ',';
    grouped += plain[i];
  }
  return grouped;
}

std::string QorDescribeErrorOrigin(const QorErrorOrigin& origin) {
  std::string place;
  if (origin.box != 0) {
    std::string type = MxFourCCToString(origin.box);
    for (char& c : type) {
      if (c < ' ' || c > '~') c = '?';  // the type comes from the file
    }
    place = "'" + type + "'";
    if (origin.byteOffset >= 0) {
      place += " at byte " + QorGroupDigits(uint64_t(origin.byteOffset));
      if (origin.inInflatedHeader) place += " of the inflated movie header";
    }
  }
  std::string reason = origin.reason;
  if (reason.empty() && origin.function != nullptr)
    reason = std::string("failed in ") + origin.function;
  if (place.empty()) return reason;
  return reason.empty() ? place : place + ": " + reason;
}
