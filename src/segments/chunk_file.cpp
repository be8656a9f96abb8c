#include "segments/chunk_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "common/incomplete_files.h"
#include "common/numeric.h"
#include "common/optional_string.h"
#include "log/output.h"
#include "playlist/index_file.h"
#include "playlist/index_file_kinds.h"
#include "segments/aes_encryptor.h"
#include "segments/crypt_key.h"
#include "segments/key_rotation.h"
#include "segments/segment_file.h"

struct ChunkFile {
  RunEnvironment environment;
  std::unique_ptr<SegmentFile> file;
  bool bufferInMemory = false;
  bool singleFile = false;
  bool reportByteRanges = false;
  bool encrypt = false;
  bool aes128 = false;
  bool streamingKeyDelivery = false;
  bool keyChanged = false;  // a key the playlists have not been told of yet
  KeyRotation rotation;
  std::unique_ptr<std::string> keyBaseName;
  std::unique_ptr<std::string> keyDirectory;
  std::unique_ptr<std::string> keyURL;
  uint8_t iv[16] = {};
  CryptKeyState keyState;
  std::unique_ptr<CryptKey, decltype(&CryptKeyDestroy)> key{nullptr, &CryptKeyDestroy};
  std::unique_ptr<Aes128CbcEncryptor> cryptor;
  std::vector<uint8_t> cipherScratch;  // output of the encryptor, reused by every write
  const char* directory = nullptr;     // borrowed from the caller
  const char* baseName = nullptr;      // borrowed from the caller
  std::unique_ptr<std::string> extension;
  std::unique_ptr<CIndexFileBase> indexFile;
  std::unique_ptr<CIndexFileBase> iframeIndexFile;
  uint32_t fileIndex = 0;     // number of the next file name
  uint32_t segmentCount = 0;  // files handed to the playlist; the next one's sequence number
  uint32_t maxFileIndex = 0;  // file numbers wrap to 0 here; 0 = never
  char fileName[kPathLimit] = {};
  char filePath[kPathLimit] = {};
  std::unique_ptr<uint8_t[]> buffer;
  uint64_t bufferUsed = 0, bufferCapacity = 0;
  uint64_t bytesWritten = 0;       // current file, after encryption and padding
  uint64_t plainBytesWritten = 0;  // current file, before encryption
  uint64_t totalBytesWritten = 0;  // every finished file
  double maxBitRate = 0;
  Status writeError = kNoErr;  // first failed write of the current file, reported at finalize
  Status openError = kNoErr;   // last failure to create a file, reported once until it changes
};

namespace {

constexpr uint64_t kMemoryBufferSize = 524288;

// The playlist kind follows from the not-live flag and the selector.
std::unique_ptr<CIndexFileBase> CreatePlaylist(const ChunkFileSettings& s) {
  const IndexFileOptions file = {.version = s.version,
                                 .baseURL = s.baseURL,
                                 .directory = s.directory,
                                 .indexFileName = s.indexFileName,
                                 .wallClock = s.environment.wallClock};
  if (s.notLive && s.kindSelector < 0) {
    return std::make_unique<CVODIndexFile>(
        VODIndexFileOptions{.file = file,
                            .decimalDurations = s.decimalDurations != 0,
                            .independentSegments = s.independentSegments != 0});
  }
  const IndexFileBaseOptions playlist = {.file = file,
                                         .targetDuration = s.targetDuration,
                                         .commands = {.segmentPost = s.segmentPostCommand,
                                                      .segmentDelete = s.segmentDeleteCommand,
                                                      .keyPost = s.keyPostCommand,
                                                      .keyDelete = s.keyDeleteCommand},
                                         .decimalDurations = s.decimalDurations != 0,
                                         .independentSegments = s.independentSegments != 0};
  if (!s.notLive && s.kindSelector == 0) {
    return std::make_unique<CLiveIndexFile>(
        LiveIndexFileOptions{.playlist = playlist,
                             .minEntriesToWrite = s.minEntriesToWrite,
                             .windowSize = s.liveWindowSize,
                             .deleteOldFiles = s.liveDeleteOldFiles != 0});
  }
  return std::make_unique<CProgramIndexFile>(
      ProgramIndexFileOptions{.playlist = playlist, .firstWriteCount = s.minEntriesToWrite});
}

// Every call made on the main playlist is repeated on the I-frame playlist, if there is one.
template <class Call>
void ForEachPlaylist(ChunkFile* c, Call call) {
  call(c->indexFile.get());
  if (c->iframeIndexFile) call(c->iframeIndexFile.get());
}

void AnnounceIV(ChunkFile* c) {
  ForEachPlaylist(c, [&](CIndexFileBase* p) { p->ChangeCryptKeyIV(c->iv); });
}

// fileName from its parts and filePath = directory/fileName, or fileName alone. A path that
// does not fit is refused with ENAMETOOLONG: truncated, it would name another file.
Status SetFileName(ChunkFile* c, const char* base, const char* number, const char* extension) {
  int length = snprintf(c->fileName, sizeof c->fileName, "%s%s%s", base, number, extension);
  if (length < 0 || static_cast<size_t>(length) >= sizeof c->fileName)
    return StatusFromErrno(ENAMETOOLONG);
  length = c->directory
               ? snprintf(c->filePath, sizeof c->filePath, "%s/%s", c->directory, c->fileName)
               : snprintf(c->filePath, sizeof c->filePath, "%s", c->fileName);
  if (length < 0 || static_cast<size_t>(length) >= sizeof c->filePath)
    return StatusFromErrno(ENAMETOOLONG);
  return kNoErr;
}

// Opens the next free file name exclusively: a name already in use is skipped, never truncated.
Status OpenNamedFile(ChunkFile* c) {
  const uint32_t start = c->fileIndex;
  const char* base = c->baseName ? c->baseName : "fileSequence";
  const char* extension = c->extension ? c->extension->c_str() : ".ts";
  for (;;) {
    const uint32_t number = c->fileIndex;
    Status status = SetFileName(c, base, std::to_string(number).c_str(), extension);
    if (status != kNoErr) return status;
    c->fileIndex++;
    if (c->maxFileIndex != 0 && c->fileIndex >= c->maxFileIndex) c->fileIndex = 0;
    {
      InterruptsHeld held;
      status = SegmentFile::CreateExclusive(c->filePath, &c->file);
      if (status == kNoErr) IncompleteFileBegin(IncompleteFile::kSegment, c->filePath);
    }
    if (status != EEXIST) {
      // A file that could not be created keeps its number: the next try uses the same name.
      if (status != kNoErr) c->fileIndex = number;
      return status;
    }
    if (c->fileIndex == start) {
      OutputMessage(0,
                    "we've wrapped the entire sequence without finding a valid header.- aborting");
      return kErrNoFreeFileIndex;
    }
  }
}

Status OpenSingleFile(ChunkFile* c) {
  if (c->file) return kNoErr;  // the one file stays open for the whole run
  Status status = SetFileName(c, c->baseName ? c->baseName : "main", "",
                              c->extension ? c->extension->c_str() : ".ts");
  if (status != kNoErr) return status;
  InterruptsHeld held;
  status = SegmentFile::CreateExclusive(c->filePath, &c->file);
  if (status == kNoErr) IncompleteFileBegin(IncompleteFile::kSegment, c->filePath);
  return status;
}

// Sets up the key, IV and encryptor for the file just opened.
Status PrepareEncryption(ChunkFile* c) {
  if (KeyRotationKeyDue(c->rotation, c->segmentCount)) {
    CryptKey* fresh = nullptr;
    c->key.reset();
    Status status = CryptKeyCreateRandomFromBase(&c->keyState, CStr(c->keyDirectory),
                                                 CStr(c->keyURL), CStr(c->keyBaseName), &fresh);
    if (status != kNoErr) {
      // Going on with the previous key would break the rotation promised: the stream ends
      // here like a segment that could not be written.
      OutputMessage(0, "Error %d generating new crypt key with CryptKeyCreateFromBase", status);
      return status;
    }
    c->key.reset(fresh);
    c->keyChanged = true;
    KeyRotationKeyChanged(&c->rotation);
  }
  if (!c->aes128) {
    if (c->keyChanged) {
      c->keyChanged = false;
      ForEachPlaylist(c, [&](CIndexFileBase* p) {
        p->AddCryptKey(CStr(c->keyURL), nullptr, nullptr, false, c->streamingKeyDelivery);
      });
    }
    return kNoErr;
  }
  if (c->rotation.ivMode == IVMode::kSequence) {
    KeyRotationSequenceIV(c->segmentCount, c->iv);
  } else if (KeyRotationIVDue(c->rotation)) {
    OutputMessage(1, "changing IV");
    KeyRotationIVChanged(&c->rotation);
    CryptKeyFillRandomBuffer(&c->keyState, c->iv, sizeof c->iv);
    AnnounceIV(c);
  }
  if (c->cryptor && !c->keyChanged) {
    Status status = c->cryptor->Reset(c->iv);
    if (status != kNoErr) OutputMessage(0, "Encryption setup/reset error: %d", status);
    return status;
  }
  c->cryptor.reset();
  if (!c->key) {
    // No key at all (its generation failed before any encryptor existed): writing this segment
    // in the clear would be wrong, so the open fails.
    OutputMessage(0, "no encryption key for %s", c->filePath);
    return kErrCreateFailed;
  }
  if (c->keyChanged) {
    c->keyChanged = false;
    CryptKey* k = c->key.get();
    ForEachPlaylist(c, [&](CIndexFileBase* p) {
      p->AddCryptKey(CStr(k->url), CStr(k->path), CStr(k->fileName), c->aes128,
                     c->streamingKeyDelivery);
    });
  }
  Status status =
      Aes128CbcEncryptor::Create(c->key->keyBytes.get(), c->key->keyLength, c->iv, &c->cryptor);
  if (status != kNoErr) OutputMessage(0, "Encryption setup/reset error: %d", status);
  return status;
}

Status ChunkFileOpenNextFile(ChunkFile* c) {
  c->bytesWritten = 0;
  c->plainBytesWritten = 0;
  c->writeError = kNoErr;
  Status status = c->singleFile ? OpenSingleFile(c) : OpenNamedFile(c);
  // Every write retries a failed open; say why once, not once per write. A directory that is
  // missing or not writable is named as such.
  if (status > 0 && status != c->openError) {
    if (c->directory &&
        (status == ENOENT || status == EACCES || status == ENOTDIR || status == EROFS)) {
      OutputMessage(0, "cannot create files in %s: %s", c->directory, strerror(status));
    } else {
      OutputMessage(0, "cannot create %s: %s", c->filePath, strerror(status));
    }
  }
  c->openError = status;
  if (status != kNoErr) return status;
  if (c->bufferInMemory && !c->buffer) {
    c->buffer.reset(new (std::nothrow) uint8_t[kMemoryBufferSize]);
    if (!c->buffer) {
      OutputMessage(0, "memory allocation failed (%s)", strerror(ENOMEM));
      return kErrCreateFailed;
    }
    c->bufferUsed = 0;
    c->bufferCapacity = kMemoryBufferSize;
  }
  if (!c->encrypt) return kNoErr;
  status = PrepareEncryption(c);
  if (status != kNoErr && !c->singleFile) {
    // A failed open leaves no file open and no empty file behind.
    c->file.reset();
    unlink(c->filePath);
    IncompleteFileDone(IncompleteFile::kSegment);
  }
  return status;
}

Status InjectedFault(const ChunkFile* c, WriteStep step, size_t length) {
  return c->environment.writeFault ? c->environment.writeFault(step, length) : kNoErr;
}

// Remembers the first failure of the current file; the segment it belongs to is not listed.
void RecordWriteError(ChunkFile* c, Status error) {
  if (c->writeError == kNoErr) c->writeError = error;
}

// Remembers the first failed write of the current file and reports it once.
void NoteWriteError(ChunkFile* c, Status error) {
  if (error == kNoErr || c->writeError != kNoErr) return;
  RecordWriteError(c, error);
  OutputMessage(0, "cannot write %s: %s", c->filePath, strerror(error));
}

Status WriteBytes(ChunkFile* c, const void* data, size_t length) {
  Status status = InjectedFault(c, WriteStep::kWrite, length);
  if (status == kNoErr) status = c->file->Write(data, length);
  NoteWriteError(c, status);
  return status == kNoErr ? kNoErr : kErrShortWrite;
}

Status EncryptUpdate(ChunkFile* c, const void* data, size_t length, size_t* produced) {
  Status status = InjectedFault(c, WriteStep::kEncrypt, length);
  if (status != kNoErr) return status;
  return c->cryptor->Update(static_cast<const uint8_t*>(data), length, c->cipherScratch.data(),
                            produced);
}

Status EncryptFinal(ChunkFile* c, uint8_t* out, size_t* produced) {
  Status status = InjectedFault(c, WriteStep::kEncrypt, 0);
  return status != kNoErr ? status : c->cryptor->Final(out, produced);
}

Status BufferInMemory(ChunkFile* c, const void* data, size_t length) {
  const uint64_t end = c->bufferUsed + length;
  if (!c->buffer || end > c->bufferCapacity) {
    uint64_t capacity = end * 2;
    std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[capacity]);
    if (!grown) {
      c->buffer.reset();
      OutputMessage(0, "Memory allocation failed (%s)", strerror(ENOMEM));
      return kErrCreateFailed;
    }
    if (c->buffer) memcpy(grown.get(), c->buffer.get(), c->bufferUsed);
    c->buffer = std::move(grown);
    c->bufferCapacity = capacity;
  }
  memcpy(c->buffer.get() + c->bufferUsed, data, length);
  c->bufferUsed = std::max(c->bufferUsed, end);
  return kNoErr;
}

// Closes the current file and reports it to the playlist with its duration.
Status ChunkFileFinalizeFile(ChunkFile* c, bool isMap, int64_t mapEnd, double seconds) {
  if (!c->file) return kNoErr;
  Status result = kNoErr;
  // The encryptor holds back a partial block, so a short encrypted segment may have produced no
  // output yet: what was handed in decides whether the segment has content.
  const bool hasContent = c->bytesWritten > 0 || c->plainBytesWritten > 0;
  if (hasContent) {
    if (c->encrypt && c->aes128 && c->cryptor) {
      uint8_t padding[16];
      size_t produced = 0;
      Status status = EncryptFinal(c, padding, &produced);
      if (status == kNoErr) status = WriteBytes(c, padding, produced);
      if (status == kNoErr) {
        c->bytesWritten += produced;
      } else if (c->writeError == kNoErr) {
        OutputMessage(0, "Encryption error: %d", status);
        RecordWriteError(c, status);
      }
    }
    if (!c->singleFile) {
      OutputMessage(1, "Finalized %s", c->filePath);
      NoteWriteError(c, c->file->Close());
      c->file.reset();
      // A segment that could not be completed (a full disk) is not left behind.
      if (c->writeError != kNoErr) unlink(c->filePath);
      IncompleteFileDone(IncompleteFile::kSegment);
    } else {
      NoteWriteError(c, c->file->Flush());
    }
  } else if (!c->singleFile) {
    // Nothing was written: no file, no entry; the number is not reused.
    c->file.reset();
    unlink(c->filePath);
    IncompleteFileDone(IncompleteFile::kSegment);
  }
  if (c->bufferInMemory) {
    c->buffer.reset();
    c->bufferUsed = c->bufferCapacity = 0;
  }
  // A segment that did not fully reach the disk is not listed.
  if (result == kNoErr) result = c->writeError;
  if (!hasContent || result != kNoErr) return result;

  int64_t rangeStart = -1, rangeEnd = -1;
  if (c->singleFile) {
    rangeStart = static_cast<int64_t>(c->totalBytesWritten);
    rangeEnd = rangeStart + static_cast<int64_t>(c->bytesWritten) - 1;
    OutputMessage(1, "Wrote %lld to %lld to %s", static_cast<long long>(rangeStart),
                  static_cast<long long>(rangeEnd + 1), c->filePath);
  } else if (c->reportByteRanges) {
    rangeStart = 0;
    rangeEnd = static_cast<int64_t>(c->bytesWritten) - 1;
    OutputMessage(1, "Wrote %lld to %lld to %s", 0LL, static_cast<long long>(c->bytesWritten),
                  c->filePath);
  }
  c->totalBytesWritten += c->bytesWritten;
  KeyRotationSegmentFinished(&c->rotation, c->bytesWritten);
  if (isMap) {
    ForEachPlaylist(c, [&](CIndexFileBase* p) { p->AddMap(c->fileName, rangeStart, mapEnd - 1); });
  } else {
    if (!c->indexFile->AddFile(c->fileName, c->filePath, c->segmentCount, seconds, rangeStart,
                               rangeEnd, false)) {
      result = kErrCreateFailed;
    }
    if (c->iframeIndexFile)
      c->iframeIndexFile->AddFile(c->fileName, c->filePath, c->segmentCount, seconds, -1, -1,
                                  false);
  }
  c->segmentCount++;
  if (!isMap) {
    double rate = static_cast<double>(c->bytesWritten) * 8 / seconds;
    if (rate > c->maxBitRate) {
      char text[40];
      ChunkFileFormatBitRate(rate, text);
      OutputMessage(1, "segment bitrate %s is new max", text);
      c->maxBitRate = rate;
    }
  }
  return result;
}

// Frees everything the record owns; the playlists write their final form as they go.
void DestroyChunkFile(ChunkFile* c) {
  c->key.reset();
  c->cryptor.reset();
  c->indexFile.reset();
  c->iframeIndexFile.reset();
  delete c;
}

}  // namespace

ChunkFile* ChunkFileCreate(const ChunkFileSettings& s) {
  auto* c = new (std::nothrow) ChunkFile;
  if (c == nullptr) return nullptr;
  c->environment = s.environment;
  c->directory = s.directory;
  c->baseName = s.baseName;
  c->fileIndex = s.firstFileIndex;
  c->maxFileIndex = s.maxFileIndex;
  c->bufferInMemory = s.bufferInMemory;
  c->singleFile = s.singleFile;
  c->reportByteRanges = s.reportByteRanges;
  c->indexFile = CreatePlaylist(s);
  if (s.iframeIndexFileName) {
    c->iframeIndexFile = std::make_unique<CIFrameIndexFile>(
        IFrameIndexFileOptions{.file = {.version = std::max<uint32_t>(s.version, 4),
                                        .baseURL = s.baseURL,
                                        .directory = s.directory,
                                        .indexFileName = s.iframeIndexFileName,
                                        .wallClock = s.environment.wallClock},
                               .targetDuration = s.targetDuration,
                               .parent = c->indexFile.get(),
                               .isLive = !s.notLive});
  }
  c->aes128 = s.aes128;
  c->streamingKeyDelivery = s.streamingKeyDelivery;
  c->keyURL = CopyOrNone(s.keyURL);
  // A sequence IV is set per segment even with streaming key delivery.
  const IVMode ivMode = s.ivSequence             ? IVMode::kSequence
                        : s.streamingKeyDelivery ? IVMode::kFixed
                                                 : IVMode::kRandom;
  // Only generated keys rotate.
  c->rotation = KeyRotationMake(0, s.ivRotateMegabytes, ivMode);
  const char* randomDevice = c->environment.randomDevice.c_str();
  const bool haveIVBytes = s.keyData != nullptr && s.keyDataLength >= 32;

  if (c->aes128) {
    if (s.keyData != nullptr && s.keyDataLength != 0) {
      c->encrypt = true;
      c->keyChanged = true;
      CryptKey* key = nullptr;
      if (CryptKeyCreateStatic(s.keyURL, s.keyLocation, s.keyData, 16, &key) != kNoErr) {
        ChunkFileAbandon(c);
        return nullptr;
      }
      c->key.reset(key);
      if (CryptKeyInitState(&c->keyState, randomDevice) != kNoErr) {
        ChunkFileAbandon(c);
        return nullptr;
      }
    } else if (s.keyLocation || s.keyURL) {
      c->encrypt = true;
      c->keyDirectory = CopyOrNone(s.keyLocation);
      c->keyBaseName = CopyOrNone(s.keyBaseName);
      c->rotation = KeyRotationMake(s.keyRotationPeriod, s.ivRotateMegabytes, ivMode);
      if (CryptKeyInitState(&c->keyState, randomDevice) != kNoErr) {
        ChunkFileAbandon(c);
        return nullptr;
      }
      if (c->rotation.keyPeriod == 0) {
        CryptKey* key = nullptr;
        if (CryptKeyCreateRandomFromBase(&c->keyState, s.keyLocation, s.keyURL, s.keyBaseName,
                                         &key) != kNoErr) {
          ChunkFileAbandon(c);
          return nullptr;
        }
        c->key.reset(key);
        c->keyChanged = true;
      }
    } else {
      return c;
    }
    if (c->streamingKeyDelivery) {
      if (haveIVBytes) memcpy(c->iv, s.keyData + 16, 16);
    } else if (ivMode == IVMode::kRandom) {
      CryptKeyFillRandomBuffer(&c->keyState, c->iv, sizeof c->iv);
      AnnounceIV(c);
    }
    return c;
  }
  if (s.keyURL == nullptr || s.keyRotationPeriod != 0) {
    OutputMessage(0, "Need to specify URL for stream based encryption.  Period must be 0.");
    ChunkFileAbandon(c);
    return nullptr;
  }
  c->encrypt = true;
  c->keyChanged = true;
  if (!c->streamingKeyDelivery && haveIVBytes) {
    memcpy(c->iv, s.keyData + 16, 16);
    AnnounceIV(c);
  }
  return c;
}

void ChunkFileSetFileExtension(ChunkFile* c, const char* extension) {
  if (extension == nullptr) {
    OutputMessage(0, "trying to set a null extension");
    return;
  }
  c->extension = std::make_unique<std::string>(extension);
}

Status ChunkFileWriteData(ChunkFile* c, const void* data, size_t length) {
  if (!c->file) {
    Status status = ChunkFileOpenNextFile(c);
    if (status != kNoErr) return status;
  }
  // A segment that already failed takes no more bytes: it will not be listed, and bytes that
  // never reached the file are not counted.
  if (c->writeError != kNoErr) return c->writeError;
  if (c->bufferInMemory) {
    if (Status status = InjectedFault(c, WriteStep::kWrite, length)) {
      RecordWriteError(c, status);
      return status;
    }
    return BufferInMemory(c, data, length);
  }
  if (c->encrypt && c->aes128) {
    if (!c->cryptor) {
      OutputMessage(0, "Cryptor not initialized!  Refusing to write segment!");
      return kErrNoCryptor;
    }
    // One buffer, grown as needed, serves every write: writes come a few per cue.
    if (c->cipherScratch.size() < length + 16) {
      try {
        c->cipherScratch.resize(length + 16);
      } catch (const std::bad_alloc&) {
        OutputMessage(0,
                      "Could not allocate %d bytes for encypt buffer.  Refusing to write segment!",
                      static_cast<int>(length + 16));
        return kErrCreateFailed;
      }
    }
    size_t produced = 0;
    Status status = EncryptUpdate(c, data, length, &produced);
    if (status != kNoErr) {
      OutputMessage(0, "Encryption error: %d.  Refusing to write segment!", status);
      RecordWriteError(c, status);
      return status;
    }
    status = WriteBytes(c, c->cipherScratch.data(), produced);
    if (status != kNoErr) return status;
    c->bytesWritten += produced;
    c->plainBytesWritten += length;
    return kNoErr;
  }
  Status status = WriteBytes(c, data, length);
  if (status == kNoErr) c->bytesWritten += length;
  return status;
}

Status ChunkFileMoveToNextFileSecs(ChunkFile* c, double seconds) {
  Status status = ChunkFileFinalizeFile(c, false, 0, seconds);
  if (status == kNoErr) status = ChunkFileOpenNextFile(c);
  return status;
}

Status ChunkFileReleaseSecs(ChunkFile* c, double lastSeconds, double totalSeconds) {
  Status status = kNoErr;
  if (c->file) {
    status = ChunkFileFinalizeFile(c, false, 0, lastSeconds);
    if (c->iframeIndexFile) {
      static_cast<CIFrameIndexFile*>(c->iframeIndexFile.get())
          ->SetTargetDuration(c->indexFile->GetTargetDuration());
    }
  }
  // A stream whose last segment could not even be created has failed too.
  if (status == kNoErr) status = c->openError;
  // The playlists that are written at the end: a failure there fails the stream.
  if (status == kNoErr) status = c->indexFile->Finish();
  if (status == kNoErr && c->iframeIndexFile) status = c->iframeIndexFile->Finish();
  // A failed stream leaves no playlist that would look complete.
  if (status != kNoErr) {
    c->indexFile->Abandon();
    if (c->iframeIndexFile) c->iframeIndexFile->Abandon();
  }
  CryptKeyDestroyState(&c->keyState);
  ChunkFileDisplayBitRate(c, TruncateToInt64(totalSeconds * 90000));
  DestroyChunkFile(c);
  return status;
}

void ChunkFileAbandon(ChunkFile* c) {
  // The open segment is incomplete: it goes with the stream.
  if (c->file && !c->singleFile) {
    c->file.reset();
    unlink(c->filePath);
  }
  c->file.reset();
  IncompleteFileDone(IncompleteFile::kSegment);
  CryptKeyDestroyState(&c->keyState);
  c->indexFile->Abandon();
  if (c->iframeIndexFile) c->iframeIndexFile->Abandon();
  DestroyChunkFile(c);
}

uint32_t ChunkFileSegmentCount(const ChunkFile* c) {
  return c->segmentCount;
}

bool ChunkFileSegmentOpen(const ChunkFile* c) {
  return c->file != nullptr;
}

void ChunkFileFormatBitRate(double r, char* text) {
  if (r >= 1000000) {
    snprintf(text, 40, "%5.2f Mbits/sec", r / 1000000);
  } else if (r >= 1000) {
    snprintf(text, 40, "%5.2f kbits/sec", r / 1000);
  } else {
    snprintf(text, 40, "%5.2f bits/sec", r);
  }
}

void ChunkFileGetBitRates(ChunkFile* c, int64_t elapsedTicks, double* average, double* maximum) {
  double avg = elapsedTicks == 0 ? 0
                                 : static_cast<double>(c->totalBytesWritten) * 8 /
                                       static_cast<double>(elapsedTicks) * 90000;
  if (average) *average = avg;
  if (maximum) *maximum = c->maxBitRate;
  OutputMessage(2,
                "totalBytesWritten %lld, elapsedDuration %lld, avgBitRateOut %g kbps, "
                "maxBitRateOut %g kbps\n",
                static_cast<long long>(c->totalBytesWritten),
                static_cast<long long>(elapsedTicks / 90000), avg / 1024, c->maxBitRate / 1024);
}

void ChunkFileDisplayBitRate(ChunkFile* c, int64_t elapsedTicks) {
  double average = 0, maximum = 0;
  ChunkFileGetBitRates(c, elapsedTicks, &average, &maximum);
  char averageText[40], maximumText[40];
  ChunkFileFormatBitRate(average, averageText);
  ChunkFileFormatBitRate(maximum, maximumText);
  OutputMessage(1, "average bit rate is %s - max file bit rate is %s", averageText, maximumText);
}
