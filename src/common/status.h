// Status codes shared by every module. Zero is success; positive values are operating-system
// error numbers passed through; negative values are ours or the media library's. Codes cross
// module boundaries unchanged, so one table here keeps them from drifting apart.
//
// Status is an enumeration over int32_t, so every 32-bit value is a status, it compares and
// prints as the number it is, and nothing converts to it by accident: an operating-system error
// number becomes one through StatusFromErrno. The type is [[nodiscard]]: a call whose status is
// dropped does not compile, whoever wrote the function. A status dropped on purpose is cast to
// void beside a comment that says why.
#pragma once

#include <cstdint>

enum [[nodiscard]] Status : int32_t{
    kNoErr = 0,

    // The segmenter's own codes.
    kErrBadArgument = -45000,      // bad option value or argument
    kErrKeyPath = -45001,          // key path or key file not usable
    kErrCreateFailed = -45002,     // an object could not be made, or an entry was refused
    kErrNoCryptor = -45006,        // write while encrypting without an encryptor
    kErrShortWrite = -45007,       // fewer bytes written than asked
    kErrNoFreeFileIndex = -45008,  // every segment file number is in use
    kErrParse = -45009,            // WebVTT source not parsable, or a missing argument

    // Failure of the AES encryptor (the cryptographic library reports no number of its own).
    kErrCryptor = -45100,

    // The master playlist tool's codes.
    kErrPlaylistSyntax = -45200,  // a playlist is malformed, or not the kind of playlist expected
    kErrPlaylistRule = -45201,    // a playlist breaks a rule of HTTP Live Streaming

    // Media library codes.
    kMxErrUnimplemented = -12782,  // the object's class lacks the operation
    kMxErrPropertyNotAvailable = -12783,
    kMxErrPropertyNotSupported = -12784,
    kMxErrAllocationFailed = -12786,
    kMxErrInvalidParameter = -12872,
    kMxErrEndOfStream = -12873,
    kMxErrNoFormatReader = -12847,
    kMxErrEndOfTrack = -12840,
    kMxErrOutOfMemory = -108,
    kMxErrBadPath = -50,

    // Container probes.
    kMxErrFormatNotRecognised = -12970,  // the data is not in the reader's container format
    kMxErrFormatDamaged = -12969,        // the reader's format, but cut short or inconsistent
    kMxErrProbeLimitExceeded = -12968,   // a probe would read more than its bounded share

    kMxBlockBufferStructureAllocationFailed = -12700,
    kMxBlockBufferBlockAllocationFailed = -12701,
    kMxBlockBufferBadCustomBlockSource = -12702,
    kMxBlockBufferBadOffsetParameter = -12703,
    kMxBlockBufferBadLengthParameter = -12704,
    kMxBlockBufferBadPointerParameter = -12705,
    kMxBlockBufferEmptyBBuf = -12706,
    kMxBlockBufferUnallocatedBlock = -12707,

    // Movie-file reader codes.
    kMovieErrMalformed = -12890,         // a box or table of the movie file is broken
    kMovieErrFragmented = -12891,        // fragmented movie files (movie fragments) are not read
    kMovieErrUnsupported = -12892,       // a compressed header in an unknown method, or too large
    kMovieErrSampleOutOfRange = -12893,  // a sample's bytes lie past the end of the file

    // Reader registry and selection.
    kQorErrRegistryUnavailable = -1,    // the reader registry could not be built
    kQorThingErrNotFound = -2,          // no registered thing matches the criteria
    kQorThingErrLoadFailed = -3,        // an instantiator could not be loaded
    kQorThingErrFunctionNotFound = -4,  // an instantiator's function name is unknown
    kMxErrNotMPEGStream = -12971,       // the MPEG reader does not recognise the stream

    // Text format descriptions.
    kMxTextDescErrMissingValue = -12710,       // no description, wrong media type, missing key
    kMxTextDescErrAtomCreation = -12711,       // an extension atom's data or key cannot be made
    kMxTextDescErrUnknownEntryType = -12712,   // the sample entry type is not a text kind
    kMxTextDescErrValueCreation = -12713,      // a number or dictionary cannot be made
    kMxTextDescErrMalformed = -12714,          // entry too short, bad atom size, bad font table
    kMxTextDescErrWebVTTDescription = -12718,  // getter asked of a WebVTT-in-ISO description

    // Text samples.
    kQorTextSampleErrStringCreation = -12730,  // text or attributed string cannot be made
    kQorTextSampleErrMalformed = -12742,       // bad text length, box size or style box
    kQorTextSampleErrNoFormatDescription = -444,

    kWebVTTErrMalformedCue = -16010,
    kWebVTTErrMalformedTimestamp = -16011,
    kWebVTTErrBadCueTime = -16012,
    kWebVTTErrEmptyPayload = -16013,
};

// An operating-system error number (errno) as a status; it passes through unchanged.
constexpr Status StatusFromErrno(int error) {
  return static_cast<Status>(error);
}
