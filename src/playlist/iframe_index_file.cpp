#include "playlist/index_file_kinds.h"

CIFrameIndexFile::CIFrameIndexFile(const IFrameIndexFileOptions& options)
    : CIndexFileBase({.file = options.file,
                      .targetDuration = options.targetDuration,
                      .decimalDurations = true}),
      parent(options.parent),
      isLive(options.isLive) {
  headerExtra =
      isLive ? "#EXT-X-I-FRAMES-ONLY\n" : "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-I-FRAMES-ONLY\n";
}

FileEntry* CIFrameIndexFile::AddFile(const char*, const char*, uint64_t, double, int64_t, int64_t,
                                     bool) {
  // Follows the parent: drop what the parent no longer lists, write when the parent does.
  while (!entries.empty() && !parent->FileInIndex(entries.front()->fileName.c_str(),
                                                  entries.front()->filePath.c_str())) {
    DestroyEntry(std::move(entries.front()));
    entries.pop_front();
    entryCount--;
  }
  if (parent->IndexFileAvailable()) UpdateIndexFile();
  return entries.empty() ? nullptr : entries.back().get();
}

void CIFrameIndexFile::Pause() {
  if (!isLive) return;
  RemoveFile(indexFilePath, indexFileName.c_str(), false);
  wroteEntries = false;
}

CIFrameIndexFile::~CIFrameIndexFile() {
  if (!isLive && !abandoned) UpdateIndexFile();
}
