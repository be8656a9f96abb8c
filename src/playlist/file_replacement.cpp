#include "playlist/file_replacement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "common/incomplete_files.h"
#include "log/output.h"

Status ReplaceFileWithText(const char* path, const char* what,
                           const std::function<void(FILE*)>& write,
                           const char* createFailureFormat) {
  std::string temp = std::string(path) + ".XXXXXX";
  FILE* stream = nullptr;
  int error = 0;
  {
    InterruptsHeld held;
    const int fd = mkstemp(temp.data());
    if (fd >= 0) {
      IncompleteFileBegin(IncompleteFile::kPlaylist, temp.c_str());
      stream = fdopen(fd, "w");
      if (stream == nullptr) {
        error = errno != 0 ? errno : EIO;
        close(fd);
        unlink(temp.c_str());
        IncompleteFileDone(IncompleteFile::kPlaylist);
      }
    } else {
      error = errno != 0 ? errno : EIO;
    }
  }
  if (stream == nullptr) {
    if (createFailureFormat != nullptr) {
      OutputMessage(0, createFailureFormat, path);
    } else {
      OutputMessage(0, "cannot create a temporary file for %s: %s", path, strerror(error));
    }
    return StatusFromErrno(error);
  }
  const char* step = "write";
  errno = 0;
  write(stream);
  error = fflush(stream) != 0 || ferror(stream) ? (errno != 0 ? errno : EIO) : 0;
  if (fclose(stream) != 0 && error == 0) {
    step = "close";
    error = errno != 0 ? errno : EIO;
  }
  if (error == 0 && chmod(temp.c_str(), 0664) != 0) {
    step = "set the mode of";
    error = errno;
  }
  if (error == 0 && rename(temp.c_str(), path) != 0) {
    step = "rename";
    error = errno;
  }
  if (error != 0) {
    OutputMessage(0, "cannot %s %s %s (temporary file %s): %s", step, what, path, temp.c_str(),
                  strerror(error));
    unlink(temp.c_str());
  }
  IncompleteFileDone(IncompleteFile::kPlaylist);
  return StatusFromErrno(error);
}
