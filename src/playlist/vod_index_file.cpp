#include <cmath>
#include <cstdio>

#include "common/numeric.h"
#include "log/output.h"
#include "playlist/index_file_kinds.h"

CVODIndexFile::CVODIndexFile(const VODIndexFileOptions& options)
    : CIndexFileBase({.file = options.file,
                      .decimalDurations = options.decimalDurations,
                      .independentSegments = options.independentSegments}) {
  headerExtra = "#EXT-X-PLAYLIST-TYPE:VOD\n";
}

FileEntry* CVODIndexFile::AddFile(const char* fileName, const char* filePath,
                                  uint64_t mediaSequence, double duration, int64_t rangeStart,
                                  int64_t rangeEnd, bool discontinuity) {
  // Halves away from zero here, unlike the integer EXTINF form: both are intended.
  uint32_t rounded = TruncateToUint32(std::round(duration));
  if (rounded > targetDuration) targetDuration = rounded;
  return CIndexFileBase::AddFile(fileName, filePath, mediaSequence, duration, rangeStart, rangeEnd,
                                 discontinuity);
}

void CVODIndexFile::Pause() {
  OutputMessage(0, "Pause called for VOD; ignoring");
}

void CVODIndexFile::Resume() {
  OutputMessage(0, "Resume called for VOD; ignoring");
}

CVODIndexFile::~CVODIndexFile() {
  if (abandoned || entryCount == 0) return;
  // Written once and directly: nothing reads a VOD playlist before the run is over. The base
  // destructor then appends the end line.
  if (FILE* out = fopen(indexFilePath, "wb")) {
    WriteAllEntries(out);
    fclose(out);
  }
}
