// Escaping of plain text for a WebVTT cue payload.
#pragma once

#include <string>
#include <string_view>

// Appends UTF-8 text with "<", ">" and "&" as entities; every other byte as it is, newlines
// included.
void AppendCueTextEscaped(std::string* out, std::string_view text);
