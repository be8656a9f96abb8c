#include "playlist/index_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "log_capture.h"
#include "playlist/index_file_kinds.h"
#include "test_support.h"

namespace {

// The common part alone, never written to disk: its text comes from WriteAllEntries.
class TextOnlyPlaylist final : public CIndexFileBase {
 public:
  using CIndexFileBase::CIndexFileBase;
  ~TextOnlyPlaylist() override { Abandon(); }
  void Pause() override {}
  void Resume() override {}
};

std::unique_ptr<CIndexFileBase> Playlist(uint32_t version, bool decimal,
                                         const char* baseURL = nullptr,
                                         bool independentSegments = false) {
  return std::make_unique<TextOnlyPlaylist>(
      IndexFileBaseOptions{.file = {.version = version,
                                    .baseURL = baseURL,
                                    .directory = "/nonexistent",
                                    .indexFileName = "p.m3u8"},
                           .targetDuration = 10,
                           .decimalDurations = decimal,
                           .independentSegments = independentSegments});
}

std::string Text(CIndexFileBase* p) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&buffer, &size);
  p->WriteAllEntries(out);
  fclose(out);
  std::string text(buffer, size);
  free(buffer);
  return text;
}

LiveIndexFileOptions Live(const std::string& directory, uint32_t window, uint32_t minEntries,
                          WallClock clock = SystemWallClock) {
  return {.playlist = {.file = {.directory = directory.c_str(),
                                .indexFileName = "live.m3u8",
                                .wallClock = std::move(clock)},
                       .targetDuration = 10,
                       .decimalDurations = true},
          .minEntriesToWrite = minEntries,
          .windowSize = window,
          .deleteOldFiles = true};
}

TEST(IndexFileText, HeaderWithoutEntries) {
  struct Case {
    uint32_t version;
    bool independent;
    std::string expected;
  } cases[] = {
      {1, false, "#EXTM3U\n#EXT-X-TARGETDURATION:10\n"},
      {2, false, "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:2\n"},
      {3, true,
       "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-INDEPENDENT-SEGMENTS\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Text(Playlist(c.version, true, nullptr, c.independent).get()), c.expected);
  }
}

TEST(IndexFileText, ExtinfForms) {
  struct Case {
    double duration;
    bool decimal;
    const char* line;
  } cases[] = {{2.5, false, "#EXTINF:2,\t\n"},      {3.5, false, "#EXTINF:4,\t\n"},
               {0.2, false, "#EXTINF:1,\t\n"},      {0, false, "#EXTINF:1,\t\n"},
               {-3, false, "#EXTINF:1,\t\n"},       {2.5, true, "#EXTINF:2.50000,\t\n"},
               {10, true, "#EXTINF:10.00000,\t\n"}, {0.123456, true, "#EXTINF:0.12346,\t\n"}};
  for (const Case& c : cases) {
    auto p = Playlist(3, c.decimal);
    p->AddFile("a.webvtt", "/x/a.webvtt", 0, c.duration, -1, -1, false);
    EXPECT_NE(Text(p.get()).find(std::string(c.line) + "a.webvtt\n"), std::string::npos)
        << c.duration;
  }
}

TEST(IndexFileText, MediaSequenceResyncRangesMapAndBaseURL) {
  LogCapture log(1);
  auto p = Playlist(3, true, "http://cdn/x");
  p->AddMap("init.mp4", 0, 99);
  p->AddFile("a", "/x/a", 5, 1, -1, -1, false);
  p->AddFile("b", "/x/b", 6, 1, 1000, 1999, true);
  p->AddFile("c", "/x/c", 9, 1, -1, -1, false);
  EXPECT_EQ(p->AddFile("d", "/x/d", 10, 1, 5, 4, false), nullptr);  // inverted range
  EXPECT_EQ(Text(p.get()),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:5\n"
            "#EXT-X-MAP:URI=\"http://cdn/x/init.mp4\",BYTERANGE=\"100@0\"\n"
            "#EXTINF:1.00000,\t\nhttp://cdn/x/a\n"
            "#EXT-X-DISCONTINUITY\n#EXTINF:1.00000,\t\n#EXT-X-BYTERANGE:1000@1000\nhttp://cdn/x/b\n"
            "#EXT-X-MEDIA-SEQUENCE:9\n#EXTINF:1.00000,\t\nhttp://cdn/x/c\n");
  EXPECT_TRUE(log.Contains("warning: media sequence is 9; 7 was expected.  Resyncing.\n"));
  EXPECT_TRUE(log.Contains("error rangeEnd 4 < rangeStart 5\n"));
  // The map is written once per playlist object, never again.
  EXPECT_EQ(Text(p.get()).find("#EXT-X-MAP"), std::string::npos);
}

TEST(IndexFileText, KeyLines) {
  uint8_t iv[16];
  for (int i = 0; i < 16; i++) iv[i] = static_cast<uint8_t>(i);
  uint8_t iv2[16] = {0xff};
  auto p = Playlist(3, true);
  p->AddFile("clear", "/x/clear", 0, 1, -1, -1, false);
  p->AddCryptKey(nullptr, "/x/crypt0.key", "crypt0.key", true, false);
  p->AddFile("k1", "/x/k1", 1, 1, -1, -1, false);
  p->AddFile("k1b", "/x/k1b", 2, 1, -1, -1, false);
  p->ChangeCryptKeyIV(iv);
  p->AddFile("iv1", "/x/iv1", 3, 1, -1, -1, false);
  p->AddFile("iv1b", "/x/iv1b", 4, 1, -1, -1, false);
  p->ChangeCryptKeyIV(iv2);
  p->AddFile("iv2", "/x/iv2", 5, 1, -1, -1, false);
  p->AddCryptKey("skd://k", nullptr, nullptr, false, true);
  p->AddFile("fps", "/x/fps", 6, 1, -1, -1, false);
  const std::string text = Text(p.get());
  const char* expected =
      "#EXT-X-MEDIA-SEQUENCE:0\n#EXTINF:1.00000,\t\nclear\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\"\n#EXTINF:1.00000,\t\nk1\n"
      "#EXTINF:1.00000,\t\nk1b\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\",IV=0x102030405060708090a0b0c0d0e0f\n"
      "#EXTINF:1.00000,\t\niv1\n#EXTINF:1.00000,\t\niv1b\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\",IV=0xff000000000000000000000000000000\n"
      "#EXTINF:1.00000,\t\niv2\n"
      "#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"skd://k\",KEYFORMAT=\"com.zorva.streamingkeydelivery\","
      "KEYFORMATVERSIONS=\"1\"\n#EXTINF:1.00000,\t\nfps\n";
  EXPECT_TRUE(text.ends_with(expected)) << text;
}

TEST(VODIndexFile, WrittenOnceAtDestructionWithEndList) {
  ScratchDir dir;
  LogCapture log;
  {
    CVODIndexFile vod(
        {.file = {.directory = dir.path().c_str(), .indexFileName = "prog_index.m3u8"},
         .decimalDurations = true});
    vod.AddFile("s0.webvtt", (dir / "s0.webvtt").c_str(), 0, 10.4, -1, -1, false);
    vod.AddFile("s1.webvtt", (dir / "s1.webvtt").c_str(), 1, 9.49, -1, -1, false);
    EXPECT_FALSE(FileExists(dir / "prog_index.m3u8"));
    vod.Pause();
  }
  // The target is the largest duration rounded half away from zero: 10.4 s gives 10, not 11.
  EXPECT_EQ(ReadFile(dir / "prog_index.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:10.40000,\t\ns0.webvtt\n#EXTINF:9.49000,\t\n"
            "s1.webvtt\n#EXT-X-ENDLIST\n");
  EXPECT_TRUE(log.Contains("Pause called for VOD; ignoring\n"));
  {
    CVODIndexFile empty({.file = {.directory = (dir / "sub").c_str(), .indexFileName = "n.m3u8"}});
  }
  {  // and 10.5 s gives 11
    CVODIndexFile half({.file = {.directory = dir.path().c_str(), .indexFileName = "h.m3u8"}});
    half.AddFile("h.webvtt", (dir / "h.webvtt").c_str(), 0, 10.5, -1, -1, false);
  }
  EXPECT_EQ(ReadFile(dir / "h.m3u8").find("#EXTM3U\n#EXT-X-TARGETDURATION:11\n"), 0u);
  EXPECT_EQ(ListDir(dir.path()).size(), 2u);
}

TEST(LiveIndexFile, SlidingWindowDateTimeAndDiscontinuities) {
  ScratchDir dir;
  LogCapture log;
  int64_t now = 1000;  // the wall clock stands still until the test moves it
  auto live = std::make_unique<CLiveIndexFile>(Live(dir.path(), 3, 3, [&] { return now; }));
  live->SetProgramDateTimeOrigin(1794659645);  // 2026-11-14T12:34:05Z
  for (int i = 0; i < 4; i++) {
    std::string name = "s" + std::to_string(i);
    WriteFile(dir / name, "x");
    live->AddFile(name.c_str(), (dir / name).c_str(), static_cast<uint64_t>(i), 2.5, -1, -1,
                  i == 0);
    EXPECT_EQ(FileExists(dir / "live.m3u8"), i >= 2) << i;
    EXPECT_EQ(live->IndexFileAvailable(), i >= 2) << i;
  }
  EXPECT_TRUE(log.Contains("wrote initial index file\n"));
  // The window starts 2.5 s after the first segment, which began a discontinuity.
  EXPECT_EQ(ReadFile(dir / "live.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:1\n"
            "#EXT-X-DISCONTINUITY-SEQUENCE:1\n#EXT-X-PROGRAM-DATE-TIME:2026-11-14T12:34:07.500Z\n"
            "#EXTINF:2.50000,\t\ns1\n#EXTINF:2.50000,\t\ns2\n#EXTINF:2.50000,\t\ns3\n");
  struct stat st;
  ASSERT_EQ(stat((dir / "live.m3u8").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0664u);
  EXPECT_EQ(ListDir(dir.path()).size(), 5u);  // no temporary file left behind
  // s0 lingers for the window's length (ceiling of 7.5 s) before it is deleted.
  now += 7;
  live->HandlePendingActions();
  EXPECT_TRUE(FileExists(dir / "s0"));
  now += 1;
  live->HandlePendingActions();
  EXPECT_FALSE(FileExists(dir / "s0"));
  live.reset();
  EXPECT_TRUE(ReadFile(dir / "live.m3u8").ends_with("s3\n#EXT-X-ENDLIST\n"));
}

TEST(LiveIndexFile, DeletionRetriedUntilTheFileGoes) {
  ScratchDir dir;
  LogCapture log;
  {
    // Zero-length segments linger for no time: the first one that leaves the window is due at
    // once, but its file does not exist yet.
    CLiveIndexFile live(Live(dir.path(), 1, 1));
    WriteFile(dir / "k.key", "key");
    live.AddCryptKey(nullptr, (dir / "k.key").c_str(), "k.key", true, false);
    live.AddFile("a", (dir / "a").c_str(), 0, 0, -1, -1, false);
    live.AddFile("b", (dir / "b").c_str(), 1, 0, -1, -1, false);
    live.HandlePendingActions();
    EXPECT_TRUE(FileExists(dir / "k.key"));  // b still uses the key
    EXPECT_TRUE(log.Contains("unlinked " + (dir / "a") + " err -1\n"));
    EXPECT_TRUE(log.Contains("error No such file or directory unlinking " + (dir / "a")));
    WriteFile(dir / "a", "now it exists");
    live.HandlePendingActions();
    EXPECT_FALSE(FileExists(dir / "a"));
    // Once no entry uses the key any more, its file goes too.
    live.AddCryptKey(nullptr, nullptr, nullptr, true, false);
    live.AddFile("c", (dir / "c").c_str(), 2, 0, -1, -1, false);
    live.HandlePendingActions();
    EXPECT_FALSE(FileExists(dir / "k.key"));
    live.Abandon();
  }
  // A directory that cannot hold the temporary file: the playlist gives up on that write.
  CLiveIndexFile missing(Live(dir / "missing", 1, 1));
  missing.AddFile("a", "a", 0, 1, -1, -1, false);
  EXPECT_TRUE(log.Contains("unable to open " + (dir / "missing") + "/live.m3u8."));
  EXPECT_TRUE(log.Contains(" (err 2).  Giving up on this index file\n")) << log.Text();
  missing.Abandon();
}

TEST(ProgramIndexFile, FirstWriteThenAppend) {
  ScratchDir dir;
  LogCapture log(1);
  const std::string path = dir / "event.m3u8";
  {
    CProgramIndexFile event(
        {.playlist = {.file = {.directory = dir.path().c_str(), .indexFileName = "event.m3u8"},
                      .targetDuration = 10,
                      .commands = {.segmentPost = "true"},
                      .decimalDurations = true},
         .firstWriteCount = 2});
    event.AddFile("a", "a", 0, 1, -1, -1, true);  // the caller's discontinuity is ignored
    EXPECT_FALSE(FileExists(path));
    event.AddFile("b", "b", 1, 1, -1, -1, false);
    EXPECT_EQ(ReadFile(path),
              "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:0\n"
              "#EXT-X-PLAYLIST-TYPE:EVENT\n#EXTINF:1.00000,\t\na\n#EXTINF:1.00000,\t\nb\n");
    event.AddFile("c", "c", 2, 1, -1, -1, false);
    EXPECT_TRUE(ReadFile(path).ends_with("b\n#EXTINF:1.00000,\t\nc\n"));
    event.Pause();
    EXPECT_FALSE(FileExists(path));
    event.Resume();
    EXPECT_TRUE(ReadFile(path).ends_with("c\n#EXT-X-DISCONTINUITY\n"));
  }
  EXPECT_TRUE(ReadFile(path).ends_with("#EXT-X-DISCONTINUITY\n#EXT-X-ENDLIST\n"));
  // The first write finds no earlier post-processing command and says so; later ones cancel
  // the earlier command silently.
  const std::string text = log.Text();
  const size_t first = text.find("removed previous index file post process command");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(text.find("removed previous index file post process command", first + 1),
            std::string::npos);
}

TEST(IFrameIndexFile, FollowsItsParent) {
  ScratchDir dir;
  {
    CVODIndexFile parent({.file = {.directory = dir.path().c_str(), .indexFileName = "main.m3u8"},
                          .decimalDurations = true});
    CIFrameIndexFile iframes(
        {.file = {.version = 4, .directory = dir.path().c_str(), .indexFileName = "iframe.m3u8"},
         .targetDuration = 10,
         .parent = &parent});
    parent.AddFile("a", "a", 0, 1, -1, -1, false);
    EXPECT_EQ(iframes.AddFile("a", "a", 0, 1, -1, -1, false), nullptr);
    iframes.SetTargetDuration(7.9);
  }
  EXPECT_EQ(ReadFile(dir / "iframe.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:7\n#EXT-X-VERSION:4\n#EXT-X-PLAYLIST-TYPE:VOD\n"
            "#EXT-X-I-FRAMES-ONLY\n");
}

}  // namespace
