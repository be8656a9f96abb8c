#include "segments/chunk_file.h"

#include <gtest/gtest.h>

#include "chunk_settings.h"
#include "crypto_support.h"
#include "log_capture.h"
#include "test_support.h"

namespace {

// Writes one segment per entry of `segments` and releases the stream.
Status WriteSegments(ChunkFile* chunk, const std::vector<std::string>& segments) {
  ChunkFileSetFileExtension(chunk, ".webvtt");
  for (size_t i = 0; i < segments.size(); i++) {
    if (!segments[i].empty()) {
      Status status = ChunkFileWriteData(chunk, segments[i].data(), segments[i].size());
      if (status != kNoErr) return status;
    }
    if (i + 1 < segments.size()) {
      Status status = ChunkFileMoveToNextFileSecs(chunk, 10);
      if (status != kNoErr) return status;
    }
  }
  return ChunkFileReleaseSecs(chunk, 5, 10.0 * static_cast<double>(segments.size()));
}

TEST(ChunkFile, NamingSkipsExistingFilesAndEmptySegmentsLeaveNothing) {
  ScratchDir dir;
  LogCapture log;
  WriteFile(dir / "fileSequence0.webvtt", "precious");
  ChunkFile* chunk = ChunkFileCreate(TestVodSettings(dir.path().c_str()));
  ASSERT_NE(chunk, nullptr);
  ChunkFileSetFileExtension(chunk, nullptr);
  EXPECT_TRUE(log.Contains("trying to set a null extension\n"));
  EXPECT_EQ(WriteSegments(chunk, {"one", "", "three"}), kNoErr);
  EXPECT_EQ(ReadFile(dir / "fileSequence0.webvtt"), "precious");
  EXPECT_EQ(ReadFile(dir / "fileSequence1.webvtt"), "one");
  EXPECT_FALSE(FileExists(dir / "fileSequence2.webvtt"));  // empty: deleted, number not reused
  EXPECT_EQ(ReadFile(dir / "fileSequence3.webvtt"), "three");
  EXPECT_EQ(ReadFile(dir / "prog_index.m3u8"),
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXT-X-VERSION:3\n#EXT-X-MEDIA-SEQUENCE:0\n"
            "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:10.00000,\t\nfileSequence1.webvtt\n"
            "#EXTINF:5.00000,\t\nfileSequence3.webvtt\n#EXT-X-ENDLIST\n");
  EXPECT_TRUE(log.Contains("Finalized " + (dir / "fileSequence1.webvtt") + "\n"));
  // 3 bytes in 10 s, then 5 bytes in 5 s; 8 bytes over the 30 s given at release.
  EXPECT_TRUE(log.Contains("segment bitrate  2.40 bits/sec is new max\n"));
  EXPECT_TRUE(log.Contains("segment bitrate  8.00 bits/sec is new max\n"));
  EXPECT_TRUE(
      log.Contains("average bit rate is  2.13 bits/sec - max file bit rate is  8.00 bits/sec\n"));
  EXPECT_TRUE(
      log.Contains("totalBytesWritten 8, elapsedDuration 30, avgBitRateOut 0.00208333 kbps, "
                   "maxBitRateOut 0.0078125 kbps\n\n"));
}

TEST(ChunkFile, UnwritableOutputDirectoryGivesTheSystemError) {
  ScratchDir dir;
  WriteFile(dir / "file", "in the way");
  const std::string blocked = dir / "file";
  LogCapture log;
  ChunkFile* chunk = ChunkFileCreate(TestVodSettings(blocked.c_str()));
  ASSERT_NE(chunk, nullptr);
  EXPECT_EQ(ChunkFileWriteData(chunk, "x", 1), ENOTDIR);
  EXPECT_EQ(ChunkFileWriteData(chunk, "y", 1), ENOTDIR);
  EXPECT_EQ(log.Text(), "cannot create files in " + blocked + ": Not a directory\n");
  EXPECT_EQ(ChunkFileReleaseSecs(chunk, 0, 0), ENOTDIR);  // the run fails too
  EXPECT_EQ(ReadFile(dir / "file"), "in the way");
}

TEST(ChunkFile, BitRateText) {
  struct Case {
    double rate;
    const char* text;
  } cases[] = {{999, "999.00 bits/sec"}, {1000, " 1.00 kbits/sec"}, {2500000, " 2.50 Mbits/sec"}};
  for (const Case& c : cases) {
    char text[40];
    ChunkFileFormatBitRate(c.rate, text);
    EXPECT_STREQ(text, c.text);
  }
}

// Every key setup gives segments that decrypt with the key file and the IV the playlist names
// (or the media sequence number when it names none), padded to whole blocks.
TEST(ChunkFile, EncryptedSegmentsDecryptWithThePlaylistsKeysAndIVs) {
  const std::string key = "0123456789abcdef";
  std::string counting;  // a "random" source whose first IV starts with a zero byte
  for (int i = 0; i < 64; i++) counting += static_cast<char>(i);
  struct Case {
    const char* name;
    bool staticKey;
    uint32_t rotation;
    bool sequence;
    bool shortIV;  // random bytes from `counting`
    const char* lastKey;
  } cases[] = {
      {"static key, random IVs", true, 0, false, false, "static.key"},
      {"generated keys rotated every 3 segments", false, 3, false, false, "crypt2.key"},
      {"sequence IVs", false, 0, true, false, "crypt0.key"},
      {"short IV form", true, 0, false, true, "static.key"},
  };
  std::vector<std::string> plain;
  for (size_t n : std::initializer_list<size_t>{1, 10, 15, 16, 17, 31, 32, 1000})
    plain.push_back(std::string(n, static_cast<char>('a' + static_cast<int>(n % 26))));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log(0);
    ScratchDir dir;
    WriteFile(dir / "static.key", key);
    const std::string device = dir / "random";
    WriteFile(device, counting);
    ChunkFileSettings s = TestVodSettings(dir.path().c_str());
    if (c.shortIV) s.environment.randomDevice = device;
    s.keyLocation = c.staticKey ? "keys/static.key" : dir.path().c_str();
    s.keyData = c.staticKey ? reinterpret_cast<const uint8_t*>(key.data()) : nullptr;
    s.keyDataLength = c.staticKey ? 16 : 0;
    s.keyRotationPeriod = c.rotation;
    s.ivSequence = c.sequence;
    ChunkFile* chunk = ChunkFileCreate(s);
    ASSERT_NE(chunk, nullptr);
    ASSERT_EQ(WriteSegments(chunk, plain), kNoErr);
    const std::string playlist = ReadFile(dir / "prog_index.m3u8");
    auto entries = ReadKeyedPlaylist(playlist);
    ASSERT_EQ(entries.size(), plain.size());
    for (size_t i = 0; i < plain.size(); i++) {
      EXPECT_EQ(ReadFile(dir / entries[i].uri).size(), (plain[i].size() / 16 + 1) * 16);
      EXPECT_EQ(DecryptEntry(dir.path(), entries[i]), plain[i]) << i;
    }
    EXPECT_EQ(entries.back().keyUri, c.lastKey);
    EXPECT_FALSE(FileExists(dir / "crypt3.key"));  // no key beyond the last one used
    EXPECT_EQ(playlist.find("IV=") == std::string::npos, c.sequence);
    EXPECT_EQ(playlist.find(",IV=0x102030405060708090a0b0c0d0e0f\n") != std::string::npos,
              c.shortIV);
  }
}

// The rotation rules themselves are tested on their own; here, that the stream follows them:
// with 1 MB per IV, a 600 KiB segment starts under a new IV every second segment.
TEST(ChunkFile, RandomIVRotatesByOutputBytes) {
  ScratchDir dir;
  ChunkFileSettings s = TestVodSettings(dir.path().c_str());
  s.keyLocation = dir.path().c_str();
  s.ivRotateMegabytes = 1;
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  ASSERT_EQ(WriteSegments(chunk, std::vector<std::string>(6, std::string(600 * 1024, 'x'))),
            kNoErr);
  std::vector<std::string> ivs;
  for (const auto& entry : ReadKeyedPlaylist(ReadFile(dir / "prog_index.m3u8")))
    ivs.push_back(entry.ivHex);
  ASSERT_EQ(ivs.size(), 6u);
  for (size_t i = 1; i < ivs.size(); i++) EXPECT_EQ(ivs[i] != ivs[i - 1], i % 2 == 0) << i;
}

// Keys and IVs from a predictable source would be worse than none: without its random device an
// encrypted stream ends the process at the first draw.
TEST(ChunkFile, MissingRandomDeviceEndsTheProcess) {
  ScratchDir dir;
  ChunkFileSettings s = TestVodSettings(dir.path().c_str());
  s.keyLocation = dir.path().c_str();
  s.environment.randomDevice = dir / "no-such-device";
  EXPECT_DEATH(
      {
        OutputSetFile("/dev/stderr");
        OutputInit(false);
        static_cast<void>(ChunkFileCreate(s));
      },
      "cannot read random bytes from .*/no-such-device");
}

TEST(ChunkFile, SampleAesNeedsAUrlAndNoRotation) {
  ScratchDir dir;
  LogCapture log;
  ChunkFileSettings s = TestVodSettings(dir.path().c_str());
  s.aes128 = 0;
  EXPECT_EQ(ChunkFileCreate(s), nullptr);
  EXPECT_TRUE(
      log.Contains("Need to specify URL for stream based encryption.  Period must be 0.\n"));
  s.keyURL = "skd://key";
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  ASSERT_EQ(WriteSegments(chunk, {"clear text"}), kNoErr);
  EXPECT_EQ(ReadFile(dir / "fileSequence0.webvtt"), "clear text");
  EXPECT_NE(
      ReadFile(dir / "prog_index.m3u8").find("#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"skd://key\"\n"),
      std::string::npos);
}

}  // namespace
