// Sends OutputMessage to a scratch file for the lifetime of the object, so tests can read
// exactly what was logged. Afterwards only errors are printed, and into /dev/null.
#pragma once

#include <string>

#include "log/output.h"
#include "test_support.h"

class LogCapture {
 public:
  explicit LogCapture(int level = 2) {
    OutputSetFile(path_.c_str());
    OutputInit(false);
    if (level == 2) OutputAllowDebug();
    if (level == 0) OutputBeQuiet();
  }
  ~LogCapture() {
    OutputBeQuiet();
    OutputSetFile("/dev/null");
  }
  std::string Text() const { return ReadFile(path_); }
  bool Contains(const std::string& s) const { return Text().find(s) != std::string::npos; }

 private:
  ScratchDir dir_;
  std::string path_ = dir_ / "log";
};
