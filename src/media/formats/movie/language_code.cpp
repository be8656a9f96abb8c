#include "media/formats/movie/language_code.h"

#include <unicode/uloc.h>

#include <cstring>
#include <map>
#include <vector>

namespace {

// ISO 639-1 codes of the classic language numbers, by number; empty where no language is
// assigned.
constexpr const char* kClassicLanguages[] = {
    "en", "fr", "de", "it", "nl", "sv", "es", "da", "pt", "no",  // 0-9
    "he", "ja", "ar", "fi", "el", "is", "mt", "tr", "hr", "zh",  // 10-19
    "ur", "hi", "th", "ko", "lt", "pl", "hu", "et", "lv", "se",  // 20-29
    "fo", "fa", "ru", "zh", "nl", "ga", "sq", "ro", "cs", "sk",  // 30-39
    "sl", "yi", "sr", "mk", "bg", "uk", "be", "uz", "kk", "az",  // 40-49
    "az", "hy", "ka", "ro", "ky", "tg", "tk", "mn", "mn", "ps",  // 50-59
    "ku", "ks", "sd", "bo", "ne", "sa", "mr", "bn", "as", "gu",  // 60-69
    "pa", "or", "ml", "kn", "ta", "te", "si", "my", "km", "lo",  // 70-79
    "vi", "id", "tl", "ms", "ms", "am", "ti", "om", "so", "sw",  // 80-89
    "rw", "rn", "ny", "mg", "eo", "",   "",   "",   "",   "",    // 90-99
    "",   "",   "",   "",   "",   "",   "",   "",   "",   "",    // 100-109
    "",   "",   "",   "",   "",   "",   "",   "",   "",   "",    // 110-119
    "",   "",   "",   "",   "",   "",   "",   "",   "cy", "eu",  // 120-129
    "ca", "la", "qu", "gn", "ay", "tt", "ug", "dz", "jv", "su",  // 130-139
    "gl", "af", "br", "iu", "gd", "gv", "ga", "to", "el", "kl",  // 140-149
    "az", "nn",                                                  // 150-151
};

// ISO 639-2/T code to ISO 639-1 code, from the locale library's language list.
const std::map<std::string, std::string, std::less<>>& TwoLetterCodes() {
  static const std::map<std::string, std::string, std::less<>> table = [] {
    std::map<std::string, std::string, std::less<>> m;
    for (const char* const* code = uloc_getISOLanguages(); code && *code; ++code) {
      if (strlen(*code) != 2) continue;
      const char* three = uloc_getISO3Language(*code);
      if (three && strlen(three) == 3) m.emplace(three, *code);
    }
    return m;
  }();
  return table;
}

bool IsAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool AllOf(std::string_view s, bool (*pred)(char)) {
  for (char c : s)
    if (!pred(c)) return false;
  return true;
}
bool IsAlnum(char c) {
  return IsAlpha(c) || IsDigit(c);
}

}  // namespace

std::string ShortestLanguageCode(std::string_view threeLetters) {
  const auto& table = TwoLetterCodes();
  auto it = table.find(threeLetters);
  return it != table.end() ? it->second : std::string(threeLetters);
}

std::string LanguageTagFromMediaLanguage(uint16_t code) {
  if (code < 0x400) {
    if (code < std::size(kClassicLanguages) && kClassicLanguages[code][0] != '\0')
      return kClassicLanguages[code];
    return "und";
  }
  char letters[3];
  for (int i = 0; i < 3; ++i) {
    const int v = (code >> (10 - 5 * i)) & 0x1F;
    const char c = char(0x60 + v);
    if (c < 'a' || c > 'z') return "und";
    letters[i] = c;
  }
  const std::string_view three(letters, 3);
  if (three == "und") return "und";
  return ShortestLanguageCode(three);
}

bool IsWellFormedLanguageTag(std::string_view tag) {
  std::vector<std::string_view> subtags;
  size_t start = 0;
  while (true) {
    const size_t dash = tag.find('-', start);
    const std::string_view subtag =
        tag.substr(start, dash == std::string_view::npos ? std::string_view::npos : dash - start);
    if (subtag.empty() || subtag.size() > 8 || !AllOf(subtag, IsAlnum)) return false;
    subtags.push_back(subtag);
    if (dash == std::string_view::npos) break;
    start = dash + 1;
  }

  size_t i = 0;
  auto privateUse = [&](size_t from) {
    // "x" followed by one or more subtags of 1 to 8 characters.
    return from + 1 < subtags.size();
  };
  auto isSingleton = [](std::string_view s) { return s.size() == 1; };
  auto isX = [](std::string_view s) { return s == "x" || s == "X"; };

  if (isX(subtags[0])) return privateUse(0);
  // Language: 2-3 letters with up to three 3-letter extended subtags, or 4-8 letters.
  const std::string_view language = subtags[0];
  if (language.size() < 2 || !AllOf(language, IsAlpha)) return false;
  i = 1;
  if (language.size() <= 3) {
    for (int n = 0;
         n < 3 && i < subtags.size() && subtags[i].size() == 3 && AllOf(subtags[i], IsAlpha); ++n)
      ++i;
  }
  // Script.
  if (i < subtags.size() && subtags[i].size() == 4 && AllOf(subtags[i], IsAlpha)) ++i;
  // Region.
  if (i < subtags.size() && ((subtags[i].size() == 2 && AllOf(subtags[i], IsAlpha)) ||
                             (subtags[i].size() == 3 && AllOf(subtags[i], IsDigit))))
    ++i;
  // Variants.
  while (i < subtags.size() &&
         (subtags[i].size() >= 5 || (subtags[i].size() == 4 && IsDigit(subtags[i][0]))))
    ++i;
  // Extensions: a singleton other than "x" and one or more subtags of 2 to 8 characters.
  while (i < subtags.size() && isSingleton(subtags[i]) && !isX(subtags[i])) {
    size_t j = i + 1;
    while (j < subtags.size() && subtags[j].size() >= 2) ++j;
    if (j == i + 1) return false;
    i = j;
  }
  if (i < subtags.size() && isX(subtags[i])) return privateUse(i);
  return i == subtags.size();
}
