// The segmenter's one channel for diagnostics and progress. Level 0 is an error the user must
// see, 1 is progress, 2 is debug detail. Nothing is printed until OutputInit has run.
#pragma once

#include <cstdio>

void OutputInit(bool timestamps);
void OutputSetFile(const char* path);
void OutputAllowDebug();
void OutputBeQuiet();
void OutputMessage(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
