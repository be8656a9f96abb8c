// MxFormatDescription: what a track's samples are. A media type ('sbtl', 'text', 'vide', ...),
// a media subtype (for sample entries, the entry's type, such as 'tx3g') and a dictionary of
// extensions. Immutable once made.
#pragma once

#include "media/core/four_char_code.h"
#include "media/core/object.h"
#include "media/core/value.h"

class MxFormatDescription final : public MxObject {
 public:
  const char* ClassName() const override { return "MxFormatDescription"; }
  std::string CopyDebugDescription() const override;

  FourCharCode mediaType() const { return mediaType_; }
  FourCharCode mediaSubType() const { return mediaSubType_; }
  const MxDictionary& extensions() const { return extensions_; }

 private:
  friend OSStatus MxFormatDescriptionCreate(MxAllocator*, FourCharCode, FourCharCode,
                                            const MxDictionary*, MxRef<MxFormatDescription>*);
  MxFormatDescription(FourCharCode type, FourCharCode subType, MxDictionary extensions)
      : mediaType_(type), mediaSubType_(subType), extensions_(std::move(extensions)) {}

  FourCharCode mediaType_;
  FourCharCode mediaSubType_;
  MxDictionary extensions_;
};

using MxFormatDescriptionRef = MxRef<MxFormatDescription>;

// Makes a description; `extensions` may be null (none). The dictionary is copied.
[[nodiscard]] OSStatus MxFormatDescriptionCreate(MxAllocator* allocator, FourCharCode mediaType,
                                                 FourCharCode mediaSubType,
                                                 const MxDictionary* extensions,
                                                 MxFormatDescriptionRef* out);

// Null descriptions answer 0 and null.
FourCharCode MxFormatDescriptionGetMediaType(const MxFormatDescription* description);
FourCharCode MxFormatDescriptionGetMediaSubType(const MxFormatDescription* description);
const MxDictionary* MxFormatDescriptionGetExtensions(const MxFormatDescription* description);
// One extension by key, or null.
const MxValue* MxFormatDescriptionGetExtension(const MxFormatDescription* description,
                                               std::string_view key);
