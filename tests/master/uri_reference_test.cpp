#include "master/uri_reference.h"

#include <gtest/gtest.h>

namespace {

TEST(UriReference, RebasesOnlyRelativeReferences) {
  struct Case {
    const char* prefix;
    const char* uri;
    const char* rebased;
  } cases[] = {
      {"", "en/prog_index.m3u8", "en/prog_index.m3u8"},
      {"../subs/", "en/prog_index.m3u8", "../subs/en/prog_index.m3u8"},
      {"../subs/", "../other/p.m3u8", "../other/p.m3u8"},
      {"../", "../p.m3u8", "../../p.m3u8"},
      {"a/", "./b/../c.m3u8?x=1#t", "a/c.m3u8?x=1#t"},
      {"a/", "https://cdn.example/p.m3u8", "https://cdn.example/p.m3u8"},
      {"a/", "/root/p.m3u8", "/root/p.m3u8"},
  };
  for (const Case& c : cases) EXPECT_EQ(RebaseUri(c.prefix, c.uri), c.rebased) << c.uri;
}

TEST(UriReference, DirectoryPrefixAndLocalPaths) {
  std::string prefix;
  ASSERT_EQ(RelativeDirectoryPrefix("/srv/subs/en", "/srv/video", &prefix), kNoErr);
  EXPECT_EQ(prefix, "../subs/en/");
  ASSERT_EQ(RelativeDirectoryPrefix("/srv/my subs", "/srv", &prefix), kNoErr);
  EXPECT_EQ(prefix, "my%20subs/");
  ASSERT_EQ(RelativeDirectoryPrefix("x/./y/..", "x", &prefix), kNoErr);
  EXPECT_EQ(prefix, "");
  // A colon is encoded: "a:b.m3u8" would read as a URI of the scheme "a".
  ASSERT_EQ(RelativeFileReference("/srv/subs/a:b.m3u8", "/srv/video", &prefix), kNoErr);
  EXPECT_EQ(prefix, "../subs/a%3Ab.m3u8");
  ASSERT_EQ(RelativeFileReference("c:d/p.m3u8", ".", &prefix), kNoErr);
  EXPECT_EQ(prefix, "c%3Ad/p.m3u8");

  std::string path;
  EXPECT_TRUE(UriToLocalPath("my%20subs/p.m3u8?v=2", &path));
  EXPECT_EQ(path, "my subs/p.m3u8");
  for (const char* bad : {"http://h/p.m3u8", "/abs.m3u8", "a%2", "a%00b", "%zz", "?q"})
    EXPECT_FALSE(UriToLocalPath(bad, &path)) << bad;
}

}  // namespace
