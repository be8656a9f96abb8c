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
  std::string err;
  int status;
};

using Refusal = std::pair<std::vector<std::string>, std::string>;  // options, message

std::vector<std::string> Plus(std::vector<std::string> list, const std::string& last) {
  list.push_back(last);
  return list;
}

TEST(CommandLine, ExactMessagesStreamsAndStatuses) {
  const std::string version = "hlsvtt: Beta Version 1.1(140602)\n";
  std::vector<CliCase> cases = {
      {{}, "", Usage(), 0},
      {{"a.vtt", "b.vtt"}, "", Usage(), 0},
      {{"-h", "-D", "0"}, "", Usage(), 0},
      {{"--help"}, "", Usage(), 0},
      {{"-v"}, "", version, 0},
      {{"-version"}, "", version, 0},
      // -v ends the run before a later bad option is examined.
      {{"-v", "-t", "q"}, "", version, 0},
      // The first failing option ends the run; -v after it is never reached.
      {{"-t", "q", "-N", "0", "-v"}, "hlsvtt: illegal target duration q\n", Usage(), 56},
      {{"-k", "/nonexistent/key", "x.vtt"}, "", "Can't find key path /nonexistent/key\n", 55},
      {{"x.vtt", "-t"}, "", "hlsvtt: option -t requires an argument\n" + Usage(), 56},
      {{"x.vtt", "--duration"},
       "",
       "hlsvtt: option --duration requires an argument\n" + Usage(),
       56},
  };
  // Refused with status 56 and the usage on standard error, given with a source x.vtt. Bad numbers
  // of the durations and keys put their message on standard output.
  const Refusal onOutput[] = {
      {{"-D", "0"}, "illegal duration 0"},
      {{"-D", "-1"}, "illegal duration -1"},
      {{"-D", "4294967296"}, "illegal duration 4294967296"},
      {{"-t", "abc"}, "illegal target duration abc"},
      {{"--t=abc"}, "illegal target duration abc"},
      {{"-t=abc"}, "illegal target duration abc"},
      {{"-G", "x"}, "illegal (non-integer) parameter passed to generate-key: x"},
  };
  const std::string both = "-m and --timestamp-map-mpegts cannot be given together";
  std::vector<Refusal> onError = {
      {{"-N", "0"}, "illegal value of mbytes to change IV \"0\""},
      {{"-m", "zz"}, "illegal mpegts value zz"},
      {{"-J", "foo"}, "illegal encrypt-iv foo"},
      {{"-m", "0", "--timestamp-map-mpegts=0"}, both},
      {{"-timestamp-map-mpegts", "0", "--mpegts-start-offset=0"}, both},
      {{"--srt-markup=WebVTT"}, "illegal srt-markup WebVTT (the one value is webvtt)"},
      {{"-s", "-x"}, "Syntax error in subtitle variant name argument '-x'"},
      {{"-f", "x/"}, "illegal filename - no argument specified"},
      {{"-k", ""}, "illegal filename - no argument specified"},
      {{"-b", "//"}, "illegal base url - no argument specified"},
      {{"-K", "y"}, "illegal path - no argument specified"},
      {{"-B", "_seq"}, "illegal characters in file name"},
      {{"-s", "../x.m3u8"}, "illegal characters in file name"},
      {{"-n", "a+b"}, "illegal characters in file name"},
      {{"-n", "caf\xc3\xa9"}, "illegal characters in file name"},
      {{"-x"}, "invalid option: -x"},
      {{"--bogus=1"}, "invalid option: --bogus=1"},
      {{"--source-encoding=klingon"},
       "unknown source encoding klingon (give auto or the name of an encoding, such as "
       "windows-1252)"},
  };
  // The timestamp map's value: 0 to 2^33 - 1 in digits only, never together with -m (above).
  for (std::string value : {"8589934592", "99999999999999999999999", "-1", "+5", " 5", "5x", ""})
    onError.push_back({{"--timestamp-map-mpegts=" + value},
                       "illegal timestamp-map-mpegts value " + value + " (give 0 to 8589934591)"});
  for (const auto& [args, message] : onOutput)
    cases.push_back({Plus(args, "x.vtt"), "hlsvtt: " + message + "\n", Usage(), 56});
  for (const auto& [args, message] : onError)
    cases.push_back({Plus(args, "x.vtt"), "", "hlsvtt: " + message + "\n" + Usage(), 56});
  for (const CliCase& c : cases) {
    std::vector<std::string> args{"hlsvtt"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = RunTool(args);
    std::string trace;
    for (const auto& a : c.args) trace += a + " ";
    SCOPED_TRACE(trace);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
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
