// Hostile sources and option values: every one ends with a message and a status, quickly, and
// without unbounded output or a file that would have to be truncated.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "media/formats/movie/movie_builder.h"
#include "test_support.h"

namespace {

std::string Cue(const std::string& start, const std::string& end, const std::string& text) {
  return start + " --> " + end + "\n" + text + "\n\n";
}

std::string Time(long seconds, int millis = 0) {
  char text[32];
  snprintf(text, sizeof text, "%02ld:%02ld:%02ld.%03d", seconds / 3600, seconds / 60 % 60,
           seconds % 60, millis);
  return text;
}

// Movies whose header asks for an output far beyond their size are refused before the first
// directory is made.
TEST(HostileInput, RefusedSourcesAndOptionsWriteNothing) {
  const std::string oneCue = "WEBVTT\n\n" + Cue("00:01.000", "00:02.000", "A");
  const std::string spanning = "WEBVTT\n\n" + Cue("00:00.000", "1000000000:00:00.000", "forever") +
                               Cue("999999999:00:00.000", "999999999:00:01.000", "late");
  // 600 cues that all last the whole hour: each is repeated in every one of 3600 segments.
  std::string overlapping = "WEBVTT\n\n";
  for (int i = 0; i < 600; i++) overlapping += Cue(Time(i), "01:00:00.000", "x");
  overlapping += Cue("00:59:59.000", "01:00:00.000", "end");
  using movie_builder::TextSample;
  auto track = [](uint32_t id, std::string sample, uint32_t count, uint32_t duration) {
    movie_builder::Track t;
    t.trackID = id;
    t.samples.assign(count, sample);
    t.durations.assign(count, duration);
    t.samplesPerChunk = 1;
    t.sharedBytes = true;
    return t;
  };
  movie_builder::Movie manyTracks, manyCues, sharedBytes;
  for (uint32_t id = 1; id <= 1001; ++id) manyTracks.tracks.push_back(track(id, "x", 1, 1000));
  // A cue every two seconds on a one-second grid: one segment per cue.
  manyCues.tracks = {track(1, TextSample("x"), 1000001, 2000)};
  // 150 samples reading the same 32 KB.
  sharedBytes.tracks = {track(1, "x", 1, 1000),
                        track(2, TextSample(std::string(32765, '&')), 150, 1000)};
  // `message` is in standard output (the log) or standard error.
  auto expect = [](const char* name, const std::string& source, std::vector<std::string> options,
                   int status, const std::string& message, const char* file = "in.vtt") {
    SCOPED_TRACE(name);
    const auto began = std::chrono::steady_clock::now();
    SourceRun run(source, options, file);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    EXPECT_EQ(run.result.status, status);
    EXPECT_NE((run.result.out + run.result.err).find(message), std::string::npos)
        << run.result.out << run.result.err;
    EXPECT_TRUE(run.Files().empty());
  };
  expect("cues on a zero grid", oneCue, {"-t", "0"}, 56, "a target duration of 0");
  expect("-t wrapping to zero", oneCue, {"-t", "4294967296"}, 56, "a target duration of 0");
  expect("a cue spanning 10^9 hours", spanning, {}, 56, "refused: its 2 cues would need");
  expect("overlapping cues", overlapping, {"-t", "1"}, 56, "refused: its 601 cues would need");
  expect("infinite duration", oneCue, {"-D", "inf"}, 56, "illegal duration inf");
  expect("line break in -b", oneCue, {"-b", "http://a\n#EXT-X-ENDLIST"}, 56, "-b contains");
  expect("line break in -K", oneCue, {"-K", "k\r\nx"}, 56, "-K contains");
  expect("line break in -i", oneCue, {"-i", "a\nb.m3u8"}, 56, "-i contains");
  expect("tab in -B", oneCue, {"-B", "seq\t"}, 56, "-B contains");
  expect("delete in -n", oneCue, {"-n", "k\x7f"}, 56, "-n contains");
  expect("line break in -s", oneCue, {"-s", "s\n.m3u8"}, 56, "-s contains");
  expect("empty source", "", {}, 47, "/in.vtt: cannot read the source: the file is empty");
  expect("cue ending at 0 after a good one",
         "WEBVTT\n\n" + Cue("00:01.000", "00:02.000", "A") + Cue("00:00.000", "00:00.000", "z"), {},
         47, "/in.vtt: cannot read the source: a cue ends at 0");
  expect("no line at all", "garbage without a line end", {}, 47, "/in.vtt: cannot read the source");
  expect("1,001 subtitle tracks", movie_builder::Build(manyTracks), {"-t", "1"}, 56,
         "/in.mp4: refused: track 1000 is one subtitle track more than the 1000 allowed", "in.mp4");
  expect("1,000,001 segments", movie_builder::Build(manyCues), {"-t", "1"}, 56,
         "/in.mp4: refused: track 0 would need 1000001 segments (at most 1000000)", "in.mp4");
  expect("shared sample bytes", movie_builder::Build(sharedBytes), {"-t", "1"}, 56,
         "/in.mp4: refused: with track 1 its subtitle samples take 4915051 bytes (at most ",
         "in.mp4");
}

TEST(HostileInput, SourcesThatAreReadWithAMessage) {
  // A cue whose hours overflow to infinity is malformed and dropped; the others are written.
  const std::string infinite =
      "WEBVTT\n\n" + Cue("00:01.000", "00:02.000", "A") +
      Cue(std::string(400, '9') + ":00:00.000", std::string(400, '9') + ":00:01.000", "never") +
      Cue(std::string(400, '9') + ":00:00.000", "00:00:05.000", "never");
  SourceRun dropped(infinite, {"-t", "10"});
  EXPECT_EQ(dropped.result.status, 0);
  EXPECT_EQ(dropped.Files(), (std::vector<std::string>{"fileSequence0.webvtt", "prog_index.m3u8"}));
  EXPECT_EQ(ReadFile(dropped.dir / "out/fileSequence0.webvtt").find("never"), std::string::npos);

  // UTF-16 text is not read: no cues, status 0, and a progress message naming the source.
  std::string utf16 = "\xff\xfe";
  for (char ch : "WEBVTT\n\n00:01.000 --> 00:02.000\nA\n\n") utf16 += std::string{ch, '\0'};
  SourceRun wide(utf16, {});
  EXPECT_EQ(wide.result.status, 0);
  EXPECT_NE(wide.result.out.find(wide.dir / "in.vtt" + ": no cues found"), std::string::npos)
      << wide.result.out;
  EXPECT_TRUE(wide.Files().empty());
}

TEST(HostileInput, OverlongPathsAreRefusedBeforeAnythingIsWritten) {
  ScratchDir dir;
  WriteFile(dir / "in.vtt", "WEBVTT\n\n" + Cue("00:01.000", "00:02.000", "A"));
  RunShell("mkdir -p '" + (dir / "keys") + "'");
  // A deep directory whose path alone takes 1000 bytes; it exists, so only the length counts.
  std::string deep = dir.path();
  while (deep.size() < 1000)
    deep += "/" + std::string(std::min<size_t>(200, 1000 - deep.size()), 'd');
  ASSERT_EQ(RunShell("mkdir -p '" + deep + "'"), 0);
  struct Case {
    const char* name;
    std::vector<std::string> options;
    std::string message;
  } cases[] = {
      {"-f", {"-f", deep}, "segment path made from -f and -B is too long"},
      {"-f and -i", {"-f", dir.path(), "-i", std::string(1000, 'i')}, "-f and -i"},
      {"-B", {"-f", dir.path(), "-B", std::string(250, 'b')}, "segment name made from -f and -B"},
      {"-n", {"-f", dir.path(), "-k", dir / "keys", "-n", std::string(250, 'n')}, "-k and -n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args{"hlsvtt", "-q"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    args.push_back(dir / "in.vtt");
    RunResult r = RunTool(args);
    EXPECT_EQ(r.status, 36);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(ListDir(dir.path()),
              (std::vector<std::string>{"d" + std::string(199, 'd'), "in.vtt", "keys"}));
    EXPECT_TRUE(ListDir(dir / "keys").empty());
    EXPECT_TRUE(ListDir(deep).empty());
  }
}

TEST(HostileInput, OutputFailuresNameTheDirectoryAndTheSource) {
  // A missing output directory is named once; the failure names the source, not a segment.
  SourceRun missing(
      "WEBVTT\n\n" + Cue("00:01.000", "00:02.000", "A") + Cue("00:11.000", "00:12.000", "B"),
      {"-t", "10", "-f", "/nonexistent/out"});
  EXPECT_EQ(missing.result.status, 2);
  const std::string& log = missing.result.out;
  EXPECT_NE(log.find("cannot create files in /nonexistent/out: No such file or directory"),
            std::string::npos)
      << log;
  EXPECT_EQ(log.find("/nonexistent/out", log.find("/nonexistent/out") + 1), std::string::npos)
      << log;
  EXPECT_NE(log.find("file " + missing.dir / "in.vtt"), std::string::npos) << log;

  // A segment cut short by a full disk (a file-size limit here) is removed, not left behind.
  ScratchDir dir;
  std::string source = "WEBVTT\n\n";
  for (int i = 0; i < 60; i++) source += Cue(Time(i), Time(i, 500), std::string(100, 'x'));
  WriteFile(dir / "in.vtt", source);
  std::string out;
  int status = RunShell("ulimit -f 4; '" + ToolPath() + "' -q -t 100 -f '" + dir.path() + "' '" +
                            (dir / "in.vtt") + "' 2>&1",
                        &out);
  EXPECT_NE(status, 0);
  EXPECT_NE(out.find("File too large"), std::string::npos) << out;
  EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"in.vtt"}));
}

TEST(HostileInput, AnInterruptedRunLeavesNoPartialFileAndNoPlaylist) {
  ScratchDir dir;
  std::string source = "WEBVTT\n\n";
  const std::string text(2000, 't');
  for (long i = 0; i < 20000; i++) source += Cue(Time(i), Time(i, 500), text);
  WriteFile(dir / "in.vtt", source);
  RunShell("mkdir '" + (dir / "out") + "'");
  pid_t pid = fork();
  if (pid == 0) {
    execl(ToolPath().c_str(), "hlsvtt", "-q", "-t", "1", "-f", (dir / "out").c_str(),
          (dir / "in.vtt").c_str(), nullptr);
    _exit(127);
  }
  // Interrupt once a few hundred segments exist.
  while (ListDir(dir / "out").size() < 300)
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  int wstatus = 0;
  ASSERT_EQ(waitpid(pid, &wstatus, WNOHANG), 0) << "the run ended before it was interrupted";
  kill(pid, SIGINT);
  waitpid(pid, &wstatus, 0);
  ASSERT_TRUE(WIFEXITED(wstatus));
  EXPECT_EQ(WEXITSTATUS(wstatus), 128 + SIGINT);
  const std::string header = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n";
  for (const std::string& name : ListDir(dir / "out")) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(name.starts_with("fileSequence") && name.ends_with(".webvtt"));
    const std::string segment = ReadFile(dir / "out/" + name);
    EXPECT_TRUE(segment.starts_with(header)) << segment.size();
    EXPECT_TRUE(segment.ends_with(text + "\n\n"));
  }
}

}  // namespace
