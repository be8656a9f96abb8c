#include "media/formats/movie/compressed_movie_box.h"

#include <zlib.h>

#include <new>
#include <optional>

#include "media/core/error_signal.h"
#include "media/formats/movie/movie_boxes.h"

Status InflateCompressedMovieBox(std::span<const uint8_t> payload, uint64_t maxBytes,
                                 std::vector<uint8_t>* out) {
  std::optional<uint32_t> method;
  std::span<const uint8_t> data;
  MxByteCursor c(payload);
  while (!c.AtEnd()) {
    BoxHeader h;
    if (Status err = ParseBoxHeader(c, c.Remaining(), &h)) return err;
    std::span<const uint8_t> body;
    if (!c.Take(size_t(h.size - h.headerSize), &body))
      return QorSignalErrorBecause(kMovieErrMalformed, "a box is cut short");
    if (h.type == MxFourCC("dcom") && !method) {
      MxByteCursor d(body);
      uint32_t m;
      if (!d.ReadU32(&m))
        return QorSignalErrorBecause(kMovieErrMalformed, "the compression method is cut short");
      method = m;
    } else if (h.type == MxFourCC("cmvd") && data.empty()) {
      data = body;
    }
  }
  if (!method) return QorSignalErrorBecause(kMovieErrMalformed, "no compression method ('dcom')");
  if (data.empty()) return QorSignalErrorBecause(kMovieErrMalformed, "no compressed data ('cmvd')");
  if (*method != MxFourCC("zlib"))
    return QorSignalErrorBecause(kMovieErrUnsupported, "the compression method is not 'zlib'");

  MxByteCursor d(data);
  uint32_t declared;
  if (!d.ReadU32(&declared))
    return QorSignalErrorBecause(kMovieErrMalformed, "the inflated size is cut short");
  if (declared < 8)
    return QorSignalErrorBecause(kMovieErrMalformed, "an inflated size of # bytes", {declared});
  if (declared > maxBytes) {
    return QorSignalErrorBecause(kMovieErrUnsupported, "an inflated size of # bytes is over #",
                                 {declared, maxBytes});
  }
  std::span<const uint8_t> compressed = d.Rest();
  // Deflate expands at most about 1032 to 1: a larger declared size cannot be true, and is not
  // allocated.
  if (declared > uint64_t(compressed.size()) * 1032 + 64) {
    return QorSignalErrorBecause(kMovieErrMalformed,
                                 "# compressed bytes cannot inflate to the # bytes declared",
                                 {compressed.size(), declared});
  }

  std::vector<uint8_t> result;
  try {
    result.resize(declared);
  } catch (const std::bad_alloc&) {
    return QorSignalErrorAt(kMxErrAllocationFailed);
  }
  z_stream z{};
  if (inflateInit(&z) != Z_OK) return QorSignalErrorAt(kMxErrAllocationFailed);
  z.next_in = const_cast<Bytef*>(compressed.data());
  z.avail_in = uInt(compressed.size());
  z.next_out = result.data();
  z.avail_out = uInt(result.size());
  // The declared size must be exactly what inflates: a stream that is longer does not end
  // within the buffer, one that is shorter ends early.
  const int rc = inflate(&z, Z_FINISH);
  const uLong produced = z.total_out;
  inflateEnd(&z);
  if (rc != Z_STREAM_END || produced != declared) {
    return QorSignalErrorBecause(kMovieErrMalformed,
                                 "the data does not inflate to the # bytes declared", {declared});
  }
  *out = std::move(result);
  return kNoErr;
}
