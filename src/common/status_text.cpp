#include "common/status_text.h"

#include <cstring>

namespace {

struct Cause {
  Status status;
  const char* text;
};

constexpr Cause kCauses[] = {
    {kErrBadArgument, "a value is out of range"},
    {kErrCreateFailed, "an output stream could not be set up"},
    {kErrShortWrite, "a file could not be written whole"},
    {kErrNoFreeFileIndex, "no segment file number is free"},
    {kMxErrUnimplemented, "the reader lacks an operation the run needs"},
    {kMxErrPropertyNotAvailable, "a property is not available"},
    {kMxErrAllocationFailed, "out of memory"},
    {kMxErrInvalidParameter, "an invalid parameter"},
    {kMxErrEndOfStream, "the file ends early"},
    {kMxErrNoFormatReader, "no reader knows the file"},
    {kMxErrFormatNotRecognised, "the file is not of the kind its name says"},
    {kMxErrFormatDamaged, "the file is cut short or inconsistent"},
    {kMxErrProbeLimitExceeded, "the file's headers need more reading than allowed"},
    {kMovieErrMalformed, "a box or table of the movie is malformed"},
    {kMovieErrFragmented, "fragmented movies are not read"},
    {kMovieErrUnsupported, "the movie's header is compressed in an unknown way or too large"},
    {kMovieErrSampleOutOfRange, "a sample lies past the end of the file"},
    {kMxTextDescErrMissingValue, "the sample description is missing or not for text"},
    {kMxTextDescErrUnknownEntryType, "the sample description is not a text kind"},
    {kMxTextDescErrMalformed, "the sample description is malformed"},
    {kQorTextSampleErrStringCreation, "a subtitle sample's text cannot be decoded"},
    {kQorTextSampleErrMalformed, "a subtitle sample is malformed"},
};

}  // namespace

std::string DescribeStatus(Status status) {
  if (status > 0) return std::string(strerror(status)) + " (errno " + std::to_string(status) + ")";
  for (const Cause& cause : kCauses) {
    if (cause.status == status)
      return std::string(cause.text) + " (" + std::to_string(status) + ")";
  }
  return "status " + std::to_string(status);
}
