// The library reports every error at its origin through QorSignalErrorAt, which counts it and
// hands the code back unchanged, so "return QorSignalErrorAt(code);" reads naturally. It prints
// nothing: the count is a debugging aid.
#pragma once

#include <cstdint>

#include "common/status.h"

Status QorSignalErrorAt(Status code);
uint64_t QorSignalledErrorCount();
