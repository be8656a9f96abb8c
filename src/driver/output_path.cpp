#include "driver/output_path.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// The playlist is written into "<playlist>.XXXXXX" first.
constexpr size_t kTempSuffixLength = 7;

struct NamedPath {
  const char* what;     // what the path is for
  const char* options;  // the options it is made from
  const char* directory;
  std::string name;  // the longest name the run may give a file there
  size_t extra;      // bytes the writer appends to the path itself
};

}  // namespace

Status JoinOutputPath(const char* directory, const std::string& name, std::string* out,
                      size_t limit) {
  std::string path = directory ? std::string(directory) + "/" + name : name;
  if (path.size() + 1 > limit) return StatusFromErrno(ENAMETOOLONG);
  *out = std::move(path);
  return kNoErr;
}

Status CheckOutputPaths(const RunSettings& s, const char* program) {
  const std::string widestNumber(kFileNumberDigits, '9');
  const char* segmentBase = s.baseMediaFileName ? s.baseMediaFileName : "fileSequence";
  NamedPath paths[] = {
      {"segment", "-f and -B", s.fileBase, segmentBase + widestNumber + ".webvtt", 0},
      {"playlist", "-f and -i", s.fileBase, s.indexFileName, kTempSuffixLength},
      {nullptr, nullptr, nullptr, std::string(), 0},
  };
  // Generated keys go into the -k directory; a key file given with -k is only read.
  struct stat st;
  if (s.encryptKeyFile && stat(s.encryptKeyFile, &st) == 0 && S_ISDIR(st.st_mode)) {
    const char* keyBase = s.baseEncryptKeyName ? s.baseEncryptKeyName : "crypt";
    paths[2] = {"key file", "-k and -n", s.encryptKeyFile, keyBase + widestNumber + ".key", 0};
  }
  for (const NamedPath& p : paths) {
    if (p.what == nullptr) continue;
    std::string joined;
    const bool nameFits = p.name.size() + p.extra <= kOutputNameLimit;
    if (!nameFits ||
        JoinOutputPath(p.directory, p.name, &joined, kOutputPathLimit - p.extra) != kNoErr) {
      fprintf(stderr, "%s: the %s %s made from %s is too long (at most %zu bytes, %zu a name)\n",
              program, p.what, nameFits ? "path" : "name", p.options, kOutputPathLimit - 1,
              kOutputNameLimit);
      return StatusFromErrno(ENAMETOOLONG);
    }
  }
  return kNoErr;
}
