#include "playlist/index_file.h"

#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <ctime>

#include "common/numeric.h"
#include "log/output.h"

namespace {

uint64_t ReadBigEndian64(const uint8_t* bytes) {
  uint64_t v = 0;
  for (int i = 0; i < 8; i++) v = (v << 8) | bytes[i];
  return v;
}

const char* OrNullText(const std::unique_ptr<std::string>& s) {
  return s ? s->c_str() : "(null)";
}

}  // namespace

CIndexFileBase::CIndexFileBase(const IndexFileBaseOptions& options)
    : targetDuration(options.targetDuration),
      segmentDeleteCommand(CopyOrNone(options.commands.segmentDelete)),
      keyDeleteCommand(CopyOrNone(options.commands.keyDelete)),
      indexFileName(options.file.indexFileName ? options.file.indexFileName : ""),
      wallClock(options.file.wallClock ? options.file.wallClock : WallClock(SystemWallClock)),
      version(options.file.version),
      segmentPostCommand(CopyOrNone(options.commands.segmentPost)),
      keyPostCommand(CopyOrNone(options.commands.keyPost)),
      decimalDurations(options.decimalDurations),
      independentSegments(options.independentSegments) {
  const char* givenBaseURL = options.file.baseURL;
  const char* directory = options.file.directory;
  if (givenBaseURL) {
    baseURL = givenBaseURL;
    hasBaseURL = true;
  }
  // Over-long paths are truncated, not reported.
  if (directory) {
    snprintf(indexFilePath, sizeof indexFilePath, "%s/%s", directory, this->indexFileName.c_str());
  } else {
    snprintf(indexFilePath, sizeof indexFilePath, "%s", this->indexFileName.c_str());
  }
}

CIndexFileBase::~CIndexFileBase() {
  // The drain frees every queued command, so the entries and keys no longer hold theirs.
  DestroyAllFileCommands();
  for (auto& entry : entries) entry->postCommand = nullptr;
  for (auto& key : keys) key->postCommand = nullptr;
  while (!entries.empty()) {
    DestroyEntry(std::move(entries.front()));
    entries.pop_front();
  }
  while (!keys.empty()) {
    DestroyKeyRecord(std::move(keys.front()));
    keys.pop_front();
  }
  if (wroteEntries && !abandoned) {
    if (FILE* out = fopen(indexFilePath, "a")) {
      fputs("#EXT-X-ENDLIST\n", out);
      fclose(out);
    } else {
      OutputMessage(0, "can't open %s - %s", indexFilePath, strerror(errno));
    }
  }
  for (const DoomedFile& doomed : doomedFiles) {
    if (unlink(doomed.filePath.c_str()) != 0) {
      OutputMessage(0, "error %s unlinking %s.  Last chance, giving up.", strerror(errno),
                    doomed.fileName.c_str());
    } else {
      OutputMessage(1, "Successfully deferred unlinked %s", doomed.fileName.c_str());
    }
  }
}

void CIndexFileBase::DestroyEntry(std::unique_ptr<FileEntry> entry) {
  if (entry->key) entry->key->refCount--;
  DestroyFileCommandEntry(entry->postCommand);
}

void CIndexFileBase::DestroyKeyRecord(std::unique_ptr<KeyRecord> key) {
  DestroyFileCommandEntry(key->postCommand);
}

FileEntry* CIndexFileBase::AddFile(const char* fileName, const char* filePath,
                                   uint64_t mediaSequence, double duration, int64_t rangeStart,
                                   int64_t rangeEnd, bool discontinuity) {
  auto entry = std::make_unique<FileEntry>();
  if (rangeEnd < rangeStart) {
    OutputMessage(1, "error rangeEnd %lld < rangeStart %lld", static_cast<long long>(rangeEnd),
                  static_cast<long long>(rangeStart));
    return nullptr;
  }
  wroteEntries = true;
  entry->postCommand = CreateSerialFileCommand(SegmentPostCommand(), filePath, fileName);
  entry->fileName = fileName ? fileName : "";
  entry->filePath = filePath ? filePath : "";
  entry->mediaSequence = mediaSequence;
  entry->duration = duration;
  entry->rangeStart = rangeStart;
  entry->rangeEnd = rangeEnd;
  entry->startTime = totalDuration;
  entry->key = keys.empty() ? nullptr : keys.back().get();
  entry->hasIV = hasExplicitIV;
  if (hasExplicitIV) memcpy(entry->iv, currentIV, sizeof currentIV);
  entry->discontinuity = discontinuity;
  totalDuration += duration;
  if (entry->key) {
    entry->key->refCount++;
    OutputMessage(2, "key %s", OrNullText(entry->key->keyFileName));
  }
  entries.push_back(std::move(entry));
  entryCount++;
  return entries.back().get();
}

void CIndexFileBase::AddCryptKey(const char* uri, const char* keyFilePath, const char* keyFileName,
                                 bool wholeSegmentAES, bool keyDeliveryFormat) {
  auto key = std::make_unique<KeyRecord>();
  key->uri = CopyOrNone(uri);
  key->keyFilePath = CopyOrNone(keyFilePath);
  key->keyFileName = CopyOrNone(keyFileName);
  key->wholeSegmentAES = wholeSegmentAES;
  key->keyDeliveryFormat = keyDeliveryFormat;
  if (wholeSegmentAES)
    key->postCommand = CreateSerialFileCommand(CStr(keyPostCommand), keyFilePath, keyFileName);
  keys.push_back(std::move(key));
}

void CIndexFileBase::ChangeCryptKeyIV(const uint8_t iv[16]) {
  hasExplicitIV = true;
  memcpy(currentIV, iv, sizeof currentIV);
}

void CIndexFileBase::AddMap(const char* uri, int64_t rangeStart, int64_t rangeEnd) {
  mapURI = CopyOrNone(uri);
  mapRangeStart = rangeStart;
  mapRangeEnd = rangeEnd;
}

bool CIndexFileBase::FileInIndex(const char* fileName, const char* filePath) const {
  for (const auto& e : entries) {
    if (e->fileName == fileName && e->filePath == filePath) return true;
  }
  return false;
}

void CIndexFileBase::WriteAllEntries(FILE* out) {
  fprintf(out, "%s\n%s:%u\n", "#EXTM3U", "#EXT-X-TARGETDURATION", targetDuration);
  if (version >= 2) fprintf(out, "%s:%u\n", "#EXT-X-VERSION", version);
  uint64_t expected = 0;
  if (!entries.empty()) {
    expected = entries.front()->mediaSequence;
    fprintf(out, "%s:%llu\n", "#EXT-X-MEDIA-SEQUENCE", static_cast<unsigned long long>(expected));
  }
  if (discontinuitySequence != 0) {
    fprintf(out, "%s:%llu\n", "#EXT-X-DISCONTINUITY-SEQUENCE",
            static_cast<unsigned long long>(discontinuitySequence));
  }
  if (programDateTimeOrigin != 0 && !entries.empty()) {
    double t = static_cast<double>(programDateTimeOrigin) + entries.front()->startTime;
    time_t whole = static_cast<time_t>(TruncateToInt64(t));
    struct tm utc;
    gmtime_r(&whole, &utc);
    double seconds = (t - static_cast<double>(whole)) + utc.tm_sec;
    fprintf(out, "%s:%4.4d-%2.2d-%2.2dT%2.2d:%2.2d:%06.3fZ\n", "#EXT-X-PROGRAM-DATE-TIME",
            1900 + utc.tm_year, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, seconds);
  }
  if (headerExtra) fputs(headerExtra, out);
  lastWrittenKey = nullptr;
  if (independentSegments) fprintf(out, "%s\n", "#EXT-X-INDEPENDENT-SEGMENTS");
  uint8_t lastIV[16] = {};
  for (const auto& e : entries) {
    if (e->mediaSequence != expected) {
      OutputMessage(1, "warning: media sequence is %llu; %llu was expected.  Resyncing.",
                    static_cast<unsigned long long>(e->mediaSequence),
                    static_cast<unsigned long long>(expected));
      expected = e->mediaSequence;
      fprintf(out, "%s:%llu\n", "#EXT-X-MEDIA-SEQUENCE", static_cast<unsigned long long>(expected));
    }
    FileEntryWrite(out, e.get(), lastIV);
    expected++;
  }
  memcpy(lastWrittenIV, lastIV, sizeof lastIV);
}

void CIndexFileBase::FileEntryWrite(FILE* out, const FileEntry* entry, uint8_t lastIV[16]) {
  const KeyRecord* k = entry->key;
  bool writeKey;
  if (entry->hasIV && k != nullptr && k == lastWrittenKey) {
    writeKey = memcmp(entry->iv, lastIV, 16) != 0;  // same key, new IV
  } else {
    writeKey = k != lastWrittenKey;
  }
  if (writeKey) {
    lastWrittenKey = k;
    memcpy(lastIV, entry->iv, 16);
    if (k == nullptr) {
      fprintf(out, "%s:%s\n", "#EXT-X-KEY", "NONE");
    } else {
      const char* method = k->wholeSegmentAES ? "AES-128" : "SAMPLE-AES";
      const char* uri =
          (k->wholeSegmentAES && !k->uri) ? OrNullText(k->keyFileName) : OrNullText(k->uri);
      fprintf(out, "%s:%s=%s,%s=\"%s\"", "#EXT-X-KEY", "METHOD", method, "URI", uri);
      if (k->keyDeliveryFormat) {
        fputs(",KEYFORMAT=\"com.zorva.streamingkeydelivery\",KEYFORMATVERSIONS=\"1\"", out);
      } else if (entry->hasIV) {
        // The first half without leading zeros, the second padded: an IV with a zero first
        // byte prints fewer than 32 digits. Still the same 128-bit number.
        fprintf(out, ",IV=0x%llx%016llx",
                static_cast<unsigned long long>(ReadBigEndian64(entry->iv)),
                static_cast<unsigned long long>(ReadBigEndian64(entry->iv + 8)));
      }
      fputc('\n', out);
    }
  }
  if (entry->discontinuity) fprintf(out, "%s\n", "#EXT-X-DISCONTINUITY");
  if (!mapWritten) {
    if (mapURI) {
      fprintf(out, "%s:URI=\"", "#EXT-X-MAP");
      if (hasBaseURL) {
        fprintf(out, "%s/%s\"", baseURL.c_str(), mapURI->c_str());
      } else {
        fprintf(out, "%s\"", mapURI->c_str());
      }
      if (mapRangeStart != -1) {
        fprintf(out, ",BYTERANGE=\"%lld@%lld\"",
                static_cast<long long>(mapRangeEnd + 1 - mapRangeStart),
                static_cast<long long>(mapRangeStart));
      }
      fputc('\n', out);
    }
    mapWritten = true;
  }
  if (decimalDurations) {
    fprintf(out, "%s:%1.5f,\t\n", "#EXTINF", entry->duration);
  } else {
    double d = std::nearbyint(entry->duration);  // the current rounding mode: half to even
    uint32_t seconds = d > 0 ? TruncateToUint32(d) : 1;
    fprintf(out, "%s:%u,\t\n", "#EXTINF", seconds);
  }
  if (entry->rangeStart != -1) {
    fprintf(out, "%s:%lld@%lld\n", "#EXT-X-BYTERANGE",
            static_cast<long long>(entry->rangeEnd + 1 - entry->rangeStart),
            static_cast<long long>(entry->rangeStart));
  }
  if (hasBaseURL) {
    fprintf(out, "%s/%s\n", baseURL.c_str(), entry->fileName.c_str());
  } else {
    fprintf(out, "%s\n", entry->fileName.c_str());
  }
}

uint64_t IndexFileProcessorClock() {
  return static_cast<uint64_t>(clock());
}
