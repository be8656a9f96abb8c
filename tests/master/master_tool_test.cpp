// hlsvtt-master end to end: media playlists made by hlsvtt from examples/sample.vtt, a movie's
// subtitle fragment written by hand, a master playlist with two variants; merged, read back by
// hls-parser, checked, damaged and checked again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "test_support.h"

namespace {

const std::string kFragment =
    "#EXTM3U\n"
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"English\",DEFAULT=YES,"
    "AUTOSELECT=YES,FORCED=NO,LANGUAGE=\"en\",URI=\"en2/prog_index.m3u8\"\n"
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"English (forced)\",DEFAULT=YES,"
    "AUTOSELECT=NO,FORCED=YES,LANGUAGE=\"en\",URI=\"en2-forced/prog_index.m3u8\"\n"
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"fr 3\",DEFAULT=YES,"
    "AUTOSELECT=YES,FORCED=NO,LANGUAGE=\"fr\",URI=\"fr3/prog_index.m3u8\"\n";

const std::string kMaster =
    "#EXTM3U\n"
    "#EXT-X-VERSION:3\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=800000,RESOLUTION=640x360,CODECS=\"avc1.4d401e,mp4a.40.2\"\n"
    "low/index.m3u8\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=2000000,RESOLUTION=1280x720,CODECS=\"avc1.4d401f,mp4a.40.2\"\n"
    "high/index.m3u8\n";

std::string operator/(const std::string& a, const std::string& b) {
  return a + "/" + b;
}

size_t Count(const std::string& text, const std::string& what) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) count++;
  return count;
}

// hls-parser, when installed, reads `master` and finds `renditions` subtitle renditions in it.
void ExpectClientsRead(const std::string& master, int renditions) {
  if (!FileExists(HLSVTT_SOURCE_DIR "/tests/clients/node_modules")) return;
  std::string output;
  EXPECT_EQ(RunShell("node '" HLSVTT_SOURCE_DIR "/tests/clients/check_master.js' '" + master +
                         "' subtitles " + std::to_string(renditions) + " 2>&1",
                     &output),
            0)
      << output;
}

class MasterToolTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* stream : {"en2", "en2-forced", "fr3"}) {
      ASSERT_EQ(RunShell("mkdir -p '" + dir_ / "movie" / stream + "'"), 0);
      RunResult run = RunTool({"hlsvtt", "-q", "-t", "10", "-f", dir_ / "movie" / stream,
                               HLSVTT_SOURCE_DIR "/examples/sample.vtt"});
      ASSERT_EQ(run.status, 0) << run.err;
    }
    WriteFile(dir_ / "movie/subtitle_media.m3u8", kFragment);
    ASSERT_EQ(RunShell("mkdir -p '" + dir_ / "video/low' '" + dir_ / "video/high'"), 0);
    WriteFile(dir_ / "video/master.m3u8", kMaster);
    WriteFile(dir_ / "video/low/index.m3u8", "");
    WriteFile(dir_ / "video/high/index.m3u8", "");
  }

  RunResult Run(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {"hlsvtt-master"};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunBinary(HLSVTT_MASTER_BINARY, argv, dir_.path());
  }

  ScratchDir dir_;
};

TEST_F(MasterToolTest, MergeIsReadByClientsAndCheckedCleanAfterConform) {
  // Written elsewhere, the master is left as it was.
  ASSERT_EQ(RunShell("mkdir -p '" + dir_ / "site'"), 0);
  RunResult merge = Run({"merge", "video/master.m3u8", "movie/subtitle_media.m3u8", "-o",
                         "site/all.m3u8", "--group", "subs", "--conform"});
  ASSERT_EQ(merge.status, 0) << merge.err;
  EXPECT_EQ(ReadFile(dir_ / "video/master.m3u8"), kMaster);
  std::string out = ReadFile(dir_ / "site/all.m3u8");
  EXPECT_NE(out.find("GROUP-ID=\"subs\",NAME=\"English\""), std::string::npos);
  EXPECT_NE(out.find("URI=\"../movie/fr3/prog_index.m3u8\""), std::string::npos);

  merge = Run({"merge", "video/master.m3u8", "movie/subtitle_media.m3u8"});
  ASSERT_EQ(merge.status, 0) << merge.err;
  // The two deliberate breaks are kept and reported: one forced default, two extra defaults.
  EXPECT_EQ(Count(merge.err, "hlsvtt-master: warning: movie/subtitle_media.m3u8:"), 3u)
      << merge.err;
  std::string merged = ReadFile(dir_ / "video/master.m3u8");
  EXPECT_NE(merged.find("URI=\"../movie/en2-forced/prog_index.m3u8\"\n"), std::string::npos);

  ExpectClientsRead(dir_ / "video/master.m3u8", 3);

  RunResult check = Run({"check", "video/master.m3u8", "--root", "."});
  EXPECT_EQ(check.status, 111);
  EXPECT_EQ(check.out,
            "video/master.m3u8:4: DEFAULT=YES needs AUTOSELECT=YES\n"
            "video/master.m3u8:4: a second DEFAULT=YES in group \"subtitles\" (the first is at "
            "video/master.m3u8:3)\n"
            "video/master.m3u8:5: a second DEFAULT=YES in group \"subtitles\" (the first is at "
            "video/master.m3u8:3)\n");

  RunResult conform = Run({"merge", "--conform", "video/master.m3u8", "movie/subtitle_media.m3u8"});
  ASSERT_EQ(conform.status, 0) << conform.err;
  EXPECT_NE(
      conform.err.find("changed movie/subtitle_media.m3u8:3 \"English (forced)\" to DEFAULT=NO"),
      std::string::npos)
      << conform.err;
  check = Run({"check", "video/master.m3u8", "--root", "."});
  EXPECT_EQ(check.status, 0) << check.out;
  EXPECT_EQ(check.out, "");
  EXPECT_EQ(ListDir(dir_ / "video"), (std::vector<std::string>{"high", "low", "master.m3u8"}));
}

TEST_F(MasterToolTest, AddedRenditionsAreReadByClientsAndCheckedClean) {
  // The media playlists of WebVTT sources, one added at a time; the group is made by the first.
  RunResult add = Run({"add", "video/master.m3u8", "movie/en2/prog_index.m3u8", "--language", "en",
                       "--name", "English", "--default", "--characteristics",
                       "public.accessibility.transcribes-spoken-dialog,"
                       "public.accessibility.describes-music-and-sound"});
  ASSERT_EQ(add.status, 0) << add.err;
  add = Run({"add", "video/master.m3u8", "movie/fr3/prog_index.m3u8", "--language=fr-CA",
             "--name=Fran\xC3\xA7"
             "ais",
             "--autoselect"});
  ASSERT_EQ(add.status, 0) << add.err;
  EXPECT_EQ(add.err, "");
  const std::string added = ReadFile(dir_ / "video/master.m3u8");
  EXPECT_NE(added.find("#EXT-X-VERSION:3\n"
                       "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"English\","
                       "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO,LANGUAGE=\"en\",CHARACTERISTICS="),
            std::string::npos)
      << added;
  EXPECT_NE(added.find("LANGUAGE=\"fr-CA\",URI=\"../movie/fr3/prog_index.m3u8\"\n"
                       "#EXT-X-STREAM-INF:"),
            std::string::npos)
      << added;
  ExpectClientsRead(dir_ / "video/master.m3u8", 2);
  RunResult check = Run({"check", "video/master.m3u8", "--root", "."});
  EXPECT_EQ(check.status, 0) << check.out;
  EXPECT_EQ(check.out, "");

  // Refusals of add, merge and check change nothing.
  const std::vector<std::string> addForced = {"add", "video/master.m3u8",
                                              "movie/en2-forced/prog_index.m3u8"};
  struct Case {
    std::vector<std::string> args;
    int status;
    const char* message;
  } cases[] = {
      {{"--language", "en", "--name", "English"},
       111,
       "hlsvtt-master: the added rendition: NAME \"English\" is already used in group "
       "\"subtitles\" at video/master.m3u8:3\nhlsvtt-master: nothing was written\n"},
      {{"--language", "en_GB", "--name", "British"},
       56,
       "hlsvtt-master: \"en_GB\" is not a well-formed language tag"},
      {{"--name", "British"}, 56, "hlsvtt-master: add needs --language and --name"},
      {{"add", "video/master.m3u8", "movie/subtitle_media.m3u8", "--language", "en", "--name",
        "All"},
       112,
       "hlsvtt-master: movie/subtitle_media.m3u8:2: not a media playlist (#EXT-X-MEDIA belongs "
       "in a master playlist)"},
      {{"add", "video/master.m3u8", "missing.m3u8", "--language", "en", "--name", "X"},
       2,
       "hlsvtt-master: cannot read"},
      {{"merge", "movie/en2/prog_index.m3u8", "movie/subtitle_media.m3u8"},
       112,
       "not a master playlist"},
      {{"merge", "video/master.m3u8", "missing.m3u8"}, 2, "cannot read missing.m3u8"},
      {{"merge", "video/master.m3u8"}, 56, "merge needs a master playlist and a fragment"},
      {{"merge", "video/master.m3u8", "movie/subtitle_media.m3u8", "--bogus"},
       56,
       "unknown option"},
      {{"check"}, 56, "check needs exactly one master playlist"},
      {{"frobnicate"}, 56, "unknown command frobnicate"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = c.args;
    if (args[0].starts_with("--")) args.insert(args.begin(), addForced.begin(), addForced.end());
    RunResult run = Run(args);
    EXPECT_EQ(run.status, c.status) << c.message;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
  }
  EXPECT_EQ(ReadFile(dir_ / "video/master.m3u8"), added);
  EXPECT_EQ(ListDir(dir_ / "video"), (std::vector<std::string>{"high", "low", "master.m3u8"}));
}

TEST_F(MasterToolTest, CheckFollowsUrisWithinItsTreeOnly) {
  // Without --root the tree is the master's directory: the movie beside it is named, not read.
  ASSERT_EQ(Run({"merge", "--conform", "video/master.m3u8", "movie/subtitle_media.m3u8"}).status,
            0);
  RunResult check = Run({"check", "video/master.m3u8"});
  EXPECT_EQ(check.status, 111);
  EXPECT_EQ(Count(check.out, "URI \"../movie/"), 3u) << check.out;
  EXPECT_NE(check.out.find("video/master.m3u8:3: URI \"../movie/en2/prog_index.m3u8\" leads "
                           "outside video; not read\n"),
            std::string::npos)
      << check.out;

  // With the root above both, playlists and segments are followed and read.
  ASSERT_EQ(unlink((dir_ / "movie/fr3/fileSequence1.webvtt").c_str()), 0);
  ASSERT_EQ(unlink((dir_ / "video/high/index.m3u8").c_str()), 0);
  WriteFile(dir_ / "movie/en2/fileSequence2.webvtt",
            "WEBVTT\n\n00:00:21.000 --> 00:00:24.000\nx\n");
  check = Run({"check", "video/master.m3u8", "--root", "."});
  EXPECT_EQ(check.status, 111);
  EXPECT_EQ(check.out,
            "movie/en2/fileSequence2.webvtt:1: no X-TIMESTAMP-MAP in the segment header\n"
            "movie/fr3/prog_index.m3u8:9: URI \"fileSequence1.webvtt\" does not resolve "
            "(movie/fr3/fileSequence1.webvtt: No such file or directory)\n"
            "video/master.m3u8:9: URI \"high/index.m3u8\" does not resolve "
            "(video/high/index.m3u8: No such file or directory)\n");

  // A hostile tree: `..`, an escaped `..`, links out of the tree (to a playlist, to a
  // directory, from a segment) and names the check cannot look at.
  WriteFile(dir_ / "private.txt", "PRIVATE DATA\n");
  ASSERT_EQ(RunShell("cd '" + dir_.path() +
                     "' && mkdir -p site/subs && ln -s ../private.txt site/link.m3u8 && ln -s .. "
                     "site/up && ln -s ../../private.txt site/subs/seg.webvtt"),
            0);
  WriteFile(dir_ / "site/subs/index.m3u8",
            "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nseg.webvtt\n#EXT-X-ENDLIST\n");
  std::string master = "#EXTM3U\n";
  const char* uris[] = {"../private.txt", "subs/../../private.txt", "%2E%2E/private.txt",
                        "link.m3u8",      "up/private.txt",         "subs/index.m3u8",
                        "/etc/passwd",    "file:///etc/passwd"};
  for (const char* uri : uris)
    master += "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"" + std::string(uri) +
              "\",URI=\"" + uri + "\"\n";
  WriteFile(dir_ / "site/master.m3u8",
            master + "#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"s\"\nv.m3u8\n");
  WriteFile(dir_ / "site/v.m3u8", "");
  check = Run({"check", "site/master.m3u8"});
  EXPECT_EQ(check.status, 111);
  EXPECT_EQ(check.out,
            "site/master.m3u8:2: URI \"../private.txt\" leads outside site; not read\n"
            "site/master.m3u8:3: URI \"subs/../../private.txt\" leads outside site; not read\n"
            "site/master.m3u8:4: URI \"%2E%2E/private.txt\" leads outside site; not read\n"
            "site/master.m3u8:5: URI \"link.m3u8\" leads outside site through a link "
            "(site/link.m3u8); not read\n"
            "site/master.m3u8:6: URI \"up/private.txt\" leads outside site through a link "
            "(site/up/private.txt); not read\n"
            "site/subs/index.m3u8:4: URI \"seg.webvtt\" leads outside site through a link "
            "(site/subs/seg.webvtt); not read\n");
  EXPECT_EQ(check.err,
            "hlsvtt-master: site/master.m3u8:8: URI \"/etc/passwd\" is not a local file; not "
            "checked\n"
            "hlsvtt-master: site/master.m3u8:9: URI \"file:///etc/passwd\" is not a local file; "
            "not checked\n");
}

TEST_F(MasterToolTest, MergeInPlaceKeepsALinkAndLeavesNoTemporaryFile) {
  // A master that is a link: the file it leads to is merged, the link stays.
  ASSERT_EQ(RunShell("cd '" + dir_.path() +
                     "' && mkdir store && mv video/master.m3u8 store/ && ln -s "
                     "../store/master.m3u8 video/master.m3u8"),
            0);
  RunResult merge = Run({"merge", "video/master.m3u8", "movie/subtitle_media.m3u8"});
  ASSERT_EQ(merge.status, 0) << merge.err;
  struct stat st;
  ASSERT_EQ(lstat((dir_ / "video/master.m3u8").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_NE(ReadFile(dir_ / "store/master.m3u8").find("URI=\"../movie/fr3/prog_index.m3u8\""),
            std::string::npos);
  EXPECT_EQ(ListDir(dir_ / "store"), std::vector<std::string>{"master.m3u8"});

  // Past a file-size limit the write fails, is reported, and the master is left as it was.
  WriteFile(dir_ / "video/big.m3u8", kMaster + "# " + std::string(4000, 'x') + "\n");
  std::string out;
  EXPECT_NE(RunShell("cd '" + dir_.path() +
                         "' && ulimit -f 4 && '" HLSVTT_MASTER_BINARY
                         "' merge video/big.m3u8 movie/subtitle_media.m3u8 2>&1",
                     &out),
            0);
  EXPECT_NE(out.find("hlsvtt-master: cannot write video/big.m3u8: File too large"),
            std::string::npos)
      << out;
  EXPECT_EQ(ReadFile(dir_ / "video/big.m3u8").size(), kMaster.size() + 4003);
  EXPECT_EQ(ListDir(dir_ / "video"),
            (std::vector<std::string>{"big.m3u8", "high", "low", "master.m3u8"}));
}

TEST_F(MasterToolTest, AnInterruptedMergeLeavesNoTemporaryFile) {
  // A master of some 20 MB keeps the temporary file around long enough to interrupt.
  std::string big = kMaster;
  for (int i = 0; i < 200000; i++) big += "# " + std::string(98, 'c') + "\n";
  WriteFile(dir_ / "video/master.m3u8", big);
  int watch = inotify_init1(IN_CLOEXEC);
  ASSERT_GE(watch, 0);
  ASSERT_GE(inotify_add_watch(watch, (dir_ / "video").c_str(), IN_CREATE), 0);
  pid_t pid = fork();
  if (pid == 0) {
    int quiet = open("/dev/null", O_WRONLY);
    if (chdir(dir_.path().c_str()) == 0 && dup2(quiet, STDERR_FILENO) >= 0)
      execl(HLSVTT_MASTER_BINARY, "hlsvtt-master", "merge", "video/master.m3u8",
            "movie/subtitle_media.m3u8", nullptr);
    _exit(127);
  }
  // Interrupt as soon as the temporary file appears.
  pollfd ready = {watch, POLLIN, 0};
  EXPECT_EQ(poll(&ready, 1, 20000), 1);
  kill(pid, SIGINT);
  close(watch);
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  ASSERT_TRUE(WIFEXITED(wstatus)) << "ended by signal " << WTERMSIG(wstatus);
  EXPECT_EQ(WEXITSTATUS(wstatus), 128 + SIGINT);
  EXPECT_EQ(ReadFile(dir_ / "video/master.m3u8"), big);
  EXPECT_EQ(ListDir(dir_ / "video"), (std::vector<std::string>{"high", "low", "master.m3u8"}));
}

}  // namespace
