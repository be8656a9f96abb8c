#include "media/formatreader/reader_registry.h"

#include <strings.h>

#include <initializer_list>

#include "media/core/error_signal.h"
#include "media/core/four_cc.h"

const char* const kQorThingTypeKey = "QorThingType";
const char* const kQorThingSubtypeKey = "QorThingSubtype";
const char* const kQorThingManufacturerKey = "QorThingManufacturer";
const char* const kQorThingVersionKey = "QorThingVersion";
const char* const kQorThingCreateInstanceFunctionNameKey = "QorThingCreateInstanceFunctionName";
const char* const kQorThingContainerLabellingKey = "ContainerLabelling";
const char* const kQorContainerLabelling_OSType = "com.zorva.ostype";
const char* const kQorContainerLabelling_MIMEType = "public.mime-type";
const char* const kQorContainerLabelling_FilenameExtension = "public.filename-extension";

namespace {

using Names = std::initializer_list<const char*>;

struct ReaderRow {
  const char* function;
  const char* subtype;
  Names fileTypes;
  Names mimeTypes;
  Names extensions;
};

// The readers in registration order; the search runs the other way.
const ReaderRow kMovieRow = {
    "CinemoxMovieFormatReaderCreateFromStream",
    "video/mp4",
    {"MooV"},
    {"video/cinemox", "video/mp4", "audio/mp4", "application/mp4", "video/x-m4v", "audio/x-m4a",
     "audio/x-m4b", "audio/x-m4p", "audio/x-m4r", "video/3gpp", "video/3gpp2", "audio/3gpp",
     "audio/3gpp2"},
    {"mov", "cinemox", "mqv", "mp4", "m4a", "m4v", "m4b", "m4p", "m4r", "aax", "3gp", "3gpp", "3g2",
     "3gp2"}};
const ReaderRow kAVIRow = {
    "AVIFormatReaderCreateFromStream", "video/avi", {}, {"video/avi"}, {"avi"}};
const ReaderRow kMPEGRow = {
    "MPEGFormatReaderCreateFromStream",
    "video/mpeg",
    {"MPG2", "mMPG", "m2ts", "MPEG", "MPG "},
    {"video/mpeg", "video/x-mpeg", "video/mpeg2", "video/x-mpeg2", "video/mpg", "video/x-mpg",
     "video/m2ts", "video/x-m2ts", "video/mp2t", "video/x-mp2t", "video/mp2p", "video/x-mp2p",
     "video/mp1s", "video/x-mp1s"},
    {"mpeg", "m2v", "mpe", "mpg", "mp2", "mod", "vob", "m2ts", "m2t", "ts", "mts"}};
const ReaderRow kDVRow = {"DVFormatReaderCreateFromStream", "video/dv", {}, {"video/dv"}, {"dv"}};
const ReaderRow kAudioFileRow = {"QorAudioFileFormatReaderCreateFromStream",
                                 "audio/aiff",
                                 {"AIFF", "AIFC"},
                                 {"audio/aiff", "audio/x-aiff", "audio/wav", "audio/x-wav",
                                  "audio/wave", "audio/x-caf", "audio/basic"},
                                 {"aif", "aiff", "aifc", "caf", "aa", "wav", "au"}};
const ReaderRow kAudioFileStreamRow = {
    "QorAudioFileStreamFormatReaderCreateFromStream",
    "audio/mpeg",
    {"mp3!", "MP3!", "MPG3", "mpg3", "Mp3 ", "MP3 "},
    {"audio/mpeg", "audio/x-mpeg", "audio/mpeg3", "audio/x-mpeg3", "audio/mpg", "audio/x-mpg",
     "audio/mp3", "audio/x-mp3", "audio/AMR", "audio/aac", "audio/x-aac"},
    {"mp3", "m1a", "m2a", "mpa", "mp1", "aac", "adts", "amr", "ac3"}};
const ReaderRow kWebVTTRow = {
    "WebVTTFormatReaderCreateFromStream", "text/vtt", {}, {"text/vtt"}, {"vtt", "webvtt"}};

// A thing's dictionary. `fileTypes` and the others may be given as several lists whose union
// is taken (the combined audio entry).
MxDictionary MakeThingInfo(const char* function, const char* subtype,
                           std::initializer_list<const ReaderRow*> rows) {
  MxArray fileTypes, mimeTypes, extensions;
  for (const ReaderRow* row : rows) {
    for (auto [list, names] :
         {std::pair{&fileTypes, row->fileTypes}, std::pair{&mimeTypes, row->mimeTypes},
          std::pair{&extensions, row->extensions}}) {
      for (const char* name : names) {
        MxValue value(name);
        bool seen = false;
        for (const MxValue& v : *list) seen = seen || v == value;
        if (!seen) list->push_back(value);
      }
    }
  }
  MxDictionary labelling;
  if (!fileTypes.empty()) labelling.emplace(kQorContainerLabelling_OSType, std::move(fileTypes));
  if (!mimeTypes.empty()) labelling.emplace(kQorContainerLabelling_MIMEType, std::move(mimeTypes));
  if (!extensions.empty())
    labelling.emplace(kQorContainerLabelling_FilenameExtension, std::move(extensions));
  return MxDictionary{
      {kQorThingTypeKey, MxValue("QorFormatReader")},
      {kQorThingSubtypeKey, MxValue(subtype)},
      {kQorThingManufacturerKey, MxValue("com.zorva")},
      {kQorThingVersionKey, MxValue("1.0")},
      {kQorThingCreateInstanceFunctionNameKey, MxValue(function)},
      {kQorThingContainerLabellingKey, MxValue(std::move(labelling))},
  };
}

QorFormatReaderInstantiator Lookup(const QorReaderFunctionTable& functions, const char* name) {
  auto it = functions.find(name);
  return it == functions.end() ? nullptr : it->second;
}

// The MPEG reader's instantiator: the precise-timing variant when the options ask for it, and
// the audio-file-stream reader for a stream the MPEG reader does not recognise.
QorThingInstantiator MakeMPEGInstantiator(const QorReaderFunctionTable& functions) {
  QorFormatReaderInstantiator plain = Lookup(functions, "MPEGFormatReaderCreateFromStream");
  QorFormatReaderInstantiator precise =
      Lookup(functions, "MPEGFormatReaderCreateFromStreamForPreciseTiming");
  QorFormatReaderInstantiator audio =
      Lookup(functions, "QorAudioFileStreamFormatReaderCreateFromStream");
  return [plain, precise, audio](MxByteStream* stream, MxAllocator* allocator,
                                 const MxDictionary* options, QorFormatReaderRef* out) {
    const MxValue* prefer =
        MxDictionaryGetValue(options, kQorFormatReaderOption_PreferPreciseDurationAndTiming);
    QorFormatReaderInstantiator chosen = prefer && prefer->GetBool() == true ? precise : plain;
    if (chosen == nullptr) return QorSignalErrorAt(kQorThingErrLoadFailed);
    Status status = chosen(stream, allocator, options, out);
    if (status == kMxErrNotMPEGStream) {
      if (audio == nullptr) return QorSignalErrorAt(kQorThingErrLoadFailed);
      status = audio(stream, allocator, options, out);
    }
    return status;
  };
}

bool EqualsIgnoringCase(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0 && a.size() == b.size();
}

// The text after the last '.' of a name or path, or nothing when there is no '.'.
std::optional<std::string> ExtensionOf(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos) return std::nullopt;
  return name.substr(dot + 1);
}

std::optional<std::string> CopyStringProperty(MxByteStream* stream, const char* key) {
  MxValue value;
  if (stream->CopyProperty(key, &value) != kNoErr) return std::nullopt;
  if (const std::string* s = value.GetString()) return *s;
  return std::nullopt;
}

}  // namespace

std::string QorCopyCombinedAudioFormatReaderPreference() {
  return {};
}

Status QorReaderRegistryCreate(const QorReaderRegistryConfiguration& configuration,
                               std::unique_ptr<QorReaderRegistry>* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto registry = std::unique_ptr<QorReaderRegistry>(new QorReaderRegistry);
  registry->functions_ = configuration.functions;

  auto add = [&](MxDictionary info, QorThingInstantiator instantiator) {
    auto thing = std::make_unique<QorThing>();
    thing->info = std::move(info);
    thing->instantiator = std::move(instantiator);
    thing->next = std::move(registry->things_);
    registry->things_ = std::move(thing);
  };
  auto addRow = [&](const ReaderRow& row) {
    add(MakeThingInfo(row.function, row.subtype, {&row}), nullptr);
  };

  addRow(kMovieRow);
  addRow(kAVIRow);
  add(MakeThingInfo(kMPEGRow.function, kMPEGRow.subtype, {&kMPEGRow}),
      MakeMPEGInstantiator(registry->functions_));
  addRow(kDVRow);
  std::string combined =
      configuration.combinedAudioPreference ? configuration.combinedAudioPreference() : "";
  if (combined == "AudioFile" || combined == "AudioFileStream") {
    const ReaderRow& chosen = combined == "AudioFile" ? kAudioFileRow : kAudioFileStreamRow;
    add(MakeThingInfo(chosen.function, "audio/mpeg", {&kAudioFileRow, &kAudioFileStreamRow}),
        nullptr);
  } else {
    addRow(kAudioFileRow);
    addRow(kAudioFileStreamRow);
  }
  addRow(kWebVTTRow);

  for (const QorThing* thing = registry->things_.get(); thing; thing = thing->next.get()) {
    const MxValue* labelling = MxDictionaryGetValue(&thing->info, kQorThingContainerLabellingKey);
    if (labelling == nullptr || labelling->GetDictionary() == nullptr)
      return QorSignalErrorAt(kQorErrRegistryUnavailable);
    registry->entries_.push_back({thing, labelling->GetDictionary()});
  }
  *out = std::move(registry);
  return kNoErr;
}

Status QorThingFind(const QorReaderRegistry* registry, const QorThingCriteria& criteria,
                    const QorThing** out) {
  if (registry == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  auto matches = [](const MxDictionary& info, const char* key, const char* wanted) {
    if (wanted == nullptr) return true;
    const MxValue* value = MxDictionaryGetValue(&info, key);
    const std::string* text = value ? value->GetString() : nullptr;
    return text && *text == wanted;
  };
  for (const QorThing* thing = registry->things(); thing; thing = thing->next.get()) {
    if (matches(thing->info, kQorThingTypeKey, criteria.type) &&
        matches(thing->info, kQorThingSubtypeKey, criteria.subtype) &&
        matches(thing->info, kQorThingManufacturerKey, criteria.manufacturer)) {
      *out = thing;
      return kNoErr;
    }
  }
  return kQorThingErrNotFound;
}

const MxDictionary* QorThingGetInfo(const QorThing* thing) {
  return thing ? &thing->info : nullptr;
}

Status QorThingGetInstantiator(const QorReaderRegistry* registry, const QorThing* thing,
                               QorThingInstantiator* out) {
  if (registry == nullptr || thing == nullptr || out == nullptr)
    return QorSignalErrorAt(kMxErrInvalidParameter);
  if (thing->instantiator) {
    *out = thing->instantiator;
    return kNoErr;
  }
  const MxValue* name = MxDictionaryGetValue(&thing->info, kQorThingCreateInstanceFunctionNameKey);
  const std::string* text = name ? name->GetString() : nullptr;
  if (text == nullptr) return QorSignalErrorAt(kQorThingErrFunctionNotFound);
  auto it = registry->functions().find(*text);
  if (it == registry->functions().end()) return QorSignalErrorAt(kQorThingErrFunctionNotFound);
  // A name the table knows but whose reader is not there cannot be loaded.
  if (it->second == nullptr) return QorSignalErrorAt(kQorThingErrLoadFailed);
  *out = it->second;
  return kNoErr;
}

Status QorFormatReaderCreateForStreamWithRegistry(const QorReaderRegistry* registry,
                                                  MxByteStream* stream, MxAllocator* allocator,
                                                  const MxDictionary* options,
                                                  QorFormatReaderRef* out) {
  if (registry == nullptr) return QorSignalErrorAt(kQorErrRegistryUnavailable);
  if (stream == nullptr || out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);

  // What the stream says of itself, step by step: the URL's extension, the file type, the MIME
  // type, the suggested file name's extension.
  struct Step {
    const char* list;
    std::optional<std::string> value;
    bool ignoreCase;
  };
  Step steps[4] = {{kQorContainerLabelling_FilenameExtension, std::nullopt, true},
                   {kQorContainerLabelling_OSType, std::nullopt, false},
                   {kQorContainerLabelling_MIMEType, std::nullopt, true},
                   {kQorContainerLabelling_FilenameExtension, std::nullopt, true}};
  MxValue value;
  if (stream->CopyProperty(kMxByteStreamProperty_URL, &value) == kNoErr && value.GetURL())
    steps[0].value = ExtensionOf(value.GetURL()->path);
  if (stream->CopyProperty(kQorByteStreamProperty_FileType, &value) == kNoErr) {
    if (auto code = value.GetInt64()) steps[1].value = MxFourCCToString(static_cast<FourCC>(*code));
  }
  steps[2].value = CopyStringProperty(stream, kQorByteStreamProperty_MIMEType);
  if (auto name = CopyStringProperty(stream, kQorByteStreamProperty_SuggestedFileName))
    steps[3].value = ExtensionOf(*name);

  Status lastStatus = kNoErr;
  bool attempted = false;
  for (const Step& step : steps) {
    if (!step.value) continue;
    for (const QorReaderRegistryEntry& entry : registry->entries()) {
      const MxValue* listValue = MxDictionaryGetValue(entry.labelling, step.list);
      const MxArray* list = listValue ? listValue->GetArray() : nullptr;
      if (list == nullptr) continue;
      for (auto it = list->rbegin(); it != list->rend(); ++it) {
        const std::string* candidate = it->GetString();
        if (candidate == nullptr) continue;
        bool match = step.ignoreCase ? EqualsIgnoringCase(*candidate, *step.value)
                                     : *candidate == *step.value;
        if (!match) continue;
        QorThingInstantiator instantiate;
        // Each attempt is a failure of its own: the origin recorded is that of the last one.
        QorErrorOriginClear();
        lastStatus = QorThingGetInstantiator(registry, entry.thing, &instantiate);
        if (lastStatus == kNoErr) lastStatus = instantiate(stream, allocator, options, out);
        attempted = true;
        if (lastStatus == kNoErr && *out) return kNoErr;
        if (lastStatus == kNoErr) lastStatus = kErrCreateFailed;  // success without a reader
      }
    }
  }
  if (attempted && lastStatus != kNoErr) return QorSignalErrorAt(lastStatus);
  return QorSignalErrorAt(kMxErrNoFormatReader);
}
