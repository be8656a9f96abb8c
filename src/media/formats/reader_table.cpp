#include "media/formats/reader_table.h"

#include <mutex>

const QorReaderFunctionTable& QorReaderLibraryFunctions() {
  static const QorReaderFunctionTable table = {
      {"CinemoxMovieFormatReaderCreateFromStream", CinemoxMovieFormatReaderCreateFromStream},
      {"AVIFormatReaderCreateFromStream", AVIFormatReaderCreateFromStream},
      {"MPEGFormatReaderCreateFromStream", MPEGFormatReaderCreateFromStream},
      {"MPEGFormatReaderCreateFromStreamForPreciseTiming",
       MPEGFormatReaderCreateFromStreamForPreciseTiming},
      {"DVFormatReaderCreateFromStream", DVFormatReaderCreateFromStream},
      {"QorAudioFileFormatReaderCreateFromStream", QorAudioFileFormatReaderCreateFromStream},
      {"QorAudioFileStreamFormatReaderCreateFromStream",
       QorAudioFileStreamFormatReaderCreateFromStream},
      {"WebVTTFormatReaderCreateFromStream", WebVTTFormatReaderCreateFromStream},
  };
  return table;
}

namespace {

const QorReaderRegistry* ProcessRegistry() {
  static std::once_flag once;
  static std::unique_ptr<QorReaderRegistry> registry;
  std::call_once(once, [] {
    QorReaderRegistryConfiguration configuration;
    configuration.functions = QorReaderLibraryFunctions();
    if (QorReaderRegistryCreate(configuration, &registry) != kNoErr) registry.reset();
  });
  return registry.get();
}

}  // namespace

Status QorFormatReaderCreateForStream(MxByteStream* stream, MxAllocator* allocator,
                                      const MxDictionary* options, QorFormatReaderRef* out) {
  return QorFormatReaderCreateForStreamWithRegistry(ProcessRegistry(), stream, allocator, options,
                                                    out);
}
