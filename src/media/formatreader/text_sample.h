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

// The attribute dictionaries of the style records seen on a track, by the record's fields, so
// that a style met again is not built again. Holds at most a few; the oldest one goes first.
class QorTextStyleCache {
 public:
  // The dictionary stored for `key`, or null.
  const std::shared_ptr<const MxDictionary>* Find(uint64_t key) const;
  const std::shared_ptr<const MxDictionary>& Add(uint64_t key, MxDictionary attributes);

 private:
  static constexpr size_t kCapacity = 16;
  struct Entry {
    uint64_t key;
    std::shared_ptr<const MxDictionary> attributes;
  };
  std::vector<Entry> entries_;
  size_t next_ = 0;  // the entry replaced next once the cache is full
};

// Decoding state of one track. Value-initialise it before first use; the defaults are taken
// from the first description seen and kept for the track.
struct QorTextSampleBufferState {
  MxFormatDescriptionRef formatDescription;
  MxTextRect defaultTextBox;
  std::shared_ptr<const MxDictionary> defaultAttributes;  // present once set up
  bool allForced = false;
  bool flag29 = false;
  MxValue webVTTConfiguration;
  // Dictionaries reused from sample to sample.
  QorTextStyleCache styles;
  MxAttributeMergeCache merges;
};

Status QorTextSampleBufferSetUpState(QorTextSampleBufferState* state, MxAllocator* allocator,
                                     MxFormatDescription* description);
// `isForced`, `flag29` and `textBox` may be null. The caller owns the string.
Status QorTextSampleBufferCopyAttributedString(QorTextSampleBufferState* state,
                                               MxAllocator* allocator, MxSampleBuffer* sampleBuffer,
                                               MxAttributedStringRef* out, bool* isForced,
                                               bool* flag29, MxTextRect* textBox);
