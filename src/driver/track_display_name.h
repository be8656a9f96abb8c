// The name a subtitle stream is shown under: the track's own name in the language that best fits
// the user's preferred languages, else one made of the language (or the word "track") and the
// stream's number.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "media/core/value.h"

// The user's preferred languages: the colon-separated LANGUAGE list, else the first of LC_ALL,
// LC_MESSAGES and LANG that is set; "C" and "POSIX" mean none. Codesets and modifiers
// ("en_US.UTF-8@euro") are dropped.
std::vector<std::string> PreferredLanguagesFromEnvironment();

// `names` maps localization identifiers to names (or is none); `suffix` is "(forced)" or none.
std::string CopyTrackDisplayName(const MxDictionary* names,
                                 const std::optional<std::string>& language, long number,
                                 const char* suffix);
// The same with the preferred languages given.
std::string CopyTrackDisplayNameForLanguages(const MxDictionary* names,
                                             const std::optional<std::string>& language,
                                             long number, const char* suffix,
                                             const std::vector<std::string>& preferred);
