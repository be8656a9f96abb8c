#include "media/formatreader/text_format_description.h"

#include <cstdio>
#include <vector>

#include "media/core/byte_cursor.h"
#include "media/core/error_signal.h"
#include "media/core/text_encoding.h"

const char* const kMxTextFormatDescriptionExtension_DisplayFlags = "DisplayFlags";
const char* const kMxTextFormatDescriptionExtension_TextJustification = "TextJustification";
const char* const kMxTextFormatDescriptionExtension_HorizontalJustification =
    "HorizontalJustification";
const char* const kMxTextFormatDescriptionExtension_VerticalJustification = "VerticalJustification";
const char* const kMxTextFormatDescriptionExtension_BackgroundColor = "BackgroundColor";
const char* const kMxTextFormatDescriptionExtension_DefaultTextBox = "DefaultTextBox";
const char* const kMxTextFormatDescriptionExtension_DefaultStyle = "DefaultStyle";
const char* const kMxTextFormatDescriptionExtension_DefaultFontName = "DefaultFontName";
const char* const kMxTextFormatDescriptionExtension_FontTable = "FontTable";
const char* const kMxFormatDescriptionExtension_SampleDescriptionExtensionAtoms =
    "SampleDescriptionExtensionAtoms";
const char* const kMxTextFormatDescriptionColor_Red = "Red";
const char* const kMxTextFormatDescriptionColor_Green = "Green";
const char* const kMxTextFormatDescriptionColor_Blue = "Blue";
const char* const kMxTextFormatDescriptionColor_Alpha = "Alpha";
const char* const kMxTextFormatDescriptionRect_Top = "Top";
const char* const kMxTextFormatDescriptionRect_Left = "Left";
const char* const kMxTextFormatDescriptionRect_Bottom = "Bottom";
const char* const kMxTextFormatDescriptionRect_Right = "Right";
const char* const kMxTextFormatDescriptionStyle_StartChar = "StartChar";
const char* const kMxTextFormatDescriptionStyle_EndChar = "EndChar";
const char* const kMxTextFormatDescriptionStyle_Height = "Height";
const char* const kMxTextFormatDescriptionStyle_Ascent = "Ascent";
const char* const kMxTextFormatDescriptionStyle_Font = "Font";
const char* const kMxTextFormatDescriptionStyle_FontFace = "FontFace";
const char* const kMxTextFormatDescriptionStyle_FontSize = "FontSize";
const char* const kMxTextFormatDescriptionStyle_ForegroundColor = "ForegroundColor";

namespace {

constexpr FourCC kTx3g = MxFourCC("tx3g");
constexpr FourCC kDrmt = MxFourCC("drmt");
constexpr FourCC kText = MxFourCC("text");
constexpr FourCC kWvtt = MxFourCC("wvtt");
constexpr FourCC kXvtt = MxFourCC("xvtt");
constexpr FourCC kFtab = MxFourCC("ftab");
constexpr FourCC kSbtl = MxFourCC("sbtl");

constexpr size_t kTimedTextFixedSize = 46;
constexpr size_t kClassicTextFixedSize = 59;  // the font name's length byte included
constexpr size_t kWebVTTHeaderSize = 16;

bool IsWebVTT(FourCC subtype) {
  return subtype == kWvtt || subtype == kXvtt;
}

std::string FontKey(int32_t fontID) {
  char key[16];
  snprintf(key, sizeof key, "%d", fontID);
  return key;
}

bool IsValidUTF8(const uint8_t* bytes, size_t size) {
  std::u16string ignored;
  // Invalid text is an answer here, not an error of the description.
  return size == 0 || MxTextCreateUTF16FromUTF8(bytes, size, &ignored) == kNoErr;
}

// The fixed part of each layout, read field by field into extension values. The reader was
// sized-checked by the caller, so a failed read cannot happen; it is still checked.
struct FixedPartReader {
  MxByteCursor& in;
  bool ok = true;
  MxValue S8() {
    int8_t v = 0;
    ok = in.ReadS8(&v) && ok;
    return MxValue(int32_t{v});
  }
  MxValue S16() {
    int16_t v = 0;
    ok = in.ReadS16(&v) && ok;
    return MxValue(int32_t{v});
  }
  MxValue S32() {
    int32_t v = 0;
    ok = in.ReadS32(&v) && ok;
    return MxValue(v);
  }
  MxValue Rect() {
    MxDictionary rect;
    rect.emplace(kMxTextFormatDescriptionRect_Top, S16());
    rect.emplace(kMxTextFormatDescriptionRect_Left, S16());
    rect.emplace(kMxTextFormatDescriptionRect_Bottom, S16());
    rect.emplace(kMxTextFormatDescriptionRect_Right, S16());
    return MxValue(std::move(rect));
  }
  // Red, green, blue and, when `alpha`, alpha, each read by `component`.
  template <class F>
  MxValue Color(F component, bool alpha) {
    MxDictionary color;
    color.emplace(kMxTextFormatDescriptionColor_Red, component());
    color.emplace(kMxTextFormatDescriptionColor_Green, component());
    color.emplace(kMxTextFormatDescriptionColor_Blue, component());
    if (alpha) color.emplace(kMxTextFormatDescriptionColor_Alpha, component());
    return MxValue(std::move(color));
  }
};

void ReadTimedTextFixedPart(MxByteCursor in, MxDictionary* extensions) {
  FixedPartReader r{in};
  (void)r.in.Seek(16);
  extensions->emplace(kMxTextFormatDescriptionExtension_DisplayFlags, r.S32());
  extensions->emplace(kMxTextFormatDescriptionExtension_HorizontalJustification, r.S8());
  extensions->emplace(kMxTextFormatDescriptionExtension_VerticalJustification, r.S8());
  extensions->emplace(kMxTextFormatDescriptionExtension_BackgroundColor,
                      r.Color([&] { return r.S8(); }, true));
  extensions->emplace(kMxTextFormatDescriptionExtension_DefaultTextBox, r.Rect());
  MxDictionary style;
  style.emplace(kMxTextFormatDescriptionStyle_StartChar, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_EndChar, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_Font, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_FontFace, r.S8());
  style.emplace(kMxTextFormatDescriptionStyle_FontSize, r.S8());
  style.emplace(kMxTextFormatDescriptionStyle_ForegroundColor,
                r.Color([&] { return r.S8(); }, true));
  extensions->emplace(kMxTextFormatDescriptionExtension_DefaultStyle, MxValue(std::move(style)));
}

void ReadClassicTextFixedPart(MxByteCursor in, MxDictionary* extensions) {
  FixedPartReader r{in};
  (void)r.in.Seek(16);
  extensions->emplace(kMxTextFormatDescriptionExtension_DisplayFlags, r.S32());
  extensions->emplace(kMxTextFormatDescriptionExtension_TextJustification, r.S32());
  extensions->emplace(kMxTextFormatDescriptionExtension_BackgroundColor,
                      r.Color([&] { return r.S16(); }, false));
  extensions->emplace(kMxTextFormatDescriptionExtension_DefaultTextBox, r.Rect());
  MxDictionary style;
  style.emplace(kMxTextFormatDescriptionStyle_StartChar, r.S32());
  style.emplace(kMxTextFormatDescriptionStyle_Height, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_Ascent, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_Font, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_FontFace, r.S8());
  (void)r.in.Skip(1);  // filler
  style.emplace(kMxTextFormatDescriptionStyle_FontSize, r.S16());
  style.emplace(kMxTextFormatDescriptionStyle_ForegroundColor,
                r.Color([&] { return r.S16(); }, false));
  extensions->emplace(kMxTextFormatDescriptionExtension_DefaultStyle, MxValue(std::move(style)));
  // The font name, when it is text that can be made (UTF-8; an empty name is kept).
  uint8_t nameLength = 0;
  const uint8_t* name = nullptr;
  if (r.in.ReadU8(&nameLength) && r.in.ReadBytes(nameLength, &name) &&
      IsValidUTF8(name, nameLength)) {
    extensions->emplace(kMxTextFormatDescriptionExtension_DefaultFontName,
                        MxValue(std::string(reinterpret_cast<const char*>(name), nameLength)));
  }
}

// A font table atom's entries, added to `table` (an identifier already there keeps its name).
// A count that cannot fit leaves the table as it is; an entry running past the atom drops the
// whole table.
void ReadFontTable(MxByteCursor payload, MxDictionary* table) {
  uint16_t count = 0;
  if (!payload.ReadU16(&count) || size_t{count} * 3 > payload.Remaining()) {
    // The description stands without its font names.
    (void)QorSignalErrorAt(kMxTextDescErrMalformed);
    return;
  }
  for (uint16_t i = 0; i < count; ++i) {
    int16_t fontID = 0;
    uint8_t nameLength = 0;
    const uint8_t* name = nullptr;
    if (!payload.ReadS16(&fontID) || !payload.ReadU8(&nameLength) ||
        !payload.ReadBytes(nameLength, &name)) {
      // The description stands without its font names.
      (void)QorSignalErrorAt(kMxTextDescErrMalformed);
      table->clear();
      return;
    }
    // Empty names, and names that are not UTF-8 text, name no font.
    if (nameLength == 0 || !IsValidUTF8(name, nameLength)) continue;
    table->emplace(FontKey(fontID),
                   MxValue(std::string(reinterpret_cast<const char*>(name), nameLength)));
  }
}

// Extension atoms from the reader's position to its end. Fails only on an atom size below 8.
Status ReadExtensionAtoms(MxByteCursor in, bool fontTableAllowed, MxDictionary* fontTable,
                          MxDictionary* atoms) {
  while (in.Remaining() >= 9) {
    uint32_t atomSize = 0, type = 0;
    if (!in.ReadU32(&atomSize) || !in.ReadU32(&type))
      return QorSignalErrorAt(kMxTextDescErrMalformed);
    if (atomSize < 8) return QorSignalErrorAt(kMxTextDescErrMalformed);
    // An empty atom, or one longer than what is left, ends the atoms without error.
    if (atomSize == 8 || atomSize - 8 > in.Remaining()) break;
    MxByteCursor payload(nullptr, 0);
    if (!in.Sub(atomSize - 8, &payload)) return QorSignalErrorAt(kMxTextDescErrMalformed);
    if (type == kFtab && fontTableAllowed) {
      ReadFontTable(payload, fontTable);
      continue;
    }
    const uint8_t* bytes = payload.Current();
    atoms->emplace(MxFourCCToString(type), MxValue(MxData(bytes, bytes + payload.Size())));
  }
  return kNoErr;
}

// The description when it is a text description other than WebVTT-in-ISO; else the getter's
// failure code.
Status CheckTextDescription(const MxFormatDescription* description) {
  if (description == nullptr) return QorSignalErrorAt(kMxTextDescErrMissingValue);
  FourCC type = description->mediaType();
  if (type != kText && type != kSbtl) return QorSignalErrorAt(kMxTextDescErrMissingValue);
  if (IsWebVTT(description->mediaSubType()))
    return QorSignalErrorAt(kMxTextDescErrWebVTTDescription);
  return kNoErr;
}

Status GetInt(const MxDictionary* dictionary, const char* key, int32_t* out) {
  const MxValue* value = MxDictionaryGetValue(dictionary, key);
  std::optional<int32_t> n = value ? value->GetInt32() : std::nullopt;
  if (!n) return QorSignalErrorAt(kMxTextDescErrMissingValue);
  *out = *n;
  return kNoErr;
}

Status GetDictionary(const MxDictionary* dictionary, const char* key, const MxDictionary** out) {
  const MxValue* value = MxDictionaryGetValue(dictionary, key);
  *out = value ? value->GetDictionary() : nullptr;
  return *out ? kNoErr : QorSignalErrorAt(kMxTextDescErrMissingValue);
}

}  // namespace

Status MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(MxAllocator* allocator,
                                                                     const uint8_t* bytes,
                                                                     size_t size, const char*,
                                                                     FourCC mediaType,
                                                                     MxFormatDescriptionRef* out) {
  if (out == nullptr || (bytes == nullptr && size > 0))
    return QorSignalErrorAt(kMxErrInvalidParameter);
  MxByteCursor in(bytes, size);
  uint32_t entryType = 0;
  if (!in.Skip(4) || !in.ReadU32(&entryType)) return QorSignalErrorAt(kMxTextDescErrMalformed);

  MxDictionary extensions;
  size_t fixedSize = 0;
  if (IsWebVTT(entryType)) {
    fixedSize = kWebVTTHeaderSize;
  } else if (entryType == kTx3g || entryType == kDrmt) {
    fixedSize = kTimedTextFixedSize;
  } else if (entryType == kText) {
    fixedSize = kClassicTextFixedSize;
    if (size >= fixedSize) fixedSize += bytes[kClassicTextFixedSize - 1];
  } else {
    return QorSignalErrorAt(kMxTextDescErrUnknownEntryType);
  }
  if (size < fixedSize) return QorSignalErrorAt(kMxTextDescErrMalformed);

  if (entryType == kTx3g || entryType == kDrmt) ReadTimedTextFixedPart(in, &extensions);
  if (entryType == kText) ReadClassicTextFixedPart(in, &extensions);

  MxDictionary fontTable, atoms;
  MxByteCursor rest(bytes + fixedSize, size - fixedSize);
  Status status = ReadExtensionAtoms(rest, !IsWebVTT(entryType), &fontTable, &atoms);
  if (status != kNoErr) return status;
  if (!fontTable.empty())
    extensions.emplace(kMxTextFormatDescriptionExtension_FontTable, MxValue(std::move(fontTable)));
  if (!atoms.empty())
    extensions.emplace(kMxFormatDescriptionExtension_SampleDescriptionExtensionAtoms,
                       MxValue(std::move(atoms)));
  return MxFormatDescriptionCreate(allocator, mediaType, entryType, &extensions, out);
}

Status MxTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer(
    MxAllocator* allocator, MxBlockBuffer* buffer, const char* flavor, FourCC mediaType,
    MxFormatDescriptionRef* out) {
  if (buffer == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  size_t length = MxBlockBufferGetDataLength(buffer);
  std::vector<uint8_t> bytes(length);
  if (length > 0) {
    Status status = MxBlockBufferCopyDataBytes(buffer, 0, length, bytes.data());
    if (status != kNoErr) return status;
  }
  return MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
      allocator, bytes.data(), length, flavor, mediaType, out);
}

Status MxTextFormatDescriptionGetDisplayFlags(const MxFormatDescription* description,
                                              int32_t* flags) {
  Status status = CheckTextDescription(description);
  if (status != kNoErr) return status;
  int32_t value = 0;
  status =
      GetInt(&description->extensions(), kMxTextFormatDescriptionExtension_DisplayFlags, &value);
  if (status == kNoErr && flags) *flags = value;
  return status;
}

Status MxTextFormatDescriptionGetJustification(const MxFormatDescription* description,
                                               int8_t* horizontal, int8_t* vertical) {
  Status status = CheckTextDescription(description);
  if (status != kNoErr) return status;
  const MxDictionary* ext = &description->extensions();
  int32_t h = 0, v = 0;
  if (description->mediaSubType() == kText) {
    // Classic text has one justification; its low byte is the horizontal one.
    status = GetInt(ext, kMxTextFormatDescriptionExtension_TextJustification, &h);
  } else {
    status = GetInt(ext, kMxTextFormatDescriptionExtension_HorizontalJustification, &h);
    if (status == kNoErr)
      status = GetInt(ext, kMxTextFormatDescriptionExtension_VerticalJustification, &v);
  }
  if (status != kNoErr) return status;
  if (horizontal) *horizontal = static_cast<int8_t>(h);
  if (vertical) *vertical = static_cast<int8_t>(v);
  return kNoErr;
}

Status MxTextFormatDescriptionGetDefaultTextBox(const MxFormatDescription* description,
                                                bool originIsAtTopLeft, double heightOfTextTrack,
                                                MxTextRect* box) {
  Status status = CheckTextDescription(description);
  if (status != kNoErr) return status;
  const MxDictionary* rect = nullptr;
  status = GetDictionary(&description->extensions(),
                         kMxTextFormatDescriptionExtension_DefaultTextBox, &rect);
  int32_t top = 0, left = 0, bottom = 0, right = 0;
  if (status == kNoErr) status = GetInt(rect, kMxTextFormatDescriptionRect_Top, &top);
  if (status == kNoErr) status = GetInt(rect, kMxTextFormatDescriptionRect_Left, &left);
  if (status == kNoErr) status = GetInt(rect, kMxTextFormatDescriptionRect_Bottom, &bottom);
  if (status == kNoErr) status = GetInt(rect, kMxTextFormatDescriptionRect_Right, &right);
  if (status != kNoErr) return status;
  if (box) {
    box->x = left;
    box->width = static_cast<double>(right) - left;
    box->height = static_cast<double>(bottom) - top;
    // The top edge gives y from either origin.
    box->y = originIsAtTopLeft ? top : heightOfTextTrack - top;
  }
  return kNoErr;
}

Status MxTextFormatDescriptionGetDefaultStyle(const MxFormatDescription* description,
                                              int16_t* fontID, bool* bold, bool* italic,
                                              bool* underline, double* fontSize, double color[4]) {
  Status status = CheckTextDescription(description);
  if (status != kNoErr) return status;
  const bool classic = description->mediaSubType() == kText;
  const MxDictionary* style = nullptr;
  status = GetDictionary(&description->extensions(), kMxTextFormatDescriptionExtension_DefaultStyle,
                         &style);
  if (status != kNoErr) return status;
  if (fontID) {
    int32_t font = 0;
    status = GetInt(style, kMxTextFormatDescriptionStyle_Font, &font);
    if (status != kNoErr) return status;
    *fontID = static_cast<int16_t>(font);
  }
  if (bold || italic || underline) {
    int32_t face = 0;
    status = GetInt(style, kMxTextFormatDescriptionStyle_FontFace, &face);
    if (status != kNoErr) return status;
    if (bold) *bold = (face & 1) != 0;
    if (italic) *italic = (face & 2) != 0;
    if (underline) *underline = (face & 4) != 0;
  }
  if (fontSize) {
    int32_t size = 0;
    status = GetInt(style, kMxTextFormatDescriptionStyle_FontSize, &size);
    if (status != kNoErr) return status;
    // A timed-text size is an unsigned byte kept as a signed one.
    *fontSize = classic ? size : static_cast<uint8_t>(size);
  }
  if (color) {
    const MxDictionary* rgba = nullptr;
    status = GetDictionary(style, kMxTextFormatDescriptionStyle_ForegroundColor, &rgba);
    const char* keys[4] = {kMxTextFormatDescriptionColor_Red, kMxTextFormatDescriptionColor_Green,
                           kMxTextFormatDescriptionColor_Blue, kMxTextFormatDescriptionColor_Alpha};
    double components[4] = {0, 0, 0, 1.0};
    for (int i = 0; i < (classic ? 3 : 4) && status == kNoErr; ++i) {
      int32_t c = 0;
      status = GetInt(rgba, keys[i], &c);
      // Classic text colours are 16-bit components over 655535 (not 65535): that is how these
      // entries have always been read, and the values must stay comparable.
      components[i] =
          classic ? static_cast<uint16_t>(c) / 655535.0 : static_cast<uint8_t>(c) / 255.0;
    }
    if (status != kNoErr) return status;
    for (int i = 0; i < 4; ++i) color[i] = components[i];
  }
  return kNoErr;
}

Status MxTextFormatDescriptionGetFontName(const MxFormatDescription* description, int16_t fontID,
                                          const std::string** name) {
  Status status = CheckTextDescription(description);
  if (status != kNoErr) return status;
  const MxDictionary* ext = &description->extensions();
  const MxValue* value = nullptr;
  if (description->mediaSubType() == kText) {
    value = MxDictionaryGetValue(ext, kMxTextFormatDescriptionExtension_DefaultFontName);
  } else {
    const MxValue* table = MxDictionaryGetValue(ext, kMxTextFormatDescriptionExtension_FontTable);
    value = MxDictionaryGetValue(table ? table->GetDictionary() : nullptr, FontKey(fontID));
  }
  const std::string* text = value ? value->GetString() : nullptr;
  if (text == nullptr) return QorSignalErrorAt(kMxTextDescErrMissingValue);
  if (name) *name = text;
  return kNoErr;
}
