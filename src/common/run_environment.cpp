#include "common/run_environment.h"

#include <ctime>

int64_t SystemWallClock() {
  return static_cast<int64_t>(time(nullptr));
}
