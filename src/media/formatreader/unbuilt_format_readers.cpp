// Readers the registry lists but the library does not have yet: each answers that the operation
// is absent, so selection reports it ("can't create format reader x.avi -12782").
#include "media/core/error_signal.h"
#include "media/formatreader/format_reader_instantiators.h"

OSStatus AVIFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                         QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus MPEGFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                          QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus MPEGFormatReaderCreateFromStreamForPreciseTiming(MxByteStream*, MxAllocator*,
                                                          const MxDictionary*,
                                                          QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus DVFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                        QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus QorAudioFileFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                                  QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus QorAudioFileStreamFormatReaderCreateFromStream(MxByteStream*, MxAllocator*,
                                                        const MxDictionary*, QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}

OSStatus WebVTTFormatReaderCreateFromStream(MxByteStream*, MxAllocator*, const MxDictionary*,
                                            QorFormatReaderRef*) {
  return QorSignalErrorAt(kMxErrUnimplemented);
}
