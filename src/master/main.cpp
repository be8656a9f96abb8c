#include <csignal>

#include "master/master_command.h"

int main(int argc, char** argv) {
  // Past a file-size limit a write should fail with EFBIG and be reported, not kill the tool.
  signal(SIGXFSZ, SIG_IGN);
  // The operating system keeps the low eight bits: -45000 becomes 56.
  return RunMasterTool(argc, argv);
}
