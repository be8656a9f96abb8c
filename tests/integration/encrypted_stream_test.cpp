// Encrypted WebVTT streams read back by a real client: ffmpeg reads the playlist, fetches the
// keys and decrypts every segment. An IV whose first byte is zero is written in its short
// hexadecimal form, which ffmpeg 5.1 reads left-aligned; such streams are decrypted here with
// OpenSSL, reading the IV as the integer it is.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "crypto_support.h"
#include "log_capture.h"
#include "segments/chunk_file.h"
#include "test_support.h"
#include "webvtt/segment_writer.h"

namespace {

bool HaveFfmpeg() {
  return RunShell("command -v ffmpeg >/dev/null 2>&1") == 0;
}

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
    WriteSegmentHeader(chunk, 900000);
    for (int c = 0; c < 3; c++) {
      double start = s * 10 + c * 3 + 0.5;
      char timing[64];
      char a[20], b[20];
      FormatWebVTTTimestamp(start, a);
      FormatWebVTTTimestamp(start + 2, b);
      snprintf(timing, sizeof timing, "%s --> %s\n", a, b);
      std::string payload = "segment " + std::to_string(s) + " cue " + std::to_string(c) +
                            std::string(static_cast<size_t>(s * 7 + c), '.');
      std::string cue = std::string(timing) + payload + "\n\n";
      ChunkFileWriteData(chunk, cue.data(), cue.size());
      text += cue;
      stream.cues.push_back(payload);
    }
    stream.plain.push_back(text);
    if (s + 1 < segments) ChunkFileMoveToNextFileSecs(chunk, 10);
  }
  ChunkFileReleaseSecs(chunk, 10, segments * 10.0);
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

struct Entry {
  std::string uri, keyUri, ivHex;
  uint64_t sequence;
};

std::vector<Entry> ReadPlaylist(const std::string& path) {
  std::vector<Entry> entries;
  std::string keyUri, iv;
  uint64_t sequence = 0;
  std::regex keyLine(R"re(#EXT-X-KEY:METHOD=AES-128,URI="([^"]*)"(,IV=0x([0-9a-f]+))?)re");
  std::istringstream in(ReadFile(path));
  for (std::string line; std::getline(in, line);) {
    std::smatch m;
    if (std::regex_match(line, m, keyLine)) {
      keyUri = m[1];
      iv = m[3];
    } else if (!line.empty() && line[0] != '#') {
      entries.push_back({line, keyUri, iv, sequence++});
    }
  }
  return entries;
}

// Decrypts every segment with OpenSSL: the IV from the playlist read as an integer, or the
// media sequence number when the playlist gives none.
void ExpectDecryptsWithOpenSSL(const std::string& dir, const Stream& stream) {
  auto entries = ReadPlaylist(dir + "/prog_index.m3u8");
  ASSERT_EQ(entries.size(), stream.plain.size());
  for (size_t i = 0; i < entries.size(); i++) {
    std::string key = ReadFile(dir + "/" + entries[i].keyUri);
    ASSERT_EQ(key.size(), 16u);
    std::array<uint8_t, 16> iv{};
    if (entries[i].ivHex.empty()) {
      for (int b = 0; b < 8; b++) iv[15 - b] = static_cast<uint8_t>(entries[i].sequence >> (8 * b));
    } else {
      iv = IVFromHex(entries[i].ivHex);
    }
    EXPECT_EQ(DecryptAes128Cbc(reinterpret_cast<const uint8_t*>(key.data()), iv,
                               ReadFile(dir + "/" + entries[i].uri)),
              stream.plain[i]);
  }
}

bool AllIVsFullLength(const std::string& dir) {
  for (const Entry& e : ReadPlaylist(dir + "/prog_index.m3u8")) {
    if (!e.ivHex.empty() && e.ivHex.size() != 32) return false;
  }
  return true;
}

ChunkFileSettings Settings(const std::string& dir) {
  ChunkFileSettings s{};
  s.version = 3;
  s.targetDuration = 10;
  s.notLive = 1;
  s.kindSelector = -1;
  s.directory = dir.c_str();
  s.indexFileName = "prog_index.m3u8";
  s.ivRotateMegabytes = 50;
  s.decimalDurations = 1;
  s.aes128 = 1;
  return s;
}

class EncryptedStream : public testing::Test {
 protected:
  void SetUp() override {
    if (!HaveFfmpeg()) GTEST_SKIP() << "ffmpeg is not installed (scripts/install-deps.sh)";
  }
  void TearDown() override { gCryptKeyRandomDevice = "/dev/random"; }
  LogCapture log{0};
  ScratchDir dir;
};

TEST_F(EncryptedStream, StaticKeyWithRandomIV) {
  const std::string keyPath = dir / "static.key";
  const std::string key = "0123456789abcdef";
  WriteFile(keyPath, key);
  ChunkFileSettings s = Settings(dir.path());
  s.keyData = reinterpret_cast<const uint8_t*>(key.data());
  s.keyDataLength = 16;
  s.keyLocation = keyPath.c_str();
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  Stream stream = WriteStream(chunk, 3);
  if (AllIVsFullLength(dir.path())) {
    EXPECT_EQ(FfmpegCues(dir.path()), stream.cues);
  }
  ExpectDecryptsWithOpenSSL(dir.path(), stream);
}

TEST_F(EncryptedStream, GeneratedKeysRotatedEveryTwoSegments) {
  ChunkFileSettings s = Settings(dir.path());
  s.keyLocation = dir.path().c_str();
  s.keyRotationPeriod = 2;
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  Stream stream = WriteStream(chunk, 5);
  EXPECT_TRUE(FileExists(dir / "crypt2.key"));
  EXPECT_FALSE(FileExists(dir / "crypt3.key"));
  if (AllIVsFullLength(dir.path())) {
    EXPECT_EQ(FfmpegCues(dir.path()), stream.cues);
  }
  ExpectDecryptsWithOpenSSL(dir.path(), stream);
}

TEST_F(EncryptedStream, SequenceIVs) {
  ChunkFileSettings s = Settings(dir.path());
  s.keyLocation = dir.path().c_str();
  s.ivSequence = 1;
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  Stream stream = WriteStream(chunk, 4);
  EXPECT_EQ(ReadFile(dir / "prog_index.m3u8").find("IV="), std::string::npos);
  EXPECT_EQ(FfmpegCues(dir.path()), stream.cues);
  ExpectDecryptsWithOpenSSL(dir.path(), stream);
}

TEST_F(EncryptedStream, ShortIVFormIsTheSame128BitNumber) {
  // A random source whose first IV starts with a zero byte.
  std::string bytes;
  for (int i = 0; i < 64; i++) bytes += static_cast<char>(i);
  const std::string device = dir / "random";
  WriteFile(device, bytes);
  gCryptKeyRandomDevice = device.c_str();
  const std::string key = "fedcba9876543210";
  const std::string keyPath = dir / "k.key";
  WriteFile(keyPath, key);
  ChunkFileSettings s = Settings(dir.path());
  s.keyData = reinterpret_cast<const uint8_t*>(key.data());
  s.keyDataLength = 16;
  s.keyLocation = keyPath.c_str();
  ChunkFile* chunk = ChunkFileCreate(s);
  ASSERT_NE(chunk, nullptr);
  Stream stream = WriteStream(chunk, 2);
  EXPECT_NE(ReadFile(dir / "prog_index.m3u8").find(",IV=0x102030405060708090a0b0c0d0e0f\n"),
            std::string::npos);
  ExpectDecryptsWithOpenSSL(dir.path(), stream);
}

}  // namespace
