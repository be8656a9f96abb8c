// The timed-text (TTML) branch of a run: a source named .ttml, .dfxp or .xml whose root element
// is a timed-text tt element is read whole, turned into cues and cut into segments exactly as the
// cues of a WebVTT source are.
#pragma once

#include <string>

#include "common/run_environment.h"
#include "common/status.h"
#include "driver/run_settings.h"
#include "media/core/byte_stream.h"

// A timed-text source larger than this is refused.
constexpr size_t kMaxTimedTextSourceBytes = size_t{1} << 28;

bool IsTimedTextExtension(const std::string& extension);

// Runs the branch when the source is a timed-text document, setting `*taken`; leaves `*taken`
// false (and returns kNoErr) when it is not, for the caller to try the source as a movie.
Status RunTimedTextSource(const RunSettings& settings, const RunEnvironment& environment,
                          MxByteStream* stream, bool* taken);
