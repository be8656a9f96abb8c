// Movie files made by ffmpeg (video, audio and two timed-text tracks from SRT and ASS) read by
// the movie reader and checked against ffprobe's view of them: tracks, media types, languages,
// titles, sample times, sizes and bytes.
#include <gtest/gtest.h>

#include <sstream>

#include "media/formats/movie/language_code.h"
#include "media/formats/movie/movie_reader_test_support.h"
#include "test_support.h"

namespace {

constexpr char kSrt[] =
    "1\n00:00:00,500 --> 00:00:01,500\n<b>Bold</b> and <i>italic</i>\n\n"
    "2\n00:00:02,000 --> 00:00:03,250\n<u>under</u> a < b & c\n\n"
    "3\n00:00:03,300 --> 00:00:03,900\nplain\n";
constexpr char kAss[] =
    "[Script Info]\nScriptType: v4.00+\n\n[V4+ Styles]\n"
    "Format: Name, Fontname, Fontsize, PrimaryColour, Bold, Italic, Underline\n"
    "Style: Default,Arial,20,&H00FFFFFF,0,0,0\n\n[Events]\n"
    "Format: Layer, Start, End, Style, Text\n"
    "Dialogue: 0,0:00:01.00,0:00:02.00,Default,{\\b1}fett{\\b0} {\\i1}kursiv{\\i0}\n"
    "Dialogue: 0,0:00:02.50,0:00:03.00,Default,{\\u1}unter{\\u0}\n";

struct ProbedStream {
  std::string type, language;
  int64_t timeBaseDen = 0;
  struct Packet {
    int64_t pts, duration, size, pos;
  };
  std::vector<Packet> packets;
};

std::vector<std::string> Split(const std::string& line, char sep) {
  std::vector<std::string> fields;
  std::stringstream in(line);
  std::string f;
  while (std::getline(in, f, sep)) fields.push_back(f);
  return fields;
}

// One ffprobe call: "stream,TYPE,TIMEBASE[,LANGUAGE]" and "packet,INDEX,PTS,DURATION,SIZE,POS"
// lines, packets first.
std::vector<ProbedStream> Probe(const std::string& path) {
  std::string out;
  EXPECT_EQ(RunShell("ffprobe -v error -show_entries stream=codec_type,time_base:stream_tags="
                     "language:packet=stream_index,pts,duration,size,pos -of csv '" +
                         path + "'",
                     &out),
            0);
  std::vector<ProbedStream> streams;
  std::vector<std::vector<std::string>> packets;
  std::stringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    auto f = Split(line, ',');
    if (f.size() >= 3 && f[0] == "stream") {
      streams.push_back(
          {f[1], f.size() > 3 ? f[3] : "und", std::stoll(Split(f[2], '/').at(1)), {}});
    } else if (f.size() >= 6 && f[0] == "packet") {  // then any side data
      packets.push_back(f);
    }
  }
  for (const auto& f : packets) {
    // ffprobe has no duration ("N/A") for some empty subtitle samples: -1 skips the check.
    const int64_t duration = f[3] == "N/A" ? -1 : std::stoll(f[3]);
    streams.at(size_t(std::stoll(f[1])))
        .packets.push_back({std::stoll(f[2]), duration, std::stoll(f[4]), std::stoll(f[5])});
  }
  return streams;
}

class MovieFromFfmpeg : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new ScratchDir;
    WriteFile(*dir_ / "a.srt", kSrt);
    WriteFile(*dir_ / "b.ass", kAss);
    for (const char* ext : {"mp4", "m4v", "mov"}) {
      const std::string command =
          "cd '" + dir_->path() +
          "' && ffmpeg -v error -y -f lavfi -i "
          "testsrc=size=64x48:rate=10:duration=4 -f lavfi -i sine=duration=4 -i a.srt -i b.ass "
          "-map 0 -map 1 -map 2 -map 3 -c:v mpeg4 -c:a aac -c:s mov_text "
          "-metadata:s:s:0 language=eng -metadata:s:s:0 title='English subs' "
          "-metadata:s:s:1 language=jpn -metadata:s:s:1 title='Japanese' movie." +
          std::string(ext);
      ASSERT_EQ(RunShell(command), 0) << command;
    }
  }
  static void TearDownTestSuite() { delete dir_; }
  static ScratchDir* dir_;
};
ScratchDir* MovieFromFfmpeg::dir_ = nullptr;

TEST_F(MovieFromFfmpeg, TracksAndSamplesMatchFfprobe) {
  struct Case {
    const char* file;
    const char* subtitleType;
    bool titles;  // ffmpeg writes track titles into MP4 and MOV files, not into M4V
  };
  for (const Case c : {Case{"movie.mp4", "sbtl", true}, Case{"movie.m4v", "sbtl", false},
                       Case{"movie.mov", "text", true}}) {
    SCOPED_TRACE(c.file);
    const std::string path = *dir_ / c.file;
    const std::string bytes = ReadFile(path);
    const std::vector<ProbedStream> probed = Probe(path);
    OpenedMovie movie;
    ASSERT_EQ(movie.OpenPath(path), kNoErr);
    int64_t count = 0;
    ASSERT_EQ(QorFormatReaderGetTrackCount(movie.reader.get(), &count), kNoErr);
    ASSERT_EQ(size_t(count), probed.size());
    const std::vector<std::string> titles = {"", "", "English subs", "Japanese"};
    for (int64_t i = 0; i < count; ++i) {
      SCOPED_TRACE(i);
      const ProbedStream& p = probed[size_t(i)];
      QorTrackReaderRef track;
      FourCC type = 0;
      ASSERT_EQ(QorFormatReaderCopyTrackByIndex(movie.reader.get(), i, &track, &type, nullptr),
                kNoErr);
      const std::string expectedType = p.type == "video"   ? "vide"
                                       : p.type == "audio" ? "soun"
                                                           : c.subtitleType;
      EXPECT_EQ(MxFourCCToString(type), expectedType);
      MxValue v;
      ASSERT_EQ(track->CopyProperty(kQorTrackProperty_LanguageCode, &v), kNoErr);
      EXPECT_EQ(v, MxValue(ShortestLanguageCode(p.language)));
      ASSERT_EQ(track->CopyProperty(kQorTrackProperty_TrackName, &v), kNoErr);
      if (c.titles && !titles[size_t(i)].empty()) {
        ASSERT_NE(v.GetDictionary(), nullptr);
        ASSERT_EQ(v.GetDictionary()->size(), 1u);
        EXPECT_EQ(v.GetDictionary()->begin()->second, MxValue(titles[size_t(i)]));
      }

      std::vector<ReadSample> samples;
      ASSERT_EQ(ReadAllSamples(movie.reader.get(), i, &samples), kNoErr);
      // ffmpeg ends a text track with an empty sample at the end of its edit, which ffprobe
      // leaves out; the reader keeps it (an edit's duration does not cut samples).
      ASSERT_GE(samples.size(), p.packets.size());
      for (size_t k = p.packets.size(); k < samples.size(); ++k) {
        EXPECT_NE(p.type, "video");
        EXPECT_EQ(samples[k].bytes, std::string(2, '\0'));
      }
      for (size_t k = 0; k < p.packets.size(); ++k) {
        const auto& packet = p.packets[k];
        EXPECT_EQ(samples[k].bytes, bytes.substr(size_t(packet.pos), size_t(packet.size))) << k;
        if (packet.duration >= 0) {
          EXPECT_EQ(samples[k].durationValue * p.timeBaseDen,
                    packet.duration * samples[k].durationTimescale)
              << k;
        }
        // The audio track's priming edit is not one the reader applies (it keeps media
        // times), so its time stamps are compared only through the durations.
        if (p.type != "audio") {
          EXPECT_EQ(samples[k].ptsValue * p.timeBaseDen, packet.pts * samples[k].ptsTimescale) << k;
        }
      }
    }
  }
}

}  // namespace
