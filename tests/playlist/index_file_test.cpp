#include "playlist/index_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "log_capture.h"
#include "playlist/index_file_kinds.h"
#include "test_support.h"

namespace {

// The base class alone, never written to disk: direct access to the text writer.
class TextOnlyPlaylist final : public CIndexFileBase {
 public:
  using CIndexFileBase::CIndexFileBase;
  void Pause() override {}
  void Resume() override {}
};

std::unique_ptr<CIndexFileBase> Playlist(uint32_t version, bool decimal,
                                         const char* baseURL = nullptr) {
  return std::make_unique<TextOnlyPlaylist>(version, baseURL, "/nonexistent", "p.m3u8", 10, nullptr,
                                            nullptr, nullptr, nullptr, decimal, false);
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

void Abandon(CIndexFileBase* p) {
  p->Abandon();
}

TEST(IndexFileText, HeaderWithoutEntries) {
  struct Case {
    uint32_t version;
    std::string expected;
  } cases[] = {
      {1, "#EXTM3U\n#EXT-X-TARGETDURATION:10\n"},
      {2, "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:2\n"},
  };
  for (const Case& c : cases) {
    auto p = Playlist(c.version, true);
    EXPECT_EQ(Text(p.get()), c.expected);
  }
  auto p = Playlist(3, true);
  p->discontinuitySequence = 4;
  p->headerExtra = "#EXT-X-PLAYLIST-TYPE:EVENT\n";
  p->independentSegments = true;
  EXPECT_EQ(Text(p.get()),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n"
            "#EXT-X-DISCONTINUITY-SEQUENCE:4\n#EXT-X-PLAYLIST-TYPE:EVENT\n"
            "#EXT-X-INDEPENDENT-SEGMENTS\n");
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
    Abandon(p.get());
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
  Abandon(p.get());
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
      "#EXTINF:1.00000,\t\nclear\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\"\n#EXTINF:1.00000,\t\nk1\n"
      "#EXTINF:1.00000,\t\nk1b\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\",IV=0x102030405060708090a0b0c0d0e0f\n"
      "#EXTINF:1.00000,\t\niv1\n#EXTINF:1.00000,\t\niv1b\n"
      "#EXT-X-KEY:METHOD=AES-128,URI=\"crypt0.key\",IV=0xff000000000000000000000000000000\n"
      "#EXTINF:1.00000,\t\niv2\n"
      "#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"skd://k\",KEYFORMAT=\"com.zorva.streamingkeydelivery\","
      "KEYFORMATVERSIONS=\"1\"\n#EXTINF:1.00000,\t\nfps\n";
  EXPECT_NE(text.find(expected), std::string::npos) << text;
  EXPECT_EQ(p->keys.front()->refCount, 5);
  Abandon(p.get());

  // A keyless entry after keyed ones says so.
  auto q = Playlist(3, true);
  q->AddCryptKey("k", nullptr, nullptr, true, false);
  q->AddFile("a", "/x/a", 0, 1, -1, -1, false);
  q->entries.push_back(std::make_unique<FileEntry>());
  q->entries.back()->fileName = "b";
  q->entries.back()->mediaSequence = 1;
  EXPECT_NE(Text(q.get()).find("a\n#EXT-X-KEY:NONE\n#EXTINF"), std::string::npos);
  Abandon(q.get());
}

TEST(IndexFileText, ProgramDateTime) {
  auto p = Playlist(3, true);
  p->programDateTimeOrigin = 1794659645;  // 2026-11-14T12:34:05Z
  p->AddFile("a", "/x/a", 0, 0.25, -1, -1, false);
  p->AddFile("b", "/x/b", 1, 1, -1, -1, false);
  p->entries.pop_front();  // the window now starts 0.25 s later
  p->entryCount--;
  EXPECT_NE(Text(p.get()).find("#EXT-X-PROGRAM-DATE-TIME:2026-11-14T12:34:05.250Z\n"),
            std::string::npos);
  Abandon(p.get());
}

TEST(VODIndexFile, WrittenOnceAtDestructionWithEndList) {
  ScratchDir dir;
  LogCapture log;
  {
    CVODIndexFile vod(3, nullptr, dir.path().c_str(), "prog_index.m3u8", true, false);
    vod.AddFile("s0.webvtt", (dir / "s0.webvtt").c_str(), 0, 9.5, -1, -1, false);
    vod.AddFile("s1.webvtt", (dir / "s1.webvtt").c_str(), 1, 9.49, -1, -1, false);
    EXPECT_EQ(vod.targetDuration, 10u);  // 9.5 rounds half away from zero
    EXPECT_FALSE(FileExists(dir / "prog_index.m3u8"));
    vod.Pause();
  }
  EXPECT_EQ(ReadFile(dir / "prog_index.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:9.50000,\t\ns0.webvtt\n#EXTINF:9.49000,\t\n"
            "s1.webvtt\n#EXT-X-ENDLIST\n");
  EXPECT_TRUE(log.Contains("Pause called for VOD; ignoring\n"));
  { CVODIndexFile empty(3, nullptr, (dir / "sub").c_str(), "none.m3u8", true, false); }
  EXPECT_EQ(ListDir(dir.path()).size(), 1u);
}

TEST(LiveIndexFile, SlidingWindowLingeringDeletionAndDiscontinuities) {
  ScratchDir dir;
  LogCapture log;
  auto live =
      std::make_unique<CLiveIndexFile>(3, nullptr, dir.path().c_str(), "live.m3u8", 10, 3, 3, true,
                                       nullptr, nullptr, nullptr, nullptr, true, false);
  for (int i = 0; i < 4; i++) {
    std::string name = "s" + std::to_string(i);
    WriteFile(dir / name, "x");
    live->AddFile(name.c_str(), (dir / name).c_str(), i, 2.5, -1, -1, i == 0);
    EXPECT_EQ(FileExists(dir / "live.m3u8"), i >= 2) << i;
  }
  EXPECT_TRUE(log.Contains("wrote initial index file\n"));
  std::string text = ReadFile(dir / "live.m3u8");
  EXPECT_NE(text.find("#EXT-X-MEDIA-SEQUENCE:1\n#EXT-X-DISCONTINUITY-SEQUENCE:1\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("s0"), std::string::npos);
  struct stat st;
  ASSERT_EQ(stat((dir / "live.m3u8").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0664u);
  // s0 lingers for the window's length (ceil of 7.5 s) before it is deleted.
  ASSERT_EQ(live->removedEntries.size(), 1u);
  EXPECT_EQ(live->removedEntries.front()->lingerSeconds, 8u);
  live->HandlePendingActions();
  EXPECT_TRUE(FileExists(dir / "s0"));
  live->removedEntries.front()->deleteAt = 0;
  live->HandlePendingActions();
  EXPECT_FALSE(FileExists(dir / "s0"));
  EXPECT_TRUE(live->IndexFileAvailable());
  live.reset();
  EXPECT_TRUE(ReadFile(dir / "live.m3u8").ends_with("#EXT-X-ENDLIST\n"));
}

TEST(ProgramIndexFile, FirstWriteThenAppend) {
  ScratchDir dir;
  const std::string path = dir / "event.m3u8";
  {
    CProgramIndexFile event(3, nullptr, dir.path().c_str(), "event.m3u8", 10, 2, nullptr, nullptr,
                            nullptr, nullptr, true, false);
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
}

TEST(IFrameIndexFile, FollowsItsParent) {
  ScratchDir dir;
  {
    CVODIndexFile parent(3, nullptr, dir.path().c_str(), "main.m3u8", true, false);
    CIFrameIndexFile iframes(4, nullptr, dir.path().c_str(), "iframe.m3u8", 10, &parent, false);
    parent.AddFile("a", "a", 0, 1, -1, -1, false);
    EXPECT_EQ(iframes.AddFile("a", "a", 0, 1, -1, -1, false), nullptr);
    iframes.SetTargetDuration(7.9);
  }
  EXPECT_EQ(ReadFile(dir / "iframe.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:7\n#EXT-X-VERSION:4\n#EXT-X-PLAYLIST-TYPE:VOD\n"
            "#EXT-X-I-FRAMES-ONLY\n");
}

TEST(IndexFileDisk, ReplacementFailuresAndDoomedFiles) {
  ScratchDir dir;
  LogCapture log;
  CProgramIndexFile p(3, nullptr, (dir / "missing").c_str(), "x.m3u8", 10, 1000, "true %P", nullptr,
                      nullptr, nullptr, true, false);
  EXPECT_FALSE(p.UpdateIndexFile());
  EXPECT_TRUE(log.Contains("unable to open " + (dir / "missing") + "/x.m3u8."));
  EXPECT_TRUE(log.Contains(" (err 2).  Giving up on this index file\n")) << log.Text();
  p.RemoveFile((dir / "nothing").c_str(), "nothing", false);
  EXPECT_TRUE(log.Contains("unlinked " + (dir / "nothing") + " err -1\n"));
  EXPECT_TRUE(log.Contains("error No such file or directory unlinking " + (dir / "nothing")));
  ASSERT_EQ(p.doomedFiles.size(), 1u);
  WriteFile(dir / "nothing", "now it exists");
  p.HandlePendingActions();
  EXPECT_TRUE(p.doomedFiles.empty());
  EXPECT_FALSE(FileExists(dir / "nothing"));

  // With a template, the first replacement logs that nothing was removed; later ones do not.
  CProgramIndexFile q(3, nullptr, dir.path().c_str(), "q.m3u8", 10, 1000, "true", nullptr, nullptr,
                      nullptr, true, false);
  EXPECT_TRUE(q.UpdateIndexFile());
  EXPECT_TRUE(q.UpdateIndexFile());
  const std::string text = log.Text();
  size_t first = text.find("removed previous index file post process command");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(text.find("removed previous index file post process command", first + 1),
            std::string::npos);
  EXPECT_TRUE(FileExists(dir / "q.m3u8"));
  EXPECT_EQ(ListDir(dir.path()).size(), 1u);  // no temporary file left behind
  p.Abandon();
  q.Abandon();
}

}  // namespace
