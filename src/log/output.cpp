#include "log/output.h"

#include <sys/time.h>

#include <cstdarg>
#include <ctime>

namespace {

// -1 until OutputInit: messages issued while the command line is still being read are dropped.
int level = -1;
bool timestamps = true;
FILE* destination = nullptr;

void WriteTimestampPrefix(FILE* out) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local;
  time_t seconds = now.tv_sec;
  localtime_r(&seconds, &local);
  char text[80];
  strftime(text, sizeof text, "%b %e %Y %T", &local);
  fprintf(out, "%s.%03lu: ", text, static_cast<unsigned long>(now.tv_usec) / 1000);
}

}  // namespace

void OutputInit(bool withTimestamps) {
  level = 1;
  timestamps = withTimestamps;
}

void OutputSetFile(const char* path) {
  // "aw": append and create; glibc ignores the second letter. A previous log file stays open on
  // purpose: a message may still be on its way to it from a forked child.
  FILE* file = fopen(path, "aw");
  if (file == nullptr) {
    printf("Cannot open %s - using stdout\n", path);
    fflush(stdout);
    file = stdout;
  }
  destination = file;
}

void OutputAllowDebug() {
  level = 2;
}

void OutputBeQuiet() {
  level = 0;
}

void OutputMessage(int messageLevel, const char* format, ...) {
  if (level < messageLevel) return;
  if (destination == nullptr) destination = stdout;
  if (timestamps) WriteTimestampPrefix(destination);
  va_list args;
  va_start(args, format);
  vfprintf(destination, format, args);
  va_end(args);
  fputc('\n', destination);
  // Flushing every message keeps buffered text from being duplicated into forked children.
  fflush(destination);
}
