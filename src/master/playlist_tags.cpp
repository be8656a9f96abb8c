#include "master/playlist_tags.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, 13> kMediaPlaylistTags = {
    "#EXTINF",
    "#EXT-X-BYTERANGE",
    "#EXT-X-DISCONTINUITY",
    "#EXT-X-KEY",
    "#EXT-X-MAP",
    "#EXT-X-PROGRAM-DATE-TIME",
    "#EXT-X-DATERANGE",
    "#EXT-X-TARGETDURATION",
    "#EXT-X-MEDIA-SEQUENCE",
    "#EXT-X-DISCONTINUITY-SEQUENCE",
    "#EXT-X-ENDLIST",
    "#EXT-X-PLAYLIST-TYPE",
    "#EXT-X-I-FRAMES-ONLY",
};

constexpr std::array<std::string_view, 5> kMasterPlaylistTags = {
    "#EXT-X-MEDIA",        "#EXT-X-STREAM-INF",  "#EXT-X-I-FRAME-STREAM-INF",
    "#EXT-X-SESSION-DATA", "#EXT-X-SESSION-KEY",
};

}  // namespace

bool IsMediaPlaylistTag(std::string_view tag) {
  return std::find(kMediaPlaylistTags.begin(), kMediaPlaylistTags.end(), tag) !=
         kMediaPlaylistTags.end();
}

bool IsMasterPlaylistTag(std::string_view tag) {
  return std::find(kMasterPlaylistTags.begin(), kMasterPlaylistTags.end(), tag) !=
         kMasterPlaylistTags.end();
}
