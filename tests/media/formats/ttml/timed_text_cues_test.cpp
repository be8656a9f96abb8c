// Timed-text documents read and turned into cues: the timing model, content, styling and
// placement, and the documents that are refused.
#include "media/formats/ttml/timed_text_cues.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

std::string Document(const std::string& rootAttributes, const std::string& head,
                     const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<tt xmlns=\"http://www.w3.org/ns/ttml\" xmlns:tts=\"http://www.w3.org/ns/ttml#styling\""
         " xmlns:ttp=\"http://www.w3.org/ns/ttml#parameter\" " +
         rootAttributes + ">\n<head>" + head + "</head>\n<body" + body + "</body></tt>\n";
}

// The cues as "start-end {settings} payload" lines, times in milliseconds, then "N cut at T"
// when paragraphs shown without an end were cut; or "error: <message>".
std::string Cues(const std::string& xml) {
  TimedTextDocument document;
  TimedTextCues cues;
  std::string message;
  TimedTextOpenEnds openEnds;
  if (ReadTimedTextDocument(xml, "in.ttml", &document, &message) != kNoErr ||
      BuildTimedTextCues(document, &cues, &message, &openEnds) != kNoErr) {
    return "error: " + message;
  }
  std::string out;
  for (const TimedTextCue& cue : cues.list) {
    char times[64];
    std::snprintf(times, sizeof times, "%.0f-%.0f ", cue.start * 1000, cue.end * 1000);
    std::string settings(cues.Settings(cue));
    out += times + (settings.empty() ? "" : "{" + settings + "} ") +
           std::string(cues.Payload(cue)) + "\n";
  }
  if (openEnds.paragraphs != 0) {
    out += std::to_string(openEnds.paragraphs) + " cut at " +
           std::to_string(static_cast<long>(openEnds.end * 1000)) + "\n";
  }
  return out;
}

TEST(TimedTextCues, Timing) {
  struct Case {
    const char* name;
    const char* root;  // attributes of tt
    const char* body;  // from just after "<body"
    const char* want;
  };
  const Case cases[] = {
      {"paragraphs with begin and end", "",
       "><div><p begin='1s' end='2s'>a</p><p begin='00:00:03.5' end='00:00:04'>b</p></div>",
       "1000-2000 a\n3500-4000 b\n"},
      {"dur, and end and dur together take the earlier", "",
       "><div><p begin='1s' dur='2s'>a</p><p begin='5s' end='9s' dur='1s'>b</p></div>",
       "1000-3000 a\n5000-6000 b\n"},
      {"times are relative to the parent's begin", "",
       " begin='10s'><div begin='5s'><p begin='1s' end='2s'>a</p></div>", "16000-17000 a\n"},
      {"a parent's end clips its children", "",
       "><div end='3s'><p begin='1s' end='5s'>a</p><p begin='4s' end='6s'>b</p></div>",
       "1000-3000 a\n"},
      {"untimed paragraphs last as long as their div", "",
       "><div begin='2s' end='4s'><p>a</p><p>b</p></div>", "2000-4000 a\n2000-4000 b\n"},
      {"a sequence starts each child at the end of the one before", "",
       " timeContainer='seq'><div dur='2s'><p>a</p></div><div begin='1s' dur='1s'><p>b</p></div>"
       "<div><p dur='3s'>c</p></div>",
       "0-2000 a\n3000-4000 b\n4000-7000 c\n"},
      {"a sequence of paragraphs", "",
       "><div timeContainer='seq' begin='10s'><p dur='1s'>a</p><p dur='2s'>b</p>"
       "<p begin='1s' end='2s'>c</p></div>",
       "10000-11000 a\n11000-13000 b\n14000-15000 c\n"},
      {"an untimed div lasts until its last child ends", "",
       " timeContainer='seq'><div><p begin='1s' end='2s'>a</p><p end='3s'>b</p></div>"
       "<div><p dur='1s'>c</p></div>",
       "0-3000 b\n1000-2000 a\n3000-4000 c\n"},
      {"frames and ticks", "ttp:frameRate='25' ttp:tickRate='10000000'",
       "><div><p begin='00:00:01:05' end='15000000t'>a</p></div>", "1200-1500 a\n"},
      {"spans with their own timing split a paragraph", "",
       "><div><p begin='1s' end='5s'>A <span begin='1s' end='2s'>B</span> "
       "<span begin='3s'>C</span></p></div>",
       "1000-2000 A\n2000-3000 A B\n3000-4000 A\n4000-5000 A C\n"},
      {"words added one by one keep the cue when nothing changes", "",
       "><div><p begin='0s' end='3s'><span>one</span> <span begin='1s'>two</span>"
       " <span begin='1s' end='3s'>three</span></p></div>",
       "0-1000 one\n1000-3000 one two three\n"},
      {"a paragraph whose text is all timed is shown only when there is text", "",
       "><div><p begin='0s' end='4s'><span begin='1s' end='2s'>x</span>"
       "<span begin='3s'>y</span></p></div>",
       "1000-2000 x\n3000-4000 y\n"},
      {"overlapping paragraphs are separate cues, sorted by start", "",
       "><div><p begin='2s' end='4s'>late</p><p begin='1s' end='5s'>early</p>"
       "<p begin='2s' end='3s'>same</p></div>",
       "1000-5000 early\n2000-4000 late\n2000-3000 same\n"},
      {"an untimed paragraph whose text is all in timed spans", "",
       "><div><p>\n <span begin='1s' end='2s'>a</span>\n</p></div>", "1000-2000 a\n"},
      {"a child beginning after its parent ends is never shown", "",
       "><div begin='0s' end='2s'><p begin='3s' end='4s'>a</p></div>", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Cues(Document(c.root, "", c.body)), c.want) << c.name;
  }
}

// Text shown without an end lasts until the document's last time, or is refused when it begins
// no earlier than that.
TEST(TimedTextCues, IndefiniteEnds) {
  struct Case {
    const char* name;
    const char* body;  // from just after "<body"
    const char* want;
  };
  const Case cases[] = {
      {"paragraphs with only a begin end at the latest end",
       "><div><p begin='0s'>a</p>"
       "<p begin='1s'>b</p><p begin='2s' end='5s'>c</p></div>",
       "0-5000 a\n1000-5000 b\n2000-5000 c\n2 cut at 5000\n"},
      {"the last time can be a begin, and timed spans split the cut paragraph",
       "><div><p begin='1s'>A <span begin='2s'>B</span></p><p begin='3s' dur='1s'>c</p></div>",
       "1000-3000 A\n3000-4000 A B\n3000-4000 c\n1 cut at 4000\n"},
      {"a span beginning at the last time is not shown",
       "><div><p>A<span begin='2s'>B</span></p></div>", "0-2000 A\n1 cut at 2000\n"},
      {"the last time is that of the timeline, after clipping",
       "><div end='10s'><p begin='12s' end='20s'>x</p></div><div><p begin='1s'>y</p></div>",
       "1000-10000 y\n1 cut at 10000\n"},
      {"a paragraph showing nothing at its indefinite end is not counted",
       "><div><p>\n<span begin='1s' end='2s'>a</span>\n</p><p begin='3s' end='4s'>b</p></div>",
       "1000-2000 a\n3000-4000 b\n"},
      {"nothing in the document after the begin",
       "><div><p begin='1s' end='2s'>a</p><p begin='2s'>b</p></div>",
       "error: the p element at line 4 is shown but never ends: give it (or an element around it) "
       "an end or dur"},
      {"lines counted over CR LF and a lone CR", ">\r\n<div>\r<p begin='2s'>b</p></div>",
       "error: the p element at line 6 is shown but never ends: give it (or an element around it) "
       "an end or dur"},
      {"a document without any time", " timeContainer='seq'><div><p>a</p></div>",
       "error: the p element at line 4 is shown but never ends: give it (or an element around it) "
       "an end or dur"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Cues(Document("", "", c.body)), c.want) << c.name;
  }
}

TEST(TimedTextCues, ContentAndStyles) {
  const char* head =
      "<styling><style xml:id='b' tts:fontWeight='bold'/>"
      "<style xml:id='i' tts:fontStyle='italic'/>"
      "<style xml:id='bi' style='b' tts:fontStyle='oblique'/>"
      "<style xml:id='loop1' style='loop2' tts:textDecoration='underline'/>"
      "<style xml:id='loop2' style='loop1'/></styling>";
  struct Case {
    const char* name;
    const char* paragraph;  // inside <p begin='0s' end='1s'>
    const char* want;
  };
  const Case cases[] = {
      {"br is a line break, whitespace collapsed and trimmed",
       "\n   Hello\t  <span>there</span>  <br/>  second   line \n", "Hello there\nsecond line"},
      {"xml:space preserve keeps spaces and newlines",
       "<span xml:space='preserve'>  a  b\nc</span>", "  a  b\nc"},
      {"empty lines are dropped", "a<br/><br/> <br/>b", "a\nb"},
      {"whitespace after a kept space collapses into it",
       "<span xml:space='preserve'>a </span> \n b<span xml:space='preserve'>\t</span> c", "a b\tc"},
      {"markup characters are escaped", "1 &lt; 2 &amp;&amp; 3 &gt; 2 --&gt; x",
       "1 &lt; 2 &amp;&amp; 3 &gt; 2 --&gt; x"},
      {"inline styles",
       "<span tts:fontWeight='bold'>B</span> <span tts:fontStyle='italic'>I</span> "
       "<span tts:textDecoration='underline'>U</span>",
       "<b>B</b> <i>I</i> <u>U</u>"},
      {"referenced and chained styles", "<span style='bi'>x</span><span style='b i'>y</span>",
       "<b><i>xy</i></b>"},
      {"inherited styles, overridden lower down",
       "<span style='b'>a <span tts:fontWeight='normal'>b</span> <span style='i'>c</span></span>",
       "<b>a </b>b<b> </b><b><i>c</i></b>"},
      {"a style cycle is harmless", "<span style='loop1'>u</span>", "<u>u</u>"},
      {"a styled run across a line break is closed and reopened",
       "<span style='i'>one<br/>two</span>", "<i>one</i>\n<i>two</i>"},
      {"unknown elements and foreign namespaces are skipped with their content",
       "a<metadata>m</metadata><x:y xmlns:x='urn:x'>z</x:y>b", "ab"},
      {"characters and entities", "caf&#233; \xe2\x99\xaa", "caf\xc3\xa9 \xe2\x99\xaa"},
  };
  for (const Case& c : cases) {
    std::string body = std::string("><div><p begin='0s' end='1s'>") + c.paragraph + "</p></div>";
    EXPECT_EQ(Cues(Document("", head, body)), std::string("0-1000 ") + c.want + "\n") << c.name;
  }
  // An initial element changes where styles start from, below regions and content.
  EXPECT_EQ(Cues(Document("", "<styling><initial tts:fontStyle='italic'/></styling>",
                          "><div><p begin='0s' end='1s'>a <span tts:fontStyle='normal'>b</span>"
                          "</p></div>")),
            "0-1000 <i>a </i>b\n");
  // Whitespace handling given on the root reaches the paragraphs.
  EXPECT_EQ(
      Cues(Document("xml:space='preserve'", "", "><div><p begin='0s' end='1s'>a\n b</p></div>")),
      "0-1000 a\n b\n");
  // Styles given on the body and div reach the paragraphs.
  EXPECT_EQ(Cues(Document("", head,
                          " style='i'><div tts:textDecoration='underline'>"
                          "<p begin='0s' end='1s'>x</p></div>")),
            "0-1000 <i><u>x</u></i>\n");
  // A region's styles (referenced, nested, its own) reach the text shown in it, below every
  // style of the content.
  const std::string regions =
      std::string(head) +
      "<layout><region xml:id='r1' style='b' tts:fontStyle='italic'>"
      "<style tts:textDecoration='underline' tts:fontStyle='normal'/></region>"
      "<region xml:id='r2' tts:textAlign='center' tts:textDecoration='underline'/></layout>";
  EXPECT_EQ(Cues(Document("", regions,
                          "><div><p begin='0s' end='1s' region='r1'>a <span "
                          "tts:fontWeight='normal'>b</span></p>"
                          "<p begin='1s' end='2s' region='r2' style='b'>c <span "
                          "tts:textDecoration='none'>d</span></p></div>")),
            "0-1000 <b><i><u>a </u></i></b><i><u>b</u></i>\n"
            "1000-2000 {align:center} <b><u>c </u></b><b>d</b>\n");
  EXPECT_EQ(Cues(Document("", regions,
                          " region='r1' tts:fontWeight='normal'><div><p begin='0s' end='1s' "
                          "tts:fontStyle='normal'>e</p></div>")),
            "0-1000 <u>e</u>\n");
}

TEST(TimedTextCues, Placement) {
  const char* head =
      "<styling><style xml:id='right' tts:textAlign='right'/></styling><layout>"
      "<region xml:id='bottom' tts:origin='10% 10%' tts:extent='80% 80%' tts:displayAlign='after'/>"
      "<region xml:id='middle' tts:origin='0% 20.5%' tts:extent='50% 30%' "
      "tts:displayAlign='center'/>"
      "<region xml:id='top' tts:origin='25% 5%' tts:extent='90% 10%'/>"
      "<region xml:id='pixels' tts:origin='10px 10px' tts:extent='80% 80%'/></layout>";
  struct Case {
    const char* name;
    const char* div;  // the div's attributes and content
    const char* want;
  };
  const Case cases[] = {
      {"region area and text alignment", "><p region='bottom' tts:textAlign='center'>a</p>",
       "{line:90%,end position:10%,line-left size:80% align:center} a"},
      {"a region inherited, text starting at the start edge", " region='middle'><p>a</p>",
       "{line:35.5%,center position:0%,line-left size:50% align:start} a"},
      {"a box wider than what is left of the area is cut to it", "><p region='top'>a</p>",
       "{line:5% position:25%,line-left size:75% align:start} a"},
      {"an area not in percent gives no box", "><p region='pixels' style='right'>a</p>",
       "{align:right} a"},
      {"alignment from a referenced style, without a region", " style='right'><p>a</p>",
       "{align:right} a"},
      {"an unknown region gives nothing; alignment on a span splits no run",
       "><p region='nowhere'>a<span tts:textAlign='end'>b</span></p>", "ab"},
  };
  for (const Case& c : cases) {
    std::string body = std::string("><div begin='0s' end='1s'") + c.div + "</div>";
    EXPECT_EQ(Cues(Document("", head, body)), std::string("0-1000 ") + c.want + "\n") << c.name;
  }
  // Content cannot leave the region its ancestors name.
  EXPECT_EQ(Cues(Document("", head,
                          " region='top'><div begin='0s' end='1s'><p region='bottom'>gone</p>"
                          "<p region='top'>a<span region='middle'>gone</span></p></div>")),
            "0-1000 {line:5% position:25%,line-left size:75% align:start} a\n");
}

TEST(TimedTextCues, RefusedDocuments) {
  struct Case {
    const char* name;
    std::string xml;
    const char* want;  // the message
  };
  const Case cases[] = {
      {"malformed XML names file and line", Document("", "", "><div><p>a</div>"),
       "in.ttml:4: mismatched tag"},
      {"an empty document", "", "in.ttml:1: no element found"},
      {"a document type declaration",
       "<?xml version='1.0'?>\n<!DOCTYPE tt [<!ENTITY a 'aaaaaaaaaa'>]>\n"
       "<tt xmlns='http://www.w3.org/ns/ttml'><body><div><p end='1s'>&a;</p></div></body></tt>",
       "in.ttml:2: a document type declaration is not accepted"},
      {"not a timed-text root", "<html xmlns='http://www.w3.org/ns/ttml'/>",
       "in.ttml:1: the root element is not a timed-text tt element"},
      {"an unresolvable time names element and attribute",
       Document("", "", "><div>\n<p begin='1s' end='2 s'>a</p></div>"),
       "in.ttml:5: the p element has a end time \"2 s\" that cannot be resolved"},
      {"a frame past the frame rate",
       Document("ttp:frameRate='25'", "", "><div>\n<p begin='00:00:00:25' end='2s'>a</p></div>"),
       "in.ttml:5: the p element has a begin time \"00:00:00:25\" that cannot be resolved"},
      {"an unusable rate", Document("ttp:tickRate='0'", "", "/>"),
       "in.ttml:2: the tt element has an unusable ttp:tickRate"},
      {"another time base", Document("ttp:timeBase='smpte'", "", "/>"),
       "in.ttml:2: the time base \"smpte\" is not supported (only media time is)"},
      {"image subtitles",
       Document("xmlns:smpte='http://www.smpte-ra.org/schemas/2052-1/2010/smpte-tt'", "",
                "><div begin='0s' end='1s' smpte:backgroundImage='#img'/>"),
       "in.ttml:4: image subtitles (backgroundImage) are not supported"},
      {"a paragraph that never ends", Document("", "", ">\n<div><p begin='1s'>a</p></div>"),
       "the p element at line 5 is shown but never ends: give it (or an element around it) an "
       "end or dur"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Cues(c.xml), std::string("error: ") + c.want) << c.name;
  }
  std::string deep = "><div><p end='1s'>";
  for (int i = 0; i < 70; ++i) deep += "<span>";
  EXPECT_EQ(Cues(Document("", "", deep + "x</p></div>")),
            "error: in.ttml:4: elements nested deeper than 64");
  std::string big =
      "><div><p end='1s'>" + std::string(kTimedTextMaxParagraphBytes + 1, 'x') + "</p></div>";
  EXPECT_EQ(Cues(Document("", "", big)),
            "error: in.ttml:4: a paragraph with more than 65536 bytes of text");
  std::string busy = "><div><p begin='0s' end='10000s'>";
  for (int i = 0; i < 1100; ++i) busy += "<span begin='" + std::to_string(i) + "s'>x</span>";
  EXPECT_EQ(Cues(Document("", "", busy + "</p></div>")),
            "error: the p element at line 4 changes its text more than 1024 times");
}

}  // namespace
