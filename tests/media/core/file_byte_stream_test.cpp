#include "media/core/file_byte_stream.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "test_support.h"

namespace {

MxByteStreamRef Open(const std::string& path, uint32_t permissions = 0) {
  MxURL url;
  EXPECT_EQ(MxURLCreateWithFileSystemPath(path.c_str(), false, &url), kNoErr);
  MxByteStreamRef stream;
  EXPECT_EQ(MxByteStreamCreateForFileURL(nullptr, url, permissions, &stream), kNoErr);
  return stream;
}

std::string Pattern(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>('A' + i % 23);
  return s;
}

TEST(FileByteStream, ReadsThroughTheCache) {
  ScratchDir dir;
  const std::string data = Pattern(10000);
  WriteFile(dir / "f", data);
  MxByteStreamRef s = Open(dir / "f");
  // Two reads through the cache; one larger than the cache, straight from the file with the cache
  // untouched; one from the cache; one crossing the cached range, which continues with a fresh
  // file read.
  const std::pair<size_t, size_t> reads[] = {
      {1024, 3}, {1024, 1027}, {5000, 4000}, {100, 2000}, {200, 4000}};
  char buffer[5000];
  for (auto [size, offset] : reads) {
    size_t n = 0;
    ASSERT_EQ(MxByteStreamReadBytes(s.get(), size, int64_t(offset), buffer, &n), kNoErr);
    EXPECT_EQ(std::string(buffer, n), data.substr(offset, size)) << offset;
  }
}

TEST(FileByteStream, EndOfStream) {
  ScratchDir dir;
  WriteFile(dir / "f", "0123456789");
  for (uint32_t permissions : {0u, 2u}) {  // cached and uncached
    MxByteStreamRef s = Open(dir / "f", permissions);
    char buffer[32];
    size_t n = 99;
    ASSERT_EQ(MxByteStreamReadBytes(s.get(), 8, 6, buffer, &n), kNoErr);
    EXPECT_EQ(n, 4u);
    n = 99;
    EXPECT_EQ(MxByteStreamReadBytes(s.get(), 8, 10, buffer, &n), -12873);
    EXPECT_EQ(MxByteStreamReadBytes(s.get(), 8, 50, buffer, &n), -12873);

    MxBlockBufferRef block;
    ASSERT_EQ(MxByteStreamReadIntoBlockBuffer(s.get(), 1024, 7, &block, &n), kNoErr);
    ASSERT_TRUE(block);
    EXPECT_EQ(MxBlockBufferGetDataLength(block.get()), 3u);
    EXPECT_EQ(MxByteStreamReadIntoBlockBuffer(s.get(), 1024, 10, &block, &n), -12873);
    EXPECT_FALSE(block);
    EXPECT_EQ(n, 0u);
  }
}

TEST(FileByteStream, PropertiesAndEquality) {
  ScratchDir dir;
  WriteFile(dir / "f", "abc");
  MxByteStreamRef s = Open(dir / "f"), t = Open(dir / "f");
  MxValue value;
  ASSERT_EQ(s->CopyProperty(kMxByteStreamProperty_EntireLength, &value), kNoErr);
  EXPECT_EQ(value.GetInt64(), 3);
  // Read-only keys refuse to be set; unknown ones (MIME type) are not answered.
  EXPECT_EQ(s->SetProperty(kMxByteStreamProperty_EntireLength, MxValue(int64_t{1})), -12784);
  EXPECT_EQ(s->CopyProperty(kQorByteStreamProperty_MIMEType, &value), -12784);
  EXPECT_EQ(s->SetProperty(kMxByteStreamProperty_IOPolicy, MxValue("x")), -12872);
  EXPECT_TRUE(s->IsEqual(t.get()));
}

TEST(FileByteStream, MissingFileFailsWithSystemError) {
  MxURL url;
  ASSERT_EQ(MxURLCreateWithFileSystemPath("/nonexistent/file.vtt", false, &url), kNoErr);
  MxByteStreamRef s;
  EXPECT_EQ(MxByteStreamCreateForFileURL(nullptr, url, 0, &s), ENOENT);
  EXPECT_FALSE(s);
}

TEST(FileByteStream, PathExtension) {
  struct Case {
    const char* path;
    const char* extension;
  } cases[] = {{"a/Sub.VTT", "VTT"}, {"sub.txt", "txt"}, {"noext", ""},
               {"dir.d/file", ""},   {".vtt", ""},       {"x.srt/", "srt"}};
  for (const Case& c : cases) EXPECT_EQ(MxURL{c.path}.PathExtension(), c.extension) << c.path;
}

}  // namespace

// An exact read goes on after short reads and says how far it got when the file ends first.
TEST(FileByteStream, ExactReadsStopAtTheEndOfTheFile) {
  ScratchDir dir;
  const std::string data = Pattern(10000);
  WriteFile(dir / "f", data);
  MxByteStreamRef s = Open(dir / "f");
  struct Case {
    size_t size;
    int64_t offset;
    Status status;
    size_t count;
  } cases[] = {{10000, 0, kNoErr, 10000},
               {4000, 6000, kNoErr, 4000},
               {5000, 9000, kMxErrEndOfStream, 1000},
               {10, 10000, kMxErrEndOfStream, 0}};
  std::string buffer(10000, '\0');
  for (const Case& c : cases) {
    size_t n = 99;
    EXPECT_EQ(MxByteStreamReadFully(s.get(), c.size, c.offset, buffer.data(), &n), c.status);
    EXPECT_EQ(n, c.count) << c.offset;
    EXPECT_EQ(buffer.substr(0, n), data.substr(size_t(c.offset), n));
  }
}
