// The instantiators of the reader registry, one per container reader. Each makes a format
// reader for the byte stream or answers why it cannot; `options` may be null.
#pragma once

#include "media/core/byte_stream.h"
#include "media/core/value.h"
#include "media/formatreader/format_reader.h"

using QorFormatReaderInstantiator = OSStatus (*)(MxByteStream* byteStream, MxAllocator* allocator,
                                                 const MxDictionary* options,
                                                 QorFormatReaderRef* out);

// Movie files (ISO base media and classic movie atoms).
[[nodiscard]] OSStatus CinemoxMovieFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                                MxAllocator* allocator,
                                                                const MxDictionary* options,
                                                                QorFormatReaderRef* out);
[[nodiscard]] OSStatus AVIFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                       MxAllocator* allocator,
                                                       const MxDictionary* options,
                                                       QorFormatReaderRef* out);
// MPEG program and transport streams; answers kMxErrNotMPEGStream for anything else.
[[nodiscard]] OSStatus MPEGFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                        MxAllocator* allocator,
                                                        const MxDictionary* options,
                                                        QorFormatReaderRef* out);
// The same reader, scanning the stream for exact durations and time stamps.
[[nodiscard]] OSStatus MPEGFormatReaderCreateFromStreamForPreciseTiming(MxByteStream* byteStream,
                                                                        MxAllocator* allocator,
                                                                        const MxDictionary* options,
                                                                        QorFormatReaderRef* out);
[[nodiscard]] OSStatus DVFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                      MxAllocator* allocator,
                                                      const MxDictionary* options,
                                                      QorFormatReaderRef* out);
[[nodiscard]] OSStatus QorAudioFileFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                                MxAllocator* allocator,
                                                                const MxDictionary* options,
                                                                QorFormatReaderRef* out);
[[nodiscard]] OSStatus QorAudioFileStreamFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                                      MxAllocator* allocator,
                                                                      const MxDictionary* options,
                                                                      QorFormatReaderRef* out);
[[nodiscard]] OSStatus WebVTTFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                          MxAllocator* allocator,
                                                          const MxDictionary* options,
                                                          QorFormatReaderRef* out);
