// A segment file opened exclusively (an existing file is never truncated) and written through a
// buffer straight to its descriptor: one write per segment in the common case, and none of the
// extra system calls a stdio stream makes when it is opened.
#pragma once

#include <cstddef>
#include <memory>

#include "common/status.h"

class SegmentFile {
 public:
  // Creates `path`; EEXIST when a file is already there, or another errno value.
  static Status CreateExclusive(const char* path, std::unique_ptr<SegmentFile>* out);
  ~SegmentFile();  // closes without reporting; call Close to learn of failures
  SegmentFile(const SegmentFile&) = delete;
  SegmentFile& operator=(const SegmentFile&) = delete;

  // Returns 0 or the errno value of a failed write.
  Status Write(const void* data, size_t length);
  Status Flush();
  Status Close();

 private:
  explicit SegmentFile(int fd) : fd_(fd) {}
  int fd_;
  size_t used_ = 0;
  static constexpr size_t kBufferSize = 65536;
  std::unique_ptr<char[]> buffer_{new char[kBufferSize]};
};
