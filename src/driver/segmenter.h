// The segmenter's run: command line, key, logging, source, and the branch for the source kind.
#pragma once

#include "common/status.h"

// Runs the whole tool and returns its result; the process exit status is its low eight bits.
Status RunSegmenter(int argc, char** argv);
