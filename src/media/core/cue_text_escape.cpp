#include "media/core/cue_text_escape.h"

void AppendCueTextEscaped(std::string* out, std::string_view text) {
  size_t plainStart = 0;
  for (size_t i = 0; i < text.size(); ++i) {
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
