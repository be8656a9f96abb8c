#include <csignal>

#include "driver/segmenter.h"

int main(int argc, char** argv) {
  // Past a file-size limit a write should fail with EFBIG and be reported, not kill the run.
  signal(SIGXFSZ, SIG_IGN);
  // The operating system keeps the low eight bits: -45000 becomes 56.
  return RunSegmenter(argc, argv);
}
