// The rule checks on playlist and segment texts: a clean text gives no problem, and each damaged
// text breaks one rule and gives exactly that problem at its line.
#include "master/playlist_check.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* kCleanMaster =
    "#EXTM3U\n"
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"English\",DEFAULT=YES,AUTOSELECT=YES,"
    "FORCED=NO,LANGUAGE=\"en\",URI=\"en/p.m3u8\"\n"
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"Forced\",DEFAULT=NO,AUTOSELECT=NO,"
    "FORCED=YES,LANGUAGE=\"en\",URI=\"enf/p.m3u8\",CHARACTERISTICS=\"public.subtitles.forced-only,"
    "public.easy-to-read,com.example.kids\"\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=1000,SUBTITLES=\"s\"\n"
    "v.m3u8\n";

constexpr const char* kCleanMedia =
    "#EXTM3U\n"
    "#EXT-X-TARGETDURATION:10\n"
    "#EXT-X-VERSION:3\n"
    "#EXTINF:10.00000,\t\n"
    "a.webvtt\n"
    "#EXTINF:10.49900,\t\n"
    "b.webvtt\n"
    "#EXT-X-ENDLIST\n";

constexpr const char* kCleanSegment =
    "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n00:00:01.000 --> "
    "00:00:02.000\nHi\n";

// `text` with the first occurrence of `from` replaced by `to`.
std::string Damage(const std::string& text, const std::string& from, const std::string& to) {
  size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.substr(0, at) + to + text.substr(at + from.size());
}

using Checker = void (*)(const std::string&, std::string_view, std::vector<PlaylistProblem>*,
                         std::vector<PlaylistReference>*);

void CheckSegment(const std::string& name, std::string_view text,
                  std::vector<PlaylistProblem>* problems, std::vector<PlaylistReference>*) {
  CheckWebVttSegmentHead(name, text, problems);
}

struct Case {
  const char* what;
  Checker check;
  std::string text;
  size_t line;
  const char* message;
};

TEST(PlaylistCheck, EachBrokenRuleIsFoundOnceAtItsLine) {
  const std::string m = kCleanMaster;
  const std::string p = kCleanMedia;
  const std::string s = kCleanSegment;
  const Checker master = CheckMasterPlaylistText;
  const Checker media = CheckSubtitlePlaylistText;
  const Case cases[] = {
      {"unquoted NAME", master, Damage(m, "NAME=\"English\"", "NAME=English"), 2,
       "NAME must be a quoted string"},
      {"unclosed quote", master, Damage(m, "URI=\"en/p.m3u8\"", "URI=\"en/p.m3u8"), 2,
       "#EXT-X-MEDIA: quoted string of URI is not closed"},
      {"duplicate NAME", master, Damage(m, "NAME=\"Forced\"", "NAME=\"English\""), 3,
       "NAME \"English\" is already used in group \"s\" at m:2"},
      {"same language twice under AUTOSELECT", master,
       Damage(Damage(m, "NO,AUTOSELECT=NO,FORCED=YES", "NO,AUTOSELECT=YES,FORCED=NO"),
              ",CHARACTERISTICS", ",X-C"),
       3,
       "AUTOSELECT=YES with the same LANGUAGE, ASSOC-LANGUAGE, FORCED and CHARACTERISTICS as the "
       "rendition at m:2"},
      {"DEFAULT without AUTOSELECT", master,
       Damage(m, "DEFAULT=YES,AUTOSELECT=YES", "DEFAULT=YES,AUTOSELECT=NO"), 2,
       "DEFAULT=YES needs AUTOSELECT=YES"},
      {"two defaults", master, Damage(m, "DEFAULT=NO,AUTOSELECT=NO", "DEFAULT=YES,AUTOSELECT=YES"),
       3, "a second DEFAULT=YES in group \"s\" (the first is at m:2)"},
      {"FORCED on audio", master,
       m + "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"A\",FORCED=NO\n", 6,
       "FORCED is allowed only on subtitle renditions"},
      {"subtitles without URI", master, Damage(m, ",URI=\"enf/p.m3u8\"", ""), 3,
       "a subtitle rendition needs a URI"},
      {"unknown group", master, Damage(m, "SUBTITLES=\"s\"", "SUBTITLES=\"t\""), 4,
       "SUBTITLES=\"t\" names no subtitle group of this playlist"},
      {"no BANDWIDTH", master, Damage(m, "BANDWIDTH=1000,", ""), 4,
       "#EXT-X-STREAM-INF has no BANDWIDTH"},
      {"variant without URI", master, Damage(m, "v.m3u8\n", "#EXT-X-VERSION:3\n"), 4,
       "#EXT-X-STREAM-INF is not followed by a URI line"},
      {"segment tag in a master", master, m + "#EXTINF:1,\n", 6,
       "#EXTINF belongs in a media playlist"},
      {"missing header", master, Damage(m, "#EXTM3U\n", "\n"), 1, "the first line must be #EXTM3U"},
      {"characteristic of no namespace", master, Damage(m, "public.easy-to-read", "sdh"), 3,
       "CHARACTERISTICS: \"sdh\" is not a reverse-DNS name"},
      {"misspelt public characteristic", master,
       Damage(m, "public.easy-to-read", "public.accessibility.transcribes-spoken-dialogue"), 3,
       "CHARACTERISTICS: \"public.accessibility.transcribes-spoken-dialogue\" is not a known "
       "public characteristic"},
      {"white space after a comma", master, Damage(m, ",public.easy", ", public.easy"), 3,
       "CHARACTERISTICS: \" public.easy-to-read\" is not a reverse-DNS name"},
      {"empty label", master, Damage(m, "com.example.kids", "com..kids"), 3,
       "CHARACTERISTICS: \"com..kids\" is not a reverse-DNS name"},
      {"trailing comma", master, Damage(m, "kids\"", "kids,\""), 3,
       "CHARACTERISTICS: an empty name in the list"},
      {"empty list", master,
       Damage(m, "public.subtitles.forced-only,public.easy-to-read,com.example.kids", ""), 3,
       "CHARACTERISTICS: an empty list"},
      {"control character", master, Damage(m, "English", "Eng\x01lish"), 2,
       "the playlist holds the control character U+0001"},
      {"EXTINF above target", media, Damage(p, "10.49900", "10.50000"), 6,
       "#EXTINF duration rounds to 11 s, above the target duration of 10 s"},
      {"no target duration", media, Damage(p, "#EXT-X-TARGETDURATION:10\n", ""), 1,
       "no #EXT-X-TARGETDURATION"},
      {"malformed EXTINF", media, Damage(p, "#EXTINF:10.00000,", "#EXTINF:ten,"), 4,
       "#EXTINF must be a duration in seconds and a comma"},
      {"EXTINF without URI", media, Damage(p, "a.webvtt\n", ""), 4,
       "#EXTINF without a segment URI"},
      {"no ENDLIST", media, Damage(p, "#EXT-X-ENDLIST\n", ""), 7, "no #EXT-X-ENDLIST"},
      {"no WEBVTT line", CheckSegment, Damage(s, "WEBVTT", "WEBVTTX"), 1,
       "does not start with a WEBVTT line"},
      {"no timestamp map", CheckSegment,
       Damage(s, "X-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n", ""), 1,
       "no X-TIMESTAMP-MAP in the segment header"},
      {"map after the header", CheckSegment,
       Damage(s, "X-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n\n",
              "\nX-TIMESTAMP-MAP=MPEGTS:900000,LOCAL:00:00:00.000\n"),
       1, "no X-TIMESTAMP-MAP in the segment header"},
      {"malformed map", CheckSegment, Damage(s, "LOCAL:00:00:00.000", "LOCAL:00:00:60.000"), 2,
       "X-TIMESTAMP-MAP must be MPEGTS:<90 kHz time>,LOCAL:<cue time>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<PlaylistProblem> problems;
    std::vector<PlaylistReference> references;
    c.check("m", c.text, &problems, &references);
    ASSERT_EQ(problems.size(), 1u) << (problems.empty() ? "" : problems[0].message);
    EXPECT_EQ(problems[0].line, c.line);
    EXPECT_EQ(problems[0].message, c.message);
  }
}

TEST(PlaylistCheck, CleanTextsPassAndNameWhatToFollow) {
  std::vector<PlaylistProblem> problems;
  std::vector<PlaylistReference> references;
  // Groups are told apart by type and id together: an audio group may share the subtitle
  // group's id, its own DEFAULT=YES and its NAMEs. Two auto-selected renditions of one language
  // may differ in their characteristics alone.
  CheckMasterPlaylistText(
      "m",
      std::string(kCleanMaster) +
          "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"s\",NAME=\"English\",DEFAULT=YES\n"
          "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"SDH\",AUTOSELECT=YES,FORCED=NO,"
          "LANGUAGE=\"en\",CHARACTERISTICS=\"public.accessibility.transcribes-spoken-dialog\","
          "URI=\"sdh.m3u8\"\n",
      &problems, &references);
  CheckSubtitlePlaylistText("p", kCleanMedia, &problems, &references);
  CheckWebVttSegmentHead("s", kCleanSegment, &problems);
  CheckWebVttSegmentHead("s", "\xEF\xBB\xBFWEBVTT\r\nX-TIMESTAMP-MAP=LOCAL:01:00.500,MPEGTS:0\r\n",
                         &problems);
  EXPECT_TRUE(problems.empty()) << problems[0].file << ":" << problems[0].message;
  ASSERT_EQ(references.size(), 6u);
  EXPECT_EQ(references[0].uri, "en/p.m3u8");
  EXPECT_TRUE(references[0].subtitles);
  EXPECT_EQ(references[2].uri, "v.m3u8");
  EXPECT_FALSE(references[2].subtitles);
  EXPECT_EQ(references[5].uri, "b.webvtt");
  EXPECT_EQ(references[5].line, 7u);

  // Segments after a key other than NONE are marked as encrypted.
  references.clear();
  CheckSubtitlePlaylistText(
      "p",
      Damage(kCleanMedia, "#EXTINF:10.49900", "#EXT-X-KEY:METHOD=AES-128,URI=\"k\"\n#EXTINF:10"),
      &problems, &references);
  ASSERT_EQ(references.size(), 2u);
  EXPECT_FALSE(references[0].encrypted);
  EXPECT_TRUE(references[1].encrypted);
}

}  // namespace
