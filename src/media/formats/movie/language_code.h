// Language tags of movie tracks: the media header's packed ISO 639-2/T code (or a classic
// language number) in its shortest BCP 47 form, and the syntax check for extended language tags.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// "eng" gives "en", a code without a two-letter form keeps its three letters ("haw"), and a code
// with letters outside a-z gives "und". Numbers below 0x400 are classic language numbers
// (0 English, 1 French, 2 German, ...); one without a known language gives "und".
std::string LanguageTagFromMediaLanguage(uint16_t code);

// The shortest form of a three-letter ISO 639-2/T code: its ISO 639-1 code where one exists,
// otherwise the code itself.
std::string ShortestLanguageCode(std::string_view threeLetters);

// Whether `tag` is a well-formed BCP 47 language tag (RFC 5646 syntax: subtags of ASCII letters
// and digits joined by single hyphens, in the order language, extended language, script, region,
// variants, extensions, private use; or a private-use tag alone). Such a tag never holds '/',
// '.', or a control character.
bool IsWellFormedLanguageTag(std::string_view tag);
