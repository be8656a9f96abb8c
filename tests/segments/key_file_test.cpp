// Generated keys: files only their owner can read, and a rotation that cannot write its key
// file ends the stream instead of going on with the previous key.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "driver/cue_scheduler.h"
#include "log_capture.h"
#include "segments/chunk_file.h"
#include "test_support.h"

namespace {

// Six 10-second segments of one cue each.
const std::string kSource =
    "WEBVTT\n\n00:01.000 --> 00:02.000\na\n\n00:11.000 --> 00:12.000\nb\n\n"
    "00:21.000 --> 00:22.000\nc\n\n00:31.000 --> 00:32.000\nd\n\n"
    "00:41.000 --> 00:42.000\ne\n\n00:51.000 --> 00:52.000\nf\n\n";

Status RunRotating(const ScratchDir& out, const std::string& keys,
                   const RunEnvironment& environment = {}) {
  RunSettings settings;
  settings.targetDuration = 10;
  settings.fileBase = out.path().c_str();
  settings.encryptKeyFile = keys.c_str();
  settings.keyRotationPeriod = 1;  // a new key for every segment
  MxByteStreamRef stream = MemoryStream(kSource);
  return RunWebVTTSource(settings, environment, stream.get());
}

TEST(KeyFiles, RotationWritesOwnerOnlyKeyFiles) {
  ScratchDir out, keys;
  LogCapture log(0);
  ASSERT_EQ(RunRotating(out, keys.path()), kNoErr);
  EXPECT_EQ(ListDir(keys.path()).size(), 6u);
  for (const std::string& name : ListDir(keys.path())) {
    struct stat st;
    ASSERT_EQ(stat((keys / name).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << name;
  }
}

TEST(KeyFiles, ARotationThatCannotWriteItsKeyEndsTheStream) {
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
  const Status status = RunRotating(out, keyDir, environment);
  ASSERT_TRUE(gone);
  EXPECT_EQ(status, ENOENT);
  EXPECT_TRUE(log.Contains("Error 2 generating new crypt key")) << log.Text();
  EXPECT_FALSE(FileExists(out / "prog_index.m3u8"));
  // Only the first segment was finished, with the one key that was made.
  EXPECT_EQ(ListDir(out.path()), (std::vector<std::string>{"fileSequence0.webvtt"}));
  EXPECT_EQ(ListDir(keys / "away"), (std::vector<std::string>{"crypt0.key"}));
}

}  // namespace
