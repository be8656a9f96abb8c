// Black-box tests of the command line: exact standard output, standard error and exit status.
#include <gtest/gtest.h>

#include <cstring>

#include "driver/run_settings.h"
#include "test_support.h"

namespace {

const std::string& Usage() {
  static const std::string usage = ReadFile(HLSVTT_SOURCE_DIR "/tests/data/usage_hlsvtt.txt");
  return usage;
}

struct CliCase {
  std::vector<std::string> args;  // after argv[0], which is "hlsvtt"
  std::string out;
  std::string err;  // as expanded by Expand
  int status;
};

const char* const kBoth = "hlsvtt: -m and --timestamp-map-mpegts cannot be given together\nUSAGE";

// "USAGE" stands for the usage text.
std::string Expand(std::string text) {
  size_t at = text.find("USAGE");
  if (at != std::string::npos) text.replace(at, 5, Usage());
  return text;
}

TEST(CommandLine, ExactMessagesStreamsAndStatuses) {
  std::vector<CliCase> cases = {
      {{}, "", "USAGE", 0},
      {{"a.vtt", "b.vtt"}, "", "USAGE", 0},
      {{"-h", "-D", "0"}, "", "USAGE", 0},
      {{"--help"}, "", "USAGE", 0},
      {{"-v"}, "", "hlsvtt: Beta Version 1.1(140602)\n", 0},
      {{"-version"}, "", "hlsvtt: Beta Version 1.1(140602)\n", 0},
      {{"-D", "0", "x.vtt"}, "hlsvtt: illegal duration 0\n", "USAGE", 56},
      {{"-D", "-1", "x.vtt"}, "hlsvtt: illegal duration -1\n", "USAGE", 56},
      {{"-D", "4294967296", "x.vtt"}, "hlsvtt: illegal duration 4294967296\n", "USAGE", 56},
      {{"-t", "abc", "x.vtt"}, "hlsvtt: illegal target duration abc\n", "USAGE", 56},
      {{"--t=abc", "x.vtt"}, "hlsvtt: illegal target duration abc\n", "USAGE", 56},
      {{"-t=abc", "x.vtt"}, "hlsvtt: illegal target duration abc\n", "USAGE", 56},
      {{"-G", "x", "x.vtt"},
       "hlsvtt: illegal (non-integer) parameter passed to generate-key: x\n",
       "USAGE",
       56},
      {{"-N", "0", "x.vtt"}, "", "hlsvtt: illegal value of mbytes to change IV \"0\"\nUSAGE", 56},
      {{"-m", "zz", "x.vtt"}, "", "hlsvtt: illegal mpegts value zz\nUSAGE", 56},
      {{"-J", "foo", "x.vtt"}, "", "hlsvtt: illegal encrypt-iv foo\nUSAGE", 56},
      {{"-m", "0", "--timestamp-map-mpegts=0", "x.vtt"}, "", kBoth, 56},
      {{"-timestamp-map-mpegts", "0", "--mpegts-start-offset=0", "x.vtt"}, "", kBoth, 56},
      {{"--srt-markup=WebVTT", "x.srt"},
       "",
       "hlsvtt: illegal srt-markup WebVTT (the one value is webvtt)\nUSAGE",
       56},
      {{"-s", "-x", "x.vtt"},
       "",
       "hlsvtt: Syntax error in subtitle variant name argument '-x'\nUSAGE",
       56},
      {{"-f", "x/", "x.vtt"}, "", "hlsvtt: illegal filename - no argument specified\nUSAGE", 56},
      {{"-k", "", "x.vtt"}, "", "hlsvtt: illegal filename - no argument specified\nUSAGE", 56},
      {{"-b", "//", "x.vtt"}, "", "hlsvtt: illegal base url - no argument specified\nUSAGE", 56},
      {{"-K", "y", "x.vtt"}, "", "hlsvtt: illegal path - no argument specified\nUSAGE", 56},
      {{"-B", "_seq", "x.vtt"}, "", "hlsvtt: illegal characters in file name\nUSAGE", 56},
      {{"-s", "../x.m3u8", "x.vtt"}, "", "hlsvtt: illegal characters in file name\nUSAGE", 56},
      {{"-n", "a+b", "x.vtt"}, "", "hlsvtt: illegal characters in file name\nUSAGE", 56},
      {{"-n", "caf\xc3\xa9", "x.vtt"}, "", "hlsvtt: illegal characters in file name\nUSAGE", 56},
      {{"-x", "x.vtt"}, "", "hlsvtt: invalid option: -x\nUSAGE", 56},
      {{"--bogus=1", "x.vtt"}, "", "hlsvtt: invalid option: --bogus=1\nUSAGE", 56},
      {{"--source-encoding=klingon", "x.vtt"},
       "",
       "hlsvtt: unknown source encoding klingon (give auto or the name of an encoding, such as "
       "windows-1252)\nUSAGE",
       56},
      {{"x.vtt", "-t"}, "", "hlsvtt: option -t requires an argument\nUSAGE", 56},
      {{"x.vtt", "--duration"}, "", "hlsvtt: option --duration requires an argument\nUSAGE", 56},
      // The first failing option ends the run; -v after it is never reached.
      {{"-t", "q", "-N", "0", "-v"}, "hlsvtt: illegal target duration q\n", "USAGE", 56},
      // -v ends the run before a later bad option is examined.
      {{"-v", "-t", "q"}, "", "hlsvtt: Beta Version 1.1(140602)\n", 0},
      {{"-k", "/nonexistent/key", "x.vtt"}, "", "Can't find key path /nonexistent/key\n", 55},
  };
  // The timestamp map's value: 0 to 2^33 - 1 in digits only, never together with -m (above).
  for (std::string value : {"8589934592", "99999999999999999999999", "-1", "+5", " 5", "5x", ""})
    cases.push_back(
        {{"--timestamp-map-mpegts=" + value, "x.vtt"},
         "",
         "hlsvtt: illegal timestamp-map-mpegts value " + value + " (give 0 to 8589934591)\nUSAGE",
         56});
  for (const CliCase& c : cases) {
    std::vector<std::string> args{"hlsvtt"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = RunTool(args);
    std::string trace;
    for (const auto& a : c.args) trace += a + " ";
    SCOPED_TRACE(trace);
    EXPECT_EQ(r.out, Expand(c.out));
    EXPECT_EQ(r.err, Expand(c.err));
    EXPECT_EQ(r.status, c.status);
  }
}

TEST(CommandLine, KeyFileChecks) {
  ScratchDir dir;
  WriteFile(dir / "k16", std::string(16, 'k'));
  WriteFile(dir / "k5", "short");
  RunResult r = RunTool({"hlsvtt", "-P", "-k", dir / "k16", "x.vtt"});
  EXPECT_EQ(r.err, "key file size must be 32 - size is 16\n");
  EXPECT_EQ(r.status, 56);
  r = RunTool({"hlsvtt", "-k", dir / "k5", "x.vtt"});
  EXPECT_EQ(r.err, "key file size must be 16 - size is 5\n");
  EXPECT_EQ(r.status, 56);
  if (geteuid() != 0) {  // root can open anything
    RunShell("chmod 000 " + (dir / "k16"));
    r = RunTool({"hlsvtt", "-k", dir / "k16", "x.vtt"});
    EXPECT_EQ(r.err, "Couldn't open encrypt key file: " + (dir / "k16") + "\n");
    EXPECT_EQ(r.status, 55);
  }
}

TEST(CommandLine, QuietStillShowsErrorsWithTheirTimestamp) {
  RunResult r = RunTool({"hlsvtt", "-q", "/nonexistent/a.vtt"});
  EXPECT_TRUE(r.out.ends_with(": can't create byte stream /nonexistent/a.vtt 2\n")) << r.out;
  EXPECT_EQ(r.status, 2);
}

TEST(CommandLine, TrimTrailingSlashes) {
  struct Case {
    const char* in;
    bool ok;
    const char* out;
  } cases[] = {
      {"/", true, "/"},   {"out/", true, "out"}, {"ab/", true, "ab"}, {"out//x/", true, "out//x"},
      {"", false, ""},    {"x", false, "x"},     {"x/", false, "x"},  {"//", false, "/"},
      {"///", false, "/"}};
  for (const Case& c : cases) {
    char text[32];
    strcpy(text, c.in);
    EXPECT_EQ(TrimTrailingSlashes(text), c.ok) << c.in;
    EXPECT_STREQ(text, c.out) << c.in;
  }
}

}  // namespace
