// Writes the movie reader's seed files made by the test box builder into the directory given:
// each one exercises a different part of the file layout, so that fuzzing starts from files the
// reader reads to the end.
#include <fstream>
#include <iostream>
#include <string>

#include "media/formats/movie/movie_builder.h"

using namespace movie_builder;

namespace {

Track Subtitles(uint32_t id, const char* language) {
  Track t;
  t.trackID = id;
  t.language = PackLanguage(language);
  t.samples = {TextSample("one"), TextSample("two\nlines"), TextSample(""),
               TextSample("four", Box("styl", U16(1) + U16(0) + U16(4) + U16(1) + U8(1) + U8(18) +
                                                  U32(0xFF0000FF)))};
  t.durations = {500, 1000, 250, 1250};
  return t;
}

bool Write(const std::string& path, const Movie& movie) {
  std::ofstream out(path, std::ios::binary);
  out << Build(movie);
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: builder_movies DIR\n";
    return 2;
  }
  const std::string dir = argv[1];

  // A video track, a subtitle track with a name and a forced companion with a language tag.
  Movie tracks;
  Track video;
  video.handler = "vide";
  video.sampleEntry = Box("mp4v", std::string(78, '\0'));
  video.samples = {"frame"};
  video.durations = {1000};
  Track english = Subtitles(2, "eng");
  english.name = "English";
  english.forced = {3};
  Track forced = Subtitles(3, "fra");
  forced.tkhdFlags = 0;
  forced.elng = "fr-CA";
  forced.tagc = "public.auxiliary-content";
  tracks.tracks = {video, english, forced};

  // Timing: composition offsets (both versions) and edit lists, narrow and wide.
  Movie timing;
  Track offsets = Subtitles(1, "deu");
  offsets.ctts = std::vector<int32_t>{0, 100, -50, 0};
  offsets.cttsVersion = 1;
  offsets.edits = std::vector<Edit>{{200, -1}, {3000, 100}};
  Track wide = Subtitles(2, "spa");
  wide.ctts = std::vector<int32_t>{10, 10, 10, 10};
  wide.edits = std::vector<Edit>{{6000, 0}};
  wide.wideEdits = true;
  wide.handler = "text";
  timing.tracks = {offsets, wide};

  // Other layouts: 64-bit offsets, compact sizes, one sample per chunk.
  Movie layout;
  Track compact = Subtitles(1, "ita");
  compact.co64 = true;
  compact.compactSizes = true;
  compact.samplesPerChunk = 1;
  layout.tracks = {compact};

  // A compressed header after the data.
  Movie compressed;
  compressed.tracks = {Subtitles(1, "jpn")};
  compressed.compressHeader = true;
  compressed.moovFirst = false;

  return Write(dir + "/builder-tracks.mov", tracks) && Write(dir + "/builder-timing.mov", timing) &&
                 Write(dir + "/builder-layout.mov", layout) &&
                 Write(dir + "/builder-compressed.mov", compressed)
             ? 0
             : 1;
}
