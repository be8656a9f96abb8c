// Whole-file reads with a size limit, and file replacement through a temporary file and a
// rename, so that a reader sees either the old file or the complete new one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/status.h"

// Playlists larger than this are refused rather than read.
constexpr size_t kMaxPlaylistBytes = 64u << 20;

// Reads at most `limit` bytes; a longer file gives EFBIG, a directory EISDIR, other failures
// their errno.
Status ReadFileText(const std::string& path, size_t limit, std::string* text);

// Reads the first `limit` bytes of a file, or the whole file when it is shorter.
Status ReadFileHead(const std::string& path, size_t limit, std::string* text);

// Writes `text` to a new temporary file beside `path` and renames it onto `path`. The file gets
// the mode of the file it replaces, or the usual mode of a new file. A link at `path` is replaced,
// not followed. Nothing is left behind on failure, nor on an interruption once the interrupt
// cleanup is installed.
Status ReplaceFileText(const std::string& path, std::string_view text);
