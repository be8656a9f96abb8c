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
    if (!c.Take(size_t(h.size - h.headerSize), &body)) return QorSignalErrorAt(kMovieErrMalformed);
    if (h.type == MxFourCC("dcom") && !method) {
      MxByteCursor d(body);
      uint32_t m;
      if (!d.ReadU32(&m)) return QorSignalErrorAt(kMovieErrMalformed);
      method = m;
    } else if (h.type == MxFourCC("cmvd") && data.empty()) {
      data = body;
    }
  }
  if (!method || data.empty()) return QorSignalErrorAt(kMovieErrMalformed);
  if (*method != MxFourCC("zlib")) return QorSignalErrorAt(kMovieErrUnsupported);

  MxByteCursor d(data);
  uint32_t declared;
  if (!d.ReadU32(&declared)) return QorSignalErrorAt(kMovieErrMalformed);
  if (declared < 8) return QorSignalErrorAt(kMovieErrMalformed);
  if (declared > maxBytes) return QorSignalErrorAt(kMovieErrUnsupported);
  std::span<const uint8_t> compressed = d.Rest();
  // Deflate expands at most about 1032 to 1: a larger declared size cannot be true, and is not
  // allocated.
  if (declared > uint64_t(compressed.size()) * 1032 + 64)
    return QorSignalErrorAt(kMovieErrMalformed);

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
  if (rc != Z_STREAM_END || produced != declared) return QorSignalErrorAt(kMovieErrMalformed);
  *out = std::move(result);
  return kNoErr;
}
