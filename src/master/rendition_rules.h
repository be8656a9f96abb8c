// The rules that the EXT-X-MEDIA lines of a master playlist must obey, one line at a time and
// within a group (the renditions sharing TYPE and GROUP-ID).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "master/attribute_list.h"

struct Rendition {
  AttributeList attributes;
  std::string file;  // where the line was read, for messages
  size_t line = 0;
};

enum class RenditionRule {
  kRequiredAttribute,       // TYPE, GROUP-ID and NAME always; URI on subtitles
  kAttributeForm,           // quoted strings, YES/NO flags, a known TYPE; no URI on captions
  kForcedOnlySubtitles,     // FORCED appears only on subtitle renditions
  kDefaultNeedsAutoselect,  // an AUTOSELECT that is given must be YES where DEFAULT=YES
  kOneDefaultPerGroup,      // at most one DEFAULT=YES in a group
  kUniqueName,              // NAME differs between the members of a group
  kDistinctAutoselect,      // AUTOSELECT=YES members differ in LANGUAGE, ASSOC-LANGUAGE,
                            // FORCED or CHARACTERISTICS, so a player can choose between them
  kCharacteristics,         // CHARACTERISTICS lists known or reverse-DNS names
};

struct RenditionFinding {
  RenditionRule rule;
  size_t index;  // into the renditions passed in
  std::string message;
};

std::vector<RenditionFinding> CheckRenditions(const std::vector<Rendition>& renditions);

// CHARACTERISTICS is a comma-separated list of names, each a characteristic of the "public"
// namespace that players know (public.accessibility.transcribes-spoken-dialog, public.easy-to-read,
// ...) or a reverse-DNS name of someone else's (com.example.commentary). Returns an empty text
// when `list` obeys, else what is wrong with the first name that does not.
std::string FindCharacteristicsProblem(std::string_view list);

// YES/NO flags: true only for an unquoted YES.
bool AttributeIsYes(const AttributeList& attributes, std::string_view name);
