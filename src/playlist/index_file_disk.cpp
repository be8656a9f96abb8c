// Getting playlist text onto the disk safely: a fresh temporary file beside the playlist,
// renamed over it (readers see the old or the new text, never half of it), with retries; and
// deletion of files that may fail and is then retried later ("doomed" files).
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log/output.h"
#include "playlist/file_replacement.h"
#include "playlist/index_file.h"

namespace {
constexpr int kQuickRenameRetries = 10;
constexpr useconds_t kRenameRetryPause = 100;
constexpr int64_t kDeferredRenameInterval = 1000;
}  // namespace

void CIndexFileBase::DropPendingTempIndexFile() {
  if (renamePending && tempIndexFilePath[0] != '\0') {
    OutputMessage(
        1, "unlink temp index file %s that never got renamed after %d tries and %.3f seconds",
        tempIndexFilePath, renameRetryCount,
        static_cast<double>(IndexFileProcessorClock() - renameFailStamp) / 1000000);
    if (unlink(tempIndexFilePath) != 0) {
      OutputMessage(1, "error %s unlinking %s", strerror(errno), tempIndexFilePath);
      DoomedFileCreate(tempIndexFilePath, indexFileName.c_str());
    }
    renameRetryCount = 0;
    tempIndexFilePath[0] = '\0';
    renamePending = false;
  }
}

FILE* CIndexFileBase::CreateTempIndexFile() {
  DropPendingTempIndexFile();
  // A name that does not fit is refused: truncated, it would name another file.
  std::string temp = std::string(indexFilePath) + ".XXXXXX";
  if (temp.size() >= sizeof tempIndexFilePath) {
    tempIndexFilePath[0] = '\0';
    errno = ENAMETOOLONG;
    return nullptr;
  }
  memcpy(tempIndexFilePath, temp.c_str(), temp.size() + 1);
  int fd = mkstemp(tempIndexFilePath);
  if (fd < 0) return nullptr;
  FILE* stream = fdopen(fd, "w");
  if (stream == nullptr) close(fd);
  return stream;
}

bool CIndexFileBase::UpdateIndexFile() {
  FILE* stream = CreateTempIndexFile();
  if (stream == nullptr) {
    OutputMessage(0, "unable to open %s (err %d).  Giving up on this index file", tempIndexFilePath,
                  errno);
    tempIndexFilePath[0] = '\0';
    return false;
  }
  WriteAllEntries(stream);
  fclose(stream);
  chmod(tempIndexFilePath, 0664);
  RenameTempIndexFile();
  return true;
}

Status CIndexFileBase::ReplaceIndexFile(bool withEndList) {
  DropPendingTempIndexFile();
  return ReplaceFileWithText(indexFilePath, "playlist", [&](FILE* stream) {
    WriteAllEntries(stream);
    if (withEndList) fputs("#EXT-X-ENDLIST\n", stream);
  });
}

void CIndexFileBase::RenameTempIndexFile() {
  // The playlist is about to exist again: a pending deletion of it must not remove it.
  doomedFiles.remove_if([this](const DoomedFile& d) {
    return d.fileName == indexFileName && d.filePath == indexFilePath;
  });
  renamePending = true;
  if (rename(tempIndexFilePath, indexFilePath) != 0) {
    renameFailStamp = IndexFileProcessorClock();
    int retries = 0;
    bool renamed = false;
    while (retries < kQuickRenameRetries && !renamed) {
      usleep(kRenameRetryPause);
      renamed = rename(tempIndexFilePath, indexFilePath) == 0;
      retries++;
    }
    if (!renamed) {
      OutputMessage(0, "rename index file failed after %d retries with most recent err: %s",
                    kQuickRenameRetries, strerror(errno));
      renameRetryCount = 0;
      lastRenameAttempt = renameFailStamp;
      return;  // HandlePendingActions tries again later
    }
    OutputMessage(2, "rename index file succeeded after %d retries", retries);
  }
  PostProcessIndexFile();
  tempIndexFilePath[0] = '\0';
  renamePending = false;
}

void CIndexFileBase::PostProcessIndexFile() {
  // The message is logged exactly when there was nothing to cancel; the wording stays as it is.
  if (segmentPostCommand && !DestroyFileCommandEntry(indexPostCommand))
    OutputMessage(1, "removed previous index file post process command");
  indexPostCommand =
      CreateSerialFileCommand(SegmentPostCommand(), indexFilePath, indexFileName.c_str());
}

void CIndexFileBase::RemoveFile(const char* filePath, const char* fileName, bool isKeyFile) {
  int result = unlink(filePath);
  int error = errno;
  OutputMessage(2, "unlinked %s err %d", filePath, result);
  if (result != 0) {
    OutputMessage(1, "error %s unlinking %s", strerror(error), filePath);
    DoomedFileCreate(filePath, fileName);
  }
  CreateImmediateFileCommand(CStr(isKeyFile ? keyDeleteCommand : segmentDeleteCommand), filePath,
                             fileName);
}

void CIndexFileBase::DoomedFileCreate(const char* filePath, const char* fileName) {
  if (fileName == nullptr) return;
  doomedFiles.push_back(DoomedFile{filePath ? filePath : "", fileName});
}

void CIndexFileBase::HandlePendingActions() {
  const int64_t now = WallClockSeconds();
  // The stamps mix the processor clock (microseconds) and the wall clock (seconds): the first
  // deferred attempt comes at the first call, later ones every 1000 seconds.
  if (renamePending && tempIndexFilePath[0] != '\0' &&
      now - static_cast<int64_t>(lastRenameAttempt) >= kDeferredRenameInterval) {
    renameRetryCount++;
    if (rename(tempIndexFilePath, indexFilePath) == 0) {
      OutputMessage(2, "deferred index file rename finally succeeded after %d retries and %.3f s",
                    renameRetryCount,
                    static_cast<double>(static_cast<uint64_t>(now) - renameFailStamp) / 1000000);
      renameRetryCount = 0;
      indexPostCommand =
          CreateSerialFileCommand(SegmentPostCommand(), indexFilePath, indexFileName.c_str());
      tempIndexFilePath[0] = '\0';
      renamePending = false;
    } else {
      lastRenameAttempt = static_cast<uint64_t>(now);
    }
  }
  for (auto it = doomedFiles.begin(); it != doomedFiles.end();) {
    if (unlink(it->filePath.c_str()) == 0) {
      OutputMessage(2, "Successfully deferred unlinked %s", it->fileName.c_str());
      it = doomedFiles.erase(it);
    } else {
      ++it;
    }
  }
}
