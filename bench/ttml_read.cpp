// Reads a TTML document with hlsvtt's reader and builds its cues, RUNS times in this process, and
// prints the median seconds of one reading and building and the number of cues: the same work,
// measured the same way, as bench/imsc_events.js asks of imsc (the file read is not counted).
// Usage: ttml_read FILE [RUNS]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "media/formats/ttml/timed_text_cues.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: ttml_read FILE [RUNS]\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  std::stringstream bytes;
  bytes << file.rdbuf();
  const std::string text = bytes.str();
  const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  std::vector<double> seconds;
  size_t cues = 0;
  for (int i = 0; i < runs; ++i) {
    auto start = std::chrono::steady_clock::now();
    TimedTextDocument document;
    TimedTextCues built;
    std::string message;
    if (ReadTimedTextDocument(text, argv[1], &document, &message) != kNoErr ||
        BuildTimedTextCues(document, &built, &message) != kNoErr) {
      std::fprintf(stderr, "%s\n", message.c_str());
      return 1;
    }
    cues = built.list.size();
    seconds.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(seconds.begin(), seconds.end());
  std::printf("%.4f %zu\n", seconds[seconds.size() / 2], cues);
  return 0;
}
