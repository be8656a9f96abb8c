// Adding one rendition to a master, in memory: where it goes, which group it joins, what its
// line holds, and each refusal with its status and message.
#include "master/master_add.h"

#include <gtest/gtest.h>

namespace {

const std::string kSubs =
    "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"English\",DEFAULT=YES,AUTOSELECT=YES,"
    "LANGUAGE=\"en\",URI=\"en/p.m3u8\"\n";

const std::string kMaster = "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aac\",NAME=\"Main\"\n" +
                            kSubs +
                            "#EXT-X-STREAM-INF:BANDWIDTH=1,AUDIO=\"aac\",SUBTITLES=\"subs\"\n"
                            "v.m3u8\n"
                            "#EXT-X-STREAM-INF:BANDWIDTH=2\n"
                            "w.m3u8\n";

constexpr const char* kMedia = "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\na.webvtt\n";

AddedRendition French() {
  AddedRendition added;
  added.playlistName = "fr/p.m3u8";
  added.playlistText = kMedia;
  added.uri = "fr/p.m3u8";
  added.name =
      "Fran\xC3\xA7"
      "ais";
  added.language = "fr-CA";
  return added;
}

std::string Line(const std::string& group, const std::string& middle) {
  return "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"" + group + "\"," + middle + "\n";
}

const std::string kFrench =
    "NAME=\"Fran\xC3\xA7"
    "ais\",DEFAULT=NO,AUTOSELECT=NO,FORCED=NO,LANGUAGE=\"fr-CA\","
    "URI=\"fr/p.m3u8\"";

TEST(MasterAdd, JoinsTheGroupAfterItsMembersAndEveryVariantRefersToIt) {
  struct Case {
    const char* what;
    std::string master;
    AddedRendition added;
    std::string expected;  // the whole text, or a part of it
    std::string note{};
    MergeOptions options{"", false};
  };
  AddedRendition captions = French();
  captions.name = "Say \"hi\"\r\nnow";
  captions.isDefault = true;
  captions.forced = true;
  captions.characteristics =
      "public.accessibility.transcribes-spoken-dialog,public.accessibility.describes-music-and-"
      "sound";
  AddedRendition second = French();
  second.isDefault = true;
  // kMaster with French() in `group`, which every variant refers to.
  auto FrenchIn = [](const std::string& group) {
    return "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aac\",NAME=\"Main\"\n" + kSubs +
           Line(group, kFrench) + "#EXT-X-STREAM-INF:BANDWIDTH=1,AUDIO=\"aac\",SUBTITLES=\"" +
           group + "\"\nv.m3u8\n#EXT-X-STREAM-INF:BANDWIDTH=2,SUBTITLES=\"" + group +
           "\"\nw.m3u8\n";
  };
  const std::string defaultNote =
      "the added rendition: a second DEFAULT=YES in group \"subs\" (the first is at master:3)";
  const Case cases[] = {
      {"the master's own group", kMaster, French(), FrenchIn("subs")},
      {"a master without a subtitle group; a name made quotable",
       "#EXTM3U\n#EXT-X-MEDIA:TYPE=SUBTITLES,NAME=\"X\"\n#EXT-X-STREAM-INF:BANDWIDTH=1\nv.m3u8",
       captions,
       "#EXTM3U\n#EXT-X-MEDIA:TYPE=SUBTITLES,NAME=\"X\"\n" +
           Line("subtitles",
                "NAME=\"Say 'hi'  now\",DEFAULT=YES,AUTOSELECT=YES,FORCED=YES,LANGUAGE=\"fr-CA\","
                "CHARACTERISTICS=\"public.accessibility.transcribes-spoken-dialog,"
                "public.accessibility.describes-music-and-sound\",URI=\"fr/p.m3u8\"") +
           "#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"subtitles\"\nv.m3u8"},
      {"a new group named", kMaster, French(), FrenchIn("more"), "", {"more", false}},
      {"after a last line without a terminator",
       "#EXTM3U\r\n#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"s\"\r\nv.m3u8\r\n"
       "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"A\",URI=\"a.m3u8\"",
       French(),
       "#EXTM3U\r\n#EXT-X-STREAM-INF:BANDWIDTH=1,SUBTITLES=\"s\"\r\nv.m3u8\r\n"
       "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"A\",URI=\"a.m3u8\"\r\n"
       "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\"," +
           kFrench + "\r\n"},
      {"a second default, kept", kMaster, second,
       "\",DEFAULT=YES,AUTOSELECT=YES,FORCED=NO,LANGUAGE=\"fr-CA\"",
       "warning: " + defaultNote + " (kept; --conform makes it DEFAULT=NO)"},
      {"a second default, conformed",
       kMaster,
       second,
       "\",DEFAULT=NO,AUTOSELECT=YES,FORCED=NO,LANGUAGE=\"fr-CA\"",
       "changed the added rendition \"Fran\xC3\xA7"
       "ais\" to DEFAULT=NO: group \"subs\" already has a DEFAULT=YES rendition",
       {"", true}},
      // What the group broke before is left to check: neither changed, warned about nor refused.
      {"a group that breaks rules already",
       kMaster + Line("subs", "NAME=\"B\",DEFAULT=YES") + Line("subs", "NAME=\"B\",DEFAULT=YES"),
       French(),
       Line("subs", "NAME=\"B\",DEFAULT=YES") + Line("subs", "NAME=\"B\",DEFAULT=YES") +
           Line("subs", kFrench),
       "",
       {"", true}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    MergeOutcome outcome;
    ASSERT_EQ(AddSubtitleRendition("master", c.master, c.added, c.options, &outcome), kNoErr)
        << outcome.error;
    if (c.expected.starts_with("#EXTM3U")) {
      EXPECT_EQ(outcome.text, c.expected);
    } else {
      EXPECT_NE(outcome.text.find(c.expected), std::string::npos) << outcome.text;
    }
    EXPECT_EQ(outcome.notes, c.note.empty() ? std::vector<std::string>{} : std::vector{c.note});
  }
}

TEST(MasterAdd, RefusesWhatItCannotAddAndSaysWhy) {
  struct Case {
    const char* what;
    void (*change)(AddedRendition*);
    std::string master;
    Status status;
    const char* error;
  };
  const Case cases[] = {
      {"a NAME taken", [](AddedRendition* a) { a->name = "English"; }, kMaster, kErrPlaylistRule,
       "the added rendition: NAME \"English\" is already used in group \"subs\" at master:3"},
      {"an empty NAME", [](AddedRendition* a) { a->name = ""; }, kMaster, kErrBadArgument,
       "the NAME is empty"},
      {"a Latin-1 NAME", [](AddedRendition* a) { a->name = "\xE9t\xE9"; }, kMaster, kErrBadArgument,
       "the NAME is not valid UTF-8"},
      {"a locale name", [](AddedRendition* a) { a->language = "fr_CA"; }, kMaster, kErrBadArgument,
       "\"fr_CA\" is not a well-formed language tag"},
      {"a word", [](AddedRendition* a) { a->characteristics = "captions"; }, kMaster,
       kErrBadArgument, "CHARACTERISTICS: \"captions\" is not a reverse-DNS name"},
      {"two subtitle groups", [](AddedRendition*) {}, kMaster + Line("x", "NAME=\"X\",URI=\"x\""),
       kErrBadArgument,
       "master has the subtitle groups \"subs\", \"x\"; name the one to use with --group"},
      {"a master playlist to add",
       [](AddedRendition* a) { a->playlistText = "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nv\n"; },
       kMaster, kErrPlaylistSyntax,
       "fr/p.m3u8:2: not a media playlist (#EXT-X-STREAM-INF belongs in a master playlist)"},
      {"a segment to add", [](AddedRendition* a) { a->playlistText = "WEBVTT\n"; }, kMaster,
       kErrPlaylistSyntax, "fr/p.m3u8:1: not a playlist"},
      {"a playlist without target duration",
       [](AddedRendition* a) { a->playlistText = "#EXTM3U\n#EXTINF:1,\na.webvtt\n"; }, kMaster,
       kErrPlaylistSyntax, "fr/p.m3u8: not a media playlist (no #EXT-X-TARGETDURATION)"},
      {"a media playlist as master", [](AddedRendition*) {}, kMedia, kErrPlaylistSyntax,
       "master:2: not a master playlist (#EXT-X-TARGETDURATION"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    AddedRendition added = French();
    c.change(&added);
    MergeOutcome outcome;
    EXPECT_EQ(AddSubtitleRendition("master", c.master, added, {"", false}, &outcome), c.status);
    EXPECT_EQ(outcome.error.rfind(c.error, 0), 0u) << outcome.error;
    EXPECT_EQ(outcome.text, "");
  }
}

}  // namespace
