// Merging fragments into a master playlist, in memory: what is refused, where the renditions go,
// which lines change, and what --conform does.
#include "master/master_merge.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* kMaster =
    "#EXTM3U\n"
    "#EXT-X-VERSION:3\n"
    "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aac\",NAME=\"Main\",URI=\"audio/a.m3u8\"\n"
    "# a comment the merge must keep\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=800000,AUDIO=\"aac\"\n"
    "low/index.m3u8\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=2000000,SUBTITLES=\"old\",AUDIO=\"aac\"\n"
    "high/index.m3u8\n";

std::string Line(const std::string& name, const std::string& flags, const std::string& uri) {
  return "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"" + name + "\"," + flags +
         ",LANGUAGE=\"en\",URI=\"" + uri + "\"\n";
}

const std::string kFragment =
    "#EXTM3U\n" + Line("English", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en2/prog_index.m3u8") +
    Line("English (forced)", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES", "en2-forced/prog_index.m3u8") +
    Line("Second", "DEFAULT=YES,AUTOSELECT=NO,FORCED=NO", "en3/prog_index.m3u8");

Status Merge(const std::string& master, const std::vector<std::string>& fragments,
             MergeOutcome* outcome, MergeOptions options = {}, std::string prefix = "") {
  std::vector<SubtitleFragment> list;
  for (size_t i = 0; i < fragments.size(); i++)
    list.push_back({"frag" + std::to_string(i + 1) + ".m3u8", fragments[i], prefix});
  return MergeSubtitleFragments("master.m3u8", master, list, options, outcome);
}

TEST(MasterMerge, PlacesRenditionsAndPointsEveryVariantAtTheGroup) {
  MergeOutcome outcome;
  ASSERT_EQ(Merge(kMaster, {kFragment}, &outcome, {}, "../subs/"), kNoErr) << outcome.error;
  EXPECT_EQ(
      outcome.text,
      "#EXTM3U\n"
      "#EXT-X-VERSION:3\n"
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aac\",NAME=\"Main\",URI=\"audio/a.m3u8\"\n" +
          Line("English", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "../subs/en2/prog_index.m3u8") +
          Line("English (forced)", "DEFAULT=YES,AUTOSELECT=NO,FORCED=YES",
               "../subs/en2-forced/prog_index.m3u8") +
          Line("Second", "DEFAULT=YES,AUTOSELECT=NO,FORCED=NO", "../subs/en3/prog_index.m3u8") +
          "# a comment the merge must keep\n"
          "#EXT-X-STREAM-INF:BANDWIDTH=800000,AUDIO=\"aac\",SUBTITLES=\"subtitles\"\n"
          "low/index.m3u8\n"
          "#EXT-X-STREAM-INF:BANDWIDTH=2000000,SUBTITLES=\"subtitles\",AUDIO=\"aac\"\n"
          "high/index.m3u8\n");
  // Without --conform the two deliberate breaks are kept, each with a warning.
  ASSERT_EQ(outcome.notes.size(), 4u);  // two DEFAULT without AUTOSELECT, two extra defaults
  for (const std::string& note : outcome.notes)
    EXPECT_EQ(note.rfind("warning: frag1.m3u8:", 0), 0u);

  // A second merge of the same fragment over the result changes nothing.
  MergeOutcome again;
  ASSERT_EQ(Merge(outcome.text, {kFragment}, &again, {}, "../subs/"), kNoErr) << again.error;
  EXPECT_EQ(again.text, outcome.text);
}

TEST(MasterMerge, ConformTurnsTheDeliberateBreaksIntoDefaultNo) {
  MergeOutcome outcome;
  ASSERT_EQ(Merge(kMaster, {kFragment}, &outcome, {"subtitles", true}), kNoErr) << outcome.error;
  EXPECT_NE(outcome.text.find(
                Line("English", "DEFAULT=YES,AUTOSELECT=YES,FORCED=NO", "en2/prog_index.m3u8")),
            std::string::npos);
  EXPECT_NE(outcome.text.find(Line("English (forced)", "DEFAULT=NO,AUTOSELECT=NO,FORCED=YES",
                                   "en2-forced/prog_index.m3u8")),
            std::string::npos);
  EXPECT_EQ(
      outcome.notes,
      (std::vector<std::string>{
          "changed frag1.m3u8:3 \"English (forced)\" to DEFAULT=NO: DEFAULT=YES needs "
          "AUTOSELECT=YES",
          "changed frag1.m3u8:4 \"Second\" to DEFAULT=NO: DEFAULT=YES needs AUTOSELECT=YES"}));

  // Two enabled tracks: only the first keeps DEFAULT=YES, which needs no AUTOSELECT at all.
  std::string twoTracks = Line("A", "DEFAULT=YES", "a.m3u8") +
                          Line("B", "DEFAULT=YES,AUTOSELECT=YES", "b.m3u8") +
                          Line("C", "DEFAULT=NO,AUTOSELECT=YES", "c.m3u8");
  ASSERT_EQ(Merge(kMaster, {twoTracks}, &outcome, {"subtitles", true}), kNoErr);
  EXPECT_NE(outcome.text.find("NAME=\"A\",DEFAULT=YES,"), std::string::npos);
  EXPECT_NE(outcome.text.find("NAME=\"B\",DEFAULT=NO,AUTOSELECT=YES"), std::string::npos);
  ASSERT_EQ(outcome.notes.size(), 2u);  // the change, and two members alike under AUTOSELECT
  EXPECT_EQ(outcome.notes[1].find("warning: frag1.m3u8:3: AUTOSELECT=YES with the same"), 0u);
}

TEST(MasterMerge, ReplacesTheGroupInPlaceAndKeepsOtherGroups) {
  std::string master =
      "#EXTM3U\r\n"
      "#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"subs\"\r\n"
      "v.m3u8\r\n"
      "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"other\",NAME=\"X\",URI=\"x.m3u8\"\r\n"
      "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"Old\",URI=\"old.m3u8\"\r\n"
      "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"Older\",URI=\"older.m3u8\"";
  std::string fragment =
      "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"New\","
      "URI=\"https://cdn.example/new.m3u8\"\n";
  MergeOutcome outcome;
  ASSERT_EQ(Merge(master, {fragment}, &outcome, {"subs", false}, "up/"), kNoErr) << outcome.error;
  EXPECT_EQ(outcome.text,
            "#EXTM3U\r\n"
            "#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"subs\"\r\n"
            "v.m3u8\r\n"
            "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"other\",NAME=\"X\",URI=\"x.m3u8\"\r\n"
            "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"New\","
            "URI=\"https://cdn.example/new.m3u8\"\r\n");
}

TEST(MasterMerge, RefusesWhatIsNotAMasterOrWouldBreakTheRules) {
  const std::string good = Line("English", "DEFAULT=NO", "en.m3u8");
  struct Case {
    const char* what;
    std::string master;
    std::string fragment;  // merged alone, or after `good` when it is `good` itself
    Status status;
    const char* error;  // start of the message
  };
  // Masters refused, with a good fragment; then fragments refused, with a good master.
  const Case cases[] = {
      {"empty master", "", good, kErrPlaylistSyntax, "master.m3u8:1: not a playlist"},
      {"media playlist", "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\na.webvtt\n", good,
       kErrPlaylistSyntax, "master.m3u8:2: not a master playlist (#EXT-X-TARGETDURATION"},
      {"no variants", "#EXTM3U\n#EXT-X-VERSION:3\n", good, kErrPlaylistSyntax,
       "master.m3u8: not a master playlist with variant streams"},
      {"variant without URI", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\n\n", good,
       kErrPlaylistSyntax, "master.m3u8:2: #EXT-X-STREAM-INF is not followed"},
      {"bad variant attributes", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1,,\nv.m3u8\n", good,
       kErrPlaylistSyntax, "master.m3u8:2: #EXT-X-STREAM-INF: attribute name expected"},
      {"byte order mark", "\xEF\xBB\xBF#EXTM3U\n", good, kErrPlaylistSyntax,
       "master.m3u8:1: the playlist starts with a byte order mark"},
      {"fragment with a URI line", kMaster, good + "en.m3u8\n", kErrPlaylistSyntax,
       "frag1.m3u8:2: not a subtitle rendition line"},
      {"audio rendition", kMaster,
       "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"A\",URI=\"a.m3u8\"\n", kErrPlaylistSyntax,
       "frag1.m3u8:1: not a TYPE=SUBTITLES rendition"},
      {"quote inside a name", kMaster, Line("Say \"hi\"", "DEFAULT=NO", "en.m3u8"),
       kErrPlaylistSyntax, "frag1.m3u8:1: #EXT-X-MEDIA: unexpected 'h' after attribute NAME"},
      {"Latin-1 name", kMaster, Line("\xE9t\xE9", "DEFAULT=NO", "fr.m3u8"), kErrPlaylistSyntax,
       "frag1.m3u8:1: the playlist is not valid UTF-8"},
      {"empty fragment", kMaster, "#EXTM3U\n", kErrPlaylistSyntax,
       "frag1.m3u8: holds no #EXT-X-MEDIA"},
      {"same name in two fragments", kMaster, good, kErrPlaylistRule,
       "frag2.m3u8:1: NAME \"English\" is already used in group \"subtitles\" at frag1.m3u8:1"},
      {"no URI", kMaster, "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"A\",LANGUAGE=\"en\"\n",
       kErrPlaylistRule, "frag1.m3u8:1: a subtitle rendition needs a URI"},
      {"characteristic of no namespace", kMaster, Line("A", "CHARACTERISTICS=\"sdh\"", "a.m3u8"),
       kErrPlaylistRule, "frag1.m3u8:1: CHARACTERISTICS: \"sdh\" is not a reverse-DNS name"},
      {"flag not YES or NO", kMaster, Line("A", "DEFAULT=yes", "a.m3u8"), kErrPlaylistRule,
       "frag1.m3u8:1: DEFAULT must be YES or NO"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    MergeOutcome outcome;
    const bool twice = c.master == kMaster && c.fragment == good;
    EXPECT_EQ(Merge(c.master, twice ? std::vector{good, good} : std::vector{c.fragment}, &outcome),
              c.status);
    EXPECT_EQ(outcome.error.rfind(c.error, 0), 0u) << outcome.error;
  }
  MergeOutcome outcome;
  EXPECT_EQ(Merge(kMaster, {good}, &outcome, {"a\"b", false}), kErrBadArgument);
}

}  // namespace
