// Every container probe against files made by ffmpeg: the tracks and the duration agree with
// ffprobe; other kinds of data are refused with the probe's own code; a huge file is probed
// within the read budget. The registry's readers for these containers, reached through reader
// selection, give the probe's tracks and duration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "media/core/file_byte_stream.h"
#include "media/formats/audiofile/audio_file_probe.h"
#include "media/formats/audiostream/audio_stream_probe.h"
#include "media/formats/avi/avi_probe.h"
#include "media/formats/dv/dv_probe.h"
#include "media/formats/mpeg/mpeg_probe.h"
#include "media/formats/reader_table.h"
#include "test_support.h"

namespace {

enum Family { kMPEG, kAVI, kDV, kAudioFile, kAudioStream };

Status RunProbe(Family family, ProbeReader& reader, ContainerProbe* out) {
  if (family == kMPEG) return MPEGProbe(reader, false, out);
  Status (*const probes[])(ProbeReader&, ContainerProbe*) = {nullptr, AVIProbe, DVProbe,
                                                             AudioFileProbe, AudioStreamProbe};
  return probes[family](reader, out);
}

// A reader over the first `length` bytes of `bytes`, which must outlive it.
ProbeReader MemoryProbe(const std::string& bytes, size_t length = std::string::npos) {
  return ProbeReader::ForMemory(reinterpret_cast<const uint8_t*>(bytes.data()),
                                std::min(length, bytes.size()));
}

Status NotMineCode(Family family) {
  return family == kMPEG ? kMxErrNotMPEGStream : kMxErrFormatNotRecognised;
}

struct MediaCase {
  const char* name;
  Family family;
  const char* arguments;  // ffmpeg arguments between the inputs and the output name
  bool video;
};

const char kVideo[] = "-f lavfi -i testsrc=size=176x144:rate=25:duration=4 ";
const char kAudio[] = "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=4 ";

const MediaCase kCases[] = {
    {"clip.ts", kMPEG, "-c:v mpeg2video -c:a mp2 -f mpegts", true},
    {"clip.m2ts", kMPEG, "-c:v libx264 -c:a ac3 -f mpegts -mpegts_m2ts_mode 1", true},
    {"big.ts", kMPEG,
     "-c:v mpeg2video -b:v 6M -minrate 6M -maxrate 6M -bufsize 2M -c:a mp2 -f mpegts", true},
    {"clip.mpg", kMPEG, "-c:v mpeg1video -c:a mp2 -f mpeg", true},
    {"clip.vob", kMPEG, "-c:v mpeg2video -c:a ac3 -f vob", true},
    {"big.vob", kMPEG,
     "-c:v mpeg2video -b:v 6M -minrate 6M -maxrate 6M -bufsize 2M -c:a ac3 -f vob", true},
    {"clip.avi", kAVI, "-c:v mpeg4 -c:a libmp3lame", true},
    {"pcm.avi", kAVI, "-c:v mpeg4 -c:a pcm_s16le", true},
    {"ntsc.dv", kDV, "-s 720x480 -r 30000/1001 -pix_fmt yuv411p -ar 48000 -ac 2 -f dv", true},
    {"pal.dv", kDV, "-s 720x576 -r 25 -pix_fmt yuv420p -ar 48000 -ac 2 -f dv", true},
    {"song.wav", kAudioFile, "-c:a pcm_s16le", false},
    {"song64.wav", kAudioFile, "-c:a pcm_s16le -rf64 always", false},
    {"song.aiff", kAudioFile, "-c:a pcm_s16be", false},
    {"song.caf", kAudioFile, "-c:a pcm_s16le", false},
    {"song.au", kAudioFile, "-c:a pcm_mulaw", false},
    {"song.mp3", kAudioStream, "-c:a libmp3lame", false},
    {"cbr.mp3", kAudioStream, "-c:a libmp3lame -b:a 128k -write_xing 0", false},
    {"song.mp2", kAudioStream, "-c:a mp2 -f mp2", false},
    {"song.aac", kAudioStream, "-c:a aac -f adts", false},
    {"song.ac3", kAudioStream, "-c:a ac3", false},
};

struct Reference {
  std::vector<std::string> types;  // "video", "audio", sorted
  double duration = 0;             // as the container states it, or as ffprobe estimates it
  double packetDuration = 0;       // from the earliest packet start to the latest packet end
};

Reference FfprobeReference(const std::string& path) {
  std::string text;
  EXPECT_EQ(RunShell("ffprobe -v error -show_entries stream=index,codec_type:format=duration "
                     "-of compact=nk=0 '" +
                         path + "'",
                     &text),
            0);
  Reference ref;
  std::set<std::string> seen;  // transport streams list their streams twice, once per program
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const size_t index = line.find("index="), type = line.find("codec_type=");
    if (index != std::string::npos && type != std::string::npos &&
        seen.insert(line.substr(index, type - index)).second)
      ref.types.push_back(line.substr(type + 11, line.find('|', type) - type - 11));
    const size_t duration = line.find("format|duration=");
    if (duration != std::string::npos) ref.duration = std::stod(line.substr(duration + 16));
  }
  std::sort(ref.types.begin(), ref.types.end());
  EXPECT_EQ(
      RunShell("ffprobe -v error -show_entries packet=pts_time,duration_time -of csv=p=0 '" + path +
                   "' | awk -F, 'NR==1||$1<lo{lo=$1} $1+$2>hi{hi=$1+$2} "
                   "END{printf \"%.6f\", hi-lo}'",
               &text),
      0);
  ref.packetDuration = std::stod(text);
  return ref;
}

std::vector<std::string> TypeNames(const ContainerProbe& probe) {
  std::vector<std::string> names;
  for (const ProbedTrack& track : probe.tracks)
    names.push_back(track.mediaType == kProbeMediaType_Video   ? "video"
                    : track.mediaType == kProbeMediaType_Sound ? "audio"
                                                               : MxFourCCToString(track.mediaType));
  std::sort(names.begin(), names.end());
  return names;
}

// An AMR narrow-band stream of 12.2 kbit/s frames (the encoder is not always built into ffmpeg,
// and the storage format is simple enough to write by hand).
std::string AMRStream(int frames) {
  std::string bytes = "#!AMR\n";
  for (int i = 0; i < frames; i++) {
    bytes += static_cast<char>(0x3C);  // frame type 7, quality bit
    bytes += std::string(31, static_cast<char>(i * 7));
  }
  return bytes;
}

class ContainerProbeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (RunShell("command -v ffmpeg >/dev/null && command -v ffprobe >/dev/null") != 0) return;
    dir_ = new ScratchDir;
    for (const MediaCase& c : kCases) {
      const std::string input = c.video ? std::string(kVideo) + kAudio : std::string(kAudio);
      const std::string command =
          "ffmpeg -nostdin -v error " + input + c.arguments + " '" + (*dir_ / c.name) + "' 2>&1";
      std::string output;
      made_[c.name] = RunShell(command, &output) == 0;
      EXPECT_TRUE(made_[c.name]) << command << "\n" << output;
    }
    WriteFile(*dir_ / "song.amr", AMRStream(200));
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  void SetUp() override {
    if (dir_ == nullptr) GTEST_SKIP() << "ffmpeg missing";
  }
  static std::string Path(const std::string& name) { return *dir_ / name; }

  static ScratchDir* dir_;
  static std::map<std::string, bool> made_;
};

ScratchDir* ContainerProbeTest::dir_ = nullptr;
std::map<std::string, bool> ContainerProbeTest::made_;

TEST_F(ContainerProbeTest, TracksAndDurationAgreeWithFfprobe) {
  std::vector<MediaCase> cases(std::begin(kCases), std::end(kCases));
  cases.push_back({"song.amr", kAudioStream, "", false});
  for (const MediaCase& c : cases) {
    SCOPED_TRACE(c.name);
    if (made_.count(c.name) && !made_[c.name]) continue;
    const std::string bytes = ReadFile(Path(c.name));
    ProbeReader reader = MemoryProbe(bytes);
    ContainerProbe probe;
    ASSERT_EQ(RunProbe(c.family, reader, &probe), kNoErr);
    const Reference ref = FfprobeReference(Path(c.name));
    EXPECT_EQ(TypeNames(probe), ref.types);
    ASSERT_TRUE(MxTimeIsValid(probe.duration));
    // Within one video frame or one per cent of ffprobe's duration or of its packet timing
    // (ffprobe estimates the duration of raw ADTS and AMR streams from their bit rate).
    const double seconds = MxTimeGetSeconds(probe.duration);
    const double tolerance = std::max(0.04, ref.duration / 100);
    EXPECT_TRUE(std::abs(seconds - ref.duration) <= tolerance ||
                std::abs(seconds - ref.packetDuration) <= tolerance)
        << seconds << " against " << ref.duration << " and " << ref.packetDuration;
    std::set<uint32_t> ids;
    for (const ProbedTrack& track : probe.tracks) ids.insert(track.trackID);
    EXPECT_EQ(ids.size(), probe.tracks.size()) << "track IDs are unique";
    // The whole tool reads the file through the registry and finds nothing to segment.
    ScratchDir out;
    const RunResult run = RunTool({"hlsvtt", "-f", out.path(), Path(c.name)});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE((run.out + run.err).find("No subtitle tracks found."), std::string::npos);
    EXPECT_TRUE(ListDir(out.path()).empty());
  }
}

// Each probe refuses every other family's files, and random bytes, with its own code; the MPEG
// probe's code is the one that lets an ADTS file named .ts go on to the audio-stream probe.
TEST_F(ContainerProbeTest, OtherKindsOfDataAreRefusedWithTheProbesCode) {
  std::mt19937 random(7);
  std::string noise(300000, '\0');
  for (char& c : noise) c = static_cast<char>(random());
  for (const MediaCase& c : kCases) {
    if (!made_[c.name]) continue;
    const std::string bytes = ReadFile(Path(c.name));
    for (Family family : {kMPEG, kAVI, kDV, kAudioFile, kAudioStream}) {
      if (family == c.family) continue;
      // MPEG audio and AC-3 inside a container are framed audio too; only the containers'
      // own probes need to refuse them.
      if (family == kAudioStream && (c.family == kMPEG || c.family == kAVI)) continue;
      SCOPED_TRACE(std::string(c.name) + " as family " + std::to_string(family));
      ProbeReader reader = MemoryProbe(bytes);
      ContainerProbe probe;
      EXPECT_EQ(RunProbe(family, reader, &probe), NotMineCode(family));
    }
  }
  for (Family family : {kMPEG, kAVI, kDV, kAudioFile, kAudioStream}) {
    ProbeReader reader = MemoryProbe(noise);
    ContainerProbe probe;
    EXPECT_EQ(RunProbe(family, reader, &probe), NotMineCode(family)) << family;
  }
}

// Files cut short give a result or a clear code, never a crash; files cut inside their
// headers are damaged or not recognised.
TEST_F(ContainerProbeTest, TruncatedFilesGiveAClearCode) {
  const std::set<Status> clear = {kNoErr, kMxErrNotMPEGStream, kMxErrFormatNotRecognised,
                                  kMxErrFormatDamaged};
  for (const MediaCase& c : kCases) {
    if (!made_[c.name]) continue;
    const std::string bytes = ReadFile(Path(c.name));
    for (size_t length : {size_t{0}, size_t{3}, size_t{40}, size_t{700}, bytes.size() / 2}) {
      // AVI states its streams' lengths in its header, which a cut does not change.
      const bool counted = c.family != kAVI;
      SCOPED_TRACE(std::string(c.name) + " cut to " + std::to_string(length));
      ProbeReader reader = MemoryProbe(bytes, length);
      ContainerProbe probe;
      const Status status = RunProbe(c.family, reader, &probe);
      EXPECT_TRUE(clear.count(status)) << status;
      if (length <= 3) {
        EXPECT_NE(status, kNoErr);
      }
      if (counted && status == kNoErr && length == bytes.size() / 2) {
        // Half a file, about half the duration.
        const Reference ref = FfprobeReference(Path(c.name));
        EXPECT_LT(MxTimeGetSeconds(probe.duration), ref.duration * 0.8);
      }
    }
  }
}

// A file of 40 GB, made by repeating a real file, is probed by reading at most the budget.
TEST_F(ContainerProbeTest, HugeFilesAreProbedWithinTheReadBudget) {
  const std::set<std::string> repeated = {"clip.ts", "clip.vob", "cbr.mp3", "song.aac", "song.ac3"};
  for (const MediaCase& c : kCases) {
    const std::string name = c.name;
    if (!repeated.count(name)) continue;
    SCOPED_TRACE(name);
    const std::string bytes = ReadFile(Path(name));
    // Whole packets or frames repeat: trim the file to a multiple of its unit.
    const size_t unit = name.ends_with(".ts") ? bytes.size() / 188 * 188 : bytes.size();
    const int64_t length = int64_t{40} << 30;
    auto read = [&bytes, unit](int64_t offset, size_t size, uint8_t* destination, size_t* got) {
      for (size_t i = 0; i < size; i++)
        destination[i] = static_cast<uint8_t>(bytes[(static_cast<size_t>(offset) + i) % unit]);
      *got = size;
      return Status{kNoErr};
    };
    ProbeReader reader(read, length);
    ContainerProbe probe;
    ASSERT_EQ(RunProbe(c.family, reader, &probe), kNoErr);
    EXPECT_LE(reader.BytesRead(), kProbeReadBudget);
    EXPECT_FALSE(probe.durationIsExact);
    EXPECT_FALSE(probe.tracks.empty());
  }
}

// Each file through reader selection: the selected reader lists the probe's tracks with their
// IDs, and answers the exact duration only when the container states it. ADTS named .ts is
// refused by the MPEG reader and goes on to the audio-stream reader; bytes that no container
// holds give the code of the reader their name selects.
TEST_F(ContainerProbeTest, SelectedReadersListTracksAndDurations) {
  const FourCC vide = MxFourCC("vide"), soun = MxFourCC("soun");
  WriteFile(Path("audio.ts"), ReadFile(Path("song.aac")));
  WriteFile(Path("junk.dv"), "no frames here, only words");
  WriteFile(Path("junk.ts"), "neither packets nor packs");
  WriteFile(Path("cut.wav"), "RIFF\x24\x01\x01\x01WAVEfmt ");
  WriteFile(Path("empty.aiff"), "");
  struct Case {
    const char* name;
    Family family;
    Status status;
    std::vector<FourCC> mediaTypes;
    bool accurate;
  } cases[] = {
      {"clip.ts", kMPEG, kNoErr, {vide, soun}, false},
      {"audio.ts", kAudioStream, kNoErr, {soun}, true},
      {"song.wav", kAudioFile, kNoErr, {soun}, true},
      {"clip.avi", kAVI, kNoErr, {vide, soun}, true},
      {"song.mp3", kAudioStream, kNoErr, {soun}, true},
      {"junk.dv", kDV, kMxErrFormatNotRecognised, {}, false},
      {"junk.ts", kMPEG, kMxErrFormatNotRecognised, {}, false},
      {"cut.wav", kAudioFile, kMxErrFormatDamaged, {}, false},
      {"empty.aiff", kAudioFile, kMxErrFormatNotRecognised, {}, false},
  };
  auto seconds = [](const MxValue& value) {
    return MxTimeGetSeconds(MxTimeMakeFromDictionary(value.GetDictionary()));
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (made_.count(c.name) && !made_[c.name]) continue;
    MxURL url;
    ASSERT_EQ(MxURLCreateWithFileSystemPath(Path(c.name).c_str(), false, &url), kNoErr);
    MxByteStreamRef stream;
    ASSERT_EQ(MxByteStreamCreateForFileURL(nullptr, url, 0, &stream), kNoErr);
    QorFormatReaderRef reader;
    ASSERT_EQ(QorFormatReaderCreateForStream(stream.get(), nullptr, nullptr, &reader), c.status);
    if (c.status != kNoErr) continue;

    int64_t count = 0;
    ASSERT_EQ(QorFormatReaderGetTrackCount(reader.get(), &count), kNoErr);
    std::vector<FourCC> types;
    for (int64_t i = 0; i < count; i++) {
      QorTrackReaderRef track;
      FourCC type = 0;
      QorTrackID id = 0, infoId = 0;
      ASSERT_EQ(QorFormatReaderCopyTrackByIndex(reader.get(), i, &track, &type, &id), kNoErr);
      ASSERT_EQ(QorTrackReaderGetTrackInfo(track.get(), &infoId, nullptr), kNoErr);
      EXPECT_EQ(infoId, id);
      EXPECT_GT(id, 0);
      types.push_back(type);
      QorSampleCursorServiceRef service;
      EXPECT_EQ(QorTrackReaderCopySampleCursorService(track.get(), &service), kMxErrUnimplemented);
    }
    EXPECT_EQ(types, c.mediaTypes);
    QorTrackReaderRef none;
    EXPECT_EQ(QorFormatReaderCopyTrackByIndex(reader.get(), count, &none, nullptr, nullptr),
              kMxErrInvalidParameter);

    const std::string bytes = ReadFile(Path(c.name));
    ProbeReader probeReader = MemoryProbe(bytes);
    ContainerProbe probe;
    ASSERT_EQ(RunProbe(c.family, probeReader, &probe), kNoErr);
    MxValue accurate, duration, estimate;
    ASSERT_EQ(reader->CopyProperty(kQorFormatReaderProperty_AccurateDurationIsKnown, &accurate),
              kNoErr);
    EXPECT_EQ(accurate.GetBool(), c.accurate);
    ASSERT_EQ(reader->CopyProperty(kQorFormatReaderProperty_EstimatedDuration, &estimate), kNoErr);
    EXPECT_EQ(seconds(estimate), MxTimeGetSeconds(probe.duration));
    const Status exact = reader->CopyProperty(kQorFormatReaderProperty_Duration, &duration);
    if (c.accurate) {
      ASSERT_EQ(exact, kNoErr);
      EXPECT_EQ(seconds(duration), seconds(estimate));
    } else {
      EXPECT_EQ(exact, kMxErrPropertyNotAvailable);
    }
  }
}

TEST_F(ContainerProbeTest, FirstPresentationTimeStampOfATransportStream) {
  for (const char* name : {"clip.ts", "clip.m2ts"}) {
    SCOPED_TRACE(name);
    std::string text;
    ASSERT_EQ(RunShell("ffprobe -v error -select_streams v:0 -show_entries packet=pts "
                       "-read_intervals %+#1 -of csv=p=0 '" +
                           Path(name) + "'",
                       &text),
              0);
    const std::string bytes = ReadFile(Path(name));
    ProbeReader reader = MemoryProbe(bytes);
    int64_t pts = -1;
    ASSERT_EQ(MPEGTransportStreamGetFirstPTS(reader, &pts), kNoErr);
    EXPECT_EQ(pts, std::stoll(text));
  }
  const std::string audio = ReadFile(Path("song.aac"));
  ProbeReader reader = MemoryProbe(audio);
  int64_t pts = -1;
  EXPECT_EQ(MPEGTransportStreamGetFirstPTS(reader, &pts), kMxErrNotMPEGStream);
}

}  // namespace
