#include "driver/track_display_name.h"

#include <unicode/localematcher.h>
#include <unicode/locid.h>

#include <cstdlib>
#include <cstring>

namespace {

bool MeansNoLanguage(const std::string& value) {
  return value.empty() || value == "C" || value == "POSIX";
}

// "en_US.UTF-8@euro" -> "en_US".
std::string WithoutCodesetAndModifier(std::string value) {
  size_t cut = value.find_first_of(".@");
  if (cut != std::string::npos) value.resize(cut);
  return value;
}

// The dictionary key the user's languages fit best, or none when nothing fits well enough.
const std::string* BestMatchingKey(const MxDictionary& names,
                                   const std::vector<std::string>& preferred) {
  if (preferred.empty()) return nullptr;
  std::vector<icu::Locale> supported;
  std::vector<const std::string*> keys;
  for (const auto& [key, value] : names) {
    UErrorCode error = U_ZERO_ERROR;
    icu::Locale locale = icu::Locale::forLanguageTag(key, error);
    if (U_FAILURE(error) || locale.isBogus()) continue;
    supported.push_back(locale);
    keys.push_back(&key);
  }
  std::vector<icu::Locale> desired;
  for (const std::string& language : preferred) {
    icu::Locale locale(language.c_str());  // POSIX form: language_REGION
    if (!locale.isBogus()) desired.push_back(locale);
  }
  if (supported.empty() || desired.empty()) return nullptr;

  UErrorCode error = U_ZERO_ERROR;
  icu::LocaleMatcher matcher = icu::LocaleMatcher::Builder()
                                   .setSupportedLocales(supported.begin(), supported.end())
                                   .setNoDefaultLocale()
                                   .build(error);
  if (U_FAILURE(error)) return nullptr;
  icu::Locale::RangeIterator<std::vector<icu::Locale>::const_iterator> desiredLocales(
      desired.cbegin(), desired.cend());
  icu::LocaleMatcher::Result result = matcher.getBestMatchResult(desiredLocales, error);
  if (U_FAILURE(error)) return nullptr;
  int32_t index = result.getSupportedIndex();
  if (index < 0 || size_t(index) >= keys.size()) return nullptr;
  return keys[size_t(index)];
}

const std::string* NameUnder(const MxDictionary& names, const std::string& key) {
  const MxValue* value = MxDictionaryGetValue(&names, key);
  return value ? value->GetString() : nullptr;
}

}  // namespace

std::vector<std::string> PreferredLanguagesFromEnvironment() {
  std::vector<std::string> languages;
  const char* list = getenv("LANGUAGE");
  if (list != nullptr && *list != '\0') {
    std::string all(list);
    size_t at = 0;
    while (at <= all.size()) {
      size_t colon = all.find(':', at);
      if (colon == std::string::npos) colon = all.size();
      std::string entry = WithoutCodesetAndModifier(all.substr(at, colon - at));
      if (!MeansNoLanguage(entry)) languages.push_back(entry);
      at = colon + 1;
    }
    if (!languages.empty()) return languages;
  }
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    std::string entry = WithoutCodesetAndModifier(value);
    if (!MeansNoLanguage(entry)) languages.push_back(entry);
    break;  // the first one set decides, even when it means none
  }
  return languages;
}

std::string CopyTrackDisplayName(const MxDictionary* names,
                                 const std::optional<std::string>& language, long number,
                                 const char* suffix) {
  return CopyTrackDisplayNameForLanguages(names, language, number, suffix,
                                          PreferredLanguagesFromEnvironment());
}

std::string CopyTrackDisplayNameForLanguages(const MxDictionary* names,
                                             const std::optional<std::string>& language,
                                             long number, const char* suffix,
                                             const std::vector<std::string>& preferred) {
  const bool hasSuffix = suffix != nullptr && *suffix != '\0';
  if (names != nullptr && !names->empty()) {
    const std::string* name = nullptr;
    if (const std::string* key = BestMatchingKey(*names, preferred)) name = NameUnder(*names, *key);
    if (name == nullptr) name = names->begin()->second.GetString();
    if (name != nullptr) return hasSuffix ? *name + " " + suffix : *name;
  }
  // Without a name dictionary the language names the stream; a dictionary that gave no name
  // does not fall back to the language.
  const std::string word = names == nullptr && language ? *language : std::string("track");
  const std::string count = std::to_string(number);
  return hasSuffix ? word + " " + suffix + " " + count : word + " " + count;
}
