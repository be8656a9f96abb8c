// Which tags belong to which kind of playlist: media segment and media playlist tags never
// appear in a master playlist, master playlist tags never in a media playlist.
#pragma once

#include <string_view>

bool IsMediaPlaylistTag(std::string_view tag);
bool IsMasterPlaylistTag(std::string_view tag);
