// Sources that are not UTF-8, run through the tool: the warning by default, conversion with
// --source-encoding, and output identical to that of the same source in UTF-8.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include "test_support.h"

namespace {

// An SRT source with one cue per line of a text from tests/data/encodings.
std::string SrtOf(const std::string& name) {
  std::istringstream lines(ReadFile(HLSVTT_SOURCE_DIR "/tests/data/encodings/" + name + ".txt"));
  std::string srt, line;
  for (int i = 1; std::getline(lines, line); i++) {
    char timing[64];
    snprintf(timing, sizeof timing, "\n00:00:%02d,000 --> 00:00:%02d,500\n", i * 3, i * 3 + 2);
    srt += std::to_string(i) + timing + line + "\n\n";
  }
  return srt;
}

struct Outcome {
  RunResult run;
  std::string source;  // its path
  std::string files;   // every output file, name and contents
};

Outcome Segment(const std::string& source, std::vector<std::string> options = {}) {
  options.insert(options.begin(), {"-q", "-t", "10"});
  SourceRun run(source, options, "in.srt");
  Outcome o{run.result, run.dir / "in.srt", ""};
  for (const std::string& file : run.Files()) o.files += file + "\n" + run.Out(file);
  return o;
}

TEST(SourceEncoding, ConvertedSourcesSegmentLikeTheirUTF8Original) {
  const std::string utf8 = SrtOf("cyrillic");
  const Outcome reference = Segment(utf8);
  ASSERT_EQ(reference.run.status, 0);
  EXPECT_EQ(reference.run.out, "");
  // UTF-8 stays as it is with "auto" too: same output, no word said.
  const Outcome same = Segment(utf8, {"--source-encoding=auto"});
  EXPECT_EQ(same.files, reference.files);
  EXPECT_EQ(same.run.out, "");

  const std::string cp1251 = Encode(utf8, "windows-1251");
  const struct {
    std::string source;
    std::vector<std::string> options;
  } cases[] = {
      {cp1251, {"--source-encoding=auto"}},
      {cp1251, {"-source-encoding", "CP1251"}},
      {"\xFF\xFE" + Encode(utf8, "UTF-16LE"), {"--source-encoding=auto"}},
      {std::string("\0\0\xFE\xFF", 4) + Encode(utf8, "UTF-32BE"), {"--source-encoding=auto"}},
      // Valid UTF-8 for more than the bounded opening sample, then windows-1251: read again.
      {Encode(std::string(70000, '\n') + utf8, "windows-1251"), {"--source-encoding=auto"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.options.back() + " " + std::to_string(c.source.size()));
    const Outcome converted = Segment(c.source, c.options);
    EXPECT_EQ(converted.run.status, 0);
    EXPECT_EQ(converted.run.out, "");
    EXPECT_EQ(converted.files, reference.files);
  }
}

TEST(SourceEncoding, WithoutTheOptionTheBytesAreKeptAndOneWarningNamesTheEncoding) {
  const std::string utf8 = SrtOf("greek");
  const std::string greek = Encode(utf8, "ISO-8859-7");
  const Outcome kept = Segment(greek);
  EXPECT_EQ(kept.run.status, 0);
  size_t firstHigh = 0;
  while (static_cast<unsigned char>(greek[firstHigh]) < 0x80) firstHigh++;
  const std::string& err = kept.run.out;
  EXPECT_EQ(err.find(kept.source + ": not UTF-8 from byte " + std::to_string(firstHigh) +
                     " on: most likely ISO-8859-7 (confidence "),
            0u)
      << err;
  EXPECT_NE(err.find("fairly sure); the segments keep its bytes"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  EXPECT_NE(kept.files.find(greek.substr(greek.find("\n\n2\n") - 40, 40)), std::string::npos);

  const Outcome bom = Segment("\xFE\xFF" + Encode(utf8, "UTF-16BE"));
  EXPECT_NE(bom.run.out.find("not UTF-8 from byte 0 on: most likely UTF-16BE (confidence 100 of "
                             "100, from its byte-order mark); the segments keep its bytes"),
            std::string::npos)
      << bom.run.out;
}

TEST(SourceEncoding, AShortSourceIsNotConvertedOnAnUnsureGuess) {
  const std::string source =
      Encode("1\n00:00:01,000 --> 00:00:02,000\nČas běží\n\n", "windows-1250");
  const Outcome o = Segment(source, {"--source-encoding=auto"});
  EXPECT_EQ(o.run.status, 0);
  EXPECT_NE(o.run.out.find("its encoding is unclear: most likely"), std::string::npos) << o.run.out;
  EXPECT_EQ(o.files, Segment(source).files);  // the bytes are kept
  // Named, it converts.
  const Outcome named = Segment(source, {"--source-encoding=windows-1250"});
  EXPECT_NE(named.files.find("Čas běží"), std::string::npos);
  EXPECT_EQ(named.run.out, "");
}

TEST(SourceEncoding, InvalidBytesInTheNamedEncodingAreReportedAtTheirSourceOffset) {
  const Outcome o =
      Segment("1\n00:00:01,000 --> 00:00:02,000\nab\x81\x7F\n\n", {"--source-encoding=Shift_JIS"});
  EXPECT_EQ(o.run.status, 0);
  EXPECT_NE(o.run.out.find("1 byte sequences are not valid Shift_JIS, the first at byte 34"),
            std::string::npos)
      << o.run.out;
  EXPECT_NE(o.files.find("ab\xEF\xBF\xBD"), std::string::npos);
}

}  // namespace
