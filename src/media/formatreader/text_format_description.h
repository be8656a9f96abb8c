// Text format descriptions: the sample entry of a text or subtitle track ("tx3g", "drmt",
// classic "text", or WebVTT-in-ISO "wvtt"/"xvtt") parsed into a format description whose
// extensions hold the track-wide defaults, and getters that hand them back whatever the entry's
// kind. Text descriptions have the media type 'text' or 'sbtl'.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/core/block_buffer.h"
#include "media/core/format_description.h"

// Extension keys.
extern const char* const kMxTextFormatDescriptionExtension_DisplayFlags;
extern const char* const kMxTextFormatDescriptionExtension_TextJustification;
extern const char* const kMxTextFormatDescriptionExtension_HorizontalJustification;
extern const char* const kMxTextFormatDescriptionExtension_VerticalJustification;
extern const char* const kMxTextFormatDescriptionExtension_BackgroundColor;
extern const char* const kMxTextFormatDescriptionExtension_DefaultTextBox;
extern const char* const kMxTextFormatDescriptionExtension_DefaultStyle;
extern const char* const kMxTextFormatDescriptionExtension_DefaultFontName;
extern const char* const kMxTextFormatDescriptionExtension_FontTable;
extern const char* const kMxFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
// Sub-keys of colours, rectangles and the default style.
extern const char* const kMxTextFormatDescriptionColor_Red;
extern const char* const kMxTextFormatDescriptionColor_Green;
extern const char* const kMxTextFormatDescriptionColor_Blue;
extern const char* const kMxTextFormatDescriptionColor_Alpha;
extern const char* const kMxTextFormatDescriptionRect_Top;
extern const char* const kMxTextFormatDescriptionRect_Left;
extern const char* const kMxTextFormatDescriptionRect_Bottom;
extern const char* const kMxTextFormatDescriptionRect_Right;
extern const char* const kMxTextFormatDescriptionStyle_StartChar;
extern const char* const kMxTextFormatDescriptionStyle_EndChar;
extern const char* const kMxTextFormatDescriptionStyle_Height;
extern const char* const kMxTextFormatDescriptionStyle_Ascent;
extern const char* const kMxTextFormatDescriptionStyle_Font;
extern const char* const kMxTextFormatDescriptionStyle_FontFace;
extern const char* const kMxTextFormatDescriptionStyle_FontSize;
extern const char* const kMxTextFormatDescriptionStyle_ForegroundColor;

// Display-flag bits read by the driver and the sample decoder.
enum : uint32_t {
  kMxTextDisplayFlag_AllSubtitlesForced = 0x80000000u,
  kMxTextDisplayFlag_ForcedSubtitlesPresent = 0x40000000u,
  kMxTextDisplayFlag_Bit29 = 0x20000000u,
};

struct MxTextRect {
  double x = 0, y = 0, width = 0, height = 0;
  bool operator==(const MxTextRect&) const = default;
};

// Makes a description from a big-endian sample entry (entry size and type included). The
// subtype is the entry's type; `mediaType` ('text' or 'sbtl') becomes the media type. `flavor`
// is accepted and not used.
Status MxTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
    MxAllocator* allocator, const uint8_t* bytes, size_t size, const char* flavor, FourCC mediaType,
    MxFormatDescriptionRef* out);
// The same from a block buffer, made contiguous first.
Status MxTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer(
    MxAllocator* allocator, MxBlockBuffer* buffer, const char* flavor, FourCC mediaType,
    MxFormatDescriptionRef* out);

Status MxTextFormatDescriptionGetDisplayFlags(const MxFormatDescription* description,
                                              int32_t* flags);
Status MxTextFormatDescriptionGetJustification(const MxFormatDescription* description,
                                               int8_t* horizontal, int8_t* vertical);
// y is the top edge measured from the top when `originIsAtTopLeft`, else heightOfTextTrack - top.
Status MxTextFormatDescriptionGetDefaultTextBox(const MxFormatDescription* description,
                                                bool originIsAtTopLeft, double heightOfTextTrack,
                                                MxTextRect* box);
// Every output may be null. `color` receives red, green, blue, alpha in [0, 1].
Status MxTextFormatDescriptionGetDefaultStyle(const MxFormatDescription* description,
                                              int16_t* fontID, bool* bold, bool* italic,
                                              bool* underline, double* fontSize, double color[4]);
// The name points into the description and lives as long as it does.
Status MxTextFormatDescriptionGetFontName(const MxFormatDescription* description, int16_t fontID,
                                          const std::string** name);
