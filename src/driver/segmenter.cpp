#include "driver/segmenter.h"

#include <strings.h>

#include "common/incomplete_files.h"
#include "driver/cue_scheduler.h"
#include "driver/movie_source.h"
#include "driver/output_path.h"
#include "driver/run_settings.h"
#include "driver/timed_text_source.h"
#include "log/output.h"
#include "media/core/file_byte_stream.h"

namespace {

bool IsWebVTTExtension(const std::string& extension) {
  return !extension.empty() &&
         (strcasecmp(extension.c_str(), "webvtt") == 0 ||
          strcasecmp(extension.c_str(), "vtt") == 0 || strcasecmp(extension.c_str(), "srt") == 0);
}

}  // namespace

Status RunSegmenter(int argc, char** argv) {
  RunSettings settings;
  Status result = kNoErr;
  if (!ParseCommandLine(argc, argv, &settings, &result)) return result;
  result = LoadStaticKey(&settings);
  if (result != kNoErr) return result;
  // Paths that do not fit are refused before anything is written.
  result = CheckOutputPaths(settings, argv[0]);
  if (result != kNoErr) return result;
  InstallInterruptCleanup();

  OutputInit(settings.outputTimestamps);
  if (settings.debug) {
    OutputAllowDebug();
  } else if (settings.quiet) {
    OutputBeQuiet();
  }

  MxURL url;
  if (MxURLCreateWithFileSystemPath(settings.inputPath, false, &url) != kNoErr)
    return kMxErrAllocationFailed;
  MxByteStreamRef stream;
  result = MxByteStreamCreateForFileURL(nullptr, url, 0, &stream);
  if (result != kNoErr) {
    OutputMessage(0, "can't create byte stream %s %d", settings.inputPath, result);
    return result;
  }
  const RunEnvironment environment;  // the system clock, "/dev/random", no injected faults
  if (IsWebVTTExtension(url.PathExtension()))
    return RunWebVTTSource(settings, environment, stream.get());
  if (IsTimedTextExtension(url.PathExtension())) {
    bool taken = false;
    result = RunTimedTextSource(settings, environment, stream.get(), &taken);
    if (taken) return result;
  }
  return RunMovieSource(settings, environment, stream.get());
}
