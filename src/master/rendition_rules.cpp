#include "master/rendition_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>

namespace {

constexpr const char* kQuotedAttributes[] = {"GROUP-ID",        "NAME",    "LANGUAGE",
                                             "ASSOC-LANGUAGE",  "URI",     "INSTREAM-ID",
                                             "CHARACTERISTICS", "CHANNELS"};
constexpr const char* kFlagAttributes[] = {"DEFAULT", "AUTOSELECT", "FORCED"};
constexpr const char* kRequiredAttributes[] = {"TYPE", "GROUP-ID", "NAME"};

constexpr std::array<std::string_view, 13> kPublicCharacteristics = {
    "public.accessibility.transcribes-spoken-dialog",
    "public.accessibility.describes-music-and-sound",
    "public.accessibility.describes-video",
    "public.accessibility.enhances-speech-intelligibility",
    "public.easy-to-read",
    "public.main-program-content",
    "public.auxiliary-content",
    "public.original-content",
    "public.translation",
    "public.translation.dubbed",
    "public.translation.voice-over",
    "public.subtitles.forced-only",
    "public.machine-generated",
};

// Two or more labels of letters, digits and '-', separated by dots; the first starts with a
// letter.
bool IsReverseDnsName(std::string_view name) {
  if (name.empty() || !std::isalpha(static_cast<unsigned char>(name[0]))) return false;
  size_t labels = 0;
  for (size_t start = 0; start <= name.size(); labels++) {
    size_t dot = std::min(name.find('.', start), name.size());
    std::string_view label = name.substr(start, dot - start);
    if (label.empty()) return false;
    for (char c : label)
      if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-') return false;
    start = dot + 1;
  }
  return labels >= 2;
}

std::string Where(const Rendition& r) {
  return r.file + ":" + std::to_string(r.line);
}

void CheckOne(const Rendition& r, size_t index, std::vector<RenditionFinding>* findings) {
  auto add = [&](RenditionRule rule, std::string message) {
    findings->push_back({rule, index, std::move(message)});
  };
  const AttributeList& a = r.attributes;
  for (const char* name : kRequiredAttributes)
    if (!a.Has(name)) add(RenditionRule::kRequiredAttribute, std::string("no ") + name);
  for (const char* name : kQuotedAttributes) {
    const PlaylistAttribute* attribute = a.Find(name);
    if (attribute && !attribute->quoted)
      add(RenditionRule::kAttributeForm, std::string(name) + " must be a quoted string");
  }
  for (const char* name : kFlagAttributes) {
    const PlaylistAttribute* attribute = a.Find(name);
    if (attribute && (attribute->quoted || (attribute->value != "YES" && attribute->value != "NO")))
      add(RenditionRule::kAttributeForm, std::string(name) + " must be YES or NO");
  }
  const PlaylistAttribute* type = a.Find("TYPE");
  if (type && (type->quoted || (type->value != "AUDIO" && type->value != "VIDEO" &&
                                type->value != "SUBTITLES" && type->value != "CLOSED-CAPTIONS")))
    add(RenditionRule::kAttributeForm, "TYPE must be AUDIO, VIDEO, SUBTITLES or CLOSED-CAPTIONS");
  bool subtitles = a.Value("TYPE") == "SUBTITLES";
  if (subtitles && !a.Has("URI"))
    add(RenditionRule::kRequiredAttribute, "a subtitle rendition needs a URI");
  if (a.Value("TYPE") == "CLOSED-CAPTIONS" && a.Has("URI"))
    add(RenditionRule::kAttributeForm, "a closed-caption rendition must not have a URI");
  if (!subtitles && a.Has("FORCED"))
    add(RenditionRule::kForcedOnlySubtitles, "FORCED is allowed only on subtitle renditions");
  if (AttributeIsYes(a, "DEFAULT") && a.Has("AUTOSELECT") && !AttributeIsYes(a, "AUTOSELECT"))
    add(RenditionRule::kDefaultNeedsAutoselect, "DEFAULT=YES needs AUTOSELECT=YES");
  const PlaylistAttribute* characteristics = a.Find("CHARACTERISTICS");
  if (characteristics && characteristics->quoted) {
    std::string problem = FindCharacteristicsProblem(characteristics->value);
    if (!problem.empty()) add(RenditionRule::kCharacteristics, "CHARACTERISTICS: " + problem);
  }
}

}  // namespace

std::string FindCharacteristicsProblem(std::string_view list) {
  if (list.empty()) return "an empty list";
  for (size_t start = 0; start <= list.size();) {
    size_t comma = std::min(list.find(',', start), list.size());
    std::string_view name = list.substr(start, comma - start);
    start = comma + 1;
    if (name.empty()) return "an empty name in the list";
    const std::string quoted = "\"" + std::string(name) + "\"";
    if (!IsReverseDnsName(name)) return quoted + " is not a reverse-DNS name";
    // The public namespace is closed: a name in it that players do not know is a misspelling.
    if (name.starts_with("public.") &&
        std::find(kPublicCharacteristics.begin(), kPublicCharacteristics.end(), name) ==
            kPublicCharacteristics.end())
      return quoted + " is not a known public characteristic";
  }
  return {};
}

bool AttributeIsYes(const AttributeList& attributes, std::string_view name) {
  const PlaylistAttribute* attribute = attributes.Find(name);
  return attribute && !attribute->quoted && attribute->value == "YES";
}

std::vector<RenditionFinding> CheckRenditions(const std::vector<Rendition>& renditions) {
  std::vector<RenditionFinding> findings;
  struct Group {
    const Rendition* firstDefault = nullptr;
    std::map<std::string, const Rendition*> names;
    std::map<std::string, const Rendition*> autoselectChoices;
  };
  std::map<std::string, Group> groups;
  for (size_t i = 0; i < renditions.size(); i++) {
    const Rendition& r = renditions[i];
    CheckOne(r, i, &findings);
    const AttributeList& a = r.attributes;
    if (!a.Has("TYPE") || !a.Has("GROUP-ID")) continue;
    std::string groupId(a.Value("GROUP-ID"));
    Group& group = groups[std::string(a.Value("TYPE")) + '\n' + groupId];
    if (AttributeIsYes(a, "DEFAULT")) {
      if (group.firstDefault) {
        findings.push_back({RenditionRule::kOneDefaultPerGroup, i,
                            "a second DEFAULT=YES in group \"" + groupId + "\" (the first is at " +
                                Where(*group.firstDefault) + ")"});
      } else {
        group.firstDefault = &r;
      }
    }
    if (a.Has("NAME")) {
      auto [it, fresh] = group.names.emplace(a.Value("NAME"), &r);
      if (!fresh)
        findings.push_back({RenditionRule::kUniqueName, i,
                            "NAME \"" + std::string(a.Value("NAME")) +
                                "\" is already used in group \"" + groupId + "\" at " +
                                Where(*it->second)});
    }
    if (AttributeIsYes(a, "AUTOSELECT")) {
      std::string choice = std::string(a.Value("LANGUAGE")) + '\n' +
                           std::string(a.Value("ASSOC-LANGUAGE")) + '\n' +
                           (AttributeIsYes(a, "FORCED") ? "YES" : "NO") + '\n' +
                           std::string(a.Value("CHARACTERISTICS"));
      auto [it, fresh] = group.autoselectChoices.emplace(choice, &r);
      if (!fresh)
        findings.push_back(
            {RenditionRule::kDistinctAutoselect, i,
             "AUTOSELECT=YES with the same LANGUAGE, ASSOC-LANGUAGE, FORCED and CHARACTERISTICS "
             "as the rendition at " +
                 Where(*it->second)});
    }
  }
  return findings;
}
