// The text of WebVTT segments: the header with its timestamp map, cue times, and cues copied
// from a WebVTT source. Everything goes through ChunkFileWriteData; each function stops at the
// first failed write and returns its status.
#pragma once

#include <cstdint>

#include "common/status.h"
#include "segments/chunk_file.h"

struct WebVTTCueRecord;
class WebVTTCueStore;

Status WriteSegmentHeader(ChunkFile* chunk, uint64_t mpegts);
Status WriteTimestamp(ChunkFile* chunk, double seconds);
Status WriteCue(ChunkFile* chunk, const WebVTTCueStore& store, const WebVTTCueRecord& cue);

// The latest time an output may carry, in seconds: a cue time from 0 to this prints exactly as
// a timestamp (its hours fit the 32-bit field and the arithmetic behind it), and a segment
// lasting up to this has a whole-second target duration that fits 32 bits.
inline constexpr double kLatestOutputSeconds = 4294967295.0;

// Formats a cue time as HH:MM:SS.mmm with every field truncated; returns the text's length
// (at most 19). `text` must hold 20 bytes.
int FormatWebVTTTimestamp(double seconds, char* text);
