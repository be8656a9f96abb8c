#include "media/core/file_byte_stream.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "media/core/error_signal.h"

namespace {

// The file-fork layer: an open descriptor and positioned reads and writes on it. The I/O
// policy is carried along for platforms that honour one; here it changes nothing.
class FileFork {
 public:
  explicit FileFork(int fd) : fd_(fd) {}
  ~FileFork() {
    if (fd_ >= 0) close(fd_);
  }
  FileFork(const FileFork&) = delete;
  FileFork& operator=(const FileFork&) = delete;

  // Reads until `size` bytes or the end of the file; returns 0 or an errno value.
  int ReadAt(void* destination, size_t size, int64_t offset, int32_t ioPolicy, size_t* count) {
    (void)ioPolicy;
    size_t done = 0;
    while (done < size) {
      ssize_t n = pread(fd_, static_cast<char*>(destination) + done, size - done,
                        static_cast<off_t>(offset) + static_cast<off_t>(done));
      if (n < 0) {
        if (errno == EINTR) continue;
        *count = done;
        return StatusFromErrno(errno);
      }
      if (n == 0) break;
      done += static_cast<size_t>(n);
    }
    *count = done;
    return 0;
  }

  int WriteAt(const void* source, size_t size, int64_t offset, int32_t ioPolicy, size_t* count) {
    (void)ioPolicy;
    size_t done = 0;
    while (done < size) {
      ssize_t n = pwrite(fd_, static_cast<const char*>(source) + done, size - done,
                         static_cast<off_t>(offset) + static_cast<off_t>(done));
      if (n < 0) {
        if (errno == EINTR) continue;
        *count = done;
        return StatusFromErrno(errno);
      }
      done += static_cast<size_t>(n);
    }
    *count = done;
    return 0;
  }

  int Length(int64_t* length) {
    struct stat st;
    if (fstat(fd_, &st) != 0) return StatusFromErrno(errno);
    *length = st.st_size;
    return 0;
  }

 private:
  int fd_;
};

class QorFileByteStream final : public MxByteStream {
 public:
  QorFileByteStream(MxURL url, int fd, bool cacheEnabled)
      : url_(std::move(url)), fork_(fd), cacheEnabled_(cacheEnabled) {}

  const char* ClassName() const override { return "QorFileByteStream"; }

  Status Read(size_t size, int64_t offset, void* destination, size_t* bytesRead) override {
    if (offset < 0) return QorSignalErrorAt(kMxErrInvalidParameter);
    size_t total = 0;
    int error = 0;
    if (size > kFileByteStreamCacheSize || !cacheEnabled_) {
      error = fork_.ReadAt(destination, size, offset, ioPolicy_, &total);
    } else {
      std::lock_guard<std::mutex> lock(cacheLock_);
      if (cacheStart_ <= offset && offset < cacheEnd_) {
        total = std::min<size_t>(static_cast<size_t>(cacheEnd_ - offset), size);
        memcpy(destination, cache_ + (offset - cacheStart_), total);
      }
      if (total < size) {
        const int64_t at = offset + static_cast<int64_t>(total);
        size_t filled = 0;
        error = fork_.ReadAt(cache_, sizeof cache_, at, ioPolicy_, &filled);
        if (error == 0) {
          cacheStart_ = at;
          cacheEnd_ = at + static_cast<int64_t>(filled);
          size_t more = std::min(filled, size - total);
          memcpy(static_cast<char*>(destination) + total, cache_, more);
          total += more;
        } else {
          cacheStart_ = cacheEnd_ = 0;
        }
      }
    }
    if (error != 0) return QorSignalErrorAt(StatusFromErrno(error));
    if (total == 0) return kMxErrEndOfStream;
    if (bytesRead) *bytesRead = total;
    return kNoErr;
  }

  Status Write(size_t size, int64_t offset, const void* source, size_t* bytesWritten) override {
    if (offset < 0) return QorSignalErrorAt(kMxErrInvalidParameter);
    size_t count = 0;
    int error = fork_.WriteAt(source, size, offset, ioPolicy_, &count);
    if (bytesWritten) *bytesWritten = count;
    return error ? QorSignalErrorAt(StatusFromErrno(error)) : kNoErr;
  }

  Status GetLength(int64_t offset, int64_t* length) override {
    (void)offset;  // a file's length does not depend on where one asks
    if (length == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    int error = fork_.Length(length);
    return error ? QorSignalErrorAt(StatusFromErrno(error)) : kNoErr;
  }

  bool IsEqual(const MxByteStream* other) const override {
    auto* file = dynamic_cast<const QorFileByteStream*>(other);
    return file != nullptr && file->url_ == url_;
  }

  Status CopyProperty(const std::string& key, MxValue* out) override {
    if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
    if (key == kMxByteStreamProperty_EntireLength || key == kMxByteStreamProperty_AvailableLength) {
      int64_t length = 0;
      Status status = GetLength(0, &length);
      if (status == kNoErr) *out = MxValue(length);
      return status;
    }
    if (key == kMxByteStreamProperty_EntireLengthAvailableOnDemand) {
      if (url_.path.empty()) return kMxErrPropertyNotAvailable;
      *out = MxValue(true);
      return kNoErr;
    }
    if (key == kMxByteStreamProperty_URL) {
      if (url_.path.empty()) return kMxErrPropertyNotAvailable;
      *out = MxValue(url_);
      return kNoErr;
    }
    if (key == kQorByteStreamProperty_FileType) {
      // This platform keeps no four-character type codes: an existing file reports type 0.
      if (url_.path.empty()) return kMxErrPropertyNotAvailable;
      struct stat st;
      if (stat(url_.path.c_str(), &st) != 0) return QorSignalErrorAt(StatusFromErrno(errno));
      *out = MxValue(int32_t{0});
      return kNoErr;
    }
    if (key == kMxByteStreamProperty_IOPolicy) {
      *out = MxValue(ioPolicy_);
      return kNoErr;
    }
    return kMxErrPropertyNotSupported;
  }

  Status SetProperty(const std::string& key, const MxValue& value) override {
    if (key == kMxByteStreamProperty_IOPolicy) {
      auto policy = value.GetInt32();
      if (!policy) return kMxErrInvalidParameter;
      ioPolicy_ = *policy;
      return kNoErr;
    }
    if (key == kQorByteStreamProperty_SandboxExtensionHandle) {
      sandboxHandle_ = value;
      return kNoErr;
    }
    return kMxErrPropertyNotSupported;
  }

  std::string CopyDebugDescription() const override {
    char text[64];
    snprintf(text, sizeof text, "<QorFileByteStream %p>{", static_cast<const void*>(this));
    return text + url_.Description() + "}";
  }

 private:
  MxURL url_;
  FileFork fork_;
  int32_t ioPolicy_ = -1;
  bool cacheEnabled_;
  std::mutex cacheLock_;
  char cache_[kFileByteStreamCacheSize];
  int64_t cacheStart_ = 0;
  int64_t cacheEnd_ = 0;
  MxValue sandboxHandle_;
};

int OpenFlags(uint32_t permissions) {
  int flags = O_CLOEXEC;
  switch (permissions & 3) {
    case kMxByteStreamPermission_Write:
      flags |= O_WRONLY;
      break;
    case kMxByteStreamPermission_ReadWrite:
      flags |= O_RDWR;
      break;
    default:
      flags |= O_RDONLY;
      break;
  }
  if (permissions & kMxByteStreamPermission_Create) flags |= O_CREAT;
  if (permissions & kMxByteStreamPermission_Truncate) flags |= O_TRUNC;
  return flags;
}

Status CreateFileByteStream(MxAllocator* allocator, const MxURL& url, uint32_t permissions,
                            bool cacheEnabled, MxByteStreamRef* out) {
  *out = nullptr;
  if (url.path.empty()) return QorSignalErrorAt(kMxErrBadPath);
  int fd = open(url.path.c_str(), OpenFlags(permissions), 0666);
  if (fd < 0) return QorSignalErrorAt(StatusFromErrno(errno));
  if ((permissions & kMxByteStreamPermission_Lock) && flock(fd, LOCK_EX | LOCK_NB) != 0) {
    int error = errno;
    close(fd);
    return QorSignalErrorAt(StatusFromErrno(error));
  }
  auto* stream = new (std::nothrow) QorFileByteStream(url, fd, cacheEnabled);
  if (stream == nullptr) {
    close(fd);
    return QorSignalErrorAt(kMxErrAllocationFailed);
  }
  stream->allocator = allocator;
  *out = MxByteStreamRef::Adopt(stream);
  return kNoErr;
}

}  // namespace

Status MxByteStreamCreateForFileURL(MxAllocator* allocator, const MxURL& url, uint32_t permissions,
                                    MxByteStreamRef* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  const bool cacheEnabled = (permissions & kMxByteStreamNoCacheMask) == 0;
  return CreateFileByteStream(allocator, url, permissions, cacheEnabled, out);
}

Status QorByteStreamCreateUncachedForFileURL(MxAllocator* allocator, const MxURL& url,
                                             MxByteStreamRef* out) {
  if (out == nullptr) return QorSignalErrorAt(kMxErrInvalidParameter);
  return CreateFileByteStream(allocator, url, kMxByteStreamPermission_Read, false, out);
}
