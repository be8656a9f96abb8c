#include "driver/track_paths.h"

#include <cerrno>

namespace {
Status Keep(std::string text, std::string* out) {
  if (text.size() > kMaxTrackPathLength) return StatusFromErrno(ENAMETOOLONG);
  *out = std::move(text);
  return kNoErr;
}
}  // namespace

Status MakeTrackDirectoryName(const std::optional<std::string>& language, unsigned index,
                              bool forced, std::string* out) {
  std::string name = language ? *language + std::to_string(index) : "track" + std::to_string(index);
  if (forced) name += "-forced";
  return Keep(std::move(name), out);
}

Status JoinPath(const char* first, const char* second, std::string* out) {
  if (first == nullptr) return Keep(second ? second : "", out);
  if (second == nullptr) return Keep(first, out);
  return JoinOutputPath(first, second, out);
}
