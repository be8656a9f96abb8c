#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "log/output.h"
#include "playlist/index_file_kinds.h"

CLiveIndexFile::CLiveIndexFile(const LiveIndexFileOptions& options)
    : CIndexFileBase(options.playlist),
      minEntriesToWrite(options.minEntriesToWrite),
      windowSize(options.windowSize),
      deleteOldFiles(options.deleteOldFiles) {}

FileEntry* CLiveIndexFile::AddFile(const char* fileName, const char* filePath,
                                   uint64_t mediaSequence, double duration, int64_t rangeStart,
                                   int64_t rangeEnd, bool discontinuity) {
  if (entryCount >= windowSize && !entries.empty()) {
    std::unique_ptr<FileEntry> oldest = std::move(entries.front());
    entries.pop_front();
    entryCount--;
    if (oldest->discontinuity) discontinuitySequence++;
    RemoveEntryFromPlaylist(std::move(oldest));
  }
  FileEntry* added = CIndexFileBase::AddFile(fileName, filePath, mediaSequence, duration,
                                             rangeStart, rangeEnd, discontinuity);
  // A file must outlive its time in the window by the window's length, so that a player that
  // fetched the playlist just before the file left can still get it.
  double windowSeconds = 0;
  for (const auto& e : entries) windowSeconds += e->duration;
  uint32_t linger = TruncateToUint32(std::ceil(windowSeconds));
  for (auto& e : entries) e->lingerSeconds = std::max(e->lingerSeconds, linger);
  if (entryCount < minEntriesToWrite) return added;
  if (!initialWritten) {
    OutputMessage(1, "wrote initial index file");
    initialWritten = true;
  }
  UpdateIndexFile();
  return added;
}

void CLiveIndexFile::RemoveEntryFromPlaylist(std::unique_ptr<FileEntry> entry) {
  if (!deleteOldFiles) {
    DestroyEntry(std::move(entry));
    return;
  }
  entry->deleteAt = WallClockSeconds() + entry->lingerSeconds;
  removedEntries.push_back(std::move(entry));
}

void CLiveIndexFile::HandlePendingActions() {
  const int64_t now = WallClockSeconds();
  while (!removedEntries.empty() && now >= removedEntries.front()->deleteAt) {
    std::unique_ptr<FileEntry> entry = std::move(removedEntries.front());
    removedEntries.pop_front();
    RemoveFile(entry->filePath.c_str(), entry->fileName.c_str(), false);
    DestroyEntry(std::move(entry));
  }
  if (!keys.empty() && keys.front()->refCount < 1) {
    std::unique_ptr<KeyRecord> key = std::move(keys.front());
    keys.pop_front();
    if (deleteOldFiles && key->keyFilePath)
      RemoveFile(key->keyFilePath->c_str(), CStr(key->keyFileName), true);
    DestroyKeyRecord(std::move(key));
  }
  CIndexFileBase::HandlePendingActions();
}

void CLiveIndexFile::Pause() {
  OutputMessage(2, "Pausing Live Stream");
  RemoveFile(indexFilePath, indexFileName.c_str(), false);
  while (!entries.empty()) {
    std::unique_ptr<FileEntry> entry = std::move(entries.front());
    entries.pop_front();
    entryCount--;
    RemoveEntryFromPlaylist(std::move(entry));
  }
  wroteEntries = false;
  initialWritten = false;
}

void CLiveIndexFile::Resume() {
  OutputMessage(2, "Resuming Live Stream");
}

CLiveIndexFile::~CLiveIndexFile() {
  for (auto& entry : removedEntries) {
    if (unlink(entry->filePath.c_str()) != 0) {
      OutputMessage(0, "At end - couldn't delete %s, error %s", entry->filePath.c_str(),
                    strerror(errno));
    }
    CreateImmediateFileCommand(CStr(segmentDeleteCommand), entry->filePath.c_str(),
                               entry->fileName.c_str());
    DestroyEntry(std::move(entry));
  }
  removedEntries.clear();
  // Keys still used by entries in the window stay for the base destructor. (Waiting for their
  // count to drop here, as a literal loop would, could never finish.)
  while (!keys.empty() && keys.front()->refCount <= 0) {
    std::unique_ptr<KeyRecord> key = std::move(keys.front());
    keys.pop_front();
    if (deleteOldFiles && key->keyFilePath) {
      if (unlink(key->keyFilePath->c_str()) != 0) {
        OutputMessage(0, "At end - couldn't delete %s, error %s", key->keyFilePath->c_str(),
                      strerror(errno));
      }
      CreateImmediateFileCommand(CStr(keyDeleteCommand), key->keyFilePath->c_str(),
                                 CStr(key->keyFileName));
    }
    DestroyKeyRecord(std::move(key));
  }
}
