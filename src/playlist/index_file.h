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

#include "common/optional_string.h"
#include "common/run_environment.h"
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

// Where a playlist lives and how its URIs are written: what every kind is made from.
struct IndexFileOptions {
  uint32_t version = 3;             // EXT-X-VERSION; below 2 no version line is written
  const char* baseURL = nullptr;    // written before every URI; none = URIs as given
  const char* directory = nullptr;  // where the playlist file goes; none = the working directory
  const char* indexFileName = nullptr;
  WallClock wallClock = SystemWallClock;  // when removed files are due and renames retried
};

// Command templates queued for the files a playlist lists or drops; none = no command.
// The segment post-processing template also serves for the playlist file itself.
struct IndexFileCommands {
  const char* segmentPost = nullptr;
  const char* segmentDelete = nullptr;
  const char* keyPost = nullptr;
  const char* keyDelete = nullptr;
};

// Everything the common part of a playlist is made from.
struct IndexFileBaseOptions {
  IndexFileOptions file = {};
  uint32_t targetDuration = 0;  // whole seconds
  IndexFileCommands commands = {};
  bool decimalDurations = false;  // EXTINF with five decimals instead of whole seconds
  bool independentSegments = false;
};

class CIndexFileBase {
 public:
  explicit CIndexFileBase(const IndexFileBaseOptions& options);
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
  virtual Status Finish() { return kNoErr; }

  void AddMap(const char* uri, int64_t rangeStart, int64_t rangeEnd);
  bool FileInIndex(const char* fileName, const char* filePath) const;
  double GetTargetDuration() const { return targetDuration; }
  // Seconds since 1970 UTC of the first segment ever added; 0 = no EXT-X-PROGRAM-DATE-TIME.
  void SetProgramDateTimeOrigin(int64_t secondsSince1970) {
    programDateTimeOrigin = secondsSince1970;
  }
  // The whole playlist text: header and every entry.
  void WriteAllEntries(FILE* out);

  // Gives the playlist up after a failed run: destruction then writes nothing to disk, so a
  // broken stream does not leave a playlist that looks complete.
  void Abandon() { abandoned = true; }

 protected:
  void FileEntryWrite(FILE* out, const FileEntry* entry, uint8_t lastIV[16]);

  // Disk operations: temporary file and rename, post-processing, deferred deletion.
  FILE* CreateTempIndexFile();
  // Removes a temporary file whose rename is still pending.
  void DropPendingTempIndexFile();
  void RenameTempIndexFile();
  bool UpdateIndexFile();
  // Writes the whole playlist (with the end line when asked) into a temporary file beside it
  // and renames it over the playlist: a link at the name is replaced, never followed, and a
  // reader never sees half a playlist. Every failure is reported and returned, and the
  // temporary file is removed.
  Status ReplaceIndexFile(bool withEndList);
  void PostProcessIndexFile();
  void RemoveFile(const char* filePath, const char* fileName, bool isKeyFile);
  void DoomedFileCreate(const char* filePath, const char* fileName);

  // Frees an entry that has left the playlist, dropping its key reference.
  static void DestroyEntry(std::unique_ptr<FileEntry> entry);
  static void DestroyKeyRecord(std::unique_ptr<KeyRecord> key);
  const char* SegmentPostCommand() const { return CStr(segmentPostCommand); }
  int64_t WallClockSeconds() const { return wallClock(); }

  // State the kinds share.
  std::deque<std::unique_ptr<FileEntry>> entries;
  std::deque<std::unique_ptr<KeyRecord>> keys;
  uint32_t entryCount = 0;
  uint32_t targetDuration;
  std::unique_ptr<std::string> segmentDeleteCommand, keyDeleteCommand;
  std::string indexFileName;
  const char* headerExtra = nullptr;
  char indexFilePath[kPathLimit] = {};
  char tempIndexFilePath[kPathLimit] = {};
  bool wroteEntries = false;
  uint8_t lastWrittenIV[16] = {};
  uint64_t discontinuitySequence = 0;
  bool abandoned = false;

 private:
  WallClock wallClock;
  std::string baseURL;
  bool hasBaseURL = false;
  int64_t programDateTimeOrigin = 0;
  uint32_t version;
  double totalDuration = 0;
  const KeyRecord* lastWrittenKey = nullptr;
  int32_t renameRetryCount = 0;
  uint64_t renameFailStamp = 0;
  uint64_t lastRenameAttempt = 0;
  bool renamePending = false;
  std::unique_ptr<std::string> segmentPostCommand, keyPostCommand;
  FileCommandEntry* indexPostCommand = nullptr;
  std::list<DoomedFile> doomedFiles;
  uint8_t currentIV[16] = {};
  bool hasExplicitIV = false;
  bool decimalDurations;
  bool mapWritten = false;
  std::unique_ptr<std::string> mapURI;
  int64_t mapRangeStart = -1, mapRangeEnd = -1;
  bool independentSegments;
};

// Processor-time clock of the rename bookkeeping, in microsecond ticks.
uint64_t IndexFileProcessorClock();
