// Duration of an MPEG stream from time stamps seen near its head and near its tail. Each
// stream's first stamp comes from the head; the tail gives each stream's latest stamp and the
// shortest step between its successive stamps, which stands for the length of the last packet.
// Stamps are 33-bit and may wrap once between the head and the tail.
#pragma once

#include <cstdint>
#include <map>

class MPEGTimeline {
 public:
  void AddHead(uint32_t stream, uint64_t stamp);
  void AddTail(uint32_t stream, uint64_t stamp);
  // The clock fallback: clock references (program clock or system clock) at head and tail.
  void AddHeadClock(uint64_t clock);
  void AddTailClock(uint64_t clock);

  // 90 kHz ticks from the earliest first stamp to the latest end; false when there is none.
  // Only streams for which `include(stream)` is true count.
  template <class Include>
  bool Duration(Include include, uint64_t* ticks) const {
    bool haveOrigin = false;
    uint64_t origin = 0;
    for (const auto& [stream, state] : streams_) {
      if (!state.haveFirst || !include(stream)) continue;
      if (!haveOrigin || state.first < origin) origin = state.first;
      haveOrigin = true;
    }
    bool found = false;
    uint64_t end = 0;
    if (haveOrigin) {
      for (const auto& [stream, state] : streams_) {
        if (!state.haveLast || !include(stream)) continue;
        const uint64_t candidate = Since(origin, state.last) + state.step;
        if (!found || candidate > end) end = candidate;
        found = true;
      }
    }
    if (!found) return ClockDuration(ticks);
    *ticks = end;
    return true;
  }

  // The first stamp seen for `stream` at the head.
  bool First(uint32_t stream, uint64_t* stamp) const;

 private:
  struct StreamState {
    bool haveFirst = false;
    bool haveLast = false;
    bool havePrevious = false;
    uint64_t first = 0;
    uint64_t last = 0;      // the latest stamp of the tail, as seen from `first`
    uint64_t previous = 0;  // the stamp before, in file order
    uint64_t step = 0;      // the shortest positive step between successive tail stamps
  };
  static uint64_t Since(uint64_t from, uint64_t stamp);
  bool ClockDuration(uint64_t* ticks) const;

  std::map<uint32_t, StreamState> streams_;
  bool haveHeadClock_ = false;
  bool haveTailClock_ = false;
  uint64_t headClock_ = 0;
  uint64_t tailClock_ = 0;
};
