#include "master/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "common/incomplete_files.h"

namespace {

struct FdCloser {
  void operator()(int* fd) const {
    if (*fd >= 0) close(*fd);
    delete fd;
  }
};
using UniqueFd = std::unique_ptr<int, FdCloser>;

UniqueFd Adopt(int fd) {
  return UniqueFd(new int(fd));
}

mode_t NewFileMode() {
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

Status ReadFileHead(const std::string& path, size_t limit, std::string* text) {
  UniqueFd fd = Adopt(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (*fd < 0) return StatusFromErrno(errno);
  text->assign(limit, '\0');
  size_t got = 0;
  while (got < limit) {
    ssize_t n = read(*fd, text->data() + got, limit - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return StatusFromErrno(errno);
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  text->resize(got);
  return kNoErr;
}

Status ReadFileText(const std::string& path, size_t limit, std::string* text) {
  UniqueFd fd = Adopt(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (*fd < 0) return StatusFromErrno(errno);
  struct stat st;
  if (fstat(*fd, &st) != 0) return StatusFromErrno(errno);
  if (S_ISDIR(st.st_mode)) return StatusFromErrno(EISDIR);
  text->clear();
  char buffer[65536];
  while (true) {
    ssize_t n = read(*fd, buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      return StatusFromErrno(errno);
    }
    if (n == 0) break;
    if (text->size() + static_cast<size_t>(n) > limit) return StatusFromErrno(EFBIG);
    text->append(buffer, static_cast<size_t>(n));
  }
  return kNoErr;
}

Status ReplaceFileText(const std::string& path, std::string_view text) {
  struct stat st;
  mode_t mode = NewFileMode();
  if (stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return StatusFromErrno(EISDIR);
    mode = st.st_mode & 07777;
  }
  std::string temporary = path + ".tmpXXXXXX";
  UniqueFd fd;
  {
    // An interruption from here on removes the temporary file.
    InterruptsHeld held;
    fd = Adopt(mkstemp(temporary.data()));
    if (*fd < 0) return StatusFromErrno(errno);
    IncompleteFileBegin(IncompleteFile::kPlaylist, temporary.c_str());
  }
  auto fail = [&](int error) {
    InterruptsHeld held;
    unlink(temporary.c_str());
    IncompleteFileDone(IncompleteFile::kPlaylist);
    return StatusFromErrno(error);
  };
  size_t written = 0;
  while (written < text.size()) {
    ssize_t n = write(*fd, text.data() + written, text.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(errno);
    }
    written += static_cast<size_t>(n);
  }
  if (fchmod(*fd, mode) != 0) return fail(errno);
  if (fsync(*fd) != 0) return fail(errno);
  int closeResult = close(*fd);
  *fd = -1;
  if (closeResult != 0) return fail(errno);
  InterruptsHeld held;
  if (rename(temporary.c_str(), path.c_str()) != 0) return fail(errno);
  IncompleteFileDone(IncompleteFile::kPlaylist);
  return kNoErr;
}
