// End-to-end runs of WebVTT and SRT sources through the built tool.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "driver/schedule_size.h"
#include "test_support.h"

namespace {

const std::string kHeader = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n";

std::string Playlist(int target, const std::vector<std::string>& extinf) {
  std::string text = "#EXTM3U\n#EXT-X-TARGETDURATION:" + std::to_string(target) +
                     "\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n";
  for (size_t i = 0; i < extinf.size(); i++)
    text += "#EXTINF:" + extinf[i] + ",\t\nfileSequence" + std::to_string(i) + ".webvtt\n";
  return text + "#EXT-X-ENDLIST\n";
}

// Each source's segments and playlist, and the schedule measured before anything is written
// against what is written: segment files, and cue copies counted by their timing lines.
TEST(CueScheduling, SegmentsFollowTheCues) {
  const std::string longCue = "00:00:08.000 --> 00:00:32.000\nlong\n\n";
  // `cues` follow the signature; `options` start with -t; `files` counts the output files, the
  // playlist included, and `contents` holds some of them.
  auto expect = [](const char* name, const std::string& cues, std::vector<std::string> options,
                   size_t files, std::vector<std::pair<std::string, std::string>> contents) {
    SCOPED_TRACE(name);
    const std::string source = "WEBVTT\n\n" + cues;
    SourceRun run(source, options);
    ASSERT_EQ(run.result.status, 0);
    EXPECT_EQ(run.Files().size(), files);
    for (const auto& [file, text] : contents) EXPECT_EQ(run.Out(file), text) << file;
    double segments = 0, copies = 0;
    for (const std::string& file : run.Files()) {
      if (!file.ends_with(".webvtt")) continue;
      segments++;
      const std::string text = run.Out(file);
      for (size_t at = 0; (at = text.find("-->", at)) != std::string::npos; at += 3) copies++;
    }
    WebVTTParser* parser = nullptr;
    ASSERT_EQ(WebVTTParserCreate(&parser, 0), kNoErr);
    MxByteStreamRef stream = MemoryStream(source);
    ASSERT_EQ(WebVTTParserReadByteStream(parser, stream.get()), kNoErr);
    const ScheduleSize size =
        MeasureSchedule(*WebVTTParserGetCueStore(parser), uint32_t(std::stoul(options[1])));
    EXPECT_EQ(size.segments, segments);
    EXPECT_EQ(size.cueCopies, copies);
    EXPECT_EQ(WebVTTParserRelease(parser), kNoErr);
  };
  // Identifier, settings and payload line breaks are copied as they are.
  expect("empty stretches fold into the next segment",
         "intro\n00:01.000 --> 00:03.000 align:start\nA\r\nB\n\n00:25.000 --> 00:27.000\nB\n\n",
         {"-t", "10"}, 3,
         {{"fileSequence0.webvtt",
           kHeader + "intro\n00:00:01.000 --> 00:00:03.000 align:start\nA\r\nB\n\n"},
          {"fileSequence1.webvtt", kHeader + "00:00:25.000 --> 00:00:27.000\nB\n\n"},
          {"prog_index.m3u8", Playlist(17, {"10.00000", "17.00000"})}});
  // A spanning cue repeats whole; a cue at a boundary starts the next segment; -D longer
  // than the last cue lengthens the last segment to end there.
  expect("spanning and boundary cues",
         "00:01.000 --> 00:02.000\nA\n\n00:08.000 --> 00:32.000\nlong\n\n"
         "00:10.000 --> 00:10.500\nat ten\n\n00:35.000 --> 00:36.000\nD\n\n",
         {"-t", "10", "-D", "45"}, 5,
         {{"fileSequence0.webvtt", kHeader + "00:00:01.000 --> 00:00:02.000\nA\n\n" + longCue},
          {"fileSequence1.webvtt", kHeader + longCue + "00:00:10.000 --> 00:00:10.500\nat ten\n\n"},
          {"fileSequence2.webvtt", kHeader + longCue},
          {"fileSequence3.webvtt", kHeader + longCue + "00:00:35.000 --> 00:00:36.000\nD\n\n"},
          {"prog_index.m3u8", Playlist(15, {"10.00000", "10.00000", "10.00000", "15.00000"})}});
  expect("a cue still running at the end lengthens the last segment",
         "00:01.000 --> 00:02.000\nA\n\n00:08.000 --> 00:32.000\nlong\n\n", {"-t", "10"}, 2,
         {{"prog_index.m3u8", Playlist(32, {"32.00000"})}});
  expect("malformed cues are dropped, the rest segmented",
         "broken\n\n00:01.000 --> 00:02.000\nA\n\n00:xx --> 00:03.000\nB\n\n"
         "00:04.000 --> 00:05.000\nC\n\n",
         {"-t", "10"}, 2,
         {{"fileSequence0.webvtt",
           kHeader + "00:00:01.000 --> 00:00:02.000\nA\n\n00:00:04.000 --> 00:00:05.000\nC\n\n"}});
  expect("no cues, nothing written", "NOTE nothing here\n\n", {"-t", "10", "-D", "30"}, 0, {});
  // The empty stretch before a cue 10^20 hours away is one segment, found without stepping.
  expect("absurd times finish quickly",
         "00:01.000 --> 00:02.000\nA\n\n"
         "100000000000000000000:00:00.000 --> 100000000000000000000:00:01.000\nB\n\n",
         {"-t", "10"}, 3, {});
  expect("a ten-hour cue on a 7-second grid",
         "00:00.000 --> 10:00:00.000\nlong\n\n00:05.000 --> 00:06.000\nB\n\n"
         "00:30:00.000 --> 00:30:01.000\nC\n\n",
         {"-t", "7"}, 259, {});
  expect("a backwards cue, and cues on the grid line",
         "00:05.000 --> 00:01.000\nbackwards\n\n00:10.000 --> 00:20.000\nedge\n\n"
         "00:20.000 --> 00:21.000\non the line\n\n",
         {"-t", "10"}, 4, {});
}

TEST(CueScheduling, DurationAndTimestampMapOptions) {
  struct Case {
    std::vector<std::string> options;
    std::string mapLine;
  } cases[] = {
      {{"-t", "10"}, "MPEGTS:900000"},
      {{"-t", "10", "-D", "3"}, "MPEGTS:900000"},  // shorter -D: no effect
      {{"-t", "10", "-m", "0"}, "MPEGTS:0"},
      {{"-t", "10", "-m", "4294967295"}, "MPEGTS:18446744073709551615"},
      {{"-t", "10", "-m", "4294967296"}, "MPEGTS:0"},
      {{"-t", "10", "--no-output-timestamps"}, "MPEGTS:900000"},
      // Written as given, on the whole 33-bit clock.
      {{"-t", "10", "--timestamp-map-mpegts=0"}, "MPEGTS:0"},
      {{"-t", "10", "--timestamp-map-mpegts=2700000000"}, "MPEGTS:2700000000"},
      {{"-t", "10", "--timestamp-map-mpegts=8589934591"}, "MPEGTS:8589934591"},
  };
  for (const Case& c : cases) {
    SourceRun run("WEBVTT\n\n00:01.000 --> 00:05.500\nA\n\n", c.options);
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(run.Out("fileSequence0.webvtt"),
              "WEBVTT\nX-TIMESTAMP-MAP=" + c.mapLine +
                  ",LOCAL:00:00:00.000\n\n00:00:01.000 --> 00:00:05.500\nA\n\n");
    EXPECT_NE(run.Out("prog_index.m3u8").find("#EXTINF:5.50000,"), std::string::npos);
  }
}

TEST(CueScheduling, SrtSourceWithCustomNames) {
  SourceRun run("1\r\n00:00:01,500 --> 00:00:02,000\r\nHi\r\n\r\n",
                {"-B", "sub", "-i", "subs.m3u8", "-b", "http://cdn/x/"}, "movie.SRT");
  EXPECT_EQ(run.result.status, 0);
  EXPECT_EQ(run.Out("sub0.webvtt"), kHeader + "1\n00:00:01.500 --> 00:00:02.000\nHi\n\n");
  EXPECT_TRUE(run.Out("subs.m3u8").ends_with(",\t\nhttp://cdn/x/sub0.webvtt\n#EXT-X-ENDLIST\n"));
}

// SRT markup becomes WebVTT markup only when asked for and only in a source read as SRT; the
// validator webvtt-parser finds errors in the segment as the SRT has it and none once rewritten.
TEST(CueScheduling, SrtMarkupRewrittenOnRequest) {
  const std::string cues =
      "1\n00:00:01,000 --> 00:00:02,000\n{\\an8}<font color=\"yellow\">Top</font> & <B>bold</B>\n\n"
      "2\n00:00:03,000 --> 00:00:04,000\n<i>a < b</i>\n\n"
      "3\n00:00:05,000 --> 00:00:06,000\nPlain <b>kept</b>\n\n"
      "4\n00:00:07,000 --> 00:00:08,000\n{\\an8}\n\n";
  const std::string asIs =
      kHeader +
      "1\n00:00:01.000 --> 00:00:02.000\n{\\an8}<font color=\"yellow\">Top</font> "
      "& <B>bold</B>\n\n2\n00:00:03.000 --> 00:00:04.000\n<i>a < b</i>\n\n"
      "3\n00:00:05.000 --> 00:00:06.000\nPlain <b>kept</b>\n\n"
      "4\n00:00:07.000 --> 00:00:08.000\n{\\an8}\n\n";
  // A cue left without text is dropped, as one without text in the source is.
  const std::string rewritten = kHeader +
                                "1\n00:00:01.000 --> 00:00:02.000 "
                                "line:0\n<c.color_ffff00.yellow>Top</c> &amp; <b>bold</b>\n\n"
                                "2\n00:00:03.000 --> 00:00:04.000\n<i>a &lt; b</i>\n\n"
                                "3\n00:00:05.000 --> 00:00:06.000\nPlain <b>kept</b>\n\n";
  SourceRun plain(cues, {"-t", "10"}, "in.srt");
  SourceRun converted(cues, {"-t", "10", "--srt-markup=webvtt"}, "in.srt");
  // The markup is rewritten after a conversion from another encoding too.
  std::string utf16 = "\xFF\xFE";
  for (char c : cues) utf16 += {c, '\0'};
  SourceRun wide(utf16, {"-t", "10", "--source-encoding=auto", "--srt-markup=webvtt"}, "in.srt");
  std::string vtt = cues;
  for (size_t at; (at = vtt.find(",0")) != std::string::npos;) vtt[at] = '.';
  SourceRun webvtt("WEBVTT\n\n" + vtt, {"-t", "10", "--srt-markup=webvtt"}, "in.vtt");
  for (const SourceRun* run : {&plain, &converted, &wide, &webvtt})
    ASSERT_EQ(run->result.status, 0);
  EXPECT_EQ(plain.Out("fileSequence0.webvtt"), asIs);
  EXPECT_EQ(webvtt.Out("fileSequence0.webvtt"), asIs);
  EXPECT_EQ(converted.Out("fileSequence0.webvtt"), rewritten);
  EXPECT_EQ(wide.Out("fileSequence0.webvtt"), rewritten);

  const std::string clients = HLSVTT_SOURCE_DIR "/tests/clients";
  if (RunShell("command -v node >/dev/null && test -d '" + clients + "/node_modules'") != 0)
    GTEST_SKIP() << "node or the client packages missing (scripts/install-clients.sh)";
  auto errors = [&](const SourceRun& run) {
    std::string out;
    EXPECT_EQ(RunShell("node -e \"const {WebVTTParser} = require('" + clients +
                           "/node_modules/webvtt-parser');"
                           "const lines = require('fs').readFileSync(process.argv[1], 'utf8')"
                           ".split('\\n'); lines.splice(1, 1);"
                           "const r = new WebVTTParser().parse(lines.join('\\n'));"
                           "console.log(r.errors.length + ' ' + r.cues.length)\" '" +
                           (run.dir / "out/fileSequence0.webvtt") + "'",
                       &out),
              0);
    return out;
  };
  EXPECT_NE(errors(plain), "0 3\n");
  EXPECT_EQ(errors(converted), "0 3\n");
}

TEST(BadInput, FailuresAndTheirStatuses) {
  ScratchDir dir;
  RunShell("mkdir " + (dir / "dir.vtt") + " " + (dir / "plaindir") + " " + (dir / "out"));
  WriteFile(dir / "clip.avi", "RIFF");
  struct Case {
    std::string source;
    int status;
  } cases[] = {
      {dir / "dir.vtt", 47},     // the read fails
      {dir / "plaindir", 209},   // no reader claims a name without an extension
      {dir / "clip.avi", 86},    // "RIFF" alone is no AVI file (-12970)
      {dir / "missing.vtt", 2},  // cannot be opened
  };
  for (const Case& c : cases) {
    RunResult r = RunTool({"hlsvtt", "--no-output-timestamps", "-f", dir / "out", c.source});
    EXPECT_EQ(r.status, c.status) << c.source;
    EXPECT_TRUE(ListDir(dir / "out").empty()) << c.source;
  }
}

// Writes `size` bytes of `c` in large pieces.
void WriteRepeated(FILE* file, char c, size_t size) {
  const std::string piece(1 << 20, c);
  for (size_t left = size; left > 0;) {
    const size_t n = std::min(left, piece.size());
    ASSERT_EQ(fwrite(piece.data(), 1, n, file), n);
    left -= n;
  }
}

// Cues a millisecond apart with a one-letter payload, a few hundred per segment.
void WriteTinyCues(FILE* file, size_t count) {
  std::string text = "WEBVTT\n\n";
  for (size_t i = 0; i < count; i++) {
    char cue[96];
    const size_t ms = i + 1;
    const int n = snprintf(cue, sizeof cue, "%02zu:%02zu.%03zu --> %02zu:%02zu.%03zu\nx\n\n",
                           ms / 60000, ms / 1000 % 60, ms % 1000, (ms + 5) / 60000,
                           (ms + 5) / 1000 % 60, (ms + 5) % 1000);
    text.append(cue, static_cast<size_t>(n));
    if (text.size() > (1 << 20)) {
      ASSERT_EQ(fwrite(text.data(), 1, text.size(), file), text.size());
      text.clear();
    }
  }
  ASSERT_EQ(fwrite(text.data(), 1, text.size(), file), text.size());
}

// Peak memory stays within 1.5 times the source plus 16 MB, whatever the source's shape.
TEST(BadInput, PeakMemoryIsBoundedBySourceSize) {
#ifdef HLSVTT_SANITIZE
  GTEST_SKIP() << "sanitizers change memory use";
#endif
  constexpr size_t kLine = 60000000;
  const struct {
    const char* name;
    std::function<void(FILE*)> write;
    int status;
  } cases[] = {
      // One unterminated line with no signature: nothing can be read from it.
      {"line without breaks", [](FILE* f) { WriteRepeated(f, 'a', kLine); }, 47},
      {"cue with one long line",
       [](FILE* f) {
         fputs("WEBVTT\n\nlong\n00:01.000 --> 00:09.000 align:start\n", f);
         WriteRepeated(f, 'a', kLine);
         fputs("\n\n", f);
       },
       0},
      {"many tiny cues", [](FILE* f) { WriteTinyCues(f, 1000000); }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    const std::string path = dir / "in.vtt";
    FILE* file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    c.write(file);
    ASSERT_EQ(fclose(file), 0);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    RunShell("mkdir -p " + (dir / "out"));
    pid_t pid = fork();
    if (pid == 0) {
      execl(ToolPath().c_str(), "hlsvtt", "-q", "-f", (dir / "out").c_str(), path.c_str(), nullptr);
      _exit(127);
    }
    int wstatus = 0;
    struct rusage usage;
    ASSERT_EQ(wait4(pid, &wstatus, 0, &usage), pid);
    ASSERT_TRUE(WIFEXITED(wstatus));
    EXPECT_EQ(WEXITSTATUS(wstatus), c.status);
    EXPECT_LE(static_cast<double>(usage.ru_maxrss) * 1024.0,
              1.5 * static_cast<double>(info.st_size) + 16e6);
  }
}

}  // namespace
