// Media types of MPEG elementary streams, from a transport stream's stream type (and, for
// private data, its descriptors) or a program stream's stream id. Zero means the stream is not
// presented as a track (private data of unknown kind, bitmap subpictures, tables).
#pragma once

#include <cstddef>
#include <cstdint>

uint32_t MPEGStreamTypeMediaType(uint8_t streamType, const uint8_t* descriptors, size_t length);

// `substream` is the first payload byte of a private stream 1 packet (ignored for other ids).
uint32_t MPEGStreamIdMediaType(uint8_t streamId, uint8_t substream);
