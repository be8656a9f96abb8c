// A seeded sweep of hostile WebVTT/SRT sources through the whole tool: for every source and
// option set, the exit status, the messages and every output file are reduced to a digest and
// compared with tests/data/source_sweep_digests.txt, so that any drift in how sources are read
// or segmented fails here.
//
// Environment, to regenerate the digests or to compare two builds:
//   HLSVTT_SWEEP_TOOL=<binary>   run this binary instead of the one just built
//   HLSVTT_SWEEP_COUNT=<n>       sweep n sources instead of the stored set's count
//   HLSVTT_SWEEP_WRITE=<file>    write the digests there instead of comparing
//   HLSVTT_SWEEP_KEEP=<dir>      also keep every source there (NNNNN.vtt or NNNNN.srt)
// For example:
//   HLSVTT_SWEEP_WRITE=tests/data/source_sweep_digests.txt
//   build/tests/hlsvtt_tests --gtest_filter=SourceSweep.*   (both on one command line)
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "test_support.h"

namespace {

constexpr size_t kBlock = 1024;  // the size of the parser's reads

class SourceGenerator {
 public:
  explicit SourceGenerator(uint64_t seed) : state_(seed) {}

  // One source; *srt tells whether it is meant as an SRT file (no signature).
  std::string Make(bool* srt) {
    out_.clear();
    base_ = Chance(10) ? 3 : 0;
    if (base_) out_ = "\xEF\xBB\xBF";
    breakStyle_ = Below(4);
    *srt = Chance(20);
    comma_ = *srt ? !Chance(10) : Chance(2);
    if (!*srt) Header();
    const size_t cues = 1 + Below(10);
    time_ = static_cast<double>(Below(30));
    for (size_t i = 0; i < cues; i++) Cue(*srt, i);
    Ending();
    return out_;
  }

 private:
  // splitmix64: the same sequence on every platform. Every draw is a statement of its own (or
  // an operand of ?: or ||), so that no compiler's order of evaluation changes a source.
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  size_t Below(size_t n) { return static_cast<size_t>(Next() % n); }
  bool Chance(size_t percent) { return Below(100) < percent; }

  std::string Break() {
    static const char* const kBreaks[] = {"\n", "\r\n", "\r"};
    return kBreaks[breakStyle_ < 3 ? breakStyle_ : Below(3)];
  }

  // Text of about `length` bytes: words, blanks, markup, stray arrows, invalid UTF-8, NUL.
  std::string Text(size_t length) {
    using namespace std::string_view_literals;
    static constexpr std::string_view kPieces[] = {
        "hello"sv,        " "sv,    "world"sv,  "\t"sv,        "<b>bold</b>"sv, "caf\xC3\xA9"sv,
        "\xE6\x9D\xB1"sv, "-->"sv,  "\x80"sv,   "\xFF"sv,      "\xC3"sv,        "->"sv,
        "&amp;"sv,        "NOTE"sv, "WEBVTT"sv, "00:01.000"sv, "x"sv,           "\0"sv,
        "  "sv,           "1"sv};
    std::string text;
    while (text.size() < length) text += kPieces[Below(sizeof kPieces / sizeof kPieces[0])];
    text.resize(length);
    return text;
  }

  // A text line; often long, and often sized so that its line break meets a block boundary.
  void Line() {
    size_t length = 1 + Below(60);
    if (Chance(15)) length = 1000 + Below(2001);
    if (Chance(30)) {
      // The break's first byte lands just before, at or just after the last byte of a block.
      const size_t position = out_.size() - base_;
      const size_t target = kBlock - 2 + Below(3);
      length = (target - position % kBlock + kBlock) % kBlock;
      if (length == 0 || Chance(30)) length += kBlock;
    }
    const std::string lineBreak = Break();
    out_ += Text(length) + lineBreak;
  }

  void BlankLine() {
    if (Chance(5)) {
      const std::string lineBreak = Break();
      const char blank = Chance(50) ? ' ' : '\t';
      out_ += std::string(1 + Below(3), blank) + lineBreak;
    } else {
      out_ += Break();
    }
  }

  void Header() {
    static const char* const kSignatures[] = {"WEBVTT",  "WEBVTT ", "WEBVTT\t- title",
                                              "WEBVTTX", " WEBVTT", "WEBVTT - "};
    const size_t signature = Chance(85) ? Below(3) : Below(6);
    out_ += kSignatures[signature];
    if (signature == 1 && Chance(50)) out_ += Text(Below(20));
    out_ += Break();
    const size_t lines = Chance(50) ? 0 : 1 + Below(4);
    for (size_t i = 0; i < lines; i++) Chance(20) ? Timing() : Line();
    if (!Chance(3)) BlankLine();
  }

  std::string Time(double seconds) {
    const long whole = static_cast<long>(seconds);
    const int millis = static_cast<int>((seconds - static_cast<double>(whole)) * 1000 + 0.5) % 1000;
    const char separator = comma_ ? ',' : '.';
    static const char* const kOdd[] = {"0:01.000",  ":01:02",    "00:75.000", "00:0a.000",
                                       "00:01.0x0", "1:00:00",   "00:00.001", "00:01,000",
                                       "00:01.000", "100:01.000"};
    char text[96];
    const size_t shape = Below(12);
    if (shape == 3) return kOdd[Below(10)];  // one of a few odd shapes
    if (shape == 0) {                        // minutes and seconds only
      snprintf(text, sizeof text, "%02ld:%02ld%c%03d", whole / 60, whole % 60, separator, millis);
    } else if (shape == 1) {  // no fraction
      snprintf(text, sizeof text, "%02ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    } else {  // hours, shape 2 with leading zeros
      snprintf(text, sizeof text, "%0*ld:%02ld:%02ld%c%03d", shape == 2 ? 12 : 2, whole / 3600,
               whole / 60 % 60, whole % 60, separator, millis);
    }
    return text;
  }

  void Timing() {
    double start = time_;
    if (Chance(10)) start -= static_cast<double>(Below(20));  // out of order
    if (start < 0) start = 0;
    double end = start + static_cast<double>(Below(15000)) / 1000.0 + 0.001;
    if (Chance(3)) end = start + static_cast<double>(Below(300));
    if (Chance(5)) end = start - static_cast<double>(Below(3));  // an end before the start
    if (end <= 0) end = 0.5;
    if (Below(1000) < 3) end = 0;  // ends the whole read
    time_ = start + static_cast<double>(Below(4000)) / 1000.0;
    static const char* const kArrows[] = {" --> ", " -->\t", "\t-->  ", "-->", " -> ", " --> "};
    const std::string endText = Time(end);
    const char* arrow = kArrows[Chance(85) ? 0 : Below(6)];
    const std::string startText = Time(start);
    out_ += std::string(Chance(10) ? " \t" : "") + startText + arrow + endText;
    if (Chance(30)) out_ += " " + Text(Below(30));
    out_ += Break();
  }

  void Cue(bool srt, size_t index) {
    const bool numbered = srt && Chance(80);  // a cue number, or else a line as identifier
    if (numbered) out_ += std::to_string(index + 1) + Break();
    if (!numbered && (srt || Chance(40))) Line();
    if (Chance(3)) {
      const std::string lineBreak = Break();
      out_ += "NOTE " + Text(Below(40)) + lineBreak;
    } else {
      Timing();
    }
    const size_t lines = Chance(5) ? 0 : 1 + Below(3);
    for (size_t i = 0; i < lines; i++) Line();
    const size_t blanks = Chance(5) ? 0 : Chance(10) ? 2 + Below(2) : 1;
    for (size_t i = 0; i < blanks; i++) BlankLine();
  }

  void Ending() {
    const size_t ending = Below(5);
    if (ending == 0) {  // the last line unterminated
      out_ += Text(1 + Below(20));
    } else if (ending == 1) {  // a lone CR at the very end
      out_ += "\r";
    } else if (ending == 2) {  // one line break after a last cue without a blank line
      const std::string lineBreak = Break();
      out_ += Text(1 + Below(20)) + lineBreak;
    }
  }

  uint64_t state_;
  std::string out_;
  size_t base_ = 0;  // bytes skipped before the first block (a byte-order mark)
  size_t breakStyle_ = 0;
  bool comma_ = false;
  double time_ = 0;
};

const std::vector<std::vector<std::string>> kOptionSets = {
    {},
    {"-t", "1"},
    {"-t", "7", "-m", "0", "-D", "86400"},
    {"-k", "key.bin", "-J", "sequence", "-t", "3"},
    {"-B", "seg-", "-i", "list.m3u8", "-t", "2", "-b", "http://h/x/"},
};

uint64_t Fnv1a(uint64_t hash, const std::string& bytes) {
  for (char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ull;
  return hash;
}

// Status, messages and every output file, reduced to 32 bits.
uint32_t RunDigest(const std::string& tool, const ScratchDir& dir, const std::string& name,
                   const std::vector<std::string>& options) {
  std::filesystem::remove_all(dir / "out");
  std::filesystem::create_directory(dir / "out");
  std::vector<std::string> args{tool, "--no-output-timestamps", "-f", "out"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(name);
  const RunResult run = RunBinary(tool, args, dir.path());
  uint64_t hash = Fnv1a(0xCBF29CE484222325ull, std::to_string(run.status) + '\0');
  // The warning that a source is not UTF-8 is left out: the stored digests pin everything else,
  // which that warning does not change.
  std::string out = run.out;
  for (size_t at; (at = out.find(": not UTF-8 from byte ")) != std::string::npos;) {
    const size_t lineStart = out.rfind('\n', at) + 1;  // 0 when it is the first line
    out.erase(lineStart, out.find('\n', at) + 1 - lineStart);
  }
  hash = Fnv1a(hash, out + '\0' + run.err + '\0');
  for (const std::string& file : ListDir(dir / "out"))
    hash = Fnv1a(hash, file + '\0' + ReadFile(dir / ("out/" + file)) + '\0');
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

std::string Env(const char* name) {
  const char* value = getenv(name);
  return value ? value : "";
}

TEST(SourceSweep, StatusMessagesAndFilesMatchTheStoredDigests) {
  const std::string dataPath =
      std::string(HLSVTT_SOURCE_DIR) + "/tests/data/source_sweep_digests.txt";
  std::vector<std::string> expected;
  std::string comment;  // kept when the digests are written again
  {
    std::ifstream data(dataPath);
    for (std::string line; std::getline(data, line);) {
      if (line.empty() || line[0] == '#') {
        comment += line + "\n";
      } else {
        expected.push_back(line);
      }
    }
  }
  const std::string tool = Env("HLSVTT_SWEEP_TOOL").empty() ? ToolPath() : Env("HLSVTT_SWEEP_TOOL");
  const std::string write = Env("HLSVTT_SWEEP_WRITE"), keep = Env("HLSVTT_SWEEP_KEEP");
  size_t count = expected.empty() ? 200 : expected.size();
  if (!Env("HLSVTT_SWEEP_COUNT").empty()) count = std::stoul(Env("HLSVTT_SWEEP_COUNT"));
  if (write.empty()) {
    ASSERT_FALSE(expected.empty()) << "no digests in " << dataPath;
  }

  ScratchDir dir;
  WriteFile(dir / "key.bin", "0123456789abcdef");
  std::ostringstream digests;
  size_t mismatches = 0;
  for (size_t i = 0; i < count; i++) {
    bool srt = false;
    const std::string source = SourceGenerator(i + 1).Make(&srt);
    const std::string name = srt ? "in.srt" : "in.vtt";
    WriteFile(dir / name, source);
    if (!keep.empty()) {
      char file[32];
      snprintf(file, sizeof file, "/%05zu.%s", i, srt ? "srt" : "vtt");
      WriteFile(keep + file, source);
    }
    char line[32];
    snprintf(line, sizeof line, "%05zu", i);
    std::string digestLine = line;
    for (const auto& options : kOptionSets) {
      snprintf(line, sizeof line, " %08x", RunDigest(tool, dir, name, options));
      digestLine += line;
    }
    digests << digestLine << "\n";
    if (write.empty() && (i >= expected.size() || expected[i] != digestLine) && mismatches++ < 10) {
      ADD_FAILURE() << "source " << i << " reads differently: expected\n  "
                    << (i < expected.size() ? expected[i] : "(none)") << "\ngot\n  " << digestLine
                    << "\n(option sets in order; keep the sources with HLSVTT_SWEEP_KEEP)";
    }
    std::filesystem::remove(dir / name);
  }
  if (!write.empty()) {
    std::ofstream(write) << comment << digests.str();
  }
  EXPECT_EQ(mismatches, 0u);
}

TEST(SourceSweep, ReducedSourcesThatOnceReadDifferently) {
  // Kept byte for byte: a header running over the first block, whose last byte is a lone CR
  // (no cue), and cues after a line that takes in such a CR.
  struct Case {
    const char* file;
    size_t segments;
  } cases[] = {{"header-across-block.vtt", 0}, {"cues-after-straddling-line.vtt", 3}};
  for (const Case& c : cases) {
    ScratchDir dir;
    std::filesystem::create_directory(dir / "out");
    const RunResult run =
        RunTool({"hlsvtt", "--no-output-timestamps", "-f", dir / "out",
                 std::string(HLSVTT_SOURCE_DIR) + "/tests/data/regressions/" + c.file});
    EXPECT_EQ(run.status, 0) << c.file;
    size_t segments = 0;
    for (const std::string& file : ListDir(dir / "out")) segments += file.ends_with(".webvtt");
    EXPECT_EQ(segments, c.segments) << c.file;
  }
}

}  // namespace
