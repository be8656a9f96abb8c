// A segment that fails part-way (a write or an encryptor step) ends the run: the failure is
// reported, the run's status is non-zero and no playlist is left that would look complete.
#include <gtest/gtest.h>

#include <string>

#include "driver/cue_scheduler.h"
#include "log_capture.h"
#include "segments/chunk_file.h"
#include "test_support.h"

namespace {

constexpr Status kInjected = kErrCryptor;

// Three 10-second segments of two cues each.
const std::string kSource =
    "WEBVTT\n\n00:01.000 --> 00:02.000\na\n\n00:03.000 --> 00:04.000\nb\n\n"
    "00:11.000 --> 00:12.000\nc\n\n00:13.000 --> 00:14.000\nd\n\n"
    "00:21.000 --> 00:22.000\ne\n\n00:23.000 --> 00:24.000\nf\n\n";

Status RunSource(const ScratchDir& dir, bool encrypt, const RunEnvironment& environment = {}) {
  RunSettings settings;
  settings.targetDuration = 10;
  settings.fileBase = dir.path().c_str();
  if (encrypt) settings.encryptKeyFile = settings.fileBase;  // generated keys
  MxByteStreamRef stream = MemoryStream(kSource);
  return RunWebVTTSource(settings, environment, stream.get());
}

TEST(WriteFailure, MidSegmentFailureLeavesNoPlaylist) {
  // A segment here is 16 writes (4 for the header, 6 per cue); encrypted, the encryptor runs
  // once per write and once more for the padding, which is one more write.
  struct Case {
    const char* name;
    bool encrypt;
    WriteStep step;
    int n;
    Status status;
    const char* message;
  } cases[] = {
      {"write in segment 2", false, WriteStep::kWrite, 18, kErrShortWrite,
       "fileSequence1.webvtt: Unknown error -45100\n"},
      {"encryption in segment 2", true, WriteStep::kEncrypt, 18, kInjected,
       "Encryption error: -45100.  Refusing to write segment!\n"},
      {"encrypted write in segment 2", true, WriteStep::kWrite, 18, kErrShortWrite,
       "fileSequence1.webvtt: Unknown error -45100\n"},
      {"padding of segment 2", true, WriteStep::kEncrypt, 34, kInjected,
       "Encryption error: -45100\n"},
      {"padding of the last segment", true, WriteStep::kEncrypt, 51, kInjected,
       "Encryption error: -45100\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    LogCapture log(0);
    int seen = 0;  // steps of the failing kind, counting from 1
    RunEnvironment faulty;
    faulty.writeFault = [&](WriteStep step, size_t) {
      return step == c.step && ++seen == c.n ? kInjected : kNoErr;
    };
    EXPECT_EQ(RunSource(dir, c.encrypt, faulty), c.status);
    EXPECT_GE(seen, c.n);  // the failure did happen
    EXPECT_TRUE(log.Contains(c.message)) << log.Text();
    EXPECT_FALSE(FileExists(dir / "prog_index.m3u8"));
    EXPECT_TRUE(FileExists(dir / "fileSequence0.webvtt"));  // finished before the failure
  }
}

TEST(WriteFailure, WithoutFaultsTheSameRunsSucceed) {
  for (bool encrypt : {false, true}) {
    ScratchDir dir;
    LogCapture log(0);
    EXPECT_EQ(RunSource(dir, encrypt), kNoErr);
    const std::string playlist = ReadFile(dir / "prog_index.m3u8");
    EXPECT_NE(playlist.find("fileSequence2.webvtt\n#EXT-X-ENDLIST\n"), std::string::npos);
  }
}

}  // namespace
