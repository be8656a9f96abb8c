#include "media/formats/webvtt/webvtt_parser.h"

#include <gtest/gtest.h>

#include "test_support.h"

namespace {

struct ParsedCue {
  std::string id, settings, payload;
  double start, end;
  bool operator==(const ParsedCue&) const = default;
};

std::ostream& operator<<(std::ostream& os, const ParsedCue& c) {
  return os << "{" << c.id << "|" << c.start << "-->" << c.end << "|" << c.settings << "|"
            << c.payload << "}";
}

std::string Range(const WebVTTCue* cue, uint64_t offset, uint64_t length) {
  std::string text(length, '\0');
  if (length) {
    EXPECT_EQ(MxBlockBufferCopyDataBytes(cue->text.get(), offset, length, text.data()), kNoErr);
  }
  return text;
}

struct ParseResult {
  Status status;
  std::vector<ParsedCue> cues;
};

ParseResult Parse(const std::string& source, uint32_t commaDecimal) {
  MxByteStreamRef stream = MemoryStream(source);
  WebVTTParser* parser = nullptr;
  EXPECT_EQ(WebVTTParserCreate(&parser, commaDecimal), kNoErr);
  ParseResult result{WebVTTParserReadByteStream(parser, stream.get()), {}};
  for (WebVTTCue* c = WebVTTParserGetCueQueue(parser)->first; c; c = c->next) {
    result.cues.push_back({Range(c, c->identifierOffset, c->identifierLength),
                           Range(c, c->settingsOffset, c->settingsLength),
                           Range(c, c->payloadOffset, c->payloadLength), c->start, c->end});
  }
  EXPECT_EQ(WebVTTParserRelease(parser), kNoErr);
  return result;
}

TEST(WebVTTParser, SourcesAndTheirCues) {
  const std::string bom = "\xEF\xBB\xBF";
  // A cue far longer than a shared text block, between two small ones.
  const std::string large = std::string(20000, 'L') + "\r\n  " + std::string(5000, 'M');
  // Cues around the size at which a cue gets a block of its own, many blocks' worth of them.
  std::string sized = "WEBVTT\n\n";
  std::vector<ParsedCue> sizedCues;
  for (int i = 0; i < 60; i++) {
    const std::string payload(static_cast<size_t>(8150 + i % 5 * 20),
                              static_cast<char>('a' + i % 26));
    const std::string id = "c" + std::to_string(i);
    sized +=
        id + "\n00:" + std::to_string(10 + i) + ".000 --> 01:00.000 line:1\n" + payload + "\n\n";
    sizedCues.push_back({id, "line:1", payload, 10.0 + i, 60});
  }
  // `comma`: SRT, a comma before the milliseconds.
  auto expect = [](const char* name, const std::string& source, std::vector<ParsedCue> cues,
                   Status status = kNoErr, uint32_t comma = 0) {
    ParseResult r = Parse(source, comma);
    EXPECT_EQ(r.status, status) << name;
    EXPECT_EQ(r.cues, cues) << name;
  };
  expect("srt", "1\n00:00:01,000 --> 00:00:02,500\nHello\n\n", {{"1", "", "Hello", 1, 2.5}}, kNoErr,
         1);
  expect("srt with dots", "1\n00:00:01.000 --> 00:00:02.500\nHello\n\n", {}, kNoErr, 1);
  expect("header ignored, settings kept",
         "WEBVTT - title\nKind: x\n-->\n\nid\n00:01.000 --> 00:02.000 align:start \nA\n  B\n\n",
         {{"id", "align:start ", "A\n  B", 1, 2}});
  expect("bom", bom + "WEBVTT\n\n00:01.000 --> 00:02.000\nA\n\n", {{"", "", "A", 1, 2}});
  expect("note and style dropped",
         "WEBVTT\n\nNOTE hi\n\nSTYLE\n::cue {}\n\n00:01.000 --> 00:02.000\nA\n\n",
         {{"", "", "A", 1, 2}});
  expect("no blanks around arrow",
         "WEBVTT\n\n00:01.000-->00:02.000\nA\n\n00:03.000 --> 00:04.000\nB\n\n",
         {{"", "", "B", 3, 4}});
  expect("end before start accepted", "WEBVTT\n\n00:05.000 --> 00:02.000\nA\n\n",
         {{"", "", "A", 5, 2}});
  expect("zero end stops the read",
         "WEBVTT\n\n00:01.000 --> 00:02.000\nA\n\n00:00.000 --> 00:00.000\nB\n\n00:03.000 --> "
         "00:04.000\nC\n\n",
         {{"", "", "A", 1, 2}}, kWebVTTErrBadCueTime);
  expect("out of order dropped, equal kept",
         "WEBVTT\n\n00:05.000 --> 00:06.000\nA\n\n00:04.000 --> 00:07.000\nB\n\n00:05.000 --> "
         "00:08.000\nC\n\n",
         {{"", "", "A", 5, 6}, {"", "", "C", 5, 8}});
  expect("empty payload dropped",
         "WEBVTT\n\n00:01.000 --> 00:02.000\n\n\n00:03.000 --> 00:04.000\nB\n\n",
         {{"", "", "B", 3, 4}});
  expect("crlf", "WEBVTT\r\n\r\nx\r\n00:01.000 --> 00:02.000 a:b\r\nA\r\nB\r\n\r\n",
         {{"x", "a:b", "A\r\nB", 1, 2}});
  expect("last cue unterminated is queued", "WEBVTT\n\n00:01.000 --> 00:02.000\nA",
         {{"", "", "A", 1, 2}});
  expect("last cue with final newline but no blank line is not",
         "WEBVTT\n\n00:01.000 --> 00:02.000\nA\n", {});
  expect("hours without limit, minutes unchecked", "WEBVTT\n\n00:75.000 --> 123:00:00.001\nA\n\n",
         {{"", "", "A", 75, 442800.001}});
  expect("fraction optional", "WEBVTT\n\n00:01 --> 00:00:02\nA\n\n", {{"", "", "A", 1, 2}});
  expect("bad fraction", "WEBVTT\n\n00:01.0x0 --> 00:02.000\nA\n\n", {});
  expect("three-digit minutes need hours", "WEBVTT\n\n100:01.000 --> 100:02.000\nA\n\n", {});
  expect("timestamp glued to text", "WEBVTT\n\n00:01.000x --> 00:02.000\nA\n\n", {});
  expect("single unterminated line without signature", "garbage", {}, kWebVTTErrMalformedCue, 1);
  expect("empty file", "", {}, kMxErrEndOfStream, 1);
  expect("large cue between small ones",
         "WEBVTT\n\na\n00:01.000 --> 00:02.000\nA\n\nbig one\n00:03.000 --> 00:04.000 align:end\n" +
             large + "\n\n00:05.000 --> 00:06.000 x\nC\n\n",
         {{"a", "", "A", 1, 2}, {"big one", "align:end", large, 3, 4}, {"", "x", "C", 5, 6}});
  expect("cues near the own-block size", sized, sizedCues);
}

TEST(WebVTTParser, LineBreaksAcrossBlockBoundaries) {
  // The source is read in 1024-byte blocks. The padding cue moves the second cue block over the
  // boundary one byte at a time, so that its identifier, timing line, each payload line and
  // the blank line that ends it all meet the boundary, with every kind of line break. A CR LF
  // split by the boundary is one break; a lone CR that is the last byte of a block does not
  // end its line, so in a CR-only source the lines on either side are one line with a CR inside.
  for (const std::string eol : {"\n", "\r\n", "\r"}) {
    for (size_t pad = 940; pad <= 1000; pad++) {
      const std::string source = "WEBVTT" + eol + eol + "00:00.500 --> 00:01.000" + eol +
                                 std::string(pad, 'x') + eol + eol + "id" + eol +
                                 "00:01.000 --> 00:02.000" + eol + "A" + eol + "B" + eol + eol +
                                 "00:03.000 --> 00:04.000" + eol + "C" + eol + eol;
      ParseResult r = Parse(source, 0);
      SCOPED_TRACE(testing::Message() << "pad " << pad << ", line break of " << eol.size()
                                      << " byte(s), first " << eol[0] + 0);
      EXPECT_EQ(r.status, kNoErr);
      const std::string second = "id\r00:01.000 --> 00:02.000\rA\rB";
      const std::string third = "00:03.000 --> 00:04.000\rC";
      std::vector<ParsedCue> expected{{"", "", std::string(pad, 'x'), 0.5, 1},
                                      {"id", "", "A" + eol + "B", 1, 2},
                                      {"", "", "C", 3, 4}};
      if (eol == "\r" && (pad == 990 || pad == 991)) {
        // The CR after the padding line, or the blank line's, ends the first block: the blank
        // line is gone and the second cue block is part of the first cue's payload.
        expected = {{"", "", std::string(pad, 'x') + "\r\r" + second, 0.5, 1}, expected[2]};
      } else if (eol == "\r" && (pad == 958 || pad == 959)) {
        // The same with the CR after "B" or the blank line after it: the third cue block is part
        // of the second cue's payload.
        expected = {expected[0], {"id", "", "A\rB\r\r" + third, 1, 2}};
      }
      EXPECT_EQ(r.cues, expected);
    }
  }
  // A line longer than a block whose break starts at the last byte of the next block: a CR there
  // is let go, so a CR LF ends the line with the LF alone and a lone CR joins it to the next.
  for (const std::string eol : {"\n", "\r\n", "\r"}) {
    const std::string head = "WEBVTT" + eol + eol + "00:01.000 --> 00:02.000" + eol;
    const std::string line(2047 - head.size(), 'a');
    const std::string payload = line + (eol == "\r" ? "" : "\n") + "B";
    EXPECT_EQ(Parse(head + line + eol + "B" + eol + eol, 0).cues,
              (std::vector<ParsedCue>{{"", "", payload, 1, 2}}))
        << "line break of " << eol.size() << " byte(s)";
  }
}

TEST(WebVTTParser, Signature) {
  struct Case {
    std::string bytes;
    bool expected;
  } cases[] = {{"WEBVTT\n", true},
               {"WEBVTT", false},
               {"WEBVTTX\n", false},
               {"WEBVTT\t", true},
               {"\xEF\xBB\xBFWEBVTT ", true},
               {"\xEF\xBB\xBFWEBVT", false},
               {"webvtt\n", false},
               {"WE", false}};
  for (const Case& c : cases) {
    EXPECT_EQ(WebVTTHasSignature(reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size()),
              c.expected)
        << c.bytes;
  }
}

TEST(WebVTTParser, TimestampForms) {
  struct Case {
    std::string text;
    Status status;
    double seconds;
  } cases[] = {{"00:01.500 ", kNoErr, 1.5},
               {":01:02 ", kNoErr, 62},
               {"00:75.000 ", kNoErr, 75},
               {"1:02:03.004 ", kNoErr, 3723.004},
               {"0:01.000 ", kWebVTTErrMalformedTimestamp, 0},
               {"00:01", kNoErr, 1},
               {"00:0", kWebVTTErrMalformedTimestamp, 0},
               {"00:01.000x", kWebVTTErrMalformedCue, 0},
               {"0000000000", kWebVTTErrMalformedTimestamp, 0}};
  WebVTTParser parser;
  for (const Case& c : cases) {
    const char* cursor = c.text.data();
    size_t remaining = c.text.size();
    double seconds = -1;
    Status status = WebVTTParseTimestamp(&parser, &cursor, &remaining, &seconds, true, nullptr);
    EXPECT_EQ(status, c.status) << c.text;
    if (status == 0) {
      EXPECT_DOUBLE_EQ(seconds, c.seconds) << c.text;
    }
  }
}

}  // namespace
