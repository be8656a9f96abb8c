#include "master/master_check.h"

#include <sys/stat.h>

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

class MasterChecker {
 public:
  explicit MasterChecker(MasterCheckReport* report) : report_(report) {}

  // Resolves `reference` of the playlist `from`; empty when it cannot be followed.
  std::string Resolve(const std::string& from, const PlaylistReference& reference) {
    std::string relative;
    if (!UriToLocalPath(reference.uri, &relative)) {
      report_->notices.push_back(from + ":" + std::to_string(reference.line) + ": URI \"" +
                                 reference.uri + "\" is not a local file; not checked");
      return {};
    }
    std::string path = JoinPath(DirectoryOf(from), relative);
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
      Problem(
          from, reference.line,
          "URI \"" + reference.uri + "\" does not resolve (" + path + ": " + strerror(errno) + ")");
      return {};
    }
    if (!S_ISREG(st.st_mode)) {
      Problem(from, reference.line, "URI \"" + reference.uri + "\" names no file (" + path + ")");
      return {};
    }
    return path;
  }

  void CheckSubtitlePlaylist(const std::string& path) {
    if (!visited_.insert(path).second) return;
    std::string text;
    if (OSStatus status = ReadFileText(path, kMaxPlaylistBytes, &text)) {
      Problem(path, 1, std::string("cannot be read: ") + strerror(status));
      return;
    }
    std::vector<PlaylistReference> segments;
    CheckSubtitlePlaylistText(path, text, &report_->problems, &segments);
    bool encryptedNoted = false;
    for (const PlaylistReference& segment : segments) {
      std::string segmentPath = Resolve(path, segment);
      if (segmentPath.empty()) continue;
      if (segment.encrypted) {
        if (!encryptedNoted)
          report_->notices.push_back(path + ":" + std::to_string(segment.line) +
                                     ": encrypted segments; their text is not checked");
        encryptedNoted = true;
        continue;
      }
      std::string head;
      if (OSStatus status = ReadFileHead(segmentPath, kSegmentHeadBytes, &head)) {
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
  std::set<std::string> visited_;
};

}  // namespace

OSStatus CheckMasterPlaylistFiles(const std::string& masterPath, MasterCheckReport* report) {
  std::string text;
  if (OSStatus status = ReadFileText(masterPath, kMaxPlaylistBytes, &text)) return status;
  std::vector<PlaylistReference> references;
  CheckMasterPlaylistText(masterPath, text, &report->problems, &references);
  MasterChecker checker(report);
  for (const PlaylistReference& reference : references) {
    std::string path = checker.Resolve(masterPath, reference);
    if (!path.empty() && reference.subtitles) checker.CheckSubtitlePlaylist(path);
  }
  return kNoErr;
}
