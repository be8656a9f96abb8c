#include "media/core/error_signal.h"

#include <atomic>

namespace {
std::atomic<uint64_t> signalledErrors{0};
}

Status QorSignalErrorAt(Status code) {
  signalledErrors.fetch_add(1, std::memory_order_relaxed);
  return code;
}

uint64_t QorSignalledErrorCount() {
  return signalledErrors.load(std::memory_order_relaxed);
}
