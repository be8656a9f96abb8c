// Escaping of cue text, word-wise and byte-wise alike: every position of every special byte, in
// text shorter and longer than a word, must give what replacing byte by byte gives.
#include "media/core/cue_text_escape.h"

#include <gtest/gtest.h>

namespace {

std::string EscapedByteByByte(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else if (c == '&') {
      out += "&amp;";
    } else {
      out += c;
    }
  }
  return out;
}

TEST(CueTextEscape, EveryPositionOfEverySpecialByte) {
  // Bytes next to the special ones ('%', '=', '?', '\x80' + '<') must pass as they are.
  for (std::string_view filler :
       {"abcdefghijklmnopqrst", "%'=?;:\x80\xbc\xbe\xa6 \n\t0123456789"}) {
    for (size_t length = 0; length <= filler.size(); ++length) {
      for (size_t at = 0; at < length; ++at) {
        for (char special : {'<', '>', '&'}) {
          std::string text(filler.substr(0, length));
          text[at] = special;
          if (at + 3 < length) text[at + 3] = '&';
          std::string out = "kept|";
          AppendCueTextEscaped(&out, text);
          ASSERT_EQ(out, "kept|" + EscapedByteByByte(text)) << text;
        }
      }
      std::string out;
      AppendCueTextEscaped(&out, filler.substr(0, length));
      ASSERT_EQ(out, filler.substr(0, length));
    }
  }
}

}  // namespace
