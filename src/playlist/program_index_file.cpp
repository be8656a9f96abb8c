#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log/output.h"
#include "playlist/index_file_kinds.h"

namespace {
const char* const kEventHeader = "#EXT-X-PLAYLIST-TYPE:EVENT\n";
}

CProgramIndexFile::CProgramIndexFile(const ProgramIndexFileOptions& options)
    : CIndexFileBase(options.playlist), firstWriteCount(options.firstWriteCount) {}

FileEntry* CProgramIndexFile::AddFile(const char* fileName, const char* filePath,
                                      uint64_t mediaSequence, double duration, int64_t rangeStart,
                                      int64_t rangeEnd, bool) {
  // An EVENT playlist's discontinuities come only from Resume: the caller's flag is ignored.
  FileEntry* added = CIndexFileBase::AddFile(fileName, filePath, mediaSequence, duration,
                                             rangeStart, rangeEnd, false);
  if (added == nullptr) return nullptr;
  if (entryCount > firstWriteCount) {
    FILE* out = fopen(indexFilePath, "a");
    if (out == nullptr) {
      OutputMessage(0, "Can't open %s - %s", indexFilePath, strerror(errno));
      return nullptr;
    }
    FileEntryWrite(out, added, lastWrittenIV);
    fclose(out);
    PostProcessIndexFile();
  } else if (entryCount == firstWriteCount) {
    FILE* out = fopen(indexFilePath, "w");
    if (out == nullptr) {
      OutputMessage(0, "Can't open %s - %s\n", indexFilePath, strerror(errno));
      return nullptr;
    }
    headerExtra = kEventHeader;
    WriteAllEntries(out);
    fclose(out);
    PostProcessIndexFile();
  }
  return added;
}

void CProgramIndexFile::Pause() {
  OutputMessage(2, "Pausing Program");
  // The playlist leaves its public name and waits under the temporary one.
  if (FILE* temp = CreateTempIndexFile()) fclose(temp);
  if (rename(indexFilePath, tempIndexFilePath) != 0)
    OutputMessage(0, "index file renaming failed (%s)", strerror(errno));
}

void CProgramIndexFile::Resume() {
  OutputMessage(2, "Resuming Program");
  if (FILE* out = fopen(tempIndexFilePath, "a")) {
    fputs("#EXT-X-DISCONTINUITY\n", out);
    fclose(out);
  } else {
    OutputMessage(0, "Can't open %s - %s", tempIndexFilePath, strerror(errno));
  }
  RenameTempIndexFile();
}

CProgramIndexFile::~CProgramIndexFile() {
  if (abandoned || !wroteEntries || entryCount >= firstWriteCount) return;
  // Never written (fewer entries than firstWriteCount): write it now, whole.
  if (FILE* out = fopen(indexFilePath, "w")) {
    headerExtra = kEventHeader;
    WriteAllEntries(out);
    fclose(out);
    CreateImmediateFileCommand(SegmentPostCommand(), indexFilePath, indexFileName.c_str());
  }
}
