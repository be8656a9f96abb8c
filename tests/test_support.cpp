#include "test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unicode/ucnv.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "media/core/memory_byte_stream.h"

bool CorpusPresent() {
  std::error_code error;
  return std::filesystem::is_directory(kCorpusDir, error);
}

std::string ToolPath() {
  return HLSVTT_BINARY;
}

SourceRun::SourceRun(const std::string& source, const std::vector<std::string>& options,
                     const std::string& name) {
  WriteFile(dir / name, source);
  RunShell("mkdir -p '" + (dir / "out") + "'");
  std::vector<std::string> args{"/usr/bin/timeout",       "60", ToolPath(),
                                "--no-output-timestamps", "-f", dir / "out"};
  args.insert(args.end(), options.begin(), options.end());
  args.push_back(dir / name);
  result = RunBinary("/usr/bin/timeout", args);
}

MxByteStreamRef MemoryStream(const std::string& bytes) {
  MxByteStreamRef stream;
  EXPECT_EQ(MxByteStreamCreateForMemory(reinterpret_cast<const uint8_t*>(bytes.data()),
                                        bytes.size(), &stream),
            kNoErr);
  return stream;
}

std::string Encode(const std::string& utf8, const char* encoding) {
  std::string out(utf8.size() * 4 + 16, '\0');
  UErrorCode error = U_ZERO_ERROR;
  const int32_t n = ucnv_convert(encoding, "UTF-8", out.data(), static_cast<int32_t>(out.size()),
                                 utf8.data(), static_cast<int32_t>(utf8.size()), &error);
  EXPECT_TRUE(U_SUCCESS(error)) << encoding << ": " << u_errorName(error);
  out.resize(U_SUCCESS(error) ? static_cast<size_t>(n) : 0);
  return out;
}

namespace {
std::string Drain(int fd) {
  std::string text;
  char buffer[65536];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  return text;
}
}  // namespace

RunResult RunTool(const std::vector<std::string>& args, const std::string& workDir) {
  return RunBinary(ToolPath(), args, workDir);
}

RunResult RunBinary(const std::string& binary, const std::vector<std::string>& args,
                    const std::string& workDir) {
  // Standard output and error go to files so that neither pipe can fill up and block.
  char outPath[] = "/tmp/hlsvtt-out-XXXXXX";
  char errPath[] = "/tmp/hlsvtt-err-XXXXXX";
  int outFd = mkstemp(outPath);
  int errFd = mkstemp(errPath);
  pid_t pid = fork();
  if (pid == 0) {
    if (chdir(workDir.c_str()) != 0) _exit(127);
    dup2(outFd, 1);
    dup2(errFd, 2);
    int devnull = open("/dev/null", O_RDONLY);
    dup2(devnull, 0);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(args.empty() ? binary.c_str() : args[0].c_str()));
    for (size_t i = 1; i < args.size(); i++) argv.push_back(const_cast<char*>(args[i].c_str()));
    argv.push_back(nullptr);
    execv(binary.c_str(), argv.data());
    _exit(127);
  }
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  RunResult result;
  lseek(outFd, 0, SEEK_SET);
  lseek(errFd, 0, SEEK_SET);
  result.out = Drain(outFd);
  result.err = Drain(errFd);
  close(outFd);
  close(errFd);
  unlink(outPath);
  unlink(errPath);
  result.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  return result;
}

int RunShell(const std::string& command, std::string* output) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
  int status = pclose(pipe);
  if (output) *output = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ScratchDir::ScratchDir() {
  char templ[] = "/tmp/hlsvtt-test-XXXXXX";
  path_ = mkdtemp(templ);
}

ScratchDir::~ScratchDir() {
  std::string command = "chmod -R u+rwx '" + path_ + "' 2>/dev/null; rm -rf '" + path_ + "'";
  if (system(command.c_str()) != 0) {
    // Leaving a scratch directory behind is harmless.
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary);
  out << contents;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  if (DIR* dir = opendir(path.c_str())) {
    while (dirent* e = readdir(dir)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

namespace {
double Seconds(const std::string& t) {  // [hh:]mm:ss.mmm
  double value = 0;
  size_t at = 0;
  while (true) {
    size_t colon = t.find(':', at);
    if (colon == std::string::npos) return value * 60 + std::stod(t.substr(at));
    value = value * 60 + std::stod(t.substr(at, colon - at));
    at = colon + 1;
  }
}
}  // namespace

std::vector<TextCue> ParseWebVTTCues(const std::string& webvtt) {
  std::vector<TextCue> cues;
  std::istringstream in(webvtt);
  for (std::string line; std::getline(in, line);) {
    size_t arrow = line.find(" --> ");
    if (arrow == std::string::npos) continue;
    TextCue cue{Seconds(line.substr(0, arrow)), Seconds(line.substr(arrow + 5, 12)), ""};
    while (std::getline(in, line) && !line.empty()) cue.text += line + "\n";
    cues.push_back(cue);
  }
  return cues;
}

void ExpectSameCues(const std::vector<TextCue>& expected, const std::vector<TextCue>& actual) {
  ASSERT_EQ(expected.size(), actual.size());
  for (size_t i = 0; i < expected.size(); i++) {
    EXPECT_EQ(expected[i].text, actual[i].text) << i;
    EXPECT_NEAR(expected[i].start, actual[i].start, 0.0011) << i;
    EXPECT_NEAR(expected[i].end, actual[i].end, 0.0011) << i;
  }
}

std::string FfmpegWebVTT(const std::string& dir, const std::string& input,
                         const std::string& options) {
  std::string out;
  int status = RunShell("cd '" + dir + "' && ffmpeg -nostdin -v error " + options + " -i '" +
                            input + "' -f webvtt - 2>&1",
                        &out);
  EXPECT_EQ(status, 0) << out;
  return out;
}
