// Display names of subtitle streams, and the user's preferred languages read from the
// environment.
#include "driver/track_display_name.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

namespace {

TEST(TrackDisplayName, ChoosesByPreferredLanguagesThenFallsBack) {
  const MxDictionary names = {
      {"de", MxValue("Deutsch")}, {"en", MxValue("English")}, {"fr-CA", MxValue("Canadien")}};
  const MxDictionary nameless = {{"en", MxValue(int64_t(3))}};
  const MxDictionary empty;
  struct Case {
    const char* name;
    const MxDictionary* names;
    std::optional<std::string> language;
    long number;
    const char* suffix;
    std::vector<std::string> preferred;
    const char* expected;
  };
  const Case cases[] = {
      {"best match by region", &names, "en", 1, nullptr, {"en_GB"}, "English"},
      {"first preference that fits", &names, "en", 1, nullptr, {"ja", "fr"}, "Canadien"},
      {"nothing fits: first key", &names, "en", 1, nullptr, {"ja"}, "Deutsch"},
      {"no preferences: first key", &names, "en", 1, nullptr, {}, "Deutsch"},
      {"suffix after a name", &names, "en", 1, "(forced)", {"en"}, "English (forced)"},
      {"empty suffix", &names, "en", 1, "", {"en"}, "English"},
      {"no names: language and number", nullptr, "fr", 3, nullptr, {}, "fr 3"},
      {"no names, forced", nullptr, "en", 2, "(forced)", {}, "en (forced) 2"},
      {"no names, no language", nullptr, std::nullopt, 3, nullptr, {}, "track 3"},
      {"empty names ignore the language", &empty, "fr", 3, nullptr, {}, "track 3"},
      {"names without text", &nameless, "en", 4, "(forced)", {"en"}, "track (forced) 4"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(
        CopyTrackDisplayNameForLanguages(c.names, c.language, c.number, c.suffix, c.preferred),
        c.expected)
        << c.name;
  }
}

TEST(TrackDisplayName, PreferredLanguagesComeFromTheLocaleVariables) {
  const char* const kVariables[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
  struct Case {
    const char* values[4];  // as kVariables, null for unset
    std::vector<std::string> expected;
  };
  const Case cases[] = {
      {{"fr_CA:en", "de_DE.UTF-8", nullptr, nullptr}, {"fr_CA", "en"}},
      {{"", nullptr, "pt_BR.UTF-8@x", "en_US"}, {"pt_BR"}},
      {{nullptr, "C", "de_DE", "de_DE"}, {}},
  };
  auto set = [](const char* name, const char* value) {
    (void)(value ? setenv(name, value, 1) : unsetenv(name));
  };
  std::vector<std::optional<std::string>> saved;
  for (const char* name : kVariables) {
    const char* value = getenv(name);
    saved.push_back(value ? std::optional<std::string>(value) : std::nullopt);
  }
  for (const Case& c : cases) {
    for (size_t i = 0; i < 4; ++i) set(kVariables[i], c.values[i]);
    EXPECT_EQ(PreferredLanguagesFromEnvironment(), c.expected);
  }
  for (size_t i = 0; i < 4; ++i) set(kVariables[i], saved[i] ? saved[i]->c_str() : nullptr);
}

}  // namespace
