#include "log/output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "test_support.h"

namespace {

// Each test sets every part of the module's state it depends on; afterwards only errors print,
// into /dev/null.
class OutputTest : public testing::Test {
 protected:
  void TearDown() override {
    OutputBeQuiet();
    OutputSetFile("/dev/null");
  }
  ScratchDir dir;
};

// Nothing resets the module, so its start-up state is seen in a fresh process: in the
// "threadsafe" style a death test runs this test again in a new process of its own.
TEST(OutputStartUp, NothingPrintsBeforeInit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        OutputSetFile("/dev/stderr");
        OutputMessage(0, "before init");
        OutputInit(false);
        OutputMessage(0, "after init");
        exit(0);
      },
      testing::ExitedWithCode(0), "^after init\n$");
}

TEST_F(OutputTest, LevelsQuietAndDebug) {
  const std::string log = dir / "log.txt";
  OutputSetFile(log.c_str());
  OutputInit(false);
  OutputMessage(0, "error %d", 1);
  OutputMessage(1, "progress");
  OutputMessage(2, "debug");
  OutputBeQuiet();
  OutputMessage(0, "quiet error");
  OutputMessage(1, "quiet progress");
  OutputAllowDebug();
  OutputMessage(2, "now debug");
  OutputMessage(1, "ends in newline\n");
  EXPECT_EQ(ReadFile(log), "error 1\nprogress\nquiet error\nnow debug\nends in newline\n\n");
}

TEST_F(OutputTest, TimestampPrefixAndAppending) {
  const std::string log = dir / "log.txt";
  WriteFile(log, "existing line\n");
  OutputSetFile(log.c_str());
  OutputInit(true);
  OutputMessage(1, "hello");
  std::string text = ReadFile(log);
  EXPECT_TRUE(text.starts_with("existing line\n"));
  std::regex prefix(
      R"(existing line\n[A-Z][a-z]{2} [ 0-9]\d \d{4} \d\d:\d\d:\d\d\.\d{3}: hello\n)");
  EXPECT_TRUE(std::regex_match(text, prefix)) << text;
}

TEST_F(OutputTest, UnopenableLogFallsBackToStandardOutput) {
  RunResult r = RunTool(
      {"hlsvtt", "-l", "/nonexistent/dir/log", "--no-output-timestamps", "/nonexistent/x.vtt"});
  EXPECT_EQ(r.out,
            "Cannot open /nonexistent/dir/log - using stdout\n"
            "can't create byte stream /nonexistent/x.vtt 2\n");
}

}  // namespace
