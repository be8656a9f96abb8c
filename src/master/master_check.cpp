#include "master/master_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>

#include "master/playlist_first_segment.h"
#include "master/segment_decryption.h"
#include "master/segment_pts.h"
#include "master/subtitle_timing.h"
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
    return Admit(from, reference.line, "URI \"" + reference.uri + "\"",
                 JoinPath(DirectoryOf(from), relative), file);
  }

  // Admits the file at `path`, which `named` in `from` at `line` leads to, when it lies within
  // the root directory and is a regular file; else reports why not.
  bool Admit(const std::string& from, size_t line, const std::string& named,
             const std::string& path, ResolvedFile* file) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (error || !IsWithin(absolute, absoluteRoot_)) {
      Problem(from, line, named + " leads outside " + root_ + "; not read");
      return false;
    }
    char real[PATH_MAX];
    if (!realpath(path.c_str(), real)) {
      Problem(from, line, named + " does not resolve (" + path + ": " + strerror(errno) + ")");
      return false;
    }
    if (!IsWithin(fs::path(real), realRoot_)) {
      Problem(from, line,
              named + " leads outside " + root_ + " through a link (" + path + "); not read");
      return false;
    }
    struct stat st;
    if (stat(real, &st) != 0 || !S_ISREG(st.st_mode)) {
      Problem(from, line, named + " names no file (" + path + ")");
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

  // The start of the variant whose media playlist is `playlist`: that of its first segment.
  std::optional<int64_t> VariantStart(const ResolvedFile& playlist) {
    const std::string& path = playlist.shown;
    FirstSegmentFiles files;
    std::string error;
    if (!FirstSegment(playlist, &files)) return std::nullopt;
    if (!files.keyMethod.empty()) {
      report_->notices.push_back(path + ": the first segment is encrypted (METHOD=" +
                                 files.keyMethod + "); the variant's start is not checked");
      return std::nullopt;
    }
    ResolvedFile segment, init;
    if (!Admit(path, 0, "the first segment", files.segment, &segment) ||
        (!files.init.empty() && !Admit(path, 0, "the EXT-X-MAP", files.init, &init)))
      return std::nullopt;
    int64_t start = 0;
    std::string warning;
    if (ReadSegmentStart(files, &start, &warning, &error) != kNoErr) {
      Problem(path, 0, "the start of the first segment cannot be read: " + error);
      return std::nullopt;
    }
    if (!warning.empty()) report_->notices.push_back(warning);
    return start;
  }

  // The X-TIMESTAMP-MAP of the first segment of the subtitle playlist `playlist`, decrypted
  // first when the segment is under an AES-128 key whose file is at hand.
  std::optional<TimestampMap> RenditionTimestampMap(const ResolvedFile& playlist) {
    const std::string& path = playlist.shown;
    FirstSegmentFiles files;
    if (!FirstSegment(playlist, &files)) return std::nullopt;
    ResolvedFile segment, key;
    if (!Admit(path, 0, "the first segment", files.segment, &segment)) return std::nullopt;
    std::string head;
    if (Status status = ReadFileHead(segment.real, kSegmentHeadBytes, &head)) {
      Problem(segment.shown, 0, std::string("cannot be read: ") + strerror(status));
      return std::nullopt;
    }
    if (!files.keyMethod.empty()) {
      if (files.keyMethod != "AES-128" || files.keyFile.empty()) {
        report_->notices.push_back(path +
                                   ": the first segment is encrypted (METHOD=" + files.keyMethod +
                                   ", URI \"" + files.keyUri + "\"); its timing is not checked");
        return std::nullopt;
      }
      if (!Admit(path, 0, "the key URI \"" + files.keyUri + "\"", files.keyFile, &key))
        return std::nullopt;
      std::string keyBytes, plain;
      std::array<uint8_t, 16> iv;
      if (Status status = ReadFileHead(key.real, 17, &keyBytes)) {
        Problem(key.shown, 0, std::string("cannot be read: ") + strerror(status));
        return std::nullopt;
      }
      if (keyBytes.size() != 16) {
        Problem(key.shown, 0, "a key file must hold 16 bytes");
        return std::nullopt;
      }
      if (!SegmentIV(files.keyIV, files.mediaSequence, &iv)) {
        Problem(path, 0, "the IV \"" + files.keyIV + "\" is not a 128-bit hexadecimal number");
        return std::nullopt;
      }
      if (DecryptSegmentHead(keyBytes, iv, head, head.size() < kSegmentHeadBytes, &plain) !=
          kNoErr) {
        Problem(segment.shown, 0, "cannot be decrypted with " + key.shown);
        return std::nullopt;
      }
      head = std::move(plain);
    }
    std::optional<TimestampMap> map = FindTimestampMap(head);
    // A clear segment without a map has been reported with the other segment problems.
    if (!map && !files.keyMethod.empty())
      Problem(segment.shown, 0, "no X-TIMESTAMP-MAP in the decrypted segment header");
    return map;
  }

 private:
  bool FirstSegment(const ResolvedFile& playlist, FirstSegmentFiles* files) {
    std::string error;
    if (Status status = FindFirstSegmentFiles(playlist.shown, files, &error)) {
      Problem(playlist.shown, 0,
              status > 0 ? std::string("cannot be read: ") + strerror(status) : error);
      return false;
    }
    return true;
  }

  void Problem(const std::string& file, size_t line, std::string message) {
    report_->problems.push_back({file, line, std::move(message)});
  }

  MasterCheckReport* report_;
  std::string root_;  // as given, for messages
  fs::path absoluteRoot_, realRoot_;
  std::set<std::string> visited_;
};

struct VariantTiming {
  std::string path;
  size_t line = 0;    // of its URI in the master
  std::string group;  // its SUBTITLES group
  int64_t start = 0;
};

struct RenditionTiming {
  std::string path;
  std::string group;
  TimestampMap map;
};

std::string DescribeStart(int64_t start) {
  char seconds[48];
  snprintf(seconds, sizeof seconds, " (%.3f s)", static_cast<double>(start) / 90000);
  return std::to_string(start) + seconds;
}

// Variants that start apart, and renditions whose cues show off the start of a variant of
// their group.
void CompareTiming(const std::string& masterPath, const std::vector<VariantTiming>& variants,
                   const std::vector<RenditionTiming>& renditions,
                   std::vector<PlaylistProblem>* problems) {
  const auto apart = [](int64_t a, int64_t b) {
    return a - b > kTimingTolerance || b - a > kTimingTolerance;
  };
  // The first variant's start is the one the others are held to.
  const VariantTiming* first = variants.empty() ? nullptr : &variants.front();
  for (const VariantTiming& variant : variants) {
    if (apart(variant.start, first->start))
      problems->push_back({masterPath, variant.line,
                           variant.path + " starts at " + DescribeStart(variant.start) + ", " +
                               first->path + " at " + DescribeStart(first->start) +
                               ": the variants are not in step"});
  }
  for (const RenditionTiming& rendition : renditions) {
    // One comparison per distinct start among the variants of the group.
    std::vector<const VariantTiming*> starts;
    for (const VariantTiming& variant : variants) {
      if (variant.group != rendition.group) continue;
      if (std::none_of(starts.begin(), starts.end(), [&](const VariantTiming* seen) {
            return !apart(seen->start, variant.start);
          }))
        starts.push_back(&variant);
    }
    for (const VariantTiming* variant : starts) {
      const int64_t lateness = CueLateness(rendition.map, variant->start);
      if (apart(lateness, 0))
        problems->push_back({rendition.path, 0,
                             DescribeCueLateness(lateness, variant->start,
                                                 starts.size() > 1 ? variant->path : "")});
    }
  }
}

}  // namespace

Status CheckMasterPlaylistFiles(const std::string& masterPath, const std::string& root,
                                bool checkTiming, MasterCheckReport* report) {
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
  std::vector<VariantTiming> variants;
  std::vector<RenditionTiming> renditions;
  std::set<std::string> timed;
  for (const PlaylistReference& reference : references) {
    ResolvedFile file;
    if (!checker.Resolve(masterPath, reference, &file)) continue;
    if (reference.subtitles) checker.CheckSubtitlePlaylist(file);
    if (!checkTiming) continue;
    if (reference.variant) {
      if (std::optional<int64_t> start = checker.VariantStart(file))
        variants.push_back({file.shown, reference.line, reference.group, *start});
    } else if (reference.subtitles && timed.insert(file.real).second) {
      if (std::optional<TimestampMap> map = checker.RenditionTimestampMap(file))
        renditions.push_back({file.shown, reference.group, *map});
    }
  }
  if (checkTiming) CompareTiming(masterPath, variants, renditions, &report->problems);
  return kNoErr;
}
