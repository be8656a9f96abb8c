#include "media/formatreader/reader_registry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The readers' calls, in order, and what each answers.
std::vector<std::string> calls;
std::map<std::string, Status> answers;

class Reader final : public QorFormatReader {
 public:
  const char* ClassName() const override { return "TestReader"; }
};

template <const char* kName>
Status Recording(MxByteStream*, MxAllocator*, const MxDictionary*, QorFormatReaderRef* out) {
  calls.push_back(kName);
  Status status = answers.count(kName) ? answers[kName] : kNoErr;
  if (status == kNoErr) *out = QorFormatReaderRef::Adopt(new Reader);
  return status;
}

constexpr char kMovie[] = "movie", kAVI[] = "avi", kMPEG[] = "mpeg", kPrecise[] = "precise",
               kDV[] = "dv", kAudio[] = "audio", kAudioStream[] = "audiostream", kVTT[] = "vtt";

QorReaderRegistryConfiguration Recorders(std::string preference = "") {
  QorReaderRegistryConfiguration c;
  c.combinedAudioPreference = [preference] { return preference; };
  c.functions = {
      {"CinemoxMovieFormatReaderCreateFromStream", Recording<kMovie>},
      {"AVIFormatReaderCreateFromStream", Recording<kAVI>},
      {"MPEGFormatReaderCreateFromStream", Recording<kMPEG>},
      {"MPEGFormatReaderCreateFromStreamForPreciseTiming", Recording<kPrecise>},
      {"DVFormatReaderCreateFromStream", Recording<kDV>},
      {"QorAudioFileFormatReaderCreateFromStream", Recording<kAudio>},
      {"QorAudioFileStreamFormatReaderCreateFromStream", Recording<kAudioStream>},
      {"WebVTTFormatReaderCreateFromStream", Recording<kVTT>},
  };
  return c;
}

// A stream that only answers the properties it was given.
class DescribedStream final : public MxByteStream {
 public:
  const char* ClassName() const override { return "DescribedStream"; }
  Status CopyProperty(const std::string& key, MxValue* out) override {
    auto it = properties.find(key);
    if (it == properties.end()) return kMxErrPropertyNotSupported;
    *out = it->second;
    return kNoErr;
  }
  MxDictionary properties;
};

MxByteStreamRef Stream(MxDictionary properties) {
  auto* s = new DescribedStream;
  s->properties = std::move(properties);
  return MxByteStreamRef::Adopt(s);
}

MxDictionary Named(const char* path) {
  return {{kMxByteStreamProperty_URL, MxValue(MxURL{path})}};
}

TEST(ReaderRegistry, SearchOrderAndCombinedAudio) {
  auto subtypes = [](const QorReaderRegistry& r) {
    std::vector<std::string> out;
    for (auto& e : r.entries())
      out.push_back(*QorThingGetInfo(e.thing)->at("QorThingSubtype").GetString());
    return out;
  };
  std::unique_ptr<QorReaderRegistry> plain, combined, other;
  ASSERT_EQ(QorReaderRegistryCreate(Recorders(), &plain), kNoErr);
  ASSERT_EQ(QorReaderRegistryCreate(Recorders("AudioFile"), &combined), kNoErr);
  ASSERT_EQ(QorReaderRegistryCreate(Recorders("Something"), &other), kNoErr);
  EXPECT_EQ(subtypes(*plain),
            (std::vector<std::string>{"text/vtt", "audio/mpeg", "audio/aiff", "video/dv",
                                      "video/mpeg", "video/avi", "video/mp4"}));
  EXPECT_EQ(subtypes(*other), subtypes(*plain));
  EXPECT_EQ(subtypes(*combined),
            (std::vector<std::string>{"text/vtt", "audio/mpeg", "video/dv", "video/mpeg",
                                      "video/avi", "video/mp4"}));
  const QorThing* thing = nullptr;
  ASSERT_EQ(QorThingFind(plain.get(), {nullptr, "video/dv", "com.zorva"}, &thing), kNoErr);
  EXPECT_EQ(*thing->info.at("QorThingCreateInstanceFunctionName").GetString(),
            "DVFormatReaderCreateFromStream");
  EXPECT_EQ(QorThingFind(plain.get(), {"QorFormatReader", "video/none", nullptr}, &thing),
            kQorThingErrNotFound);

  // The combined entry claims both audio readers' names and instantiates the chosen one.
  struct Case {
    std::string preference;
    const char* path;
    std::vector<std::string> calls;
  } cases[] = {
      {"", "a.mp3", {kAudioStream}},
      {"", "a.caf", {kAudio}},
      {"AudioFile", "a.mp3", {kAudio}},
      {"AudioFile", "a.CAF", {kAudio}},
      {"AudioFileStream", "a.wav", {kAudioStream}},
      {"AudioFileStream", "a.amr", {kAudioStream}},
  };
  for (const Case& c : cases) {
    std::unique_ptr<QorReaderRegistry> r;
    ASSERT_EQ(QorReaderRegistryCreate(Recorders(c.preference), &r), kNoErr);
    calls.clear();
    answers.clear();
    QorFormatReaderRef reader;
    EXPECT_EQ(QorFormatReaderCreateForStreamWithRegistry(r.get(), Stream(Named(c.path)).get(),
                                                         nullptr, nullptr, &reader),
              kNoErr)
        << c.preference << " " << c.path;
    EXPECT_EQ(calls, c.calls) << c.preference << " " << c.path;
  }
}

TEST(ReaderRegistry, Selection) {
  std::unique_ptr<QorReaderRegistry> registry;
  ASSERT_EQ(QorReaderRegistryCreate(Recorders(), &registry), kNoErr);
  MxDictionary precise{{kQorFormatReaderOption_PreferPreciseDurationAndTiming, MxValue(true)}};
  const MxDictionary aviOrMP4{{kMxByteStreamProperty_URL, MxValue(MxURL{"x.avi"})},
                              {kQorByteStreamProperty_MIMEType, MxValue("video/mp4")}};
  auto expect = [&](const char* name, MxDictionary properties, Status status,
                    std::vector<std::string> expectedCalls,
                    std::map<std::string, Status> given = {},
                    const MxDictionary* options = nullptr) {
    calls.clear();
    answers = std::move(given);
    QorFormatReaderRef reader;
    EXPECT_EQ(QorFormatReaderCreateForStreamWithRegistry(registry.get(), Stream(properties).get(),
                                                         nullptr, options, &reader),
              status)
        << name;
    EXPECT_EQ(calls, expectedCalls) << name;
    EXPECT_EQ(bool(reader), status == kNoErr) << name;
  };
  expect("extension, any case", Named("/m/clip.MOV"), kNoErr, {kMovie});
  expect("suggested name only", {{kQorByteStreamProperty_SuggestedFileName, MxValue("subs.vtt")}},
         kNoErr, {kVTT});
  expect("file type, exact", {{kQorByteStreamProperty_FileType, MxValue(int64_t{0x4D6F6F56})}},
         kNoErr, {kMovie});
  expect("file type in another case",
         {{kQorByteStreamProperty_FileType, MxValue(int64_t{0x6D6F6F76})}}, kMxErrNoFormatReader,
         {});
  expect("MIME type, any case", {{kQorByteStreamProperty_MIMEType, MxValue("Video/MP4")}}, kNoErr,
         {kMovie});
  expect("not an MPEG stream goes to the audio-stream reader", Named("x.ts"), kNoErr,
         {kMPEG, kAudioStream}, {{kMPEG, kMxErrNotMPEGStream}});
  expect("precise timing asked for", Named("x.ts"), kNoErr, {kPrecise}, {}, &precise);
  expect("a failed reader lets the later steps try", aviOrMP4, kNoErr, {kAVI, kMovie},
         {{kAVI, kMxErrUnimplemented}});
  expect("every reader fails: the last failure", aviOrMP4, kMxErrFormatDamaged, {kAVI, kMovie},
         {{kAVI, kMxErrUnimplemented}, {kMovie, kMxErrFormatDamaged}});
  expect("nothing claims it", Named("notes.txt"), kMxErrNoFormatReader, {});
  expect("no extension", Named("/dir/movie"), kMxErrNoFormatReader, {});
  expect("nothing known", {}, kMxErrNoFormatReader, {});
  answers.clear();
}

TEST(ReaderRegistry, UnknownFunctionNames) {
  QorReaderRegistryConfiguration c = Recorders();
  c.functions.erase("DVFormatReaderCreateFromStream");
  c.functions["AVIFormatReaderCreateFromStream"] = nullptr;
  std::unique_ptr<QorReaderRegistry> r;
  ASSERT_EQ(QorReaderRegistryCreate(c, &r), kNoErr);
  QorFormatReaderRef reader;
  EXPECT_EQ(QorFormatReaderCreateForStreamWithRegistry(r.get(), Stream(Named("a.dv")).get(),
                                                       nullptr, nullptr, &reader),
            kQorThingErrFunctionNotFound);
  EXPECT_EQ(QorFormatReaderCreateForStreamWithRegistry(r.get(), Stream(Named("a.avi")).get(),
                                                       nullptr, nullptr, &reader),
            kQorThingErrLoadFailed);
}

}  // namespace
