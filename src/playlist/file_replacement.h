// Replacing a whole file safely: its text goes into a fresh temporary file beside it, which is
// renamed over the name once it is complete. Readers see the old or the new file, never half of
// one; a symbolic link planted at the name is replaced, never followed.
#pragma once

#include <cstdio>
#include <functional>

#include "common/status.h"

// Writes `path` through "<path>.XXXXXX" (created exclusively, mode 0664 before the rename).
// `write` puts the text into the open temporary file. While it is written, the temporary file is
// recorded as incomplete, so an interruption removes it. Every step (create, write, close, set
// the mode, rename) is checked: a failure logs "cannot <step> <what> <path> (temporary file
// <temp>): <reason>" (or, when the temporary file cannot be made, `createFailureFormat` with the
// path, by default "cannot create a temporary file for <path>: <reason>"), removes the temporary
// file, leaves `path` as it was and returns the errno.
Status ReplaceFileWithText(const char* path, const char* what,
                           const std::function<void(FILE*)>& write,
                           const char* createFailureFormat = nullptr);
