// Output paths are built in bounded buffers. A path that does not fit is refused with
// ENAMETOOLONG, never truncated: a truncated path names another file, perhaps in another
// directory.
#pragma once

#include <cstddef>
#include <string>

#include "common/status.h"
#include "driver/run_settings.h"

// The longest path the writers hold, terminator included.
constexpr size_t kOutputPathLimit = 1024;
// The longest file name a directory entry may have.
constexpr size_t kOutputNameLimit = 255;
// The most digits a file number (unsigned 32-bit) takes.
constexpr size_t kFileNumberDigits = 10;

// `directory`/`name`, or `name` alone without a directory, into `*out`. Fails with
// ENAMETOOLONG when the result, with its terminator, would not fit in `limit` bytes.
Status JoinOutputPath(const char* directory, const std::string& name, std::string* out,
                      size_t limit = kOutputPathLimit);

// Checks every path a WebVTT run may write (segments, playlist and its temporary file,
// generated keys) against the limits before anything is written. On failure prints a message
// naming the options involved to standard error and returns ENAMETOOLONG.
Status CheckOutputPaths(const RunSettings& settings, const char* program);
