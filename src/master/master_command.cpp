#include "master/master_command.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/incomplete_files.h"
#include "common/mpegts_clock.h"
#include "master/master_add.h"
#include "master/master_check.h"
#include "master/master_merge.h"
#include "master/playlist_first_segment.h"
#include "master/segment_pts.h"
#include "master/text_file.h"
#include "master/uri_reference.h"

namespace {

constexpr const char* kUsage =
    "usage: hlsvtt-master merge MASTER FRAGMENT... [-o OUT] [--group ID] [--conform]\n"
    "       hlsvtt-master add MASTER PLAYLIST --language TAG --name NAME [--default]\n"
    "                     [--autoselect] [--forced] [--characteristics LIST] [-o OUT]\n"
    "                     [--group ID] [--conform]\n"
    "       hlsvtt-master check MASTER [--root DIR] [--video]\n"
    "       hlsvtt-master pts SEGMENT.ts | INIT SEGMENT | PLAYLIST\n"
    "\n"
    "merge   adds the subtitle renditions of each FRAGMENT (a file of\n"
    "        #EXT-X-MEDIA:TYPE=SUBTITLES lines, such as hlsvtt's subtitle_media.m3u8) to the\n"
    "        master playlist MASTER as one group, with URIs relative to the written master,\n"
    "        and makes every #EXT-X-STREAM-INF refer to that group. Renditions of the group\n"
    "        already in MASTER are replaced; every other line is kept as it is.\n"
    "  -o OUT        write the result to OUT instead of replacing MASTER\n"
    "  --group ID    the group ID (default subtitles)\n"
    "  --conform     make DEFAULT=NO a rendition that is DEFAULT=YES with AUTOSELECT=NO,\n"
    "                and every DEFAULT=YES after the first; without it these are kept\n"
    "                with a warning\n"
    "add     adds one subtitle rendition for the media playlist PLAYLIST (such as hlsvtt\n"
    "        makes from a WebVTT source) after the renditions of its group, with the same\n"
    "        rules as merge; the renditions already in the group are kept.\n"
    "  --language TAG         its LANGUAGE, a well-formed language tag (en, pt-BR, zh-Hant)\n"
    "  --name NAME            its NAME; a double quote becomes ', a line break a space\n"
    "  --default              DEFAULT=YES (with AUTOSELECT=YES)\n"
    "  --autoselect           AUTOSELECT=YES\n"
    "  --forced               FORCED=YES\n"
    "  --characteristics LIST CHARACTERISTICS, comma-separated public.* or reverse-DNS names\n"
    "  --group ID             the group ID (default: MASTER's subtitle group, else subtitles)\n"
    "  -o OUT, --conform      as for merge\n"
    "check   checks MASTER, the subtitle playlists it references and their WebVTT segments;\n"
    "        prints one line per problem (FILE:LINE: problem) and exits 0 only when there\n"
    "        is none. It reads no file outside DIR (default: the directory of MASTER); a\n"
    "        URI that leads outside is a problem\n"
    "  --video       also compares the start of every variant's first segment with the\n"
    "                X-TIMESTAMP-MAP of every subtitle rendition of its group, and says\n"
    "                how far off cues would show and the value that puts them in step\n"
    "pts     prints the start of a video segment in 90 kHz units, the value to give hlsvtt\n"
    "        as -m: of an MPEG transport stream segment, of a fragmented MP4 media SEGMENT\n"
    "        read with its INIT segment, or of the first segment of a local media PLAYLIST;\n"
    "        a value above 2147483647 is given to hlsvtt as --timestamp-map-mpegts=VALUE\n";

const char* kTool = "hlsvtt-master";

Status UsageError(const char* message, const char* detail = "") {
  fprintf(stderr, "%s: %s%s\n%s", kTool, message, detail, kUsage);
  return kErrBadArgument;
}

std::string DirectoryOf(const std::string& path) {
  std::string directory = std::filesystem::path(path).parent_path().string();
  return directory.empty() ? "." : directory;
}

// The arguments of a command: operands, flags, and options with a value ("--name VALUE" or
// "--name=VALUE"; the last one given counts). "--" ends the options; "-" is an operand.
struct Arguments {
  std::vector<std::string> operands;
  std::set<std::string> flags;
  std::map<std::string, std::string> values;

  bool Has(const std::string& flag) const { return flags.count(flag) != 0; }
  const std::string* Value(const std::string& option) const {
    auto it = values.find(option);
    return it == values.end() ? nullptr : &it->second;
  }
};

Status ParseArguments(const std::vector<std::string>& args,
                      std::initializer_list<std::string_view> flagNames,
                      std::initializer_list<std::string_view> valueNames, Arguments* parsed) {
  auto known = [](std::initializer_list<std::string_view> names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); i++) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.empty() || arg[0] != '-' || arg == "-") {
      parsed->operands.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    size_t equals = arg.find('=');
    std::string name = arg.substr(0, equals);
    if (known(flagNames, name) && equals == std::string::npos) {
      parsed->flags.insert(name);
    } else if (known(valueNames, name) && equals != std::string::npos) {
      parsed->values[name] = arg.substr(equals + 1);
    } else if (known(valueNames, name)) {
      if (i + 1 == args.size()) return UsageError("missing value after ", arg.c_str());
      parsed->values[name] = args[++i];
    } else {
      return UsageError("unknown option ", arg.c_str());
    }
  }
  if (const std::string* group = parsed->Value("--group"); group && group->empty())
    return UsageError("--group needs an ID");
  return kNoErr;
}

// Reports the outcome of merge or add and, when it succeeded, writes the new master to -o OUT,
// else in place of MASTER (the first operand).
Status WriteMaster(const Arguments& arguments, Status status, const MergeOutcome& outcome) {
  const std::string& masterPath = arguments.operands[0];
  const std::string* out = arguments.Value("-o");
  std::string outPath = out ? *out : "";
  for (const std::string& note : outcome.notes) fprintf(stderr, "%s: %s\n", kTool, note.c_str());
  if (status != kNoErr) {
    fprintf(stderr, "%s: %s\n%s: nothing was written\n", kTool, outcome.error.c_str(), kTool);
    return status;
  }
  const bool inPlace = outPath.empty() || outPath == masterPath;
  if (outPath.empty()) outPath = masterPath;
  // In place, a master that is a link keeps being one: the file it leads to is replaced. URIs
  // stay relative to the path given, where the master is served from.
  std::string writePath = outPath;
  if (inPlace) {
    char resolved[PATH_MAX];
    if (!realpath(masterPath.c_str(), resolved)) {
      Status error = StatusFromErrno(errno);
      fprintf(stderr, "%s: cannot locate %s: %s\n", kTool, masterPath.c_str(), strerror(error));
      return error;
    }
    writePath = resolved;
  }
  InstallInterruptCleanup("hlsvtt-master: interrupted; no temporary file left behind\n");
  if (Status written = ReplaceFileText(writePath, outcome.text)) {
    fprintf(stderr, "%s: cannot write %s: %s\n", kTool, outPath.c_str(), strerror(written));
    return written;
  }
  return kNoErr;
}

Status ReadPlaylist(const std::string& path, std::string* text) {
  Status status = ReadFileText(path, kMaxPlaylistBytes, text);
  if (status) fprintf(stderr, "%s: cannot read %s: %s\n", kTool, path.c_str(), strerror(status));
  return status;
}

// The directory the master is written to, from which its URIs lead.
std::string OutputDirectory(const Arguments& arguments) {
  const std::string* out = arguments.Value("-o");
  return DirectoryOf(out && !out->empty() ? *out : arguments.operands[0]);
}

MergeOptions ReadMergeOptions(const Arguments& arguments, const std::string& defaultGroup) {
  MergeOptions options;
  const std::string* group = arguments.Value("--group");
  options.group = group ? *group : defaultGroup;
  options.conform = arguments.Has("--conform");
  return options;
}

Status RunMerge(const std::vector<std::string>& args) {
  Arguments arguments;
  if (Status status = ParseArguments(args, {"--conform"}, {"-o", "--group"}, &arguments))
    return status;
  const std::vector<std::string>& paths = arguments.operands;
  if (paths.size() < 2) return UsageError("merge needs a master playlist and a fragment");
  const std::string& masterPath = paths[0];
  std::string masterText;
  if (Status status = ReadPlaylist(masterPath, &masterText)) return status;
  std::vector<SubtitleFragment> fragments;
  std::string outDirectory = OutputDirectory(arguments);
  for (size_t i = 1; i < paths.size(); i++) {
    SubtitleFragment fragment;
    fragment.name = paths[i];
    if (Status status = ReadPlaylist(paths[i], &fragment.text)) return status;
    if (Status status =
            RelativeDirectoryPrefix(DirectoryOf(paths[i]), outDirectory, &fragment.uriPrefix)) {
      fprintf(stderr, "%s: cannot locate %s: %s\n", kTool, paths[i].c_str(), strerror(status));
      return status;
    }
    fragments.push_back(std::move(fragment));
  }
  MergeOutcome outcome;
  Status status = MergeSubtitleFragments(masterPath, masterText, fragments,
                                         ReadMergeOptions(arguments, "subtitles"), &outcome);
  return WriteMaster(arguments, status, outcome);
}

Status RunAdd(const std::vector<std::string>& args) {
  Arguments arguments;
  if (Status status = ParseArguments(args, {"--conform", "--default", "--autoselect", "--forced"},
                                     {"-o", "--group", "--language", "--name", "--characteristics"},
                                     &arguments))
    return status;
  if (arguments.operands.size() != 2)
    return UsageError("add needs a master playlist and a media playlist");
  const std::string* language = arguments.Value("--language");
  const std::string* name = arguments.Value("--name");
  if (!language || !name) return UsageError("add needs --language and --name");
  const std::string& masterPath = arguments.operands[0];
  AddedRendition added;
  added.playlistName = arguments.operands[1];
  added.name = *name;
  added.language = *language;
  if (const std::string* characteristics = arguments.Value("--characteristics"))
    added.characteristics = *characteristics;
  added.isDefault = arguments.Has("--default");
  added.autoselect = arguments.Has("--autoselect");
  added.forced = arguments.Has("--forced");
  std::string masterText;
  if (Status status = ReadPlaylist(masterPath, &masterText)) return status;
  if (Status status = ReadPlaylist(added.playlistName, &added.playlistText)) return status;
  if (Status status =
          RelativeFileReference(added.playlistName, OutputDirectory(arguments), &added.uri)) {
    fprintf(stderr, "%s: cannot locate %s: %s\n", kTool, added.playlistName.c_str(),
            strerror(status));
    return status;
  }
  MergeOutcome outcome;
  Status status = AddSubtitleRendition(masterPath, masterText, added,
                                       ReadMergeOptions(arguments, ""), &outcome);
  return WriteMaster(arguments, status, outcome);
}

Status RunCheck(const std::vector<std::string>& args) {
  std::vector<std::string> paths;
  std::string root;
  bool video = false;
  for (size_t i = 0; i < args.size(); i++) {
    if (args[i] == "--video") {
      video = true;
    } else if (args[i] == "--root") {
      if (i + 1 == args.size()) return UsageError("missing value after ", "--root");
      root = args[++i];
      if (root.empty()) return UsageError("--root needs a directory");
    } else {
      paths.push_back(args[i]);
    }
  }
  if (paths.size() != 1) return UsageError("check needs exactly one master playlist");
  if (!root.empty()) {
    struct stat st;
    const Status error = stat(root.c_str(), &st) != 0 ? StatusFromErrno(errno)
                         : S_ISDIR(st.st_mode)        ? kNoErr
                                                      : StatusFromErrno(ENOTDIR);
    if (error != kNoErr) {
      fprintf(stderr, "%s: --root %s: %s\n", kTool, root.c_str(), strerror(error));
      return error;
    }
  }
  MasterCheckReport report;
  if (Status status = CheckMasterPlaylistFiles(paths[0], root, video, &report)) {
    fprintf(stderr, "%s: cannot read %s: %s\n", kTool, paths[0].c_str(), strerror(status));
    return status;
  }
  for (const std::string& notice : report.notices)
    fprintf(stderr, "%s: %s\n", kTool, notice.c_str());
  for (const PlaylistProblem& problem : report.problems) {
    if (problem.line == 0)
      printf("%s: %s\n", problem.file.c_str(), problem.message.c_str());
    else
      printf("%s:%zu: %s\n", problem.file.c_str(), problem.line, problem.message.c_str());
  }
  return report.problems.empty() ? kNoErr : kErrPlaylistRule;
}

// Prints a start time, and warns when hlsvtt -m cannot carry it: -m is read as a signed 32-bit
// number. A time on the 33-bit MPEG-TS clock past that range goes to --timestamp-map-mpegts.
Status PrintStart(int64_t pts) {
  const long long value = static_cast<long long>(pts);
  printf("%lld\n", value);
  if (pts > static_cast<int64_t>(kLatestMpegtsTime))
    fprintf(stderr,
            "%s: warning: %lld is above 8589934591, which neither hlsvtt -m nor "
            "--timestamp-map-mpegts can carry\n",
            kTool, value);
  else if (pts > INT32_MAX)
    fprintf(stderr,
            "%s: warning: %lld is above 2147483647, which hlsvtt -m cannot carry: give hlsvtt "
            "--timestamp-map-mpegts=%lld\n",
            kTool, value, value);
  else if (pts < INT32_MIN)
    fprintf(stderr, "%s: warning: %lld is below -2147483648, which hlsvtt -m cannot carry\n", kTool,
            value);
  return kNoErr;
}

// Prints the start of the segment `files` names, or why it cannot be read.
Status RunSegmentPts(const FirstSegmentFiles& files) {
  int64_t pts = 0;
  std::string warning, error;
  Status status = ReadSegmentStart(files, &pts, &warning, &error);
  if (!warning.empty()) fprintf(stderr, "%s: %s\n", kTool, warning.c_str());
  if (status != kNoErr) {
    fprintf(stderr, "%s: %s\n", kTool, error.c_str());
    return status;
  }
  return PrintStart(pts);
}

Status RunPts(const std::vector<std::string>& args) {
  FirstSegmentFiles files;
  if (args.size() == 2) {
    files.init = args[0];
    files.segment = args[1];
    return RunSegmentPts(files);
  }
  if (args.size() != 1)
    return UsageError("pts needs a segment, an init segment and a segment, or a media playlist");
  if (!LooksLikePlaylist(args[0])) {
    files.segment = args[0];
    return RunSegmentPts(files);
  }
  std::string error;
  if (Status status = FindFirstSegmentFiles(args[0], &files, &error)) {
    if (status > 0)
      fprintf(stderr, "%s: cannot read %s: %s\n", kTool, args[0].c_str(), strerror(status));
    else
      fprintf(stderr, "%s: %s: %s\n", kTool, args[0].c_str(), error.c_str());
    return status;
  }
  if (!files.keyMethod.empty()) {
    fprintf(stderr, "%s: %s: the first segment is encrypted (METHOD=%s); it is not read\n", kTool,
            args[0].c_str(), files.keyMethod.c_str());
    return kErrPlaylistSyntax;
  }
  return RunSegmentPts(files);
}

}  // namespace

Status RunMasterTool(int argc, char** argv) {
  if (argc < 2) return UsageError("no command given");
  std::string_view command = argv[1];
  std::vector<std::string> args(argv + 2, argv + argc);
  if (command == "-h" || command == "--help") {
    fputs(kUsage, stdout);
    return kNoErr;
  }
  if (command == "merge") return RunMerge(args);
  if (command == "add") return RunAdd(args);
  if (command == "check") return RunCheck(args);
  if (command == "pts") return RunPts(args);
  return UsageError("unknown command ", argv[1]);
}
