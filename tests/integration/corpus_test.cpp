// Every corpus source through the tool: the run ends with success or "not parsable", never a
// crash, and a run that fails leaves nothing behind. A sample of files is checked against
// cues written out by hand from the files themselves. (The real-client check compares every
// file the W3C parser accepts with that parser's cues.)
#include <gtest/gtest.h>
#include <strings.h>

#include <filesystem>

#include "test_support.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> CorpusSources() {
  std::vector<std::string> files;
  for (const auto& e : fs::recursive_directory_iterator(kCorpusDir)) {
    std::string ext = e.path().extension().string();
    if (e.is_regular_file() &&
        (strcasecmp(ext.c_str(), ".vtt") == 0 || strcasecmp(ext.c_str(), ".srt") == 0))
      files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string Segments(const ScratchDir& out) {
  std::string text;
  for (const std::string& name : ListDir(out.path()))
    if (name.ends_with(".webvtt")) text += ReadFile(out / name);
  return text;
}

TEST(Corpus, EverySourceEndsCleanly) {
  SKIP_WITHOUT_CORPUS();
  auto sources = CorpusSources();
  ASSERT_FALSE(sources.empty()) << "no sources in " << kCorpusDir;
  for (const std::string& source : sources) {
    SCOPED_TRACE(source);
    ScratchDir out;
    RunResult r = RunTool({"hlsvtt", "-q", "-t", "10", "-f", out.path(), source});
    ASSERT_TRUE(r.status == 0 || r.status == 47) << r.status << r.out << r.err;
    if (r.status == 47) {
      EXPECT_TRUE(ListDir(out.path()).empty());
    }
  }
}

TEST(Corpus, SampleFilesGiveTheirCues) {
  SKIP_WITHOUT_CORPUS();
  const std::string c1 = "00:00:00.500 --> 00:00:07.000\nCaption text #1\n\n";
  const std::string c2 = "00:00:07.000 --> 00:00:11.890\nCaption text #2\n\n";
  const std::string c3 = "00:00:11.890 --> 00:00:16.320\nCaption text #3\n\n";
  const std::string c4 = "00:00:16.320 --> 00:00:21.580\nCaption text #4\n\n";
  const std::string c5 = "00:00:21.580 --> 00:00:23.880\nCaption text #5\n\n";
  struct Case {
    const char* file;
    std::vector<std::string> present;
    std::vector<std::string> absent;
  } cases[] = {
      // BOM before the signature; the last cue ends the file without a line break.
      {"webvtt-py/captions_with_bom.vtt", {c1, c2, c3, c4}, {}},
      // SRT numbers are identifiers; an empty payload drops its cue.
      {"webvtt-py/missing_caption_text.srt",
       {"1\n" + c1, "3\n" + c3, "4\n" + c4, "5\n" + c5},
       {"00:00:07.000 --> 00:00:11.890"}},
      // A "." in an SRT time is malformed: that cue alone is dropped.
      {"webvtt-py/invalid_timeframe.srt",
       {"1\n" + c1, "3\n" + c3, "4\n" + c4, "5\n" + c5},
       {"Caption text #2"}},
      {"webvtt-py/using_identifiers.vtt",
       {c1, "\nsecond caption\n" + c2, c3, "\n4\n" + c4, c5,
        "00:00:23.880 --> 00:00:27.280\nCaption text #6\n\n"},
       {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    ScratchDir out;
    RunResult r = RunTool(
        {"hlsvtt", "-q", "-t", "10", "-f", out.path(), std::string(kCorpusDir) + "/" + c.file});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const std::string segments = Segments(out);
    for (const std::string& cue : c.present)
      EXPECT_NE(segments.find(cue), std::string::npos) << cue;
    for (const std::string& text : c.absent) EXPECT_EQ(segments.find(text), std::string::npos);
  }
}

}  // namespace
