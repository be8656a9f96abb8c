// Movies made by ffmpeg, segmented by the tool and read back by real clients: ffmpeg extracts the
// same cues from each track as the tool writes into its segments, and reads each per-track
// playlist back; hls-parser reads the variant playlist as a master playlist's renditions;
// webvtt-parser accepts every segment.
#include <gtest/gtest.h>

#include <sstream>

#include "test_support.h"

namespace {

constexpr char kEnglish[] =
    "1\n00:00:00,500 --> 00:00:01,500\n<b>Bold</b> and <i>italic</i>\n\n"
    "2\n00:00:02,000 --> 00:00:03,250\n<u>under</u> a < b & c > d\n\n"
    "3\n00:00:12,345 --> 00:00:13,901\nplain\nsecond line\n\n"
    "4\n00:00:21,000 --> 00:00:29,999\nlate\n";
constexpr char kGerman[] =
    "[Script Info]\nScriptType: v4.00+\n\n[V4+ Styles]\n"
    "Format: Name, Fontname, Fontsize, PrimaryColour, Bold, Italic, Underline\n"
    "Style: Default,Arial,20,&H00FFFFFF,0,0,0\n\n[Events]\n"
    "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
    "Dialogue: 0,0:00:01.00,0:00:02.00,Default,,0,0,0,,{\\b1}fett{\\b0} {\\i1}kursiv{\\i0}\n"
    "Dialogue: 0,0:00:02.50,0:00:03.00,Default,,0,0,0,,{\\u1}unter{\\u0} & <mehr>\n"
    "Dialogue: 0,0:00:11.00,0:00:12.00,Default,,0,0,0,,{\\b1\\i1}beides{\\b0\\i0} x\\Nzwei\n"
    "Dialogue: 0,0:00:25.00,0:00:26.50,Default,,0,0,0,,{\\i1}Ende{\\i0}\n";
constexpr char kFrench[] = "1\n00:00:05,000 --> 00:00:06,000\nBonjour \xC3\xA0 tous\n";

// The cues with the entities the segment writer escapes turned back into text.
std::vector<TextCue> Unescaped(std::vector<TextCue> cues) {
  const std::pair<const char*, const char*> entities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}};
  for (TextCue& cue : cues) {
    for (const auto& [entity, plain] : entities) {
      for (size_t at; (at = cue.text.find(entity)) != std::string::npos;)
        cue.text.replace(at, strlen(entity), plain);
    }
  }
  return cues;
}

std::string Ffmpeg(const std::string& dir, const std::string& arguments) {
  std::string out;
  EXPECT_EQ(RunShell("cd '" + dir + "' && ffmpeg -nostdin -v error " + arguments + " 2>&1", &out),
            0)
      << out;
  return out;
}

// The segments of one stream in playlist order, as one text.
std::string Segments(const std::string& streamDir) {
  std::string all;
  std::istringstream playlist(ReadFile(streamDir + "/prog_index.m3u8"));
  for (std::string line; std::getline(playlist, line);) {
    if (!line.empty() && line[0] != '#') all += ReadFile(streamDir + "/" + line);
  }
  return all;
}

TEST(MovieClients, FfmpegAndPlaylistParsersReadWhatTheToolWrites) {
  if (RunShell("command -v ffmpeg >/dev/null") != 0) GTEST_SKIP() << "ffmpeg missing";
  ScratchDir dir;
  WriteFile(dir / "en.srt", kEnglish);
  WriteFile(dir / "de.ass", kGerman);
  WriteFile(dir / "fr.srt", kFrench);
  Ffmpeg(dir.path(),
         "-f lavfi -i color=size=16x16:rate=1:duration=30 -i en.srt -i de.ass -i fr.srt -map 0 "
         "-map 1 -map 2 -map 3 -c:v mpeg4 -c:s mov_text -metadata:s:s:0 language=eng "
         "-metadata:s:s:0 title=English -metadata:s:s:1 language=deu -metadata:s:s:2 "
         "language=fra -disposition:s:0 0 -disposition:s:1 default movie.mp4");
  ASSERT_EQ(RunShell("mkdir '" + (dir / "out") + "'"), 0);
  RunResult r = RunTool({"hlsvtt", "-q", "-t", "10", "-f", dir / "out", dir / "movie.mp4"});
  ASSERT_EQ(r.status, 0) << r.out << r.err;

  const char* streams[] = {"en1", "de2", "fr3"};
  for (int track = 0; track < 3; track++) {
    SCOPED_TRACE(streams[track]);
    const std::vector<TextCue> fromMovie = ParseWebVTTCues(
        Ffmpeg(dir.path(), "-i movie.mp4 -map 0:s:" + std::to_string(track) + " -f webvtt -"));
    ASSERT_FALSE(fromMovie.empty());
    const std::string streamDir = dir / ("out/" + std::string(streams[track]));
    ExpectSameCues(fromMovie, Unescaped(ParseWebVTTCues(Segments(streamDir))));
    ExpectSameCues(fromMovie,
                   ParseWebVTTCues(FfmpegWebVTT(streamDir, "prog_index.m3u8",
                                                "-allowed_extensions ALL -extension_picky 0")));
  }

  const std::string clients = HLSVTT_SOURCE_DIR "/tests/clients";
  if (RunShell("command -v node >/dev/null && test -d '" + clients + "/node_modules'") != 0)
    GTEST_SKIP() << "node or the client packages missing (scripts/install-clients.sh)";
  std::string renditions;
  EXPECT_EQ(RunShell("node '" + clients + "/check_movie_output.js' '" + (dir / "out") +
                         "' subtitle_media.m3u8",
                     &renditions),
            0)
      << renditions;
  EXPECT_EQ(renditions,
            "English|en|NO|YES|NO|en1/prog_index.m3u8\n"
            "de 2|de|YES|YES|NO|de2/prog_index.m3u8\n"
            "fr 3|fr|NO|YES|NO|fr3/prog_index.m3u8\n");
}

}  // namespace
