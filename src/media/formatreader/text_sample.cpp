#include "media/formatreader/text_sample.h"

#include <algorithm>
#include <vector>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/core/text_encoding.h"

const char* const kQorTextAttributeDisplayFlags = "DisplayFlags";
const char* const kQorTextAttributeDisplayHorizontalJust = "HorizontalJust";
const char* const kQorTextAttributeDisplayVerticalJust = "VerticalJust";
const char* const kMxTextMarkupAttribute_BoldStyle = "MxBoldStyle";
const char* const kMxTextMarkupAttribute_ItalicStyle = "MxItalicStyle";
const char* const kMxTextMarkupAttribute_UnderlineStyle = "MxUnderlineStyle";
const char* const kMxTextMarkupAttribute_ForegroundColorARGB = "MxForegroundColorARGB";
const char* const kQorTextAttributeFontSize = "FontSize";
const char* const kMxTextMarkupAttribute_FontFamilyName = "MxFontFamilyName";
const char* const kQorTextAttributeTextWrap = "TextWrap";

namespace {

constexpr FourCC kFrcd = MxFourCC("frcd");
constexpr FourCC kStyl = MxFourCC("styl");
constexpr FourCC kTbox = MxFourCC("tbox");
constexpr FourCC kTwrp = MxFourCC("twrp");
constexpr size_t kStyleRecordSize = 12;

bool IsWebVTT(const MxFormatDescription* description) {
  FourCC subtype = MxFormatDescriptionGetMediaSubType(description);
  return subtype == MxFourCC("wvtt") || subtype == MxFourCC("xvtt");
}

MxValue ARGB(double alpha, double red, double green, double blue) {
  return MxValue(MxArray{MxValue(alpha), MxValue(red), MxValue(green), MxValue(blue)});
}

// The sample's text with its line breaks normalised, and what style records need to find their
// place in it: the stored character (code point) index of every removed line-break pair, and the
// UTF-16 offset of every character of the normalised text (one more at the end). The offsets are
// left empty when every character is one unit, the offset of character i then being i.
struct SampleText {
  std::u16string units;
  int64_t characters = 0;  // of the normalised text
  std::vector<int64_t> breaks;
  std::vector<int64_t> unitOffsets;

  int64_t OffsetOf(int64_t character) const {
    return unitOffsets.empty() ? character : unitOffsets[static_cast<size_t>(character)];
  }

  // The UTF-16 range of stored characters [start, end), or false when it selects nothing.
  bool RangeOf(int64_t start, int64_t end, MxRange* range) const {
    // `breaks` is in ascending order.
    auto first = std::lower_bound(breaks.begin(), breaks.end(), start);
    auto past = end > start ? std::lower_bound(first, breaks.end(), end) : first;
    int64_t before = first - breaks.begin(), inside = past - first;
    int64_t location = start - before;
    int64_t length = (end - start) - inside;
    if (length <= 0 || location < 0 || location >= characters) return false;
    int64_t last = location + length < characters ? location + length : characters;
    *range = {OffsetOf(location), OffsetOf(last) - OffsetOf(location)};
    return true;
  }
};

bool IsLeadSurrogate(char16_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}

Status MakeSampleText(const uint8_t* bytes, size_t size, SampleText* out) {
  std::u16string units;
  Status status;
  if (size >= 2 &&
      ((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF)))
    status = MxTextCreateUTF16FromBytes(bytes + 2, size - 2, bytes[0] == 0xFE, &units);
  else
    status = MxTextCreateUTF16FromUTF8(bytes, size, &units);
  if (status != kNoErr) return status;

  // Only one kind of pair is normalised per sample: CR LF when there is one, else LF CR.
  bool crlf = false, lfcr = false;
  for (size_t i = 0; i + 1 < units.size() && !crlf; ++i) {
    crlf = units[i] == u'\r' && units[i + 1] == u'\n';
    lfcr = lfcr || (units[i] == u'\n' && units[i + 1] == u'\r');
  }
  const char16_t first = crlf ? u'\r' : u'\n', second = crlf ? u'\n' : u'\r';
  const bool normalise = crlf || lfcr;

  out->breaks.clear();
  out->unitOffsets.clear();
  // A surrogate pair is one character of two units (a lead surrogate at the very end is one).
  bool pairs = false;
  for (size_t i = 0; i + 1 < units.size() && !pairs; ++i) pairs = IsLeadSurrogate(units[i]);
  if (!normalise && !pairs) {
    out->characters = static_cast<int64_t>(units.size());
    out->units = std::move(units);
    return kNoErr;
  }

  out->units.clear();
  out->units.reserve(units.size());
  int64_t character = 0;
  for (size_t i = 0; i < units.size(); ++character) {
    if (normalise && units[i] == first && i + 1 < units.size() && units[i + 1] == second) {
      // The pair becomes one LF at the place of its first character.
      out->breaks.push_back(character);
      out->unitOffsets.push_back(static_cast<int64_t>(out->units.size()));
      out->units.push_back(u'\n');
      i += 2;
      ++character;
      continue;
    }
    out->unitOffsets.push_back(static_cast<int64_t>(out->units.size()));
    bool pair = IsLeadSurrogate(units[i]) && i + 1 < units.size();
    out->units.push_back(units[i++]);
    if (pair) out->units.push_back(units[i++]);
  }
  out->unitOffsets.push_back(static_cast<int64_t>(out->units.size()));
  out->characters = static_cast<int64_t>(out->unitOffsets.size()) - 1;
  return kNoErr;
}

// The attributes of a style record: its face, size and colour, and the family name of its font
// when the description names it (timed-text descriptions only).
MxDictionary StyleAttributes(int16_t fontID, uint8_t face, uint8_t size, uint8_t red, uint8_t green,
                             uint8_t blue, uint8_t alpha, const MxFormatDescription* description) {
  MxDictionary attributes{
      {kMxTextMarkupAttribute_BoldStyle, MxValue((face & 1) != 0)},
      {kMxTextMarkupAttribute_ItalicStyle, MxValue((face & 2) != 0)},
      {kMxTextMarkupAttribute_UnderlineStyle, MxValue((face & 4) != 0)},
      {kQorTextAttributeFontSize, MxValue(static_cast<double>(size))},
      {kMxTextMarkupAttribute_ForegroundColorARGB,
       ARGB(alpha / 255.0, red / 255.0, green / 255.0, blue / 255.0)},
  };
  const std::string* fontName = nullptr;
  if (description && !IsWebVTT(description) &&
      MxTextFormatDescriptionGetFontName(description, fontID, &fontName) == kNoErr)
    attributes.emplace(kMxTextMarkupAttribute_FontFamilyName, MxValue(*fontName));
  return attributes;
}

// Adds the style records of a style box to `styles`, in their order, each with the range it
// covers in the string; records that select nothing are dropped.
void ReadStyleBox(MxByteCursor payload, const SampleText& text, QorTextSampleBufferState* state,
                  std::vector<MxRangedAttributes>* styles) {
  uint16_t count = 0;
  if (payload.Size() <= 13 || !payload.ReadU16(&count) ||
      size_t{count} * kStyleRecordSize > payload.Remaining()) {
    // A broken style box only loses the styles: the text is still shown.
    (void)QorSignalErrorAt(kQorTextSampleErrMalformed);
    return;
  }
  for (uint16_t i = 0; i < count; ++i) {
    uint16_t start = 0, end = 0;
    int16_t fontID = 0;
    uint8_t face = 0, size = 0, red = 0, green = 0, blue = 0, alpha = 0;
    if (!payload.ReadU16(&start) || !payload.ReadU16(&end) || !payload.ReadS16(&fontID) ||
        !payload.ReadU8(&face) || !payload.ReadU8(&size) || !payload.ReadU8(&red) ||
        !payload.ReadU8(&green) || !payload.ReadU8(&blue) || !payload.ReadU8(&alpha))
      return;  // cannot happen: the count was checked against the payload
    MxRange range;
    if (!text.RangeOf(start, end, &range)) continue;
    // The record's fields after its range, which make its attributes on this track.
    const uint64_t key = uint64_t{static_cast<uint16_t>(fontID)} << 48 | uint64_t{face} << 40 |
                         uint64_t{size} << 32 | uint64_t{red} << 24 | uint64_t{green} << 16 |
                         uint64_t{blue} << 8 | alpha;
    const std::shared_ptr<const MxDictionary>* attributes = state->styles.Find(key);
    if (attributes == nullptr) {
      attributes = &state->styles.Add(key, StyleAttributes(fontID, face, size, red, green, blue,
                                                           alpha, state->formatDescription.get()));
    }
    styles->push_back({range, *attributes});
  }
}

// The wrap attribute of a text-wrap box: 0 is "None", 1 "AutomaticSoftWrap".
const std::shared_ptr<const MxDictionary>& WrapAttributes(uint8_t wrap) {
  static const std::shared_ptr<const MxDictionary> kWraps[] = {
      std::make_shared<const MxDictionary>(
          MxDictionary{{kQorTextAttributeTextWrap, MxValue("None")}}),
      std::make_shared<const MxDictionary>(
          MxDictionary{{kQorTextAttributeTextWrap, MxValue("AutomaticSoftWrap")}}),
  };
  return kWraps[wrap];
}

}  // namespace

const std::shared_ptr<const MxDictionary>* QorTextStyleCache::Find(uint64_t key) const {
  for (const Entry& entry : entries_) {
    if (entry.key == key) return &entry.attributes;
  }
  return nullptr;
}

const std::shared_ptr<const MxDictionary>& QorTextStyleCache::Add(uint64_t key,
                                                                  MxDictionary attributes) {
  Entry entry{key, std::make_shared<const MxDictionary>(std::move(attributes))};
  if (entries_.size() < kCapacity) {
    entries_.push_back(std::move(entry));
    return entries_.back().attributes;
  }
  Entry& slot = entries_[next_];
  next_ = (next_ + 1) % kCapacity;
  slot = std::move(entry);
  return slot.attributes;
}

Status QorTextSampleBufferSetUpState(QorTextSampleBufferState* state, MxAllocator*,
                                     MxFormatDescription* description) {
  if (state == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  if (state->defaultAttributes) return kNoErr;
  if (description == nullptr) return QorSignalErrorAt(kQorTextSampleErrNoFormatDescription);

  if (IsWebVTT(description)) {
    state->defaultTextBox = {};
    state->defaultAttributes.reset();
    state->flag29 = true;
    state->allForced = false;
    const MxValue* atoms = MxFormatDescriptionGetExtension(
        description, kMxFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
    const MxValue* config = MxDictionaryGetValue(atoms ? atoms->GetDictionary() : nullptr, "vttC");
    state->webVTTConfiguration = config ? *config : MxValue();
    state->formatDescription = MxFormatDescriptionRef::Retained(description);
    return kNoErr;
  }

  int32_t flags = 0;
  MxTextRect box;
  int8_t horizontal = 0, vertical = 0;
  int16_t fontID = 0;
  bool bold = false, italic = false, underline = false;
  double size = 0, rgba[4] = {};
  const std::string* fontName = nullptr;
  Status status = MxTextFormatDescriptionGetDisplayFlags(description, &flags);
  if (status == kNoErr)
    status = MxTextFormatDescriptionGetDefaultTextBox(description, true, 0, &box);
  if (status == kNoErr)
    status = MxTextFormatDescriptionGetJustification(description, &horizontal, &vertical);
  if (status == kNoErr)
    status = MxTextFormatDescriptionGetDefaultStyle(description, &fontID, &bold, &italic,
                                                    &underline, &size, rgba);
  // The default style's font must be named: every run carries its family name.
  if (status == kNoErr) status = MxTextFormatDescriptionGetFontName(description, fontID, &fontName);
  if (status != kNoErr) return status;

  const uint32_t bits = static_cast<uint32_t>(flags);
  state->allForced = (bits & kMxTextDisplayFlag_AllSubtitlesForced) != 0;
  state->flag29 = (bits & kMxTextDisplayFlag_Bit29) != 0;
  state->defaultTextBox = box;
  state->defaultAttributes = std::make_shared<const MxDictionary>(MxDictionary{
      {kQorTextAttributeDisplayFlags, MxValue(flags)},
      {kQorTextAttributeDisplayHorizontalJust, MxValue(int32_t{horizontal})},
      {kQorTextAttributeDisplayVerticalJust, MxValue(int32_t{vertical})},
      {kMxTextMarkupAttribute_BoldStyle, MxValue(bold)},
      {kMxTextMarkupAttribute_ItalicStyle, MxValue(italic)},
      {kMxTextMarkupAttribute_UnderlineStyle, MxValue(underline)},
      {kMxTextMarkupAttribute_ForegroundColorARGB, ARGB(rgba[3], rgba[0], rgba[1], rgba[2])},
      {kQorTextAttributeFontSize, MxValue(size)},
      {kMxTextMarkupAttribute_FontFamilyName, MxValue(*fontName)},
  });
  state->formatDescription = MxFormatDescriptionRef::Retained(description);
  return kNoErr;
}

Status QorTextSampleBufferCopyAttributedString(QorTextSampleBufferState* state,
                                               MxAllocator* allocator, MxSampleBuffer* sampleBuffer,
                                               MxAttributedStringRef* out, bool* isForced,
                                               bool* flag29, MxTextRect* textBox) {
  if (state == nullptr || sampleBuffer == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  Status status = QorTextSampleBufferSetUpState(state, allocator,
                                                MxSampleBufferGetFormatDescription(sampleBuffer));
  if (status != kNoErr) return status;

  // The sample is read in place when its bytes are contiguous, else from a copy.
  MxBlockBuffer* data = MxSampleBufferGetDataBuffer(sampleBuffer);
  const size_t dataLength = data ? MxBlockBufferGetDataLength(data) : 0;
  std::vector<uint8_t> copy;
  const uint8_t* bytes = nullptr;
  if (dataLength > 0) {
    size_t contiguous = 0;
    char* pointer = nullptr;
    if (MxBlockBufferGetDataPointer(data, 0, &contiguous, nullptr, &pointer) == kNoErr &&
        contiguous >= dataLength) {
      bytes = reinterpret_cast<const uint8_t*>(pointer);
    } else {
      copy.resize(dataLength);
      status = MxBlockBufferCopyDataBytes(data, 0, dataLength, copy.data());
      if (status != kNoErr) return status;
      bytes = copy.data();
    }
  }
  MxByteCursor in(bytes, dataLength);
  int16_t textLength = 0;
  const uint8_t* textBytes = nullptr;
  if (!in.ReadS16(&textLength) || textLength < 0 ||
      !in.ReadBytes(static_cast<size_t>(textLength), &textBytes))
    return QorSignalErrorAt(kQorTextSampleErrMalformed);

  SampleText text;
  if (MakeSampleText(textBytes, static_cast<size_t>(textLength), &text) != kNoErr)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  MxAttributedStringRef string;
  // Style records find their place through the breaks and offsets, not the units.
  status =
      MxAttributedStringCreate(allocator, std::move(text.units), state->defaultAttributes, &string);
  if (status != kNoErr) return QorSignalErrorAt(kQorTextSampleErrStringCreation);

  bool forced = false;
  MxTextRect box = state->defaultTextBox;
  // Style records and the wrap setting are applied once every box is read: the records of all
  // style boxes together, in their order, so that however many there are and however they
  // overlap they cost O(n log n); a later wrap box replaces an earlier one.
  std::vector<MxRangedAttributes> styles;
  int wrap = -1;
  while (in.Remaining() >= 8) {
    uint32_t boxSize = 0, type = 0;
    MxByteCursor payload(nullptr, 0);
    if (!in.ReadU32(&boxSize) || !in.ReadU32(&type) || boxSize < 8 ||
        !in.Sub(boxSize - 8, &payload))
      return QorSignalErrorAt(kQorTextSampleErrMalformed);
    if (type == kFrcd) {
      forced = true;
    } else if (type == kStyl) {
      ReadStyleBox(payload, text, state, &styles);
    } else if (type == kTbox) {
      int16_t top = 0, left = 0, bottom = 0, right = 0;
      if (payload.ReadS16(&top) && payload.ReadS16(&left) && payload.ReadS16(&bottom) &&
          payload.ReadS16(&right))
        box = {static_cast<double>(left), static_cast<double>(top),
               static_cast<double>(right) - left, static_cast<double>(bottom) - top};
    } else if (type == kTwrp) {
      uint8_t value = 0;
      if (payload.ReadU8(&value) && value <= 1) wrap = value;
    }
    // Other boxes (highlight, karaoke, scroll delay, hyperlink, blink, ...) change nothing.
  }
  if (string->AddAttributesInOrder(styles, &state->merges) != kNoErr)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);
  // The wrap setting's key is set by nothing else, so it may come after the styles.
  if (wrap >= 0 && string->length() > 0 &&
      string->AddAttributes({0, string->length()}, WrapAttributes(uint8_t(wrap)), &state->merges) !=
          kNoErr)
    return QorSignalErrorAt(kQorTextSampleErrStringCreation);

  if (isForced) *isForced = state->allForced || forced;
  if (flag29) *flag29 = state->flag29;
  if (textBox) *textBox = box;
  *out = std::move(string);
  return kNoErr;
}
