// The movie branch of a run: every subtitle track of the movie becomes a directory under the
// output directory with its WebVTT segments and media playlist (and a "-forced" directory for the
// forced subtitles of a track that carries some), and the subtitle variant playlist lists them.
#pragma once

#include "common/run_environment.h"
#include "common/status.h"
#include "driver/run_settings.h"
#include "media/core/byte_stream.h"

Status RunMovieSource(const RunSettings& settings, const RunEnvironment& environment,
                      MxByteStream* stream);
