// The command line of hlsvtt-master: `merge` and `check`.
#pragma once

#include "common/status.h"

// Runs one command; the process exit status is the low eight bits of the result.
Status RunMasterTool(int argc, char** argv);
