// A segment that fails part-way (a write, an encryptor step, or the key file a rotation needs)
// ends the run: the failure is reported, the run's status is non-zero and no playlist is left
// that would look complete. Without faults the same runs succeed, their key files readable by
// their owner alone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "driver/cue_scheduler.h"
#include "log_capture.h"
#include "segments/chunk_file.h"
#include "test_support.h"

namespace {

constexpr Status kInjected = kErrCryptor;

// Three 10-second segments of two cues each, into `dir`; encrypted with keys generated into
// `keys` and a new key every `rotation` segments when `keys` is not empty.
Status RunSource(const std::string& dir, const std::string& keys = "", uint32_t rotation = 0,
                 const RunEnvironment& environment = {}) {
  RunSettings settings;
  settings.targetDuration = 10;
  settings.fileBase = dir.c_str();
  if (!keys.empty()) settings.encryptKeyFile = keys.c_str();
  settings.keyRotationPeriod = rotation;
  MxByteStreamRef stream = MemoryStream(
      "WEBVTT\n\n00:01.000 --> 00:02.000\na\n\n00:03.000 --> 00:04.000\nb\n\n"
      "00:11.000 --> 00:12.000\nc\n\n00:13.000 --> 00:14.000\nd\n\n"
      "00:21.000 --> 00:22.000\ne\n\n00:23.000 --> 00:24.000\nf\n\n");
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
    EXPECT_EQ(RunSource(dir.path(), c.encrypt ? dir.path() : "", 0, faulty), c.status);
    EXPECT_GE(seen, c.n);  // the failure did happen
    EXPECT_TRUE(log.Contains(c.message)) << log.Text();
    EXPECT_FALSE(FileExists(dir / "prog_index.m3u8"));
    EXPECT_TRUE(FileExists(dir / "fileSequence0.webvtt"));  // finished before the failure
  }
}

TEST(WriteFailure, ARotationThatCannotWriteItsKeyEndsTheStream) {
  ScratchDir out, keys;
  const std::string keyDir = keys / "k";
  ASSERT_EQ(RunShell("mkdir '" + keyDir + "'"), 0);
  LogCapture log(0);
  // Once the first segment is being written, its key exists; then the key directory goes away,
  // so that the next key file cannot be created (as on a full disk).
  bool gone = false;
  RunEnvironment environment;
  environment.writeFault = [&](WriteStep step, size_t) -> Status {
    if (step == WriteStep::kWrite && !gone) {
      gone = rename(keyDir.c_str(), (keys / "away").c_str()) == 0;
    }
    return kNoErr;
  };
  const Status status = RunSource(out.path(), keyDir, 1, environment);
  ASSERT_TRUE(gone);
  EXPECT_EQ(status, ENOENT);
  EXPECT_TRUE(log.Contains("Error 2 generating new crypt key")) << log.Text();
  EXPECT_FALSE(FileExists(out / "prog_index.m3u8"));
  // Only the first segment was finished, with the one key that was made.
  EXPECT_EQ(ListDir(out.path()), (std::vector<std::string>{"fileSequence0.webvtt"}));
  EXPECT_EQ(ListDir(keys / "away"), (std::vector<std::string>{"crypt0.key"}));
}

TEST(WriteFailure, WithoutFaultsTheSameRunsSucceed) {
  for (uint32_t rotation : {0u, 1u}) {
    ScratchDir dir, keys;
    LogCapture log(0);
    EXPECT_EQ(RunSource(dir.path()), kNoErr);
    EXPECT_EQ(RunSource(keys.path(), keys.path(), rotation), kNoErr);
    for (const ScratchDir* out : {&dir, &keys}) {
      const std::string playlist = ReadFile(*out / "prog_index.m3u8");
      EXPECT_NE(playlist.find("fileSequence2.webvtt\n#EXT-X-ENDLIST\n"), std::string::npos);
    }
    // Every generated key file, one per segment when rotated, is its owner's alone.
    std::vector<std::string> keyFiles;
    for (const std::string& name : ListDir(keys.path())) {
      if (!name.ends_with(".key")) continue;
      keyFiles.push_back(name);
      struct stat st;
      ASSERT_EQ(stat((keys / name).c_str(), &st), 0);
      EXPECT_EQ(st.st_mode & 0777, 0600u) << name;
    }
    EXPECT_EQ(keyFiles.size(), rotation == 0 ? 1u : 3u);
  }
}

}  // namespace
