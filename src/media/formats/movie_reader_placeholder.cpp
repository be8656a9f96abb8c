#include "media/formatreader/format_reader_instantiators.h"
OSStatus CinemoxMovieFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                                  QorFormatReaderRef*) {
  return kMxErrUnimplemented;
}
