// Text samples: one timed-text sample (a 16-bit length, the text, then modifier boxes) decoded
// into an attributed string, with the track's default style everywhere and the sample's style
// records, text box, wrap setting and forced mark on top.
#pragma once

#include "media/core/attributed_string.h"
#include "media/core/sample_buffer.h"
#include "media/formatreader/text_format_description.h"

// Attribute keys.
extern const char* const kQorTextAttributeDisplayFlags;           // "DisplayFlags"
extern const char* const kQorTextAttributeDisplayHorizontalJust;  // "HorizontalJust"
extern const char* const kQorTextAttributeDisplayVerticalJust;    // "VerticalJust"
extern const char* const kMxTextMarkupAttribute_BoldStyle;        // "MxBoldStyle"
extern const char* const kMxTextMarkupAttribute_ItalicStyle;      // "MxItalicStyle"
extern const char* const kMxTextMarkupAttribute_UnderlineStyle;   // "MxUnderlineStyle"
extern const char* const kMxTextMarkupAttribute_ForegroundColorARGB;
extern const char* const kQorTextAttributeFontSize;
extern const char* const kMxTextMarkupAttribute_FontFamilyName;
extern const char* const kQorTextAttributeTextWrap;  // "None" or "AutomaticSoftWrap"

// Decoding state of one track. Value-initialise it before first use; the defaults are taken
// from the first description seen and kept for the track.
struct QorTextSampleBufferState {
  MxFormatDescriptionRef formatDescription;
  MxTextRect defaultTextBox;
  std::shared_ptr<const MxDictionary> defaultAttributes;  // present once set up
  bool allForced = false;
  bool flag29 = false;
  MxValue webVTTConfiguration;
};

[[nodiscard]] OSStatus QorTextSampleBufferSetUpState(QorTextSampleBufferState* state,
                                                     MxAllocator* allocator,
                                                     MxFormatDescription* description);
// `isForced`, `flag29` and `textBox` may be null. The caller owns the string.
[[nodiscard]] OSStatus QorTextSampleBufferCopyAttributedString(
    QorTextSampleBufferState* state, MxAllocator* allocator, MxSampleBuffer* sampleBuffer,
    MxAttributedStringRef* out, bool* isForced, bool* flag29, MxTextRect* textBox);
