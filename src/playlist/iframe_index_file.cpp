#include "playlist/index_file_kinds.h"

CIFrameIndexFile::CIFrameIndexFile(uint32_t version, const char* baseURL, const char* directory,
                                   const char* indexFileName, uint32_t targetDuration,
                                   CIndexFileBase* parent, bool isLive)
    : CIndexFileBase(version, baseURL, directory, indexFileName, targetDuration, nullptr, nullptr,
                     nullptr, nullptr, true, false),
      parent(parent),
      isLive(isLive) {
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
