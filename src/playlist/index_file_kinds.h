// The four kinds of playlist: when the text reaches the disk and what happens to segments that
// leave it.
#pragma once

#include "common/numeric.h"
#include "playlist/index_file.h"

struct LiveIndexFileOptions {
  IndexFileBaseOptions playlist = {};
  uint32_t minEntriesToWrite = 0;  // entries the window holds before the first write
  uint32_t windowSize = 0;         // the most entries the window holds
  bool deleteOldFiles = false;     // delete segments and keys that left the window
};

// Sliding-window live playlist, rewritten through a temporary file after every segment.
class CLiveIndexFile final : public CIndexFileBase {
 public:
  explicit CLiveIndexFile(const LiveIndexFileOptions& options);
  ~CLiveIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void HandlePendingActions() override;
  void Pause() override;
  void Resume() override;
  bool IndexFileAvailable() override { return entryCount >= minEntriesToWrite; }

 private:
  void RemoveEntryFromPlaylist(std::unique_ptr<FileEntry> entry);

  std::deque<std::unique_ptr<FileEntry>> removedEntries;
  uint32_t minEntriesToWrite;
  uint32_t windowSize;
  bool deleteOldFiles;
  bool initialWritten = false;
};

struct ProgramIndexFileOptions {
  IndexFileBaseOptions playlist = {};
  uint32_t firstWriteCount = 3;  // the entry count at which the playlist is first written
};

// EVENT playlist: written once when firstWriteCount entries exist, then appended to.
class CProgramIndexFile final : public CIndexFileBase {
 public:
  explicit CProgramIndexFile(const ProgramIndexFileOptions& options);
  ~CProgramIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override;

 private:
  uint32_t firstWriteCount;
};

// A VOD playlist starts with target duration 0 and runs no commands.
struct VODIndexFileOptions {
  IndexFileOptions file = {};
  bool decimalDurations = false;
  bool independentSegments = false;
};

// VOD playlist: written once, when the object is destroyed.
class CVODIndexFile final : public CIndexFileBase {
 public:
  explicit CVODIndexFile(const VODIndexFileOptions& options);
  ~CVODIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override;
  // Writes the finished playlist, end line included, in one replacement.
  Status Finish() override;
};

// An I-frame playlist always has decimal durations, no independent-segments line and no
// commands.
struct IFrameIndexFileOptions {
  IndexFileOptions file = {};
  uint32_t targetDuration = 0;
  CIndexFileBase* parent = nullptr;  // the playlist whose segments it follows; borrowed
  bool isLive = false;
};

// I-frame-only playlist that follows the segments of a parent playlist.
class CIFrameIndexFile final : public CIndexFileBase {
 public:
  explicit CIFrameIndexFile(const IFrameIndexFileOptions& options);
  ~CIFrameIndexFile() override;
  FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                     double duration, int64_t rangeStart, int64_t rangeEnd,
                     bool discontinuity) override;
  void Pause() override;
  void Resume() override {}
  void SetTargetDuration(double seconds) { targetDuration = TruncateToUint32(seconds); }

 private:
  CIndexFileBase* parent;
  bool isLive;
};
