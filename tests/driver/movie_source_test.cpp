// The movie branch end to end on movies made by the box builder: forced tracks and forced
// variants, names, flags, durations, the segment grid, failures, and hostile language tags.
#include <gtest/gtest.h>

#include "driver/movie_output_size.h"
#include "media/formats/movie/movie_builder.h"
#include "media/formats/movie/movie_reader_test_support.h"
#include "test_support.h"

using namespace movie_builder;

namespace {

const std::string kHeader = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n";
constexpr char kEntry[] = "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"";

Track Subtitles(uint32_t id, const char* language, std::vector<std::string> samples,
                std::vector<uint32_t> durations) {
  Track t;
  t.trackID = id;
  t.language = PackLanguage(language);
  t.samples = std::move(samples);
  t.durations = std::move(durations);
  return t;
}

Track Video(uint32_t id) {
  Track t = Subtitles(id, "und", {TextSample("v")}, {1000});
  t.handler = "vide";
  return t;
}

struct Outcome {
  RunResult run;
  std::string variant;
};

// Segments `movie` into dir/out, which it makes first.
Outcome Segment(const ScratchDir& dir, const Movie& movie, std::vector<std::string> options = {}) {
  EXPECT_EQ(RunShell("mkdir '" + (dir / "out") + "'"), 0);
  WriteFile(dir / "in.mp4", Build(movie));
  std::vector<std::string> args{"hlsvtt", "-t", "10", "-f", dir / "out"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(dir / "in.mp4");
  Outcome o{RunTool(args), ""};
  if (FileExists(dir / "out/subtitle_media.m3u8"))
    o.variant = ReadFile(dir / "out/subtitle_media.m3u8");
  return o;
}

std::string Line(const std::string& name, const char* flags, const char* language,
                 const std::string& uri) {
  return kEntry + name + "\"," + flags + ",LANGUAGE=\"" + language + "\",URI=\"" + uri + "\"\n";
}

TEST(MovieSource, TracksBecomeStreamsWithTheirNamesAndFlags) {
  const std::string forcedSample = TextSample("forced", Box("frcd", ""));
  struct Case {
    const char* name;
    std::vector<Track> tracks;
    std::vector<std::string> options;
    std::string variant;  // after "#EXTM3U\n"
  };
  std::vector<Case> cases;
  {
    // Track 2 refers to track 3 as its forced subtitles.
    Track english = Subtitles(2, "eng", {TextSample("hello")}, {1000});
    english.forced = {3};
    english.name = "English";
    Track french = Subtitles(3, "fra", {TextSample("bonjour")}, {1000});
    french.name = "Forced";
    french.tkhdFlags = 0;
    cases.push_back(
        {"forced by reference",
         {Video(1), english, french},
         {},
         Line("English", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en", "en1/prog_index.m3u8") +
             Line("Forced (forced)", "DEFAULT=NO,AUTOSELECT=YES,FORCED=YES", "fr",
                  "fr2-forced/prog_index.m3u8")});
  }
  {
    Track t = Subtitles(1, "deu", {TextSample("a"), TextSample("b")}, {500, 500});
    t.sampleEntry = TextSampleEntry(0xC0000000);
    cases.push_back({"forced by display flags",
                     {t},
                     {"-b", "media"},
                     Line("de (forced) 1", "DEFAULT=YES,AUTOSELECT=YES,FORCED=YES", "de",
                          "media/de0-forced/prog_index.m3u8")});
  }
  {
    Track t = Subtitles(1, "eng", {TextSample("normal"), forcedSample}, {500, 500});
    t.elng = "en-GB";
    t.tagc = "public.auxiliary-content";
    cases.push_back(
        {"forced samples make a forced variant",
         {Video(1), t},
         {},
         Line("en-GB 1", "DEFAULT=YES,AUTOSELECT=NO,FORCED=NO", "en-GB", "en-GB1/prog_index.m3u8") +
             Line("en-GB (forced) 2", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "en-GB",
                  "en-GB1-forced/prog_index.m3u8")});
  }
  {
    // All samples forced without the "forced subtitles present" bit: not a forced track, but
    // every sample is forced, so the track gets a forced variant.
    Track t = Subtitles(1, "spa", {TextSample("uno")}, {500});
    t.sampleEntry = TextSampleEntry(0x80000000);
    t.name = "Espa\xC3\xB1ol";
    Track second = Subtitles(2, "ita", {TextSample("due")}, {500});
    second.tkhdFlags = 0;
    cases.push_back(
        {"all samples forced; forced variants count in generated names",
         {t, second},
         {},
         Line("Espa\xC3\xB1ol", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "es",
              "es0/prog_index.m3u8") +
             Line("Espa\xC3\xB1ol (forced)", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "es",
                  "es0-forced/prog_index.m3u8") +
             Line("it 3", "DEFAULT=NO,AUTOSELECT=YES,FORCED=NO", "it", "it1/prog_index.m3u8")});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Movie m;
    m.tracks = c.tracks;
    Outcome o = Segment(dir, m, c.options);
    ASSERT_EQ(o.run.status, 0) << o.run.out;
    EXPECT_EQ(o.variant, "#EXTM3U\n" + c.variant);
  }
}

// Segment boundaries follow the cues: the first segment covers [0, 10] and holds the first cue
// even when it starts later; a cue past the boundary opens the next segment, which ends 10 s
// after that cue's start; a cue exactly at the boundary stays. Empty samples write nothing. The
// forced variant holds only the forced sample, on a grid of its own.
TEST(MovieSource, SegmentsStartAtTheCueThatOpensThem) {
  ScratchDir dir;
  Movie m;
  m.timescale = 1000;
  m.duration = 40000;
  Track t =
      Subtitles(1, "eng",
                {TextSample(""), TextSample("a < b & c>"), TextSample("two"),
                 TextSample("at boundary", Box("frcd", "")), TextSample("three"), TextSample("")},
                {12500, 500, 10000, 500, 1000, 2000});
  t.timescale = 1000;
  m.tracks = {t};
  Outcome o = Segment(dir, m);
  ASSERT_EQ(o.run.status, 0) << o.run.out;
  EXPECT_NE(o.run.out.find("last PTS is 26.5 - making 40 to change to match presentation"),
            std::string::npos);
  EXPECT_EQ(ReadFile(dir / "out/en0/fileSequence0.webvtt"),
            kHeader + "00:00:12.500 --> 00:00:13.000\na &lt; b &amp; c&gt;\n\n");
  EXPECT_EQ(ReadFile(dir / "out/en0/fileSequence1.webvtt"),
            kHeader +
                "00:00:13.000 --> 00:00:23.000\ntwo\n\n"
                "00:00:23.000 --> 00:00:23.500\nat boundary\n\n");
  EXPECT_EQ(ReadFile(dir / "out/en0/fileSequence2.webvtt"),
            kHeader + "00:00:23.500 --> 00:00:24.500\nthree\n\n");
  EXPECT_EQ(ReadFile(dir / "out/en0-forced/fileSequence0.webvtt"),
            kHeader + "00:00:23.000 --> 00:00:23.500\nat boundary\n\n");
  const std::string playlist = ReadFile(dir / "out/en0/prog_index.m3u8");
  EXPECT_NE(playlist.find("#EXTINF:13.00000,\t\nfileSequence0.webvtt\n#EXTINF:10.50000,\t\n"
                          "fileSequence1.webvtt\n#EXTINF:16.50000,\t\nfileSequence2.webvtt\n"
                          "#EXT-X-ENDLIST"),
            std::string::npos)
      << playlist;

  // The measure taken before anything is written counts the segments written.
  OpenedMovie opened;
  ASSERT_EQ(opened.Open(Build(m)), kNoErr);
  QorTrackReaderRef track;
  ASSERT_EQ(QorFormatReaderCopyTrackByIndex(opened.reader.get(), 0, &track, nullptr, nullptr),
            kNoErr);
  TrackOutputSize size;
  ASSERT_EQ(MeasureTrackOutput(track.get(), 10, 100, &size), kNoErr);
  EXPECT_EQ(size.segments, 3);
  EXPECT_EQ(size.samples, 6u);
  EXPECT_EQ(size.bytes, 2u * 6 + 10 + 3 + 11 + 8 + 5);
  ASSERT_EQ(MeasureTrackOutput(track.get(), 10, 2, &size), kNoErr);
  EXPECT_EQ(size.samples, 3u);  // counting stops one past the limit
}

// Each limit lets a movie through at its value and refuses it one below.
TEST(MovieSource, OutputLimitsHoldAtTheirValue) {
  Movie m;
  m.timescale = 1000;
  Track cues = Subtitles(1, "eng", {TextSample("a"), TextSample("b"), TextSample("c")},
                         {20000, 20000, 1000});  // three segments on a 10-second grid
  cues.timescale = 1000;
  m.tracks = {Video(2), cues, Subtitles(3, "fra", {TextSample("d"), TextSample("")}, {500, 500})};
  OpenedMovie opened;
  ASSERT_EQ(opened.Open(Build(m)), kNoErr);
  RunSettings s;
  s.inputPath = "in.mp4";
  s.targetDuration = 10;
  const uint64_t bytes = 3 * 3 + 3 + 2;
  struct Case {
    MovieOutputLimits limits;
    OSStatus status;
  } cases[] = {
      {{}, kNoErr},
      {{.subtitleTracks = 2}, kNoErr},
      {{.subtitleTracks = 1}, kErrBadArgument},
      {{.segmentsPerTrack = 3}, kNoErr},
      {{.segmentsPerTrack = 2}, kErrBadArgument},
      {{.samples = 5}, kNoErr},
      {{.samples = 4}, kErrBadArgument},
      {{.extraBytes = bytes}, kNoErr},
      {{.extraBytes = bytes - 1}, kErrBadArgument},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CheckMovieOutputSize(s, opened.reader.get(), 3, 0, c.limits), c.status)
        << c.limits.subtitleTracks << " " << c.limits.segmentsPerTrack << " " << c.limits.samples
        << " " << c.limits.extraBytes;
  }
}

TEST(MovieSource, EndsAndFailuresWithTheirStatusAndMessage) {
  const std::string longName(1100, 'x');
  struct Case {
    const char* name;
    std::vector<Track> tracks;
    std::vector<std::string> options;
    int status;
    const char* message;
    bool variantWritten;
  };
  Track good = Subtitles(1, "eng", {TextSample("hi")}, {1000});
  Track broken = Subtitles(1, "eng", {TextSample("hi"), U16(40) + "short"}, {500, 500});
  const std::vector<Case> cases = {
      {"only video", {Video(1)}, {}, 0, "No subtitle tracks found.", false},
      {"-D shorter than the movie",
       {good},
       {"-D", "5"},
       56,
       "Duration of presentation is longer than specified duration; please re-issue without "
       "duration command",
       false},
      {"-D longer extends the last segment",
       {good},
       {"-D", "25"},
       0,
       "last PTS is 1 - making 25 to change to match presentation",
       true},
      {"-s names a directory",
       {good},
       {"-s", "en0"},
       0,
       "en0 is a directory; need a file name",
       false},
      {"a sample that fails to decode",
       {broken},
       {},
       -12742 & 0xFF,
       "Failed to generate chunk files with index 0, file ",
       false},
      {"a path too long for its buffer", {good}, {"-b", longName}, 36, "shorten -f, -b", false},
      {"a variant playlist path too long", {good}, {"-s", longName}, 36, "shorten -f or -s", false},
      {"a long variant name without subtitle tracks",
       {Video(1)},
       {"-s", longName},
       0,
       "No subtitle tracks found.",
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Movie m;
    m.tracks = c.tracks;
    Outcome o = Segment(dir, m, c.options);
    EXPECT_EQ(o.run.status, c.status) << o.run.out;
    EXPECT_NE(o.run.out.find(c.message), std::string::npos) << o.run.out;
    EXPECT_EQ(!o.variant.empty(), c.variantWritten);
    if (c.status != 0) {
      // A failed stream leaves no playlist that looks complete.
      EXPECT_FALSE(FileExists(dir / "out/en0/prog_index.m3u8"));
    }
  }
}

TEST(MovieSource, LanguageTagsCannotLeadOutsideTheOutputDirectory) {
  ScratchDir dir;
  ASSERT_EQ(RunShell("mkdir -p '" + (dir / "a/out") + "'"), 0);
  Track t = Subtitles(1, "eng", {TextSample("hi")}, {1000});
  t.elng = "../../../escaped";
  Track u = Subtitles(2, "eng", {TextSample("hi")}, {1000});
  u.elng = "/tmp";
  Movie m;
  m.tracks = {t, u};
  WriteFile(dir / "in.mp4", Build(m));
  RunResult r = RunTool({"hlsvtt", "-q", "-f", dir / "a/out", dir / "in.mp4"});
  ASSERT_EQ(r.status, 0) << r.out;
  std::string listing;
  ASSERT_EQ(RunShell("cd '" + dir.path() + "' && find . -mindepth 1 | sort", &listing), 0);
  EXPECT_EQ(listing,
            "./a\n./a/out\n./a/out/en0\n./a/out/en0/fileSequence0.webvtt\n"
            "./a/out/en0/prog_index.m3u8\n./a/out/en1\n./a/out/en1/fileSequence0.webvtt\n"
            "./a/out/en1/prog_index.m3u8\n./a/out/subtitle_media.m3u8\n./in.mp4\n");
}

}  // namespace
