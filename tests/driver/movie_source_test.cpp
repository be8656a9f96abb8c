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

// Segments the movie file `file` into dir/out, which it makes first, then runs `setup` in dir.
Outcome SegmentFile(const ScratchDir& dir, const std::string& file,
                    std::vector<std::string> options = {}, const std::string& setup = "") {
  EXPECT_EQ(RunShell("mkdir '" + (dir / "out") + "'"), 0);
  if (!setup.empty()) {
    EXPECT_EQ(RunShell("cd '" + dir.path() + "' && " + setup), 0);
  }
  WriteFile(dir / "in.mp4", file);
  std::vector<std::string> args{"hlsvtt", "-t", "10", "-f", dir / "out"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(dir / "in.mp4");
  Outcome o{RunTool(args), ""};
  if (FileExists(dir / "out/subtitle_media.m3u8"))
    o.variant = ReadFile(dir / "out/subtitle_media.m3u8");
  return o;
}

Outcome Segment(const ScratchDir& dir, const Movie& movie, std::vector<std::string> options = {},
                const std::string& setup = "") {
  return SegmentFile(dir, Build(movie), std::move(options), setup);
}

std::string Line(const std::string& name, const char* flags, const char* language,
                 const std::string& uri, const std::string& characteristics = "") {
  return kEntry + name + "\"," + flags + ",LANGUAGE=\"" + language + "\"," +
         (characteristics.empty() ? "" : "CHARACTERISTICS=\"" + characteristics + "\",") +
         "URI=\"" + uri + "\"\n";
}

constexpr char kTranscribes[] = "public.accessibility.transcribes-spoken-dialog";
constexpr char kDescribes[] = "public.accessibility.describes-music-and-sound";

TEST(MovieSource, TracksBecomeStreamsWithTheirNamesAndFlags) {
  const std::string forcedSample = TextSample("forced", Box("frcd", ""));
  // `variant` follows "#EXTM3U\n".
  auto expect = [](const char* name, std::vector<Track> tracks, std::vector<std::string> options,
                   const std::string& variant) {
    SCOPED_TRACE(name);
    ScratchDir dir;
    Movie m;
    m.tracks = tracks;
    Outcome o = Segment(dir, m, options);
    ASSERT_EQ(o.run.status, 0) << o.run.out;
    EXPECT_EQ(o.variant, "#EXTM3U\n" + variant);
  };
  {
    // Track 2 refers to track 3 as its forced subtitles.
    Track english = Subtitles(2, "eng", {TextSample("hello")}, {1000});
    english.forced = {3};
    english.name = "English";
    Track french = Subtitles(3, "fra", {TextSample("bonjour")}, {1000});
    french.name = "Forced";
    french.tkhdFlags = 0;
    expect("forced by reference", {Video(1), english, french}, {},
           Line("English", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en", "en1/prog_index.m3u8") +
               Line("Forced (forced)", "DEFAULT=NO,AUTOSELECT=YES,FORCED=YES", "fr",
                    "fr2-forced/prog_index.m3u8"));
  }
  {
    Track t = Subtitles(1, "deu", {TextSample("a"), TextSample("b")}, {500, 500});
    t.sampleEntry = TextSampleEntry(0xC0000000);
    expect("forced by display flags", {t}, {"-b", "media"},
           Line("de (forced) 1", "DEFAULT=YES,AUTOSELECT=YES,FORCED=YES", "de",
                "media/de0-forced/prog_index.m3u8"));
  }
  {
    Track t = Subtitles(1, "eng", {TextSample("normal"), forcedSample}, {500, 500});
    t.elng = "en-GB";
    t.tagc = {"public.auxiliary-content"};
    expect(
        "forced samples make a forced variant", {Video(1), t}, {},
        Line("en-GB 1", "DEFAULT=YES,AUTOSELECT=NO,FORCED=NO", "en-GB", "en-GB1/prog_index.m3u8") +
            Line("en-GB (forced) 2", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "en-GB",
                 "en-GB1-forced/prog_index.m3u8"));
  }
  {
    // All samples forced without the "forced subtitles present" bit: not a forced track, but
    // every sample is forced, so the track gets a forced variant.
    Track t = Subtitles(1, "spa", {TextSample("uno")}, {500});
    t.sampleEntry = TextSampleEntry(0x80000000);
    t.name = "Espa\xC3\xB1ol";
    Track second = Subtitles(2, "ita", {TextSample("due")}, {500});
    second.tkhdFlags = 0;
    expect("all samples forced; forced variants count in generated names", {t, second}, {},
           Line("Espa\xC3\xB1ol", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "es",
                "es0/prog_index.m3u8") +
               Line("Espa\xC3\xB1ol (forced)", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "es",
                    "es0-forced/prog_index.m3u8") +
               Line("it 3", "DEFAULT=NO,AUTOSELECT=YES,FORCED=NO", "it", "it1/prog_index.m3u8"));
  }
  {
    // Captions tags become CHARACTERISTICS in a fixed order, each only when tagged; other tags
    // leave the line as it is. A forced variant is made of the same text and keeps them.
    Track both = Subtitles(1, "eng", {TextSample("[door slams]"), forcedSample}, {500, 500});
    both.tagc = {kDescribes, "public.auxiliary-content", kTranscribes};
    Track one = Subtitles(2, "eng", {TextSample("[music]")}, {500});
    one.tagc = {kDescribes};
    Track other = Subtitles(3, "eng", {TextSample("plain")}, {500});
    other.tagc = {"public.easy-to-read", std::string(kTranscribes) + "x"};
    const std::string pair = std::string(kTranscribes) + "," + kDescribes;
    expect("captions tags", {both, one, other}, {},
           Line("en 1", "DEFAULT=YES,AUTOSELECT=NO,FORCED=NO", "en", "en0/prog_index.m3u8", pair) +
               Line("en (forced) 2", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "en",
                    "en0-forced/prog_index.m3u8", pair) +
               Line("en 3", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en", "en1/prog_index.m3u8",
                    kDescribes) +
               Line("en 4", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en", "en2/prog_index.m3u8"));
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

// Times in other timescales become milliseconds rounded half away from zero: 1/600 s is 0.002 s.
TEST(MovieSource, MillisecondsAreRoundedNotCut) {
  ScratchDir dir;
  Movie m;
  m.duration = 6001;  // 10.0017 s at the movie's 600 per second
  Track t = Subtitles(1, "eng", {TextSample(""), TextSample("x")}, {1, 1002});
  t.timescale = 600;
  m.tracks = {t};
  Outcome o = Segment(dir, m);
  ASSERT_EQ(o.run.status, 0) << o.run.out;
  EXPECT_EQ(ReadFile(dir / "out/en0/fileSequence0.webvtt"),
            kHeader + "00:00:00.002 --> 00:00:01.672\nx\n\n");
  EXPECT_NE(ReadFile(dir / "out/en0/prog_index.m3u8").find("#EXTINF:10.00200,"), std::string::npos);
}

// -m counts with its low 32 bits read as a signed number; --timestamp-map-mpegts is written as
// given.
TEST(MovieSource, TimestampMapValueFromEitherOption) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"-m", "4294967295"}, "18446744073709551615"},
      {{"--timestamp-map-mpegts=8589934591"}, "8589934591"},
  };
  for (const auto& [options, value] : cases) {
    ScratchDir dir;
    Movie m;
    m.duration = 600;
    Track t = Subtitles(1, "eng", {TextSample("x")}, {600});
    t.timescale = 600;
    m.tracks = {t};
    Outcome o = Segment(dir, m, options);
    ASSERT_EQ(o.run.status, 0) << o.run.out;
    EXPECT_EQ(ReadFile(dir / "out/en0/fileSequence0.webvtt"),
              "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:" + value +
                  ",LOCAL:00:00:00.000\n\n00:00:00.000 --> 00:00:01.000\nx\n\n");
  }
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
    Status status;
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

// Ends and failures, each with its status and message. Times that no timestamp or playlist
// duration can carry make the movie malformed, and the message naming the track gives the cause.
TEST(MovieSource, EndsAndFailuresWithTheirStatusAndMessage) {
  const std::string longName(1100, 'x');
  // `cause` is in the message that names the track.
  auto expect = [](const char* name, std::vector<Track> tracks, std::vector<std::string> options,
                   int status, const char* message, const char* cause = "",
                   bool variantWritten = false, uint64_t duration = 6000,
                   uint32_t timescale = 600) {
    SCOPED_TRACE(name);
    Movie m;
    m.tracks = std::move(tracks);
    m.duration = duration;
    m.timescale = timescale;
    ScratchDir dir;
    Outcome o = Segment(dir, m, options);
    EXPECT_EQ(o.run.status, status) << o.run.out;
    EXPECT_NE(o.run.out.find(message), std::string::npos) << o.run.out;
    EXPECT_NE(o.run.out.find(cause), std::string::npos) << o.run.out;
    EXPECT_EQ(!o.variant.empty(), variantWritten);
    if (status != 0) {
      // A failed stream leaves no playlist that looks complete.
      EXPECT_FALSE(FileExists(dir / "out/en0/prog_index.m3u8"));
    }
  };
  const Track good = Subtitles(1, "eng", {TextSample("hi")}, {1000});
  // A classic movie's timed text has the handler 'text': no subtitle track either.
  Track classic = good;
  classic.handler = "text";
  classic.trackID = 2;
  expect("only video and classic timed text", {Video(1), classic}, {}, 0,
         "No subtitle tracks found.");
  expect("-D shorter than the movie", {good}, {"-D", "5"}, 56,
         "Duration of presentation is longer than specified duration; please re-issue without "
         "duration command");
  expect("-D longer extends the last segment", {good}, {"-D", "25"}, 0,
         "last PTS is 1 - making 25 to change to match presentation", "", true);
  expect("a sample that fails to decode",
         {Subtitles(1, "eng", {TextSample("hi"), U16(40) + "short"}, {500, 500})}, {},
         -12742 & 0xFF, "Failed to generate chunk files with index 0, file ");
  expect("a path too long for its buffer", {good}, {"-b", longName}, 36, "shorten -f, -b");
  expect("a variant playlist path too long", {good}, {"-s", longName}, 36, "shorten -f or -s");
  expect("a long variant name without subtitle tracks", {Video(1)}, {"-s", longName}, 0,
         "No subtitle tracks found.");
  const char* malformed = "a box or table of the movie is malformed (-12890)";
  const char* outside = "outside the times a cue can carry (0 to 4294967295 seconds)";
  Track t = Subtitles(1, "eng", {TextSample("a"), TextSample("b")}, {1000, 1000});
  t.ctts = std::vector<int32_t>{-5, 0};
  t.cttsVersion = 1;
  expect("a composition offset before 0", {t}, {}, -12890 & 0xFF, outside, malformed);
  t = Subtitles(1, "eng", {TextSample("a"), TextSample("b")}, {4294967295u, 1});
  t.timescale = 1;
  expect("a sample ending after the latest time", {t}, {}, -12890 & 0xFF, outside, malformed);
  t = Subtitles(1, "eng", {TextSample("a")}, {1000});
  t.edits = std::vector<Edit>{{uint64_t(INT64_MAX), -1}, {1000, 0}};
  t.wideEdits = true;
  expect("an empty edit of 2^63-1", {t}, {}, -12890 & 0xFF, outside, malformed);
  expect("a movie longer than the latest time", {good}, {}, -12890 & 0xFF, "The duration of ",
         "lies outside 0 to 4294967295 seconds", false, 4294967296u, 1);
  t = good;
  t.sampleEntry = Box("tx3g", std::string(2, '\0'));
  expect("a sample description cut short", {t}, {}, -12714 & 0xFF,
         "Can't read the sample descriptions of track with index 0",
         "the sample description is malformed (-12714)");
}

// Outputs stay where they belong: language tags that are paths and links planted at output
// names never lead outside, no two streams share a directory, track names cannot break out of
// their quoted string, and the variant playlist lists only streams that have a playlist.
TEST(MovieSource, OutputsStayInsideTheOutputDirectory) {
  const char* flags = "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO";
  // `setup` runs in the scratch directory once out/ exists; `variant` follows "#EXTM3U\n", and
  // without it there is no variant playlist; `files` lie under out/, each with a cue.
  auto expect = [](const char* name, std::vector<Track> tracks, const std::string& setup,
                   int status, const char* message, const std::string& variant,
                   std::vector<std::string> files) {
    SCOPED_TRACE(name);
    ScratchDir dir;
    ASSERT_EQ(RunShell("cd '" + dir.path() + "' && mkdir elsewhere && echo keep >victim"), 0);
    Movie m;
    m.tracks = tracks;
    Outcome o = Segment(dir, m, {}, setup);
    EXPECT_EQ(o.run.status, status) << o.run.out;
    EXPECT_NE(o.run.out.find(message), std::string::npos) << o.run.out;
    EXPECT_EQ(o.variant, variant.empty() ? "" : "#EXTM3U\n" + variant);
    EXPECT_TRUE(ListDir(dir / "elsewhere").empty());
    EXPECT_EQ(ListDir(dir.path()),
              (std::vector<std::string>{"elsewhere", "in.mp4", "out", "victim"}));
    EXPECT_EQ(ReadFile(dir / "victim"), "keep\n");
    std::string listing;
    RunShell("cd '" + (dir / "out") + "' && find . -name '*.webvtt' | sort", &listing);
    std::string expected;
    for (const std::string& file : files) {
      expected += "./" + file + "\n";
      const std::string stream = dir / ("out/" + file.substr(0, file.find('/')));
      EXPECT_TRUE(ReadFile(stream + "/prog_index.m3u8").starts_with("#EXTM3U\n")) << file;
    }
    EXPECT_EQ(listing, expected);
  };

  const Track english = Subtitles(1, "eng", {TextSample("hi")}, {1000});
  {
    Track up = english, root = Subtitles(2, "eng", {TextSample("hi")}, {1000});
    up.elng = "../../../escaped";
    root.elng = "/tmp";
    expect("language tags that are paths", {up, root}, "", 0, "",
           Line("en 1", flags, "en", "en0/prog_index.m3u8") +
               Line("en 2", flags, "en", "en1/prog_index.m3u8"),
           {"en0/fileSequence0.webvtt", "en1/fileSequence0.webvtt"});
  }
  expect("links at the playlists' names are replaced", {english},
         "ln -s ../victim out/subtitle_media.m3u8 && mkdir out/en0 && "
         "ln -s ../../victim out/en0/prog_index.m3u8",
         0, "", Line("en 1", flags, "en", "en0/prog_index.m3u8"), {"en0/fileSequence0.webvtt"});
  expect("a directory at the variant playlist's name", {english}, "mkdir out/subtitle_media.m3u8",
         0, "/out/subtitle_media.m3u8 is a directory; need a file name", "",
         {"en0/fileSequence0.webvtt"});
  expect("a link at a track directory's name", {english}, "ln -s ../elsewhere out/en0", ENOTDIR,
         "/out/en0 is already created, and is not a directory", "", {});
  {
    Track named = english;
    named.name = "English \"SDH\",URI=\"x\"";
    expect("quotes in a track name", {named}, "", 0, "",
           Line("English 'SDH',URI='x'", flags, "en", "en0/prog_index.m3u8"),
           {"en0/fileSequence0.webvtt"});
  }
  {
    // "x-a1" at index 1 and "x-a" at index 11 both make "x-a11".
    std::vector<Track> tracks;
    for (uint32_t id = 1; id <= 12; ++id) tracks.push_back(Video(id));
    tracks[1] = Subtitles(2, "eng", {TextSample("one")}, {1000});
    tracks[1].elng = "x-a1";
    tracks[11] = Subtitles(12, "eng", {TextSample("eleven")}, {1000});
    tracks[11].elng = "x-a";
    expect("two tracks whose directory names meet", tracks, "", 0, "",
           Line("x-a1 1", flags, "x-a1", "x-a11/prog_index.m3u8") +
               Line("x-a 2", flags, "x-a", "x-a11_2/prog_index.m3u8"),
           {"x-a11/fileSequence0.webvtt", "x-a11_2/fileSequence0.webvtt"});
  }
  expect("a track without cues is left out",
         {Subtitles(1, "fra", {TextSample("")}, {1000}),
          Subtitles(2, "eng", {TextSample("hi")}, {1000})},
         "", 0, "Track 0 of ", Line("en 1", flags, "en", "en1/prog_index.m3u8"),
         {"en1/fileSequence0.webvtt"});
}

// The variant playlist is written whole or not at all, and a failure is the run's status.
TEST(MovieSource, VariantPlaylistCutShortFailsTheRun) {
  ScratchDir dir;
  Movie m;
  for (uint32_t id = 1; id <= 30; ++id) {
    m.tracks.push_back(Subtitles(id, "eng", {TextSample("hi")}, {1000}));
    m.tracks.back().name = std::string(300, 'n');
  }
  WriteFile(dir / "in.mp4", Build(m));
  std::string out;
  const int status = RunShell("mkdir '" + (dir / "out") + "' && ulimit -f 8 && '" + ToolPath() +
                                  "' -q -f '" + (dir / "out") + "' '" + (dir / "in.mp4") + "' 2>&1",
                              &out);
  EXPECT_EQ(status, EFBIG);
  EXPECT_NE(out.find("cannot write subtitle variant playlist " + (dir / "out/subtitle_media.m3u8")),
            std::string::npos)
      << out;
  std::vector<std::string> left = ListDir(dir / "out");
  EXPECT_EQ(left.size(), 30u);  // the track directories only
  for (const std::string& name : left) EXPECT_TRUE(name.starts_with("en")) << name;
}

// A malformed movie fails with its status and level-0 message; where the movie reader found the
// fault (each place is tested with the reader) follows at level 1.
TEST(MovieSource, MalformedMoviesSayWhereTheFaultLies) {
  struct Case {
    const char* name;
    std::string file;
    int status;
    std::string message;
    std::string cause;  // in the message that names the track, or the level-1 origin after it
  };
  Movie m;
  m.tracks = {Subtitles(1, "eng", {TextSample("a"), TextSample("b")}, {1000, 1000})};
  const std::string good = Build(m);
  // A sample-size count beyond its box: the reader refuses to open the movie.
  std::string stszFile = good;
  const size_t stsz = good.find("stsz") - 4;
  stszFile.replace(stsz + 16, 4, U32(0x7FFFFFFF));
  // A sample past the end of the file is found when the track is read.
  std::string pastEnd = good;
  pastEnd.replace(good.find("stco") + 12, 4, U32(0x7FFFFF00));
  const Case cases[] = {
      {"'stsz' entries beyond the box", stszFile, -12890 & 0xFF, "can't create format reader ",
       "'stsz' at byte " + std::to_string(stsz) + ": 2,147,483,647 entries do not fit in 8 bytes"},
      {"a sample past the end", pastEnd, kMovieErrSampleOutOfRange & 0xFF,
       "Failed to generate chunk files with index 0, file ",
       "a sample of 3 bytes at byte 2,147,483,392 ends past the " + std::to_string(good.size()) +
           " byte file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    Outcome o = SegmentFile(dir, c.file);
    EXPECT_EQ(o.run.status, c.status) << o.run.out;
    const size_t message = o.run.out.find(c.message);
    EXPECT_NE(message, std::string::npos) << o.run.out;
    EXPECT_NE(o.run.out.find(c.cause, message), std::string::npos) << o.run.out;
    EXPECT_EQ(o.variant, "");
    EXPECT_FALSE(FileExists(dir / "out/en0/prog_index.m3u8"));
  }

  // With -q the level-0 message alone is printed, as it is without the origin.
  ScratchDir dir;
  Outcome quiet = SegmentFile(dir, stszFile, {"-q"});
  EXPECT_EQ(quiet.run.status, cases[0].status);
  EXPECT_NE(quiet.run.out.find("can't create format reader " + (dir / "in.mp4") + " -12890\n"),
            std::string::npos)
      << quiet.run.out;
  EXPECT_EQ(quiet.run.out.find(cases[0].cause), std::string::npos) << quiet.run.out;
}

}  // namespace
