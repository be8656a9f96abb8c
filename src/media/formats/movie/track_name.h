// The text of a track's 'name' user-data box made fit for a playlist line.
#pragma once

#include <string>
#include <string_view>

// Control characters become spaces (a name lands in one playlist line); bytes that are not
// valid UTF-8 become U+FFFD.
std::string TrackNameFromUserData(std::string_view raw);
