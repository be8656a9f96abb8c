#include "postprocess/file_command.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <string>

#include "log_capture.h"
#include "test_support.h"

namespace {

TEST(FileCommand, Expansion) {
  struct Case {
    std::string templ;
    bool ok;
    std::string expected;
  } cases[] = {
      {"cp %P /dest/%F", true, "cp \"out/a.webvtt\" /dest/a.webvtt"},
      {"echo 100%%", true, "echo 100%"},
      {"echo %", false, "echo "},
      {"echo %x", false, "echo "},
      {"", true, ""},
      {std::string(2000, 'a'), true, std::string(1025, 'a')},
      {std::string(1020, 'a') + "%P", false, std::string(1020, 'a')},
      {std::string(1014, 'a') + "%F", true, std::string(1014, 'a') + "a.webvtt"},
      {std::string(1020, 'a') + "%F", false, std::string(1020, 'a')},
  };
  for (const Case& c : cases) {
    char out[kFileCommandLimit + 2];
    EXPECT_EQ(ExpandFileCommand(c.templ.c_str(), "out/a.webvtt", "a.webvtt", out), c.ok)
        << c.templ.substr(0, 40);
    EXPECT_EQ(std::string(out), c.expected) << c.templ.substr(0, 40);
  }
}

// Reaps every child of the test process: the commands forked so far have all finished.
void WaitForCommands() {
  while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

TEST(FileCommand, SerialQueueStartsTheFirstAtOnceAndTheRestAtDrain) {
  ScratchDir dir;
  LogCapture log(1);
  const std::string templ = "touch %P";
  FileCommandEntry* first = CreateSerialFileCommand(templ.c_str(), (dir / "1").c_str(), "1");
  FileCommandEntry* second = CreateSerialFileCommand(templ.c_str(), (dir / "2").c_str(), "2");
  CreateSerialFileCommand(templ.c_str(), (dir / "3").c_str(), "3");
  ASSERT_NE(first, nullptr);
  WaitForCommands();
  EXPECT_TRUE(FileExists(dir / "1"));
  EXPECT_FALSE(FileExists(dir / "2"));
  EXPECT_TRUE(DestroyFileCommandEntry(second));  // marked, but still runs at drain
  EXPECT_FALSE(DestroyFileCommandEntry(nullptr));
  DestroyAllFileCommands();
  WaitForCommands();
  EXPECT_TRUE(FileExists(dir / "2"));
  EXPECT_TRUE(FileExists(dir / "3"));
  EXPECT_TRUE(log.Contains("forking \"touch \"" + (dir / "1") + "\"\""));
  EXPECT_TRUE(log.Contains("created pid "));
  // A failed expansion gives no entry and runs nothing.
  EXPECT_EQ(CreateSerialFileCommand("touch %Q", "x", "x"), nullptr);
  EXPECT_EQ(CreateSerialFileCommand(nullptr, "x", "x"), nullptr);
  // The drain emptied the queue and nothing was added since: a new command starts at once.
  ASSERT_NE(CreateSerialFileCommand(templ.c_str(), (dir / "4").c_str(), "4"), nullptr);
  WaitForCommands();
  EXPECT_TRUE(FileExists(dir / "4"));
  DestroyAllFileCommands();
  CreateImmediateFileCommand("touch %P", (dir / "now").c_str(), "now");
  WaitForCommands();
  EXPECT_TRUE(FileExists(dir / "now"));
}

}  // namespace
