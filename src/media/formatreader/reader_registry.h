// The reader registry and reader selection. Every container reader is registered as a "thing":
// a dictionary naming its type, subtype, maker, version, instantiation function and the file
// types, MIME types and file-name extensions it claims. QorFormatReaderCreateForStreamWithRegistry
// matches what a byte stream says of itself against these claims, in a fixed order, and
// instantiates the first reader that accepts the stream. The registry knows the readers only by
// the table of functions its caller hands in.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "media/core/byte_stream.h"
#include "media/core/value.h"
#include "media/formatreader/format_reader.h"

// A reader's create function: makes a format reader for the byte stream or answers why it
// cannot; `options` may be null.
using QorFormatReaderInstantiator = Status (*)(MxByteStream* byteStream, MxAllocator* allocator,
                                               const MxDictionary* options,
                                               QorFormatReaderRef* out);

using QorThingInstantiator =
    std::function<Status(MxByteStream*, MxAllocator*, const MxDictionary*, QorFormatReaderRef*)>;

// One registered thing. `instantiator` may be empty: the function is then found by the name in
// its dictionary.
struct QorThing {
  MxDictionary info;
  QorThingInstantiator instantiator;
  std::unique_ptr<QorThing> next;
};

// Keys of a thing's dictionary.
extern const char* const kQorThingTypeKey;                          // "QorThingType"
extern const char* const kQorThingSubtypeKey;                       // "QorThingSubtype"
extern const char* const kQorThingManufacturerKey;                  // "QorThingManufacturer"
extern const char* const kQorThingVersionKey;                       // "QorThingVersion"
extern const char* const kQorThingCreateInstanceFunctionNameKey;    // function name
extern const char* const kQorThingContainerLabellingKey;            // "ContainerLabelling"
extern const char* const kQorContainerLabelling_OSType;             // "com.zorva.ostype"
extern const char* const kQorContainerLabelling_MIMEType;           // "public.mime-type"
extern const char* const kQorContainerLabelling_FilenameExtension;  // "public.filename-extension"

// Criteria of QorThingFind; a null field matches anything.
struct QorThingCriteria {
  const char* type = nullptr;
  const char* subtype = nullptr;
  const char* manufacturer = nullptr;
};

struct QorReaderRegistryEntry {
  const QorThing* thing;
  const MxDictionary* labelling;
};

// The readers the registry instantiates, by function name. The caller supplies the table: the
// library's own sits beside the readers (media/formats/reader_table.h); tests put their own
// readers in its place.
using QorReaderFunctionTable = std::map<std::string, QorFormatReaderInstantiator, std::less<>>;

// Answers the user preference "CombinedAudioFormatReader" of the domain "com.zorva.mediacore".
// This system keeps no user preferences, so it answers "not set" (an empty string).
std::string QorCopyCombinedAudioFormatReaderPreference();

struct QorReaderRegistryConfiguration {
  std::function<std::string()> combinedAudioPreference = QorCopyCombinedAudioFormatReaderPreference;
  QorReaderFunctionTable functions;
};

class QorReaderRegistry {
 public:
  // Entries in search order: the last registered first.
  const std::vector<QorReaderRegistryEntry>& entries() const { return entries_; }
  const QorThing* things() const { return things_.get(); }
  const QorReaderFunctionTable& functions() const { return functions_; }

 private:
  friend Status QorReaderRegistryCreate(const QorReaderRegistryConfiguration&,
                                        std::unique_ptr<QorReaderRegistry>*);
  std::unique_ptr<QorThing> things_;  // newest first
  std::vector<QorReaderRegistryEntry> entries_;
  QorReaderFunctionTable functions_;
};

Status QorReaderRegistryCreate(const QorReaderRegistryConfiguration& configuration,
                               std::unique_ptr<QorReaderRegistry>* out);

// The first thing in `registry` matching `criteria`, or kQorThingErrNotFound.
Status QorThingFind(const QorReaderRegistry* registry, const QorThingCriteria& criteria,
                    const QorThing** out);
const MxDictionary* QorThingGetInfo(const QorThing* thing);
// The stored function, or the one its dictionary names (kQorThingErrFunctionNotFound when the
// name is unknown).
Status QorThingGetInstantiator(const QorReaderRegistry* registry, const QorThing* thing,
                               QorThingInstantiator* out);

// Selection against a given registry.
Status QorFormatReaderCreateForStreamWithRegistry(const QorReaderRegistry* registry,
                                                  MxByteStream* stream, MxAllocator* allocator,
                                                  const MxDictionary* options,
                                                  QorFormatReaderRef* out);
