// What a run takes from the world outside its settings: the wall clock, the random device and a
// way to make output writes fail. A default-constructed environment is the real one (the system
// clock, "/dev/random", no faults); a test builds its own and passes it in with the settings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common/status.h"

// Wall-clock seconds since 1970.
using WallClock = std::function<int64_t()>;
int64_t SystemWallClock();

// The steps of writing a segment that can fail part-way through it.
enum class WriteStep { kEncrypt, kWrite };
// Asked before every encryptor step and every write to a segment file (or to the memory buffer),
// with the number of bytes; a non-zero answer fails that step with the status given, exactly as
// if the encryptor or the file had reported it.
using WriteFaultInjector = std::function<Status(WriteStep step, size_t length)>;

struct RunEnvironment {
  WallClock wallClock = SystemWallClock;
  std::string randomDevice = "/dev/random";  // keys and IVs are read from it
  WriteFaultInjector writeFault;             // none: writes fail only when the system says so
};
