// Every corpus source through the tool: the exit status follows from whether the source can be
// read, and every cue the parser accepted comes out in the segments with its identifier,
// settings and payload bytes unchanged.
#include <gtest/gtest.h>
#include <strings.h>

#include <filesystem>

#include "media/core/file_byte_stream.h"
#include "test_support.h"
#include "webvtt/segment_writer.h"
#include "webvtt/webvtt_parser.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> CorpusSources() {
  std::vector<std::string> files;
  if (!fs::exists(HLSVTT_CORPUS_DIR)) return files;
  for (const auto& e : fs::recursive_directory_iterator(HLSVTT_CORPUS_DIR)) {
    std::string ext = e.path().extension().string();
    if (e.is_regular_file() &&
        (strcasecmp(ext.c_str(), ".vtt") == 0 || strcasecmp(ext.c_str(), ".srt") == 0))
      files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string Bytes(const WebVTTCue* c, uint64_t offset, uint64_t length) {
  std::string text(length, '\0');
  if (length) MxBlockBufferCopyDataBytes(c->text.get(), offset, length, text.data());
  return text;
}

// The cues as the segment writer lays them out, from an in-process parse; the parse status.
OSStatus ExpectedCues(const std::string& path, std::vector<std::string>* cues) {
  MxByteStreamRef stream;
  EXPECT_EQ(MxByteStreamCreateForFileURL(nullptr, MxURL{path}, 0, &stream), kNoErr);
  uint8_t head[16];
  size_t n = 0;
  bool signature =
      MxByteStreamReadBytes(stream.get(), 16, 0, head, &n) == kNoErr && WebVTTHasSignature(head, n);
  WebVTTParser* parser = nullptr;
  WebVTTParserCreate(&parser, signature ? 0 : 1);
  OSStatus status = WebVTTParserReadByteStream(parser, stream.get());
  for (WebVTTCue* c = WebVTTParserGetCueQueue(parser)->first; c; c = c->next) {
    char start[20], end[20];
    FormatWebVTTTimestamp(c->start, start);
    FormatWebVTTTimestamp(c->end, end);
    std::string text;
    if (c->identifierLength) text += Bytes(c, c->identifierOffset, c->identifierLength) + "\n";
    text += std::string(start) + " --> " + end;
    if (c->settingsLength) text += " " + Bytes(c, c->settingsOffset, c->settingsLength);
    text += "\n" + Bytes(c, c->payloadOffset, c->payloadLength) + "\n\n";
    cues->push_back(text);
  }
  WebVTTParserRelease(parser);
  return status;
}

TEST(Corpus, EverySourceThroughTheTool) {
  auto sources = CorpusSources();
  if (sources.empty()) GTEST_SKIP() << "no corpus at " HLSVTT_CORPUS_DIR;
  for (const std::string& source : sources) {
    SCOPED_TRACE(source);
    std::vector<std::string> cues;
    OSStatus parsed = ExpectedCues(source, &cues);
    ScratchDir out;
    RunResult r = RunTool({"hlsvtt", "-q", "-t", "10", "-f", out.path(), source});
    EXPECT_EQ(r.status, parsed == kNoErr ? 0 : 47) << r.out << r.err;
    if (parsed != kNoErr) {
      EXPECT_TRUE(ListDir(out.path()).empty());
      continue;
    }
    std::string segments;
    for (const std::string& name : ListDir(out.path())) {
      if (name.ends_with(".webvtt")) segments += ReadFile(out / name);
    }
    for (const std::string& cue : cues) {
      EXPECT_NE(segments.find(cue), std::string::npos) << cue;
    }
    EXPECT_EQ(FileExists(out / "prog_index.m3u8"), !cues.empty());
  }
}

TEST(Corpus, BinaryGarbageNeverCrashesOrHangs) {
  ScratchDir dir;
  std::string garbage;
  uint32_t x = 12345;
  for (int file = 0; file < 20; file++) {
    garbage.clear();
    for (int i = 0; i < 5000 + file * 997; i++) {
      x = x * 1103515245 + 12345;
      char c = static_cast<char>(x >> 16);
      garbage += (file % 3 == 0 && i % 50 == 0) ? '\n' : c;
    }
    if (file % 4 == 1) garbage = "WEBVTT\n\n" + garbage;
    const std::string path = dir / ("g" + std::to_string(file) + ".vtt");
    WriteFile(path, garbage);
    RunResult r = RunTool({"hlsvtt", "-q", "-f", dir.path(), path});
    EXPECT_TRUE(r.status == 0 || r.status == 47) << path << " " << r.status;
  }
}

}  // namespace
