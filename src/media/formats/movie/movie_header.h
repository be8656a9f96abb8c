// The header of a movie file: the movie box with its tracks, read from a byte stream. Only the
// box headers at the top level of the file and the movie box itself are read; media data is
// left alone. The tables of every track refer into the header bytes this object owns.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/status.h"
#include "media/core/byte_stream.h"
#include "media/formats/movie/movie_boxes.h"

// Largest movie box, and largest inflated compressed movie box, that is read into memory.
inline constexpr uint64_t kMaxMovieHeaderBytes = 128ull << 20;
// Content tags kept per track; further 'tagc' boxes are ignored.
inline constexpr size_t kMaxContentTags = 16;

// Where a box starts: its first byte in the file, or in the inflated movie box of a compressed
// movie box.
struct MovieBoxPlace {
  int64_t offset = -1;
  bool inflated = false;
};

struct MovieTrack {
  std::optional<TrackHeaderBox> tkhd;
  std::vector<uint32_t> forcedTrackIDs;  // 'tref' / 'forc', as listed (the reader filters them)
  std::optional<EditListBox> editList;
  std::optional<MediaHeaderBox> mdhd;
  std::optional<HandlerBox> hdlr;
  std::optional<ExtendedLanguageBox> elng;
  std::optional<SampleDescriptionBox> stsd;
  std::optional<TimeToSampleBox> stts;
  std::optional<CompositionOffsetBox> ctts;
  std::optional<SampleToChunkBox> stsc;
  std::optional<SampleSizeBox> sizes;          // 'stsz' or 'stz2'
  std::optional<ChunkOffsetBox> chunkOffsets;  // 'stco' or 'co64'
  std::optional<std::string> name;             // 'udta' / 'name', bytes as stored
  std::vector<std::string> contentTags;        // 'udta' / 'tagc' boxes, each up to a NUL
  MovieBoxPlace sampleTablePlace;              // 'stbl', for the places of failures
};

class MovieHeader {
 public:
  MovieHeader() = default;
  MovieHeader(const MovieHeader&) = delete;
  MovieHeader& operator=(const MovieHeader&) = delete;

  std::optional<FileTypeBox> ftyp;
  std::optional<MovieHeaderBox> mvhd;
  std::vector<MovieTrack> tracks;

  // The movie box payload and, for a compressed movie box, the inflated movie box: the boxes
  // above keep views into them.
  std::vector<uint8_t> movieBytes;
  std::vector<uint8_t> fileTypeBytes;
  std::vector<uint8_t> inflatedBytes;
};

// Reads the header of the movie file behind `stream`. `fileLength` receives the stream's length.
// Fragmented files answer kMovieErrFragmented, broken ones kMovieErrMalformed.
Status MovieHeaderRead(MxByteStream* stream, std::unique_ptr<MovieHeader>* out,
                       int64_t* fileLength);

// Parses a movie box payload already in memory (taken over by the header); `payloadOffset` is
// where the payload starts in the file, for the places of failures.
Status MovieHeaderParseMovieBox(std::vector<uint8_t> payload, std::unique_ptr<MovieHeader>* out,
                                int64_t payloadOffset = 8);
