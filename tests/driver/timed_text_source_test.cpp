// End-to-end runs of timed-text (TTML) sources: the segments, playlists and key files are those
// of a WebVTT source holding the same cues (in time order, whatever the document's order), under
// any options; other documents are refused.
#include <gtest/gtest.h>

#include "test_support.h"

namespace {

const char* kTimedText =
    "<?xml version='1.0' encoding='UTF-8'?>\n"
    "<tt xmlns='http://www.w3.org/ns/ttml' xmlns:tts='http://www.w3.org/ns/ttml#styling'"
    " xmlns:ttp='http://www.w3.org/ns/ttml#parameter' ttp:frameRate='25'>\n"
    "<head><styling><style xml:id='s1' tts:fontStyle='italic'/></styling><layout><region"
    " xml:id='r' tts:origin='10% 10%' tts:extent='80% 80%' tts:displayAlign='after'/></layout>"
    "</head>\n"
    "<body><div>\n"
    "<p begin='00:00:01.000' end='00:00:03:00' region='r' tts:textAlign='center'>Hello &amp; <span "
    "style='s1'>welcome</span></p>\n"
    "<p begin='10s' end='12s'>at ten <span begin='1s'>and more</span></p>\n"
    "<p begin='8s' end='32s'>long<br/>two lines</p>\n"
    "</div></body></tt>\n";

const char* kSameCues =
    "WEBVTT\n\n00:01.000 --> 00:03.000 line:90%,end position:10%,line-left size:80% "
    "align:center\nHello &amp; <i>welcome</i>\n\n"
    "00:08.000 --> 00:32.000\nlong\ntwo lines\n\n00:10.000 --> 00:11.000\nat ten\n\n"
    "00:11.000 --> 00:12.000\nat ten and more\n\n";

// Runs the tool on `source` saved as `name` in `dir`, output in `dir`/out.
RunResult RunOn(const ScratchDir& dir, const std::string& name, const std::string& source,
                std::vector<std::string> options) {
  WriteFile(dir / name, source);
  RunShell("mkdir -p " + (dir / "out"));
  std::vector<std::string> args{"hlsvtt", "-q", "-f", dir / "out"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(dir / name);
  return RunTool(args);
}

TEST(TimedTextSource, SameOutputAsTheSameCuesFromWebVTT) {
  const std::vector<std::vector<std::string>> optionSets = {
      {"-t", "10"},
      {"-t", "4", "-D", "60", "-m", "12345", "-B", "part", "-i", "list.m3u8"},
      {"-t", "10", "--timestamp-map-mpegts=8589934591"},
      {"-t", "10", "-k", "KEY", "-K", "https://example.com/key", "-J", "sequence"},
  };
  for (const char* name : {"in.ttml", "in.DFXP", "in.xml"}) {
    for (std::vector<std::string> options : optionSets) {
      SCOPED_TRACE(std::string(name) + " " + options[1] + " " + std::to_string(options.size()));
      ScratchDir ttml, vtt;
      std::vector<std::string> vttOptions = options;
      for (size_t i = 0; i < options.size(); ++i) {
        if (options[i] != "KEY") continue;
        WriteFile(options[i] = ttml / "key", "0123456789abcdef");
        WriteFile(vttOptions[i] = vtt / "key", "0123456789abcdef");
      }
      RunResult fromTimedText = RunOn(ttml, name, kTimedText, options);
      RunResult fromWebVTT = RunOn(vtt, "in.vtt", kSameCues, vttOptions);
      ASSERT_EQ(fromTimedText.status, 0) << fromTimedText.err;
      ASSERT_EQ(fromWebVTT.status, 0) << fromWebVTT.err;
      std::vector<std::string> files = ListDir(vtt / "out");
      ASSERT_EQ(ListDir(ttml / "out"), files);
      for (const std::string& file : files) {
        EXPECT_EQ(ReadFile(ttml / "out/" + file), ReadFile(vtt / "out/" + file)) << file;
      }
    }
  }
}

TEST(TimedTextSource, TextWithoutAnEndIsShownUntilTheLastTimeWithAWarning) {
  ScratchDir dir;
  RunResult result =
      RunOn(dir, "in.ttml",
            "<tt xmlns='http://www.w3.org/ns/ttml'><body><div><p begin='1s'>a</p><p begin='2s'>b"
            "</p><p begin='3s' end='4.5s'>c</p></div></body></tt>",
            {"-t", "10"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("in.ttml: 2 paragraphs shown without an end, ended at 00:00:04.500 "
                            "(the last time in the document)"),
            std::string::npos)
      << result.out;
  EXPECT_NE(ReadFile(dir / "out/fileSequence0.webvtt")
                .find("00:00:01.000 --> 00:00:04.500\na\n\n00:00:02.000 --> 00:00:04.500\nb\n\n"),
            std::string::npos);
}

TEST(TimedTextSource, RefusedSourcesLeaveNothingBehind) {
  struct Case {
    const char* name;
    std::string source;
    int status;
    const char* message;  // part of standard error
  };
  const Case cases[] = {
      {"in.xml", "<?xml version='1.0'?><html><body/></html>", 209, "can't create format reader"},
      {"in.ttml", "", 209, "can't create format reader"},
      {"in.ttml", std::string(kTimedText).replace(std::string(kTimedText).find("</span>"), 7, ""),
       47, "in.ttml:5: mismatched tag"},
      {"in.ttml", std::string(kTimedText).replace(std::string(kTimedText).find("8s"), 2, "8x"), 47,
       "the p element has a begin time \"8x\" that cannot be resolved"},
      {"in.ttml",
       "<!DOCTYPE tt>\n<tt xmlns='http://www.w3.org/ns/ttml'><body><p begin='1s' end='2s'>x</p>"
       "</body></tt>",
       47, "in.ttml:1: a document type declaration is not accepted"},
      {"in.xml", "<!DOCTYPE html>\n<html/>", 209, "can't create format reader"},
      {"in.dfxp",
       "<tt xmlns='http://www.w3.org/ns/ttml'><body><div><p begin='4294967296s' "
       "end='4294967297s'>x</p></div></body></tt>",
       47, "a cue ends after 4294967295 seconds"},
  };
  for (const Case& c : cases) {
    ScratchDir dir;
    RunResult result = RunOn(dir, c.name, c.source, {"-t", "10"});
    EXPECT_EQ(result.status, c.status) << c.message;
    EXPECT_NE((result.out + result.err).find(c.message), std::string::npos) << result.out;
    EXPECT_EQ(ListDir(dir / "out"), std::vector<std::string>{}) << c.message;
  }
}

}  // namespace
