// Builds small movie files byte by byte for the cases ffmpeg cannot make: forced references,
// extended language tags, content tags, 64-bit chunk offsets, composition offsets, edit lists,
// compressed headers and broken boxes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace movie_builder {

std::string U8(uint8_t v);
std::string U16(uint16_t v);
std::string U32(uint32_t v);
std::string U64(uint64_t v);
std::string Box(const std::string& type, const std::string& payload);
std::string FullBox(const std::string& type, uint8_t version, uint32_t flags,
                    const std::string& payload);
// Packs three lower-case letters into a media header language field.
uint16_t PackLanguage(const char* letters);
// A "tx3g" sample entry with a one-font table; `displayFlags` as given.
std::string TextSampleEntry(uint32_t displayFlags = 0);
// A text sample: 16-bit length, the UTF-8 text, then `boxes`.
std::string TextSample(const std::string& text, const std::string& boxes = "");

struct Edit {
  uint64_t duration;
  int64_t mediaTime;
};

struct Track {
  uint32_t trackID = 1;
  std::string handler = "sbtl";
  uint32_t tkhdFlags = 1;
  uint32_t timescale = 1000;
  uint16_t language = 0x55C4;  // "und"
  std::optional<std::string> elng, name;
  std::vector<std::string> tagc;  // one 'tagc' box each
  std::vector<uint32_t> forced;   // 'tref' / 'forc'
  std::optional<std::vector<Edit>> edits;
  bool wideEdits = false;
  std::string sampleEntry = TextSampleEntry();
  std::vector<std::string> samples;
  std::vector<uint32_t> durations;           // one per sample
  std::optional<std::vector<int32_t>> ctts;  // one per sample
  uint8_t cttsVersion = 0;
  uint32_t samplesPerChunk = 2;
  bool co64 = false;
  bool compactSizes = false;  // 'stz2' with 16-bit fields
  bool sharedBytes = false;   // every chunk starts at the first sample's bytes, stored once
};

struct Movie {
  uint32_t timescale = 600;
  uint64_t duration = 6000;
  std::vector<Track> tracks;
  bool moovFirst = true;
  bool compressHeader = false;
  std::string extraMovieChildren;  // appended inside 'moov'
};

// The complete file: 'ftyp', then 'moov' and 'mdat' in the order asked.
std::string Build(const Movie& movie);

}  // namespace movie_builder
