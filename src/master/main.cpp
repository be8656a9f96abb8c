#include "master/master_command.h"

int main(int argc, char** argv) {
  // The operating system keeps the low eight bits: -45000 becomes 56.
  return RunMasterTool(argc, argv);
}
