// 'cmov': a movie box compressed with zlib. Its 'dcom' box names the method, its 'cmvd' box holds
// the uncompressed size followed by the compressed bytes of a complete movie box.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "common/status.h"

// Inflates the movie box held by the payload of a 'cmov' box into `out` (the whole box, header
// included). The declared size must be at most `maxBytes` and must be exactly what inflates;
// an unknown method or an over-large size answers kMovieErrUnsupported.
Status InflateCompressedMovieBox(std::span<const uint8_t> payload, uint64_t maxBytes,
                                 std::vector<uint8_t>* out);
