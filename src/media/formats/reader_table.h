// The library's container readers as the reader registry knows them: their create functions,
// the table naming them, and reader selection against the process's registry built from that
// table. Each create function makes a format reader for the byte stream or answers why it
// cannot; `options` may be null.
#pragma once

#include "media/core/byte_stream.h"
#include "media/core/value.h"
#include "media/formatreader/format_reader.h"
#include "media/formatreader/reader_registry.h"

// Movie files (ISO base media and classic movie atoms).
Status CinemoxMovieFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                                const MxDictionary* options,
                                                QorFormatReaderRef* out);
Status AVIFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                       const MxDictionary* options, QorFormatReaderRef* out);
// MPEG program and transport streams; answers kMxErrNotMPEGStream for anything else.
Status MPEGFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                        const MxDictionary* options, QorFormatReaderRef* out);
// The same reader, scanning the stream for exact durations and time stamps.
Status MPEGFormatReaderCreateFromStreamForPreciseTiming(MxByteStream* byteStream,
                                                        MxAllocator* allocator,
                                                        const MxDictionary* options,
                                                        QorFormatReaderRef* out);
Status DVFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                      const MxDictionary* options, QorFormatReaderRef* out);
Status QorAudioFileFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                                const MxDictionary* options,
                                                QorFormatReaderRef* out);
Status QorAudioFileStreamFormatReaderCreateFromStream(MxByteStream* byteStream,
                                                      MxAllocator* allocator,
                                                      const MxDictionary* options,
                                                      QorFormatReaderRef* out);
Status WebVTTFormatReaderCreateFromStream(MxByteStream* byteStream, MxAllocator* allocator,
                                          const MxDictionary* options, QorFormatReaderRef* out);

// The library's readers by function name: the table the process's registry is built from.
const QorReaderFunctionTable& QorReaderLibraryFunctions();

// Selection against the process's registry, built from the library's table on first use, once
// per process.
Status QorFormatReaderCreateForStream(MxByteStream* stream, MxAllocator* allocator,
                                      const MxDictionary* options, QorFormatReaderRef* out);
