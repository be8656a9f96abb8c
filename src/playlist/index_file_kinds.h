// The four kinds of playlist: when the text reaches the disk and what happens to segments that
// leave it.
#pragma once

#include "common/numeric.h"
#include "playlist/index_file.h"

// Sliding-window live playlist, rewritten through a temporary file after every segment.
class CLiveIndexFile final : public CIndexFileBase {
 public:
  CLiveIndexFile(uint32_t version, const char* baseURL, const char* directory,
                 const char* indexFileName, uint32_t targetDuration, uint32_t minEntriesToWrite,
                 uint32_t windowSize, bool deleteOldFiles, const char* segmentPostCommand,
                 const char* segmentDeleteCommand, const char* keyPostCommand,
                 const char* keyDeleteCommand, bool decimalDurations, bool independentSegments);
  ~CLiveIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void HandlePendingActions() override;
  void Pause() override;
  void Resume() override;
  bool IndexFileAvailable() override { return entryCount >= minEntriesToWrite; }
  void RemoveEntryFromPlaylist(std::unique_ptr<FileEntry> entry);

  std::deque<std::unique_ptr<FileEntry>> removedEntries;
  uint32_t minEntriesToWrite;
  uint32_t windowSize;
  bool deleteOldFiles;
  bool initialWritten = false;
};

// EVENT playlist: written once when firstWriteCount entries exist, then appended to.
class CProgramIndexFile final : public CIndexFileBase {
 public:
  CProgramIndexFile(uint32_t version, const char* baseURL, const char* directory,
                    const char* indexFileName, uint32_t targetDuration, uint32_t firstWriteCount,
                    const char* segmentPostCommand, const char* segmentDeleteCommand,
                    const char* keyPostCommand, const char* keyDeleteCommand, bool decimalDurations,
                    bool independentSegments);
  ~CProgramIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override;

  uint32_t firstWriteCount;
};

// VOD playlist: written once, when the object is destroyed.
class CVODIndexFile final : public CIndexFileBase {
 public:
  CVODIndexFile(uint32_t version, const char* baseURL, const char* directory,
                const char* indexFileName, bool decimalDurations, bool independentSegments);
  ~CVODIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override;
  // Writes the finished playlist, end line included, in one replacement.
  [[nodiscard]] OSStatus Finish() override;
};

// I-frame-only playlist that follows the segments of a parent playlist.
class CIFrameIndexFile final : public CIndexFileBase {
 public:
  CIFrameIndexFile(uint32_t version, const char* baseURL, const char* directory,
                   const char* indexFileName, uint32_t targetDuration, CIndexFileBase* parent,
                   bool isLive);
  ~CIFrameIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override {}
  void SetTargetDuration(double seconds) { targetDuration = TruncateToUint32(seconds); }

  CIndexFileBase* parent;
  bool isLive;
};
