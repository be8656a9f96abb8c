#include "media/formats/movie/movie_builder.h"

#include <zlib.h>

namespace movie_builder {

std::string U8(uint8_t v) {
  return std::string(1, char(v));
}
std::string U16(uint16_t v) {
  return {char(v >> 8), char(v)};
}
std::string U32(uint32_t v) {
  return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}
std::string U64(uint64_t v) {
  return U32(uint32_t(v >> 32)) + U32(uint32_t(v));
}
std::string Box(const std::string& type, const std::string& payload) {
  return U32(uint32_t(8 + payload.size())) + type + payload;
}
std::string FullBox(const std::string& type, uint8_t version, uint32_t flags,
                    const std::string& payload) {
  return Box(type, U8(version) + U32(flags).substr(1) + payload);
}
uint16_t PackLanguage(const char* l) {
  return uint16_t(((l[0] - 0x60) << 10) | ((l[1] - 0x60) << 5) | (l[2] - 0x60));
}

std::string TextSampleEntry(uint32_t displayFlags) {
  std::string body = std::string(6, '\0') + U16(1) + U32(displayFlags) + U8(1) + U8(0xFF) + U32(0) +
                     U64(0) + U16(0) + U16(0) + U16(1) + U8(0) + U8(18) + U32(0xFFFFFFFF);
  body += Box("ftab", U16(1) + U16(1) + U8(5) + "Serif");
  return Box("tx3g", body);
}

std::string TextSample(const std::string& text, const std::string& boxes) {
  return U16(uint16_t(text.size())) + text + boxes;
}

namespace {

// The bytes of a track's samples as the media data holds them.
std::string TrackData(const Track& t) {
  if (t.sharedBytes) return t.samples.empty() ? "" : t.samples.front();
  std::string data;
  for (const std::string& s : t.samples) data += s;
  return data;
}

std::string SampleTable(const Track& t, uint64_t dataOffset) {
  const uint32_t n = uint32_t(t.samples.size());
  std::string stts;
  uint32_t runs = 0;
  const uint32_t timed = uint32_t(t.durations.size());
  for (uint32_t i = 0; i < timed;) {
    uint32_t j = i;
    while (j < timed && t.durations[j] == t.durations[i]) ++j;
    stts += U32(j - i) + U32(t.durations[i]);
    ++runs;
    i = j;
  }
  std::string boxes = FullBox("stsd", 0, 0, U32(1) + t.sampleEntry);
  boxes += FullBox("stts", 0, 0, U32(runs) + stts);
  if (t.ctts) {
    std::string table;
    for (int32_t o : *t.ctts) table += U32(1) + U32(uint32_t(o));
    boxes += FullBox("ctts", t.cttsVersion, 0, U32(uint32_t(t.ctts->size())) + table);
  }
  const uint32_t chunks = (n + t.samplesPerChunk - 1) / t.samplesPerChunk;
  std::string stsc = U32(1) + U32(chunks == 1 ? n : t.samplesPerChunk) + U32(1);
  uint32_t stscRuns = 1;
  if (chunks > 1 && n % t.samplesPerChunk != 0) {
    stsc += U32(chunks) + U32(n % t.samplesPerChunk) + U32(1);
    stscRuns = 2;
  }
  boxes += FullBox("stsc", 0, 0, U32(stscRuns) + stsc);
  if (t.compactSizes) {
    std::string sizes;
    for (const std::string& s : t.samples) sizes += U16(uint16_t(s.size()));
    boxes += FullBox("stz2", 0, 0, U32(0).substr(1) + U8(16) + U32(n) + sizes);
  } else {
    std::string sizes;
    for (const std::string& s : t.samples) sizes += U32(uint32_t(s.size()));
    boxes += FullBox("stsz", 0, 0, U32(0) + U32(n) + sizes);
  }
  std::string offsets;
  uint64_t at = dataOffset;
  for (uint32_t c = 0; c < chunks; ++c) {
    offsets += t.co64 ? U64(at) : U32(uint32_t(at));
    for (uint32_t s = c * t.samplesPerChunk; s < n && s < (c + 1) * t.samplesPerChunk; ++s)
      at += t.sharedBytes ? 0 : t.samples[s].size();
  }
  boxes += FullBox(t.co64 ? "co64" : "stco", 0, 0, U32(chunks) + offsets);
  return Box("stbl", boxes);
}

std::string TrackBox(const Track& t, uint64_t dataOffset) {
  std::string trak =
      FullBox("tkhd", 0, t.tkhdFlags,
              U32(0) + U32(0) + U32(t.trackID) + U32(0) + U32(0) + std::string(60, '\0'));
  if (!t.forced.empty()) {
    std::string ids;
    for (uint32_t id : t.forced) ids += U32(id);
    trak += Box("tref", Box("forc", ids));
  }
  if (t.edits) {
    std::string entries;
    for (const Edit& e : *t.edits) {
      entries += t.wideEdits ? U64(e.duration) + U64(uint64_t(e.mediaTime))
                             : U32(uint32_t(e.duration)) + U32(uint32_t(e.mediaTime));
      entries += U16(1) + U16(0);
    }
    trak += Box("edts",
                FullBox("elst", t.wideEdits ? 1 : 0, 0, U32(uint32_t(t.edits->size())) + entries));
  }
  std::string mdia =
      FullBox("mdhd", 0, 0, U32(0) + U32(0) + U32(t.timescale) + U32(0) + U16(t.language) + U16(0));
  mdia += FullBox("hdlr", 0, 0, U32(0) + t.handler + std::string(12, '\0') + std::string(1, '\0'));
  if (t.elng) mdia += FullBox("elng", 0, 0, *t.elng + std::string(1, '\0'));
  mdia += Box("minf", Box("free", "") + SampleTable(t, dataOffset));
  trak += Box("mdia", mdia);
  std::string udta;
  if (t.name) udta += Box("name", *t.name);
  for (const std::string& tag : t.tagc) udta += Box("tagc", tag);
  if (!udta.empty()) trak += Box("udta", udta);
  return Box("trak", trak);
}

std::string Compress(const std::string& moov) {
  uLongf size = compressBound(uLong(moov.size()));
  std::string out(size, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(moov.data()),
           uLong(moov.size()));
  out.resize(size);
  return Box("moov",
             Box("cmov", Box("dcom", "zlib") + Box("cmvd", U32(uint32_t(moov.size())) + out)));
}

}  // namespace

std::string Build(const Movie& movie) {
  const std::string ftyp = Box("ftyp", "isom" + U32(512) + "isomiso2");
  std::string data;
  for (const Track& t : movie.tracks) data += TrackData(t);
  const std::string mdat = Box("mdat", data);

  auto moovAt = [&](uint64_t dataStart) {
    // A duration beyond 32 bits needs the wide header.
    const bool wide = movie.duration > UINT32_MAX;
    std::string moov =
        FullBox("mvhd", wide ? 1 : 0, 0,
                (wide ? U64(0) + U64(0) + U32(movie.timescale) + U64(movie.duration)
                      : U32(0) + U32(0) + U32(movie.timescale) + U32(uint32_t(movie.duration))) +
                    std::string(80, '\0'));
    uint64_t at = dataStart;
    for (const Track& t : movie.tracks) {
      moov += TrackBox(t, at);
      at += TrackData(t).size();
    }
    moov = Box("moov", moov + movie.extraMovieChildren);
    return movie.compressHeader ? Compress(moov) : moov;
  };
  if (!movie.moovFirst) return ftyp + mdat + moovAt(ftyp.size() + 8);
  // The movie box's size does not depend on the offsets unless it is compressed; then a few
  // rounds settle it.
  size_t moovSize = moovAt(0).size();
  for (int round = 0; round < 4; ++round) {
    const size_t next = moovAt(ftyp.size() + moovSize + 8).size();
    if (next == moovSize) break;
    moovSize = next;
  }
  return ftyp + moovAt(ftyp.size() + moovSize + 8) + mdat;
}

}  // namespace movie_builder
