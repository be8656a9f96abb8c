// Encoding detection, the converting stream and the UTF-8 check, on real texts in each family
// of encodings, encoded here with ICU from their UTF-8 originals.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "media/core/converting_byte_stream.h"
#include "media/core/encoding_detection.h"
#include "media/core/text_encoding.h"
#include "media/core/utf8_checking_byte_stream.h"
#include "test_support.h"

namespace {

std::string Text(const std::string& name) {
  return ReadFile(HLSVTT_SOURCE_DIR "/tests/data/encodings/" + name + ".txt");
}

// Reads a stream from start to end in pieces of `step` bytes, as a parser does.
std::string ReadAll(MxByteStream* stream, size_t step) {
  std::string all, piece(step, '\0');
  for (;;) {
    size_t n = 0;
    const Status status = stream->Read(step, static_cast<int64_t>(all.size()), piece.data(), &n);
    if (status == kMxErrEndOfStream) return all;
    EXPECT_EQ(status, kNoErr);
    if (status != kNoErr || n == 0) return all;
    all.append(piece, 0, n);
  }
}

std::string Convert(const std::string& bytes, const char* encoding, int64_t start = 0,
                    size_t step = 1024, MxRef<ConvertingByteStream>* keep = nullptr) {
  MxByteStreamRef source = MemoryStream(bytes);
  MxRef<ConvertingByteStream> converted;
  EXPECT_EQ(ConvertingByteStreamCreate(source.get(), encoding, start, &converted), kNoErr);
  if (!converted) return {};
  std::string text = ReadAll(converted.get(), step);
  if (keep) *keep = converted;
  return text;
}

EncodingGuess Guess(const std::string& bytes) {
  EncodingGuess guess;
  EXPECT_EQ(GuessEncoding(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), &guess),
            kNoErr);
  return guess;
}

struct Family {
  const char* text;
  const char* encoding;
};

TEST(EncodingConversion, EachFamilyIsDetectedSurelyAndConvertsBack) {
  const Family families[] = {
      {"western", "windows-1252"},  {"central_european", "windows-1250"},
      {"cyrillic", "windows-1251"}, {"greek", "ISO-8859-7"},
      {"greek", "windows-1253"},    {"turkish", "windows-1254"},
      {"arabic", "windows-1256"},   {"arabic", "ISO-8859-6"},
      {"hebrew", "windows-1255"},   {"japanese", "Shift_JIS"},
      {"japanese", "EUC-JP"},       {"chinese", "GB18030"},
      {"korean", "EUC-KR"},
  };
  const std::set<std::string> unsureWhenShort = {"windows-1250", "windows-1251", "windows-1254",
                                                 "Shift_JIS"};
  for (const Family& f : families) {
    SCOPED_TRACE(std::string(f.text) + " in " + f.encoding);
    const std::string original = Text(f.text);
    const std::string encoded = Encode(original, f.encoding);
    ASSERT_NE(encoded, original);
    const EncodingGuess guess = Guess(encoded);
    RecordProperty(std::string(f.text) + "_" + f.encoding,
                   guess.encoding + " " + std::to_string(guess.confidence) + "/" +
                       std::to_string(guess.runnerUp));
    EXPECT_TRUE(guess.sure()) << guess.encoding << " " << guess.confidence << " next "
                              << guess.runnerUp;
    // The guess may be a sibling of the encoding used (ISO-8859-8-I for windows-1255); what
    // counts is that the text comes back.
    EXPECT_EQ(Convert(encoded, guess.encoding.c_str()), original) << guess.encoding;
    EXPECT_EQ(Convert(encoded, f.encoding, 0, 1000), original);
    // The first 30 bytes alone leave some encodings unsure.
    if (unsureWhenShort.count(f.encoding)) {
      EXPECT_FALSE(Guess(Encode(original.substr(0, 30), f.encoding)).sure());
    }
  }
}

TEST(EncodingConversion, ALatinOneGuessConvertsCurlyQuotesBeyondTheSample) {
  std::string original;
  while (original.size() < 2 * kEncodingSampleSize) original += Text("western");
  original +=
      "\xE2\x80\x9C"
      "d\xC3\xA9j\xC3\xA0 vu\xE2\x80\x9D\n";  // bytes 0x93 and 0x94
  const std::string encoded = Encode(original, "windows-1252");
  const EncodingGuess guess = Guess(encoded);
  EXPECT_EQ(Convert(encoded, guess.encoding.c_str()), original) << guess.encoding;
}

TEST(EncodingConversion, ByteOrderMarksNameTheEncodingAndAreSkipped) {
  const std::string original = Text("korean") + "\xF0\x9F\x98\x80 end\n";  // beyond 16 bits too
  const struct {
    const char* encoding;
    std::string mark;
  } cases[] = {
      {"UTF-16LE", "\xFF\xFE"},
      {"UTF-16BE", "\xFE\xFF"},
      {"UTF-32LE", std::string("\xFF\xFE\0\0", 4)},
      {"UTF-32BE", std::string("\0\0\xFE\xFF", 4)},
      {"UTF-8", "\xEF\xBB\xBF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.encoding);
    const std::string bytes = c.mark + Encode(original, c.encoding);
    const ByteOrderMark mark =
        FindByteOrderMark(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ASSERT_NE(mark.encoding, nullptr);
    EXPECT_STREQ(mark.encoding, c.encoding);
    EXPECT_EQ(mark.length, c.mark.size());
    EXPECT_EQ(Convert(bytes, mark.encoding, static_cast<int64_t>(mark.length)), original);
  }
  EXPECT_EQ(FindByteOrderMark(reinterpret_cast<const uint8_t*>("\xFF"), 1).encoding, nullptr);
}

TEST(EncodingConversion, CharactersSplitBetweenPiecesAndBlocksComeThrough) {
  // Two-byte characters at an odd offset straddle every 1024-byte block and every piece the
  // stream converts; a surrogate pair straddles the first piece's end.
  std::string original = "x";
  while (original.size() < 3 * ConvertingByteStream::kPieceSize) original += "日本語のテキスト。";
  const std::string sjis = Encode(original, "Shift_JIS");
  for (size_t step : {1024u, 7u, 100000u})
    EXPECT_EQ(Convert(sjis, "Shift_JIS", 0, step), original) << step;

  std::string utf16 =
      Encode(std::string((ConvertingByteStream::kPieceSize - 2) / 2, 'a'), "UTF-16LE");
  utf16 += Encode("\xF0\x9F\x98\x80 tail", "UTF-16LE");
  EXPECT_EQ(Convert(utf16, "UTF-16LE"),
            std::string((ConvertingByteStream::kPieceSize - 2) / 2, 'a') + "\xF0\x9F\x98\x80 tail");
}

TEST(EncodingConversion, InvalidSequencesBecomeReplacementsAtTheirSourceOffset) {
  // A byte Shift_JIS does not use, far into the source, and a lead byte cut off at the end.
  std::string bytes(70000, 'a');
  bytes +=
      "\xA0"
      "b";
  bytes += "\x82";
  MxRef<ConvertingByteStream> converted;
  const std::string text = Convert(bytes, "Shift_JIS", 0, 1024, &converted);
  EXPECT_EQ(text, std::string(70000, 'a') +
                      "\xEF\xBF\xBD"
                      "b\xEF\xBF\xBD");
  EXPECT_EQ(converted->invalidCount(), 2u);
  EXPECT_EQ(converted->firstInvalid(), 70000);

  // Reading from the start again after the end gives the same bytes.
  char head[4] = {};
  size_t n = 0;
  ASSERT_EQ(converted->Read(3, 0, head, &n), kNoErr);
  EXPECT_EQ(std::string(head, n), "aaa");
  EXPECT_EQ(ReadAll(converted.get(), 4096), text);
  EXPECT_EQ(converted->invalidCount(), 2u);  // bytes converted again are not counted again

  // An escape sequence a stateful encoding does not know is invalid input like any other.
  EXPECT_EQ(Convert("ab\x1B(Zcd", "ISO-2022-JP", 0, 1024, &converted), "ab\xEF\xBF\xBD(Zcd");
  EXPECT_EQ(converted->firstInvalid(), 2);
}

// The checker fed whole or byte by byte, and the conversion to UTF-16, which takes valid UTF-8
// only and gives it back unchanged.
TEST(UTF8Check, FindsTheFirstInvalidSequenceFedWholeOrByteByByte) {
  const struct {
    std::string bytes;
    int64_t firstInvalid;
  } cases[] = {
      {"plain ASCII text, longer than eight bytes", -1},
      {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF", -1},
      {"\xE3\x81\x93\xE3\x82\x93", -1},  // three UTF-8 bytes for every UTF-16 unit
      {"caf\xE9 au lait", 3},            // Latin-1
      {"ab\xC0\xAF", 2},                 // overlong
      {"ab\xE0\x80\xAF", 2},             // overlong, three bytes
      {"abcdefghij\xED\xA0\x80", 10},    // a surrogate
      {"ab\xF4\x90\x80\x80", 2},         // above U+10FFFF
      {"ab\xE2\x82", 2},                 // cut off at the end
      {"ab\xE2\x82z\xC3\xA9", 2},        // cut off by an ASCII byte
      {"\xC3\xA9\x80", 2},               // a stray continuation byte
      {"\xFF\xFEh\0i\0", 0},             // UTF-16LE with its mark
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    const auto* data = reinterpret_cast<const uint8_t*>(c.bytes.data());
    UTF8Checker whole, split;
    whole.Feed(data, c.bytes.size());
    whole.Finish();
    for (size_t i = 0; i < c.bytes.size(); i++) split.Feed(data + i, 1);
    split.Finish();
    EXPECT_EQ(whole.firstInvalid(), c.firstInvalid);
    EXPECT_EQ(split.firstInvalid(), c.firstInvalid);
    std::u16string units;
    ASSERT_EQ(MxTextCreateUTF16FromUTF8(data, c.bytes.size(), &units),
              c.firstInvalid < 0 ? kNoErr : kQorTextSampleErrStringCreation);
    if (c.firstInvalid >= 0) continue;
    std::string back;
    ASSERT_EQ(MxTextCreateUTF8FromUTF16(units.data(), units.size(), &back), kNoErr);
    EXPECT_EQ(back, c.bytes);
  }
}

TEST(UTF8Check, TheCheckingStreamSeesEachByteOnceAsItPasses) {
  std::string bytes(5000, 'a');
  bytes[4100] = '\xE9';
  MxByteStreamRef source = MemoryStream(bytes);
  MxRef<UTF8CheckingByteStream> checking;
  ASSERT_EQ(UTF8CheckingByteStreamCreate(source.get(), &checking), kNoErr);
  char head[16];
  size_t n = 0;
  ASSERT_EQ(checking->Read(16, 0, head, &n), kNoErr);  // a sniff, then the whole read
  EXPECT_EQ(ReadAll(checking.get(), 1024), bytes);
  EXPECT_TRUE(checking->complete());
  EXPECT_EQ(checking->checker().firstInvalid(), 4100);
  EXPECT_EQ(checking->checker().checked(), 5000);
}

}  // namespace
