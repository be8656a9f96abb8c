// MxFormatDescription: what a track's samples are. A media type ('sbtl', 'text', 'vide', ...),
// a media subtype (for sample entries, the entry's type, such as 'tx3g') and a dictionary of
// extensions. Immutable once made.
#pragma once

#include "media/core/four_cc.h"
#include "media/core/object.h"
#include "media/core/value.h"

class MxFormatDescription final : public MxObject {
 public:
  const char* ClassName() const override { return "MxFormatDescription"; }
  std::string CopyDebugDescription() const override;

  FourCC mediaType() const { return mediaType_; }
  FourCC mediaSubType() const { return mediaSubType_; }
  const MxDictionary& extensions() const { return extensions_; }

 private:
  friend Status MxFormatDescriptionCreate(MxAllocator*, FourCC, FourCC, const MxDictionary*,
                                          MxRef<MxFormatDescription>*);
  MxFormatDescription(FourCC type, FourCC subType, MxDictionary extensions)
      : mediaType_(type), mediaSubType_(subType), extensions_(std::move(extensions)) {}

  FourCC mediaType_;
  FourCC mediaSubType_;
  MxDictionary extensions_;
};

using MxFormatDescriptionRef = MxRef<MxFormatDescription>;

// Makes a description; `extensions` may be null (none). The dictionary is copied.
Status MxFormatDescriptionCreate(MxAllocator* allocator, FourCC mediaType, FourCC mediaSubType,
                                 const MxDictionary* extensions, MxFormatDescriptionRef* out);

// Null descriptions answer 0 and null.
FourCC MxFormatDescriptionGetMediaSubType(const MxFormatDescription* description);
const MxDictionary* MxFormatDescriptionGetExtensions(const MxFormatDescription* description);
// One extension by key, or null.
const MxValue* MxFormatDescriptionGetExtension(const MxFormatDescription* description,
                                               std::string_view key);
