// Compiled by status_discard_check.cmake, not part of the test binary. Built as it is, every
// status below is used and it compiles; with DROP set, one of them is dropped, which must not.
#include "common/status.h"

namespace {

// A file-local helper with no mark of its own.
Status Check(int value) {
  return value < 0 ? kErrBadArgument : kNoErr;
}

struct Source {
  virtual ~Source() = default;
  virtual Status Read() = 0;
};

struct EmptySource : Source {
  Status Read() override { return kMxErrEndOfStream; }
};

}  // namespace

int main(int argc, char**) {
  EmptySource source;
  Source* reader = &source;
  auto retry = [&]() { return Check(argc - 2); };
#if DROP == 1
  Check(argc);
#elif DROP == 2
  reader->Read();
#elif DROP == 3
  retry();
#endif
  const bool ok = Check(argc) == kNoErr && reader->Read() == kMxErrEndOfStream && retry() != kNoErr;
  return ok ? 0 : 1;
}
