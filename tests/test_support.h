// Helpers shared by the tests: scratch directories, whole-file reads, and running the built
// tool with its standard output, standard error and exit status captured.
#pragma once

#include <string>
#include <vector>

#include "media/core/byte_stream.h"

struct RunResult {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when the process did not exit normally
};

// Runs the hlsvtt binary with `args` (argv[0] is the binary's path) in `workDir`.
RunResult RunTool(const std::vector<std::string>& args, const std::string& workDir = ".");
// The same for any binary.
RunResult RunBinary(const std::string& binary, const std::vector<std::string>& args,
                    const std::string& workDir = ".");
// Runs any command through the shell; returns its exit status and captures standard output.
int RunShell(const std::string& command, std::string* output = nullptr);

// A fresh directory under /tmp, removed with its contents when the object goes away.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& contents);
bool FileExists(const std::string& path);
std::vector<std::string> ListDir(const std::string& path);  // sorted names
std::string ToolPath();

// Runs hlsvtt with `options` on `source`, written to dir/name, into an empty dir/out, under a
// one-minute limit so that a run that never ends fails its test instead of hanging it. Log lines
// go to standard output without their time of day.
struct SourceRun {
  SourceRun(const std::string& source, const std::vector<std::string>& options,
            const std::string& name = "in.vtt");
  std::string Out(const std::string& file) const { return ReadFile(dir / "out/" + file); }
  std::vector<std::string> Files() const { return ListDir(dir / "out"); }
  ScratchDir dir;
  RunResult result;
};

// A byte stream over a copy of `bytes`; a failure to make it fails the test.
MxByteStreamRef MemoryStream(const std::string& bytes);
// `utf8` converted by ICU into `encoding`; a failed conversion fails the test.
std::string Encode(const std::string& utf8, const char* encoding);

// The shared corpus of subtitle sources lives outside the repository. A test that reads it starts
// with SKIP_WITHOUT_CORPUS(), which skips the test, naming the directory, when it is missing; the
// script tests that read it print the same message and exit with status 77 (CTest's skip).
inline constexpr const char* kCorpusDir = HLSVTT_CORPUS_DIR;
bool CorpusPresent();
#define SKIP_WITHOUT_CORPUS()                                            \
  do {                                                                   \
    if (!CorpusPresent()) GTEST_SKIP() << "no corpus at " << kCorpusDir; \
  } while (0)

// A cue as a client prints it: times in seconds and the payload lines, each ending in "\n".
struct TextCue {
  double start, end;
  std::string text;
};
// The cues of a WebVTT text, in order.
std::vector<TextCue> ParseWebVTTCues(const std::string& webvtt);
// Expects the same cues: the same text, and times within the millisecond that the segment
// writer's truncating time arithmetic may take off (16.159 is stored as 16.15899..., printed
// 16.158).
void ExpectSameCues(const std::vector<TextCue>& expected, const std::vector<TextCue>& actual);
// The WebVTT text ffmpeg extracts from `input`, run in `dir` with extra input options; a failed
// run fails the test.
std::string FfmpegWebVTT(const std::string& dir, const std::string& input,
                         const std::string& options = "");
