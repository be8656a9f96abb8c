#include "segments/segment_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {
// Writes all of `length` bytes, resuming after short writes and interruptions.
Status WriteAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    ssize_t n = write(fd, data, length);
    if (n < 0) {
      if (errno == EINTR) continue;
      return StatusFromErrno(errno);
    }
    data += n;
    length -= static_cast<size_t>(n);
  }
  return kNoErr;
}
}  // namespace

Status SegmentFile::CreateExclusive(const char* path, std::unique_ptr<SegmentFile>* out) {
  int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return StatusFromErrno(errno);
  out->reset(new SegmentFile(fd));
  return kNoErr;
}

SegmentFile::~SegmentFile() {
  if (fd_ >= 0) close(fd_);
}

Status SegmentFile::Write(const void* data, size_t length) {
  if (length > kBufferSize - used_) {
    Status status = Flush();
    if (status != kNoErr) return status;
    if (length >= kBufferSize) return WriteAll(fd_, static_cast<const char*>(data), length);
  }
  memcpy(buffer_.get() + used_, data, length);
  used_ += length;
  return kNoErr;
}

Status SegmentFile::Flush() {
  Status status = WriteAll(fd_, buffer_.get(), used_);
  used_ = 0;
  return status;
}

Status SegmentFile::Close() {
  Status status = Flush();
  if (close(fd_) != 0 && status == kNoErr) status = StatusFromErrno(errno);
  fd_ = -1;
  return status;
}
