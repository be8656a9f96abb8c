#include "media/core/cue_text_escape.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighBits = 0x8080808080808080ull;

// True when one of the eight bytes of `word` is `byte`: a byte of `word ^ pattern` is zero
// exactly there, and subtracting one from every byte borrows through its high bit only from a
// zero byte.
bool HasByte(uint64_t word, unsigned char byte) {
  uint64_t x = word ^ (kOnes * byte);
  return ((x - kOnes) & ~x & kHighBits) != 0;
}

}  // namespace

void AppendCueTextEscaped(std::string* out, std::string_view text) {
  size_t plainStart = 0;
  size_t i = 0;
  while (i < text.size()) {
    // Eight bytes at a time past text that needs no entity.
    if (text.size() - i >= 8) {
      uint64_t word;
      std::memcpy(&word, text.data() + i, sizeof word);
      if (!HasByte(word, '<') && !HasByte(word, '>') && !HasByte(word, '&')) {
        i += 8;
        continue;
      }
    }
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
        ++i;
        continue;
    }
    out->append(text.data() + plainStart, i - plainStart);
    out->append(entity);
    plainStart = ++i;
  }
  out->append(text.data() + plainStart, text.size() - plainStart);
}
