// CIndexFileBase: the media playlist of one output stream. It keeps the segments written so far,
// the keys they use and the header settings, and is the one owner of the playlist text. The
// kinds (live, EVENT, VOD, I-frame) decide when the text reaches the disk.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <list>
#include <memory>
#include <string>

#include "common/status.h"
#include "postprocess/file_command.h"

constexpr size_t kPathLimit = 1024;

// One encryption key as the playlist knows it.
struct KeyRecord {
  std::unique_ptr<std::string> uri;          // the EXT-X-KEY URI, or none
  std::unique_ptr<std::string> keyFileName;  // used as URI when uri is none (AES-128)
  std::unique_ptr<std::string> keyFilePath;
  int64_t refCount = 0;  // entries that use this key
  FileCommandEntry* postCommand = nullptr;
  bool wholeSegmentAES = false;    // METHOD=AES-128, else SAMPLE-AES
  bool keyDeliveryFormat = false;  // KEYFORMAT attributes instead of an IV
};

// One playlist entry.
struct FileEntry {
  std::string fileName;      // the URI as written (relative to baseURL when that is set)
  std::string filePath;      // the file on disk
  KeyRecord* key = nullptr;  // the key in force when the entry was added; holds one reference
  uint64_t mediaSequence = 0;
  double duration = 0;
  int64_t rangeStart = -1, rangeEnd = -1;  // end inclusive; start -1 = the whole file
  uint32_t lingerSeconds = 0;
  int64_t deleteAt = 0;
  double startTime = 0;
  FileCommandEntry* postCommand = nullptr;
  uint8_t iv[16] = {};
  bool hasIV = false;
  bool discontinuity = false;
};

struct DoomedFile {
  std::string filePath;
  std::string fileName;
};

class CIndexFileBase {
 public:
  CIndexFileBase(uint32_t version, const char* baseURL, const char* directory,
                 const char* indexFileName, uint32_t targetDuration, const char* segmentPostCommand,
                 const char* segmentDeleteCommand, const char* keyPostCommand,
                 const char* keyDeleteCommand, bool decimalDurations, bool independentSegments);
  virtual ~CIndexFileBase();
  CIndexFileBase(const CIndexFileBase&) = delete;
  CIndexFileBase& operator=(const CIndexFileBase&) = delete;

  virtual FileEntry* AddFile(const char* fileName, const char* filePath, uint64_t mediaSequence,
                             double duration, int64_t rangeStart, int64_t rangeEnd,
                             bool discontinuity);
  virtual void AddCryptKey(const char* uri, const char* keyFilePath, const char* keyFileName,
                           bool wholeSegmentAES, bool keyDeliveryFormat);
  virtual void ChangeCryptKeyIV(const uint8_t iv[16]);
  virtual void HandlePendingActions();
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  virtual bool IndexFileAvailable() { return false; }
  // Writes what the kind leaves for the end of the stream and reports whether it reached the
  // disk. Kinds that write as they go have nothing left.
  [[nodiscard]] virtual OSStatus Finish() { return kNoErr; }

  void AddMap(const char* uri, int64_t rangeStart, int64_t rangeEnd);
  bool FileInIndex(const char* fileName, const char* filePath) const;
  double GetTargetDuration() const { return targetDuration; }
  void WriteAllEntries(FILE* out);
  void FileEntryWrite(FILE* out, const FileEntry* entry, uint8_t lastIV[16]);

  // Disk operations: temporary file and rename, post-processing, deferred deletion.
  FILE* CreateTempIndexFile();
  void RenameTempIndexFile();
  bool UpdateIndexFile();
  // Writes the whole playlist (with the end line when asked) into a temporary file beside it
  // and renames it over the playlist: a link at the name is replaced, never followed, and a
  // reader never sees half a playlist. Every failure is reported and returned, and the
  // temporary file is removed.
  [[nodiscard]] OSStatus ReplaceIndexFile(bool withEndList);
  void PostProcessIndexFile();
  void RemoveFile(const char* filePath, const char* fileName, bool isKeyFile);
  void DoomedFileCreate(const char* filePath, const char* fileName);

  // Gives the playlist up after a failed run: destruction then writes nothing to disk, so a
  // broken stream does not leave a playlist that looks complete.
  void Abandon() { abandoned = true; }

  // State; the kinds and the tests read it directly.
  std::deque<std::unique_ptr<FileEntry>> entries;
  std::deque<std::unique_ptr<KeyRecord>> keys;
  std::string baseURL;
  bool hasBaseURL = false;
  int64_t programDateTimeOrigin = 0;
  uint32_t version;
  uint32_t entryCount = 0;
  uint32_t targetDuration;
  double totalDuration = 0;
  const KeyRecord* lastWrittenKey = nullptr;
  int32_t renameRetryCount = 0;
  uint64_t renameFailStamp = 0;
  uint64_t lastRenameAttempt = 0;
  bool renamePending = false;
  std::unique_ptr<std::string> segmentPostCommand, segmentDeleteCommand, keyPostCommand,
      keyDeleteCommand;
  std::string indexFileName;
  const char* headerExtra = nullptr;
  char indexFilePath[kPathLimit] = {};
  char tempIndexFilePath[kPathLimit] = {};
  FileCommandEntry* indexPostCommand = nullptr;
  bool wroteEntries = false;
  std::list<DoomedFile> doomedFiles;
  uint8_t currentIV[16] = {};
  uint8_t lastWrittenIV[16] = {};
  bool hasExplicitIV = false;
  bool decimalDurations;
  bool mapWritten = false;
  std::unique_ptr<std::string> mapURI;
  int64_t mapRangeStart = -1, mapRangeEnd = -1;
  bool independentSegments;
  uint64_t discontinuitySequence = 0;
  bool abandoned = false;

 protected:
  // Frees an entry that has left the playlist, dropping its key reference.
  static void DestroyEntry(std::unique_ptr<FileEntry> entry);
  static void DestroyKeyRecord(std::unique_ptr<KeyRecord> key);
  const char* SegmentPostCommand() const { return CStr(segmentPostCommand); }
  static const char* CStr(const std::unique_ptr<std::string>& s) {
    return s ? s->c_str() : nullptr;
  }
};

// Processor-time and wall clocks of the rename bookkeeping (microsecond ticks, seconds).
uint64_t IndexFileProcessorClock();
int64_t IndexFileWallClock();
