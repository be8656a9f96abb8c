// The WebVTT/SRT branch of a run: parse the whole source into cues, then cut them into
// segments on a fixed grid of target durations. A cue that runs across a boundary is repeated
// whole in every segment it touches; a stretch without cues is folded into the next segment.
#pragma once

#include "common/run_environment.h"
#include "common/status.h"
#include "driver/run_settings.h"
#include "media/core/byte_stream.h"
#include "media/formats/webvtt/cue_store.h"
#include "segments/chunk_file.h"

Status RunWebVTTSource(const RunSettings& settings, const RunEnvironment& environment,
                       MxByteStream* stream);
// The same run into a chunk file made with `chunkSettings` instead of the run's own (for
// example one that keeps its segments in memory).
Status RunWebVTTSourceInto(const RunSettings& settings, MxByteStream* stream,
                           const ChunkFileSettings& chunkSettings);
// Cuts cues already read (in start order) into segments: the part of a run after the source is
// parsed, shared by every source of cues. A run over too many segments or cue copies is refused
// before anything is written.
Status ScheduleCuesInto(const RunSettings& settings, WebVTTCueStore& cues,
                        const ChunkFileSettings& chunkSettings);
