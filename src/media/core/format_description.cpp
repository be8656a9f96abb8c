#include "media/core/format_description.h"

#include "media/core/error_signal.h"

std::string MxFormatDescription::CopyDebugDescription() const {
  return "<MxFormatDescription " + MxFourCCToString(mediaType_) + "/" +
         MxFourCCToString(mediaSubType_) + ", " + std::to_string(extensions_.size()) +
         " extensions>";
}

Status MxFormatDescriptionCreate(MxAllocator*, FourCC mediaType, FourCC mediaSubType,
                                 const MxDictionary* extensions, MxFormatDescriptionRef* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  *out = MxFormatDescriptionRef::Adopt(
      new MxFormatDescription(mediaType, mediaSubType, extensions ? *extensions : MxDictionary{}));
  return kNoErr;
}

FourCC MxFormatDescriptionGetMediaSubType(const MxFormatDescription* description) {
  return description ? description->mediaSubType() : 0;
}

const MxDictionary* MxFormatDescriptionGetExtensions(const MxFormatDescription* description) {
  return description ? &description->extensions() : nullptr;
}

const MxValue* MxFormatDescriptionGetExtension(const MxFormatDescription* description,
                                               std::string_view key) {
  return MxDictionaryGetValue(MxFormatDescriptionGetExtensions(description), key);
}
