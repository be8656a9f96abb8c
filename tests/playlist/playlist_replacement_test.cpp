// The finished playlist reaches the disk whole or not at all: written beside its name and
// renamed over it, every failure reported with a non-zero status.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "common/incomplete_files.h"
#include "playlist/file_replacement.h"
#include "test_support.h"

namespace {

// `count` one-second segments of one cue each.
std::string Source(int count) {
  std::string text = "WEBVTT\n\n";
  char line[64];
  for (int i = 0; i < count; i++) {
    snprintf(line, sizeof line, "%02d:%02d:%02d.000 --> %02d:%02d:%02d.500\nc\n\n", i / 3600,
             i / 60 % 60, i % 60, i / 3600, i / 60 % 60, i % 60);
    text += line;
  }
  return text;
}

std::string Shell(const std::string& command, int* status) {
  std::string out;
  *status = RunShell(command + " 2>&1", &out);
  return out;
}

// A complete playlist: from the header to exactly one end line, every entry a file on disk.
void ExpectCompletePlaylist(const std::string& dir, int entries) {
  const std::string text = ReadFile(dir + "/prog_index.m3u8");
  EXPECT_TRUE(text.starts_with("#EXTM3U\n#EXT-X-TARGETDURATION:")) << text;
  EXPECT_TRUE(text.ends_with(".webvtt\n#EXT-X-ENDLIST\n")) << text;
  EXPECT_EQ(text.find("#EXT-X-ENDLIST"), text.size() - 15);
  int listed = 0;
  for (size_t at = 0; (at = text.find("\nfileSequence", at)) != std::string::npos; listed++) {
    const size_t end = text.find('\n', at + 1);
    EXPECT_TRUE(FileExists(dir + "/" + text.substr(at + 1, end - at - 1)));
    at = end;
  }
  EXPECT_EQ(listed, entries);
}

TEST(PlaylistReplacement, AFailedPlaylistWriteFailsTheRun) {
  struct Case {
    const char* name;
    std::string setup;  // shell commands run in the output directory first
    std::string limit;  // prefix of the tool's command line
    std::string message;
    bool leavesPlaylistPath;
  } cases[] = {
      // 2000 entries make a playlist far beyond 8 KiB; each segment stays below it.
      {"file-size limit", "", "ulimit -f 8; ", "cannot write playlist", false},
      {"a directory at the playlist name", "mkdir prog_index.m3u8", "", "cannot rename playlist",
       true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ScratchDir dir;
    WriteFile(dir / "in.vtt", Source(2000));
    RunShell("mkdir '" + (dir / "out") + "' && cd '" + (dir / "out") + "'" +
             (c.setup.empty() ? "" : " && " + c.setup));
    int status = 0;
    const std::string out = Shell(c.limit + "'" + ToolPath() + "' -q -t 1 -f '" + (dir / "out") +
                                      "' '" + (dir / "in.vtt") + "'",
                                  &status);
    EXPECT_NE(status, 0);
    EXPECT_NE(out.find(c.message), std::string::npos) << out;
    EXPECT_EQ(FileExists(dir / "out/prog_index.m3u8"), c.leavesPlaylistPath);
    for (const std::string& name : ListDir(dir / "out")) {
      EXPECT_TRUE(name == "prog_index.m3u8" || name.ends_with(".webvtt")) << name;
    }
  }
}

TEST(PlaylistReplacement, TwoRunsIntoOneDirectoryLeaveOneCompletePlaylist) {
  ScratchDir dir;
  WriteFile(dir / "in.vtt", Source(1500));
  RunShell("mkdir '" + (dir / "out") + "'");
  const std::string run =
      "'" + ToolPath() + "' -q -t 1 -f '" + (dir / "out") + "' '" + (dir / "in.vtt") + "'";
  int status = 0;
  const std::string out =
      Shell("(" + run + ") & a=$!; (" + run + ") & b=$!; wait $a && wait $b", &status);
  EXPECT_EQ(status, 0) << out;
  // Segment names never collide, so the two runs wrote 3000 segments; the playlist is the one of
  // the run that finished last, whole.
  EXPECT_EQ(ListDir(dir / "out").size(), 3001u);
  ExpectCompletePlaylist(dir / "out", 1500);
}

// Interrupted half-way, a replacement leaves the old file as it was and no temporary file.
TEST(PlaylistReplacement, AnInterruptedReplacementLeavesTheOldFile) {
  ScratchDir dir;
  const std::string path = dir / "list.m3u8";
  WriteFile(path, "old\n");
  const pid_t pid = fork();
  if (pid == 0) {
    InstallInterruptCleanup();
    const Status status = ReplaceFileWithText(path.c_str(), "playlist", [](FILE* file) {
      fputs("half", file);
      fflush(file);
      raise(SIGINT);
    });
    _exit(status == kNoErr ? 0 : 1);
  }
  int wstatus = 0;
  ASSERT_EQ(waitpid(pid, &wstatus, 0), pid);
  ASSERT_TRUE(WIFEXITED(wstatus));
  EXPECT_EQ(WEXITSTATUS(wstatus), 128 + SIGINT);
  EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"list.m3u8"});
  EXPECT_EQ(ReadFile(path), "old\n");
}

}  // namespace
