// Encrypted WebVTT streams read back by a real client: a chunk file fed by the segment writer,
// then ffmpeg reads the playlist, fetches the keys and decrypts every segment. An IV whose
// first byte is zero is written in its short hexadecimal form, which ffmpeg 5.1 reads
// left-aligned; such streams are decrypted with OpenSSL, reading the IV as the integer it is.
// Every stream is also decrypted with OpenSSL, segment by segment.
#include <gtest/gtest.h>

#include <sstream>

#include "chunk_settings.h"
#include "crypto_support.h"
#include "log_capture.h"
#include "segments/chunk_file.h"
#include "test_support.h"
#include "webvtt/segment_writer.h"

namespace {

struct Stream {
  std::vector<std::string> plain;  // the text written into each segment
  std::vector<std::string> cues;   // the cue payloads, in order
};

// Writes `segments` segments of three cues each through the segment writer.
Stream WriteStream(ChunkFile* chunk, int segments) {
  Stream stream;
  ChunkFileSetFileExtension(chunk, ".webvtt");
  for (int s = 0; s < segments; s++) {
    std::string text = "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n";
    EXPECT_EQ(WriteSegmentHeader(chunk, 900000), kNoErr);
    for (int c = 0; c < 3; c++) {
      char start[20], end[20];
      FormatWebVTTTimestamp(s * 10 + c * 3 + 0.5, start);
      FormatWebVTTTimestamp(s * 10 + c * 3 + 2.5, end);
      std::string payload = "segment " + std::to_string(s) + " cue " + std::to_string(c) +
                            std::string(static_cast<size_t>(s * 7 + c), '.');
      std::string cue = std::string(start) + " --> " + end + "\n" + payload + "\n\n";
      EXPECT_EQ(ChunkFileWriteData(chunk, cue.data(), cue.size()), kNoErr);
      text += cue;
      stream.cues.push_back(payload);
    }
    stream.plain.push_back(text);
    if (s + 1 < segments) {
      EXPECT_EQ(ChunkFileMoveToNextFileSecs(chunk, 10), kNoErr);
    }
  }
  EXPECT_EQ(ChunkFileReleaseSecs(chunk, 10, segments * 10.0), kNoErr);
  return stream;
}

// The cue payloads ffmpeg extracts from the playlist.
std::vector<std::string> FfmpegCues(const std::string& dir) {
  std::string out;
  int status = RunShell("cd '" + dir +
                            "' && ffmpeg -nostdin -v error -allowed_extensions ALL "
                            "-extension_picky 0 -i prog_index.m3u8 -f webvtt - 2>&1",
                        &out);
  EXPECT_EQ(status, 0) << out;
  std::vector<std::string> cues;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    if (line.find(" --> ") != std::string::npos && std::getline(in, line)) cues.push_back(line);
  }
  return cues;
}

TEST(EncryptedStream, FfmpegAndOpenSSLDecryptEverySegment) {
  if (RunShell("command -v ffmpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "ffmpeg missing";
  const std::string key = "0123456789abcdef";
  std::string counting;  // a "random" source whose first IV starts with a zero byte
  for (int i = 0; i < 64; i++) counting += static_cast<char>(i);
  struct Case {
    const char* name;
    bool staticKey;
    uint32_t rotation;
    bool sequence;
    bool shortIV;  // random bytes from `counting`
  } cases[] = {
      {"static key, random IVs", true, 0, false, false},
      {"generated keys rotated every 2 segments", false, 2, false, false},
      {"sequence IVs", false, 0, true, false},
      {"short IV form", true, 0, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log(0);
    ScratchDir dir;
    const std::string keyPath = dir / "static.key", device = dir / "random";
    WriteFile(keyPath, key);
    WriteFile(device, counting);
    ScopedRandomDevice random(c.shortIV ? device.c_str() : gCryptKeyRandomDevice);
    ChunkFileSettings s = TestVodSettings(dir.path().c_str());
    s.keyLocation = c.staticKey ? keyPath.c_str() : dir.path().c_str();
    s.keyData = c.staticKey ? reinterpret_cast<const uint8_t*>(key.data()) : nullptr;
    s.keyDataLength = c.staticKey ? 16 : 0;
    s.keyRotationPeriod = c.rotation;
    s.ivSequence = c.sequence;
    ChunkFile* chunk = ChunkFileCreate(s);
    ASSERT_NE(chunk, nullptr);
    Stream stream = WriteStream(chunk, 5);

    const std::string playlist = ReadFile(dir / "prog_index.m3u8");
    auto entries = ReadKeyedPlaylist(playlist);
    ASSERT_EQ(entries.size(), stream.plain.size());
    bool allFullLength = true;
    for (size_t i = 0; i < entries.size(); i++) {
      EXPECT_EQ(DecryptEntry(dir.path(), entries[i]), stream.plain[i]) << i;
      if (!entries[i].ivHex.empty() && entries[i].ivHex.size() != 32) allFullLength = false;
    }
    if (c.rotation) {
      EXPECT_EQ(entries[4].keyUri, "crypt2.key");
      EXPECT_FALSE(FileExists(dir / "crypt3.key"));
    }
    if (c.sequence) {
      EXPECT_EQ(playlist.find("IV="), std::string::npos);
    }
    if (c.shortIV) {
      EXPECT_NE(playlist.find(",IV=0x102030405060708090a0b0c0d0e0f\n"), std::string::npos);
      EXPECT_FALSE(allFullLength);
    }
    if (allFullLength) {
      EXPECT_EQ(FfmpegCues(dir.path()), stream.cues);
    }
  }
}

}  // namespace
