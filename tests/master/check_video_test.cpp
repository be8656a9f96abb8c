// hlsvtt-master pts and check --video: video ladders made by ffmpeg (transport stream and
// fragmented MP4), the start `pts` gives each, and subtitle renditions made by hlsvtt with -m,
// compared by the start each variant's first frame has and the X-TIMESTAMP-MAP of each
// rendition's first segment.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "master/subtitle_timing.h"
#include "test_support.h"

namespace {

struct LadderRecipe {
  const char* name;
  std::string options;  // of ffmpeg, after its first input
  const char* start;    // what `pts` gives the first segment
  std::string warning{};
};

const std::string kFragmented = "-hls_segment_type fmp4 ";
const std::string kDiscont = kFragmented + "-hls_segment_options movflags=+frag_discont ";

// Transport streams start at 1.4 s, after their muxing delay; with audio it is the audio that
// starts then, and the video a little later. A fragmented ladder starts where players put its first
// frame: the decode time and composition offset of the first sample, less the first edit unless
// that edit is empty. Starts past 2^31 are printed all the same, with the option of hlsvtt that
// carries them.
const LadderRecipe kLadders[] = {
    {"ts", "-bf 0", "126000"},
    {"ts-audio", "-f lavfi -i sine -bf 0", "128090"},
    {"ts-late", "-bf 0 -output_ts_offset 24000", "2160126000",
     "hlsvtt-master: warning: 2160126000 is above 2147483647, which hlsvtt -m cannot carry: give "
     "hlsvtt --timestamp-map-mpegts=2160126000\n"},
    {"plain", kFragmented + "-bf 0", "0"},
    {"bframes", kFragmented + "-bf 2", "7200"},
    {"offset", kFragmented + "-bf 0 -output_ts_offset 10", "0"},
    {"discont", kDiscont + "-bf 0 -output_ts_offset 10", "900000"},
    {"discont-bframes", kDiscont + "-bf 2 -output_ts_offset 10", "900000"},
    {"late", kDiscont + "-bf 0 -output_ts_offset 30000", "2700000000",
     "hlsvtt-master: warning: 2700000000 is above 2147483647, which hlsvtt -m cannot carry: give "
     "hlsvtt --timestamp-map-mpegts=2700000000\n"},
    {"past-clock", kDiscont + "-bf 0 -output_ts_offset 100000", "9000000000",
     "hlsvtt-master: warning: 9000000000 is above 8589934591, which neither hlsvtt -m nor "
     "--timestamp-map-mpegts can carry\n"},
};

struct Rendition {
  const char* group;
  const char* options;  // of hlsvtt, separated by spaces; KEY:x is x in the rendition's directory
};

class CheckVideoTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (RunShell("command -v ffmpeg >/dev/null") != 0) return;
    dir_ = std::make_unique<ScratchDir>();
    for (const LadderRecipe& ladder : kLadders)
      ASSERT_EQ(
          RunShell("mkdir '" + *dir_ / ladder.name + "' && cd '" + *dir_ / ladder.name +
                   "' && ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=25 " + ladder.options +
                   " -t 2 -c:v libx264 -preset ultrafast -g 25 -f hls -hls_time 1 "
                   "video.m3u8"),
          0)
          << ladder.name;
  }
  static void TearDownTestSuite() { dir_.reset(); }
  void SetUp() override {
    if (!dir_) GTEST_SKIP() << "ffmpeg not installed";
  }

  static RunResult Master(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {"hlsvtt-master"};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunBinary(HLSVTT_MASTER_BINARY, argv, dir_->path());
  }

  // Writes master-NAME.m3u8 with the ladders `variants` in subtitle group "s" and `renditions`
  // segmented into subs/NAME/1, subs/NAME/2, ..., each beside a key.bin; returns what check
  // --video finds.
  RunResult Check(const std::string& name, const std::vector<std::string>& variants,
                  const std::vector<Rendition>& renditions) {
    std::string master = "#EXTM3U\n";
    for (size_t i = 0; i < renditions.size(); i++) {
      const std::string sub = "subs/" + name + "/" + std::to_string(i + 1);
      EXPECT_EQ(RunShell("mkdir -p '" + *dir_ / sub + "'"), 0);
      WriteFile(*dir_ / (sub + "/key.bin"), "0123456789abcdef");
      std::vector<std::string> args = {"hlsvtt", "-q", "-t", "10", "-f", *dir_ / sub};
      std::istringstream options(renditions[i].options);
      for (std::string option; options >> option;)
        args.push_back(option.starts_with("KEY:") ? *dir_ / (sub + "/" + option.substr(4))
                                                  : option);
      args.push_back(HLSVTT_SOURCE_DIR "/examples/sample.vtt");
      RunResult run = RunTool(args);
      EXPECT_EQ(run.status, 0) << run.err;
      master += "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"" + std::string(renditions[i].group) +
                "\",NAME=\"" + std::to_string(i + 1) + "\",LANGUAGE=\"en\",URI=\"" + sub +
                "/prog_index.m3u8\"\n";
    }
    for (const std::string& ladder : variants)
      master += "#EXT-X-STREAM-INF:BANDWIDTH=100000,SUBTITLES=\"s\"\n" + ladder + "/video.m3u8\n";
    WriteFile(*dir_ / "master-" + name + ".m3u8", master);
    return Master({"check", "master-" + name + ".m3u8", "--video"});
  }

  static std::unique_ptr<ScratchDir> dir_;
};

std::unique_ptr<ScratchDir> CheckVideoTest::dir_;

TEST_F(CheckVideoTest, PtsPrintsTheStartOfEachLadderFromItsPlaylistOrFirstSegment) {
  for (const LadderRecipe& l : kLadders) {
    const std::string name = l.name;
    const bool fragmented = l.options.find("fmp4") != std::string::npos;
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"pts", name + "/video.m3u8"},
          fragmented ? std::vector<std::string>{"pts", name + "/init.mp4", name + "/video0.m4s"}
                     : std::vector<std::string>{"pts", name + "/video0.ts"}}) {
      RunResult pts = Master(args);
      EXPECT_EQ(pts.status, 0) << args[1] << ": " << pts.err;
      EXPECT_EQ(pts.out, std::string(l.start) + "\n") << args[1];
      EXPECT_EQ(pts.err, l.warning) << args[1];
    }
  }
  WriteFile(*dir_ / "text.ts", std::string(4096, 'x'));
  struct Case {
    std::vector<std::string> args;
    int status;
    const char* err;
  } cases[] = {
      {{"text.ts"}, 85, "hlsvtt-master: text.ts is not an MPEG transport stream\n"},
      {{"plain/video0.m4s"},
       85,
       "hlsvtt-master: plain/video0.m4s is fragmented MP4: give its init segment first (pts "
       "INIT plain/video0.m4s)\n"},
      {{"plain/video0.m4s", "plain/init.mp4"},
       166,
       "hlsvtt-master: plain/video0.m4s: 'moof' comes before any 'moov'\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"pts"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult pts = Master(args);
    EXPECT_EQ(pts.status, c.status) << c.args[0];
    EXPECT_EQ(pts.err, c.err);
  }
}

TEST_F(CheckVideoTest, SaysHowFarOffCuesShowAndTheValueThatFixesThem) {
  struct Case {
    const char* name;
    std::vector<std::string> variants;
    std::vector<Rendition> renditions;
    std::string out;
  } cases[] = {
      {"ts-in-step", {"ts"}, {{"s", "-m 126000"}}, ""},
      // hlsvtt's default of 900000 against ffmpeg's default start.
      {"ts-late",
       {"ts"},
       {{"s", ""}},
       "subs/ts-late/1/prog_index.m3u8: cues will show 8.600 s late; segment again with -m "
       "126000\n"},
      {"bframes-early",
       {"bframes"},
       {{"s", "-m 0"}},
       "subs/bframes-early/1/prog_index.m3u8: cues will show 0.080 s early; segment again with "
       "-m 7200\n"},
      // 1 ms (90 ticks) is in step, a tick more is not.
      {"tolerance",
       {"bframes", "bframes"},
       {{"s", "-m 7290"}, {"s", "-m 7291"}},
       "subs/tolerance/2/prog_index.m3u8: cues will show 0.001 s late; segment again with -m "
       "7200\n"},
      {"discont", {"discont"}, {{"s", ""}}, ""},
      {"past-2^31",
       {"ts-late"},
       {{"s", "-m 0"}},
       "subs/past-2^31/1/prog_index.m3u8: cues will show 24001.400 s early; segment again with "
       "--timestamp-map-mpegts=2160126000\n"},
      // A rendition of a group no variant uses is held to nothing.
      {"other-group", {"ts"}, {{"s", "-m 126000"}, {"t", "-m 0"}}, ""},
      // The first segment is decrypted with the key, its IV written out or the sequence number.
      {"encrypted",
       {"bframes"},
       {{"s", "-k KEY:key.bin -K key.bin -m 7200"},
        {"s", "-k KEY:key.bin -K key.bin -J sequence -m 0"}},
       "subs/encrypted/2/prog_index.m3u8: cues will show 0.080 s early; segment again with -m "
       "7200\n"},
      {"apart",
       {"ts", "bframes"},
       {{"s", "-m 126000"}},
       "master-apart.m3u8:6: bframes/video.m3u8 starts at 7200 (0.080 s), ts/video.m3u8 at "
       "126000 (1.400 s): the variants are not in step\n"
       "subs/apart/1/prog_index.m3u8: cues will show 1.320 s late against bframes/video.m3u8; "
       "segment again with -m 7200\n"},
  };
  for (const Case& c : cases) {
    RunResult check = Check(c.name, c.variants, c.renditions);
    EXPECT_EQ(check.status, c.out.empty() ? 0 : 111) << c.name << ": " << check.err;
    EXPECT_EQ(check.out, c.out) << c.name;
  }
}

// Files that are missing, broken or unreadable give a problem line and status 111, or a notice
// when they cannot be looked at; never a crash.
TEST_F(CheckVideoTest, BrokenFilesAreNamed) {
  const std::string dir = dir_->path();
  ASSERT_EQ(RunShell("cd '" + dir +
                     "' && mkdir -p broken/missing broken/garbage broken/cut broken/locked && "
                     "head -c 300 bframes/init.mp4 > broken/cut/init.mp4 && cp bframes/video0.m4s "
                     "broken/cut && head -c 4000 /dev/urandom > broken/garbage/video0.ts"),
            0);
  const std::string media = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
  const std::string segment = "#EXTINF:1,\nvideo0.ts\n#EXT-X-ENDLIST\n";
  WriteFile(dir + "/broken/missing/video.m3u8", media + segment);
  WriteFile(dir + "/broken/garbage/video.m3u8", media + segment);
  WriteFile(dir + "/broken/locked/video.m3u8",
            media + "#EXT-X-KEY:METHOD=AES-128,URI=\"k\"\n#EXTINF:1,\n../../ts/video0.ts\n");
  WriteFile(dir + "/broken/cut/video.m3u8",
            media + "#EXT-X-MAP:URI=\"init.mp4\"\n#EXTINF:1,\nvideo0.m4s\n#EXT-X-ENDLIST\n");
  struct Case {
    const char* name;
    const char* variant;
    const char* options;  // of hlsvtt for the rendition, separated by spaces
    const char* damage;   // run in the rendition's directory before the check
    int status;
    const char* expected;  // in the output, or in the notices for status 0
  } cases[] = {
      {"missing", "broken/missing", "", "", 111,
       "broken/missing/video.m3u8: the first segment does not resolve "
       "(broken/missing/video0.ts: No such file"},
      {"garbage", "broken/garbage", "", "", 111,
       "broken/garbage/video.m3u8: the start of the first segment cannot be read: "
       "broken/garbage/video0.ts is not an MPEG transport stream\n"},
      {"cut", "broken/cut", "", "", 111,
       "broken/cut/video.m3u8: the start of the first segment cannot be read: "
       "broken/cut/init.mp4: "},
      {"no-header", "ts", "", "printf 'WEBVTT\\n\\n' > fileSequence0.webvtt", 111,
       "fileSequence0.webvtt:1: no X-TIMESTAMP-MAP in the segment header\n"},
      {"short-key", "ts", "-k KEY:key.bin -K key.bin", "printf 12345 > key.bin", 111,
       "key.bin: a key file must hold 16 bytes\n"},
      {"no-key", "ts", "-k KEY:key.bin -K key.bin", "rm key.bin", 111,
       "prog_index.m3u8: the key URI \"key.bin\" does not resolve"},
      // Decrypted with the wrong key, the padding or the header is broken.
      {"wrong-key", "ts", "-k KEY:key.bin -K key.bin -J sequence",
       "printf fedcba9876543210 > key.bin", 111, "fileSequence0.webvtt: "},
      {"locked-video", "broken/locked", "", "", 0,
       "broken/locked/video.m3u8: the first segment is encrypted (METHOD=AES-128); the "
       "variant's start is not checked\n"},
      {"remote-key", "ts", "-k KEY:key.bin -K https://example.com/key.bin", "", 0,
       "(METHOD=AES-128, URI \"https://example.com/key.bin\"); its timing is not checked\n"},
  };
  for (const Case& c : cases) {
    const std::string sub = dir + "/subs/" + c.name + "/1";
    // Segmented first, then damaged, then checked again.
    RunResult check = Check(c.name, {c.variant}, {{"s", c.options}});
    if (*c.damage) {
      ASSERT_EQ(RunShell(std::string("cd '") + sub + "' && " + c.damage), 0) << c.name;
      check = Master({"check", std::string("master-") + c.name + ".m3u8", "--video"});
    }
    EXPECT_EQ(check.status, c.status) << c.name << ": " << check.out << check.err;
    const std::string& seen = c.status == 0 ? check.err : check.out;
    EXPECT_NE(seen.find(c.expected), std::string::npos) << c.name << ": " << seen;
  }
  RunResult pts = Master({"pts", "broken/locked/video.m3u8"});
  EXPECT_EQ(pts.status, 112);
  EXPECT_EQ(
      pts.err,
      "hlsvtt-master: broken/locked/video.m3u8: the first segment is encrypted (METHOD=AES-128); "
      "it is not read\n");
  // Without --video none of the timing is read.
  RunResult plain = Master({"check", "master-garbage.m3u8"});
  EXPECT_EQ(plain.status, 0) << plain.out << plain.err;
}

TEST(SubtitleTiming, LatenessWrapsWithTheClockAndCountsLocal) {
  constexpr int64_t kWrap = int64_t{1} << 33;
  struct Case {
    TimestampMap map;
    int64_t start;
    int64_t lateness;
  } cases[] = {
      {{900000, 0}, 126000, 774000},
      {{0, 0}, 7200, -7200},
      {{900000, 10000}, 0, 0},               // LOCAL 10 s at MPEGTS 10 s
      {{5, 0}, kWrap - 5, 10},               // across the wrap of the 33-bit clock
      {{kWrap - 5, 0}, 5, -10},              // and back
      {{uint64_t{kWrap} + 100, 0}, 100, 0},  // MPEGTS written past 33 bits
      {{0, 10 * 3600000}, 0, int64_t{-10} * 3600 * 90000},
  };
  for (const Case& c : cases)
    EXPECT_EQ(CueLateness(c.map, c.start), c.lateness) << c.map.mpegts << " " << c.start;
  EXPECT_EQ(DescribeCueLateness(89999, 0, ""),
            "cues will show 1.000 s late; segment again with -m 0");
  EXPECT_EQ(DescribeCueLateness(-90, -100, "v.m3u8"),
            "cues will show 0.001 s early against v.m3u8; segment again with -m -100");
}

TEST(SubtitleTiming, FindsTheMapInTheHeaderOnly) {
  struct Case {
    const char* head;
    bool found;
    uint64_t mpegts, local;
  } cases[] = {
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n", true, 900000, 0},
      {"\xEF\xBB\xBFWEBVTT\r\nX-TIMESTAMP-MAP=LOCAL:01:02:03.004,MPEGTS:1\r\n", true, 1, 3723004},
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:1,LOCAL:02:03.004\n", true, 1, 123004},
      {"WEBVTT\n\nX-TIMESTAMP-MAP=MPEGTS:1,LOCAL:00:00.000\n", false, 0, 0},
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:1,LOCAL:00:60.000\n", false, 0, 0},
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:-1,LOCAL:00:00.000\n", false, 0, 0},
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:1,MPEGTS:2\n", false, 0, 0},
      {"WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:1,LOCAL:99999999999999999:00:00.000\n", false, 0, 0},
      {"X-TIMESTAMP-MAP=MPEGTS:1,LOCAL:00:00.000\n", false, 0, 0},
  };
  for (const Case& c : cases) {
    std::optional<TimestampMap> map = FindTimestampMap(c.head);
    ASSERT_EQ(map.has_value(), c.found) << c.head;
    if (!map) continue;
    EXPECT_EQ(map->mpegts, c.mpegts) << c.head;
    EXPECT_EQ(map->localMilliseconds, c.local) << c.head;
  }
}

}  // namespace
