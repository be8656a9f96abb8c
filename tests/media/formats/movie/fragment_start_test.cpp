// The start of a fragmented movie segment from hand-built init and media segments: 32- and
// 64-bit box forms, track run flags, the track chosen, rounding and overflow, and broken files.
#include "media/formats/movie/fragment_start.h"

#include <gtest/gtest.h>

#include <optional>

#include "media/formats/movie/movie_builder.h"
#include "test_support.h"

using namespace movie_builder;

namespace {

struct InitTrack {
  uint32_t id = 1;
  std::string handler = "vide";
  uint32_t timescale = 12800;
  bool wide = false;  // 64-bit mdhd and elst
  std::vector<Edit> edits;
};

std::string Trak(const InitTrack& t) {
  std::string mdhd = t.wide ? U64(0) + U64(0) + U32(t.timescale) + U64(0)
                            : U32(0) + U32(0) + U32(t.timescale) + U32(0);
  std::string trak = FullBox("tkhd", 0, 3, U32(0) + U32(0) + U32(t.id) + std::string(68, '\0'));
  if (!t.edits.empty()) {
    std::string elst = U32(uint32_t(t.edits.size()));
    for (const Edit& e : t.edits)
      elst += (t.wide ? U64(e.duration) + U64(uint64_t(e.mediaTime))
                      : U32(uint32_t(e.duration)) + U32(uint32_t(e.mediaTime))) +
              U16(1) + U16(0);
    trak += Box("edts", FullBox("elst", t.wide ? 1 : 0, 0, elst));
  }
  return Box(
      "trak",
      trak + Box("mdia", FullBox("mdhd", t.wide ? 1 : 0, 0, mdhd + U16(0x55C4) + U16(0)) +
                             FullBox("hdlr", 0, 0, U32(0) + t.handler + std::string(13, '\0'))));
}

std::string Init(const std::vector<InitTrack>& tracks) {
  std::string traks;
  for (const InitTrack& t : tracks) traks += Trak(t);
  return Box("ftyp", "iso6" + U32(0)) + Box("moov", traks + Box("mvex", ""));
}

// A track run: `flags` name the per-sample fields; each sample gets duration 512, size 100,
// flags 0 and its composition offset from `offsets`, as the flags ask.
std::string Trun(uint8_t version, uint32_t flags, const std::vector<uint32_t>& offsets) {
  std::string body = U32(uint32_t(offsets.size()));
  if (flags & 0x1) body += U32(200);
  if (flags & 0x4) body += U32(0x02000000);
  for (uint32_t offset : offsets) {
    if (flags & 0x100) body += U32(512);
    if (flags & 0x200) body += U32(100);
    if (flags & 0x400) body += U32(0);
    if (flags & 0x800) body += U32(offset);
  }
  return FullBox("trun", version, flags, body);
}

// The same box with a 64-bit size.
std::string WideBox(const std::string& box) {
  return U32(1) + box.substr(4, 4) + U64(box.size() + 8) + box.substr(8);
}

std::string Tfdt(uint64_t time, bool wide = false) {
  return FullBox("tfdt", wide ? 1 : 0, 0, wide ? U64(time) : U32(uint32_t(time)));
}

std::string Traf(uint32_t id, const std::string& children) {
  return Box("traf", FullBox("tfhd", 0, 0x20000, U32(id)) + children);
}

std::string Segment(const std::string& trafs) {
  return Box("styp", "msdh" + U32(0)) + Box("moof", FullBox("mfhd", 0, 0, U32(1)) + trafs) +
         Box("mdat", "data");
}

constexpr uint32_t kAllFields = 0xF05;  // data offset, first sample flags, every sample field

struct Outcome {
  Status status;
  int64_t pts = 0;
  std::string problem;
};

Outcome Start(const std::string& init, const std::string& segment) {
  MxByteStreamRef initStream = MemoryStream(init), segmentStream = MemoryStream(segment);
  Outcome o;
  FragmentStart start;
  o.status = ReadFragmentInitTrack(initStream.get(), &start, &o.problem);
  if (o.status == kNoErr)
    o.status = ReadFirstFragmentTiming(segmentStream.get(), &start, &o.problem);
  if (o.status == kNoErr) o.status = FragmentStartIn90kHz(start, &o.pts);
  return o;
}

TEST(FragmentStart, ReadsEveryBoxForm) {
  const InitTrack plain;
  InitTrack wide;
  wide.wide = true;
  wide.timescale = 90000;
  wide.edits = {{0, 1024}};
  InitTrack delayed;
  delayed.edits = {{1024, -1}, {0, 1024}};
  InitTrack sound;
  sound.handler = "soun";
  sound.timescale = 48000;
  InitTrack video = plain;
  video.id = 2;
  const std::string twoTracks =
      Traf(1, Tfdt(24000) + Trun(0, 0x300, {0})) + Traf(2, Tfdt(12800) + Trun(0, 0x300, {0}));
  struct Case {
    const char* name;
    std::string init, segment;
    int64_t pts;
  } cases[] = {
      {"first edit empty: not applied", Init({delayed}),
       Segment(Traf(1, Tfdt(0) + Trun(0, kAllFields, {1024, 0}))), 7200},
      {"64-bit times; first edit applied", Init({wide}),
       Segment(Traf(1, Tfdt(uint64_t(1) << 33, true) + Trun(0, 0x800, {1024}))), int64_t(1) << 33},
      {"version 1 offsets are signed", Init({plain}),
       Segment(Traf(1, Tfdt(512) + Trun(1, 0x900, {uint32_t(-512)}))), 0},
      {"version 0 offsets are not", Init({plain}),
       Segment(Traf(1, Tfdt(512) + Trun(0, 0x900, {uint32_t(-512)}))), 30198988800},
      {"no offsets in the run", Init({plain}), Segment(Traf(1, Tfdt(6400) + Trun(0, 0x305, {7}))),
       45000},
      {"an empty run is passed over", Init({plain}),
       Segment(Traf(1, Tfdt(0) + Trun(0, 0x800, {}) + Trun(0, 0x800, {256}))), 1800},
      {"video track before the first", Init({sound, video}), Segment(twoTracks), 90000},
      {"else the first track", Init({sound}), Segment(twoTracks), 45000},
      {"64-bit box sizes", WideBox(Box("free", "")) + WideBox(Init({plain}).substr(16)),
       WideBox(Box("moof", Traf(1, Tfdt(12800) + Trun(0, 0x800, {0})))), 90000},
  };
  for (const Case& c : cases) {
    Outcome o = Start(c.init, c.segment);
    EXPECT_EQ(o.status, kNoErr) << c.name << ": " << o.problem;
    EXPECT_EQ(o.pts, c.pts) << c.name;
  }
}

TEST(FragmentStart, RoundsHalfAwayFromZeroAndRefusesOverflow) {
  struct Case {
    uint64_t decodeTime;
    int64_t offset, edit;
    uint32_t timescale;
    std::optional<int64_t> pts;  // none: refused
  } cases[] = {
      {1, 0, 0, 180000, 1},
      {3, 0, 0, 180000, 2},
      {0, 0, 1, 180000, -1},
      {1, 0, 0, 7, 12857},
      {uint64_t(INT64_MAX), 0, 0, 1000000000, 830103483316930},
      {uint64_t(INT64_MAX), 0, 0, 1, std::nullopt},
      {uint64_t(INT64_MAX), 1, 0, 1000000000, std::nullopt},
      {UINT64_MAX, 0, 0, 12800, std::nullopt},
      {0, 0, INT64_MIN, 12800, std::nullopt},
  };
  for (const Case& c : cases) {
    FragmentStart start;
    start.decodeTime = c.decodeTime;
    start.compositionOffset = c.offset;
    start.editMediaTime = c.edit;
    start.timescale = c.timescale;
    int64_t pts = 0;
    Status status = FragmentStartIn90kHz(start, &pts);
    EXPECT_EQ(status == kNoErr, c.pts.has_value()) << c.decodeTime << "/" << c.timescale;
    EXPECT_EQ(pts, c.pts.value_or(0)) << c.decodeTime << "/" << c.timescale;
  }
}

TEST(FragmentStart, BrokenFilesAreReported) {
  const std::string init = Init({InitTrack()});
  const std::string segment = Segment(Traf(1, Tfdt(0) + Trun(0, 0x800, {0})));
  // `file` with `bytes` written over it from `offset` bytes past the type of box `type`.
  auto patched = [](std::string file, const char* type, int offset, const std::string& bytes) {
    file.replace(file.find(type) + size_t(offset), bytes.size(), bytes);
    return file;
  };
  const std::string huge64 = U32(1) + "moov" + U64(uint64_t(1) << 62);
  struct Case {
    const char* name;
    std::string init, segment, problem;
  } cases[] = {
      {"empty init", "", segment, "no 'moov' box"},
      {"init cut short", init.substr(0, init.size() - 10), segment, "does not fit the file"},
      {"64-bit size past the end", huge64 + init, segment, "does not fit the file"},
      {"segment for init", segment, segment, "'moof' comes before any 'moov'"},
      {"no track", Init({}), segment, "has no track"},
      {"no mdhd", patched(init, "mdhd", 0, "xxxx"), segment, "no 'mdhd'"},
      {"timescale 0", patched(init, "mdhd", 16, U32(0)), segment, "'mdhd' is broken"},
      {"child past its parent", patched(init, "tkhd", -4, U32(0x1000)), segment,
       "does not fit in it"},
      {"huge sample count", init, patched(segment, "trun", 8, U32(0xFFFFFFFF)), "'trun' is broken"},
      {"run shorter than its count", init,
       Segment(Traf(1, Tfdt(0) + FullBox("trun", 0, 0x800, U32(2) + U32(0)))), "'trun' is broken"},
      {"tfdt version 2", init, patched(segment, "tfdt", 4, U8(2)), "'tfdt' is broken"},
      {"no tfdt", init, Segment(Traf(1, Trun(0, 0x800, {0}))), "no 'tfdt'"},
      {"no tfhd", init, Segment(Box("traf", Tfdt(0))), "no 'tfhd'"},
      {"no samples", init, Segment(Traf(1, Tfdt(0) + Trun(0, 0x800, {}))), "has no samples"},
      {"other track", init, Segment(Traf(7, Tfdt(0) + Trun(0, 0x800, {0}))), "nothing of track 1"},
      {"media data first", init, Box("mdat", "") + segment, "'mdat' comes before any 'moof'"},
      {"init for segment", init, init, "no 'moof' box"},
  };
  for (const Case& c : cases) {
    Outcome o = Start(c.init, c.segment);
    EXPECT_EQ(o.status, kMovieErrMalformed) << c.name;
    EXPECT_NE(o.problem.find(c.problem), std::string::npos) << c.name << ": " << o.problem;
  }
}

}  // namespace
