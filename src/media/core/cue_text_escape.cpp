#include "media/core/cue_text_escape.h"

namespace {

// '&', '<' and '>' all lie in 0x26..0x3E: one comparison rules out most bytes.
bool MayNeedEntity(char c) {
  return static_cast<unsigned char>(static_cast<unsigned char>(c) - 0x26u) <= 0x3E - 0x26;
}

}  // namespace

void AppendCueTextEscaped(std::string* out, std::string_view text) {
  size_t plainStart = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (!MayNeedEntity(text[i])) continue;
    std::string_view entity;
    switch (text[i]) {
      case '<':
        entity = "&lt;";
        break;
      case '>':
        entity = "&gt;";
        break;
      case '&':
        entity = "&amp;";
        break;
      default:
        continue;
    }
    out->append(text.data() + plainStart, i - plainStart);
    out->append(entity);
    plainStart = i + 1;
  }
  out->append(text.data() + plainStart, text.size() - plainStart);
}
