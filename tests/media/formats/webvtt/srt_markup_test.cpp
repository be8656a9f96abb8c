// SRT cue text rewritten into WebVTT markup: tags kept, converted, dropped or escaped, position
// codes turned into settings, and the cues that need no change left alone.
#include "media/formats/webvtt/srt_markup.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(SrtMarkup, CasesFromTheWild) {
  // Without `wantSettings` the cue needs no change.
  auto expect = [](const char* name, const char* source, const char* payload,
                   const char* wantSettings = nullptr, const char* wantPayload = nullptr) {
    SCOPED_TRACE(name);
    std::string settings = "stale", rewritten = "stale";
    const bool changed = RewriteSrtMarkup(source, payload, &settings, &rewritten);
    ASSERT_EQ(changed, wantSettings != nullptr);
    if (changed) {
      EXPECT_EQ(settings, wantSettings);
      EXPECT_EQ(rewritten, wantPayload);
    }
  };
  expect("plain text", "", "Hello there");
  expect("kept tags and references", "", "<i>so</i> &amp; <b>so</b> &#8230;&nbsp;");
  expect("upper case tags", "", "<I>shout</I> <B>x</B> <U>u</U>", "",
         "<i>shout</i> <b>x</b> <u>u</u>");
  expect("nested font colors", "",
         "<font color=\"#FF0000\">red <font color=blue>blue</font> red</font>", "",
         "<c.color_ff0000.red>red <c.color_0000ff.blue>blue</c> red</c>");
  expect("odd quoting and other attributes", "",
         "<FONT COLOR = '#0f0' face=\"Arial\">a</FONT><font size=3 color=Orange>b</font>"
         "<font color=\"abcdef>c</font>",
         "", "<c.color_00ff00.lime>a</c><c.color_ffa500>b</c><c.color_abcdef>c</c>");
  expect("fonts without a usable color are dropped with their end tags", "",
         "<font face=\"Arial\">a</font> <font color=\"#12\">b</font> </font>c", "", "a b c");
  expect("unclosed tags are closed at the end", "", "<b>bold <i>both\nline two", "",
         "<b>bold <i>both\nline two</i></b>");
  expect("crossed end tags close what is inside them", "", "<b><i>x</b>y</i>", "",
         "<b><i>x</i></b>y");
  expect("other tags and bare brackets are escaped", "",
         "<script>x</script> a < b --> c <br/> <b class=\"x\">", "",
         "&lt;script&gt;x&lt;/script&gt; a &lt; b --&gt; c &lt;br/&gt; &lt;b class=\"x\"&gt;");
  expect("ampersands that start no known reference", "", "AT&T &copy; &#x41; &#12345678; &amp;", "",
         "AT&amp;T &amp;copy; &amp;#x41; &amp;#12345678; &amp;");
  expect("position code at the start", "", "{\\an8}Top centre", "line:0", "Top centre");
  expect("position code mid-text; the first of several counts", "",
         "Upper {\\an9}left{\\an1}\nsecond", "line:0 position:90% align:right",
         "Upper left\nsecond");
  expect("a line left empty goes, CR LF kept", "",
         "{\\an7}\r\nText\r\nmore\r\n<font face=x></font>", "line:0 position:10% align:left",
         "Text\r\nmore");
  expect("settings of the source come first", "size:50%", "{\\AN4}x",
         "size:50% line:50%,center position:10% align:left", "x");
  expect("bottom centre code only removes itself", "", "{\\an2}x", "", "x");
  expect("malformed codes stay as text", "", "{\\an0}{\\an10}{an8}{\\an8");
}

// Hostile text: nesting beyond the tracked depth stays balanced, and a long line of brackets
// is escaped in linear time.
TEST(SrtMarkup, DeepNestingAndLongLines) {
  std::string payload;
  for (int i = 0; i < 200; i++) payload += "<b>";
  payload += "x";
  for (int i = 0; i < 300; i++) payload += "</b>";
  std::string settings, out;
  ASSERT_TRUE(RewriteSrtMarkup("", payload, &settings, &out));
  std::string want;
  for (int i = 0; i < 64; i++) want += "<b>";
  want += "x";
  for (int i = 0; i < 64; i++) want += "</b>";
  EXPECT_EQ(out, want);

  const std::string brackets(size_t{1} << 20, '<');
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(RewriteSrtMarkup("", brackets + ">", &settings, &out));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(out.size(), 4 * brackets.size() + 4);
}

}  // namespace
