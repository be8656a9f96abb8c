// Paths and names of a movie's per-track outputs. Every path fits a 1024-byte buffer with its
// terminator; one that would not is refused with ENAMETOOLONG rather than cut short, since a
// truncated path names some other place.
#pragma once

#include <optional>
#include <string>

#include "common/status.h"
#include "driver/output_path.h"

// Longest path kept, without the terminator.
inline constexpr size_t kMaxTrackPathLength = kOutputPathLimit - 1;

// "<language><index>" ("track<index>" without a language), then "-forced" for a forced stream.
Status MakeTrackDirectoryName(const std::optional<std::string>& language, unsigned index,
                              bool forced, std::string* out);
// first "/" second; just one of them when the other is none; empty when both are none.
Status JoinPath(const char* first, const char* second, std::string* out);
