#include "master/master_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "master/text_file.h"
#include "master/uri_reference.h"

namespace fs = std::filesystem;

namespace {

// The header block of a segment sits at its start; this much is enough to find it.
constexpr size_t kSegmentHeadBytes = 4096;

std::string DirectoryOf(const std::string& path) {
  std::string directory = fs::path(path).parent_path().string();
  return directory.empty() ? "." : directory;
}

std::string JoinPath(const std::string& directory, const std::string& relative) {
  if (directory == ".") return fs::path(relative).lexically_normal().string();
  return (fs::path(directory) / relative).lexically_normal().string();
}

// True when `path` is `root` or lies below it; both absolute and normal.
bool IsWithin(const fs::path& path, const fs::path& root) {
  auto rootEnd = std::mismatch(root.begin(), root.end(), path.begin(), path.end()).first;
  return rootEnd == root.end() || (std::next(rootEnd) == root.end() && rootEnd->empty());
}

// A file a URI leads to: the path shown in messages and the real path that is read.
struct ResolvedFile {
  std::string shown;
  std::string real;
};

class MasterChecker {
 public:
  MasterChecker(MasterCheckReport* report, std::string root, fs::path absoluteRoot,
                fs::path realRoot)
      : report_(report),
        root_(std::move(root)),
        absoluteRoot_(std::move(absoluteRoot)),
        realRoot_(std::move(realRoot)) {}

  // Resolves `reference` of the playlist `from`; false when it cannot be followed. A file
  // outside the root directory is never read, whether `..` or a link leads there.
  bool Resolve(const std::string& from, const PlaylistReference& reference, ResolvedFile* file) {
    std::string relative;
    if (!UriToLocalPath(reference.uri, &relative)) {
      report_->notices.push_back(from + ":" + std::to_string(reference.line) + ": URI \"" +
                                 reference.uri + "\" is not a local file; not checked");
      return false;
    }
    std::string path = JoinPath(DirectoryOf(from), relative);
    const std::string named = "URI \"" + reference.uri + "\"";
    std::error_code error;
    fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (error || !IsWithin(absolute, absoluteRoot_)) {
      Problem(from, reference.line, named + " leads outside " + root_ + "; not read");
      return false;
    }
    char real[PATH_MAX];
    if (!realpath(path.c_str(), real)) {
      Problem(from, reference.line,
              named + " does not resolve (" + path + ": " + strerror(errno) + ")");
      return false;
    }
    if (!IsWithin(fs::path(real), realRoot_)) {
      Problem(from, reference.line,
              named + " leads outside " + root_ + " through a link (" + path + "); not read");
      return false;
    }
    struct stat st;
    if (stat(real, &st) != 0 || !S_ISREG(st.st_mode)) {
      Problem(from, reference.line, named + " names no file (" + path + ")");
      return false;
    }
    *file = {path, real};
    return true;
  }

  void CheckSubtitlePlaylist(const ResolvedFile& playlist) {
    if (!visited_.insert(playlist.real).second) return;
    const std::string& path = playlist.shown;
    std::string text;
    if (Status status = ReadFileText(playlist.real, kMaxPlaylistBytes, &text)) {
      Problem(path, 1, std::string("cannot be read: ") + strerror(status));
      return;
    }
    std::vector<PlaylistReference> segments;
    CheckSubtitlePlaylistText(path, text, &report_->problems, &segments);
    bool encryptedNoted = false;
    for (const PlaylistReference& segment : segments) {
      ResolvedFile segmentFile;
      if (!Resolve(path, segment, &segmentFile)) continue;
      const std::string& segmentPath = segmentFile.shown;
      if (segment.encrypted) {
        if (!encryptedNoted)
          report_->notices.push_back(path + ":" + std::to_string(segment.line) +
                                     ": encrypted segments; their text is not checked");
        encryptedNoted = true;
        continue;
      }
      std::string head;
      if (Status status = ReadFileHead(segmentFile.real, kSegmentHeadBytes, &head)) {
        Problem(segmentPath, 1, std::string("cannot be read: ") + strerror(status));
        continue;
      }
      CheckWebVttSegmentHead(segmentPath, head, &report_->problems);
    }
  }

 private:
  void Problem(const std::string& file, size_t line, std::string message) {
    report_->problems.push_back({file, line, std::move(message)});
  }

  MasterCheckReport* report_;
  std::string root_;  // as given, for messages
  fs::path absoluteRoot_, realRoot_;
  std::set<std::string> visited_;
};

}  // namespace

Status CheckMasterPlaylistFiles(const std::string& masterPath, const std::string& root,
                                MasterCheckReport* report) {
  const std::string rootDirectory = root.empty() ? DirectoryOf(masterPath) : root;
  std::error_code error;
  fs::path absoluteRoot = fs::absolute(rootDirectory, error).lexically_normal();
  if (error) return StatusFromErrno(error.value());
  char realRoot[PATH_MAX];
  if (!realpath(rootDirectory.c_str(), realRoot)) return StatusFromErrno(errno);
  std::string text;
  if (Status status = ReadFileText(masterPath, kMaxPlaylistBytes, &text)) return status;
  std::vector<PlaylistReference> references;
  CheckMasterPlaylistText(masterPath, text, &report->problems, &references);
  MasterChecker checker(report, rootDirectory, absoluteRoot, fs::path(realRoot));
  for (const PlaylistReference& reference : references) {
    ResolvedFile file;
    if (checker.Resolve(masterPath, reference, &file) && reference.subtitles)
      checker.CheckSubtitlePlaylist(file);
  }
  return kNoErr;
}
