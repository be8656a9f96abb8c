#include "driver/run_settings.h"

#include <getopt.h>
#include <strings.h>
#include <sys/stat.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/mpegts_clock.h"
#include "driver/source_encoding.h"
#include "log/output.h"
#include "webvtt/segment_writer.h"

namespace {

constexpr const char* kVersion = "1.1";
constexpr const char* kBuildNumber = "140602";

// The leading ':' makes getopt return ':' for a missing argument and keeps it silent.
constexpr const char* kShortOptions = ":b:B:dD:f:G:hi:J:k:K:l:m:n:N:Pqs:t:v";

const struct option kLongOptions[] = {
    {"base-url", required_argument, nullptr, 'b'},
    {"base-media-file-name", required_argument, nullptr, 'B'},
    {"debug", no_argument, nullptr, 'd'},
    {"duration", required_argument, nullptr, 'D'},
    {"file-base", required_argument, nullptr, 'f'},
    {"key-rotation-period", required_argument, nullptr, 'G'},
    {"help", no_argument, nullptr, 'h'},
    {"index-file", required_argument, nullptr, 'i'},
    {"encrypt-iv", required_argument, nullptr, 'J'},
    {"encrypt-key-file", required_argument, nullptr, 'k'},
    {"encrypt-key-url", required_argument, nullptr, 'K'},
    {"log-file", required_argument, nullptr, 'l'},
    {"mpegts-start-offset", required_argument, nullptr, 'm'},
    {"base-encrypt-key-name", required_argument, nullptr, 'n'},
    {"encrypt-rotate-iv-mbytes", required_argument, nullptr, 'N'},
    {"streaming-key-delivery", no_argument, nullptr, 'P'},
    {"quiet", no_argument, nullptr, 'q'},
    {"subtitle-variant", required_argument, nullptr, 's'},
    {"target-duration", required_argument, nullptr, 't'},
    {"version", no_argument, nullptr, 'v'},
    {"no-output-timestamps", no_argument, nullptr, '8'},
    {"srt-markup", required_argument, nullptr, 'M'},
    {"source-encoding", required_argument, nullptr, 'E'},
    {kTimestampMapMpegtsOption, required_argument, nullptr, 'T'},
    // "--t" and "-t=" abbreviate --target-duration; this exact name keeps them from being
    // ambiguous with --timestamp-map-mpegts.
    {"t", required_argument, nullptr, 't'},
    {nullptr, 0, nullptr, 0},
};

constexpr const char* kUsage =
    "\nUsage:\t\t%s [options] <file>\n\nOptions:\n"
    "\t-b <url>   | --base-url=<url>                : base url (omit for relative URLs)\n"
    "\t-t <dur>   | --target-duration=<dur>         : target duration for each segment\n"
    "\t-f <path>  | --file-base=<path>              : path at which to store index and media "
    "files\n"
    "\t-i <name>  | --index-file=<name>             : index file name (default "
    "prog_index.m3u8)\n"
    "\t-B <name>  | --base-media-file-name          : base media file name (default "
    "fileSequence)\n"
    "\t-k <path>  | --encrypt-key-file=<path>       : encryption key location.  If this is a "
    "file, only this key will be used.\n"
    "\t-K <url>   | --encrypt-key-url=<url>         : URL to insert into playlist.  Should "
    "point at -encrypt-key path\n"
    "\t-J <value> | --encrypt-iv=<value>            : Specify method of generation of IV for "
    "encryption.  Possible\n"
    "\t                                                values are 'random' or 'sequence'.  For "
    "compatibility, use 'sequence'.\n"
    "\t                                                The default is 'random'.\n"
    "\t-G <period>| --key-rotation-period=<period>  : Rotates key every <period> segments.  "
    "Default is 4 hours\n"
    "\t-N <num>   | --encrypt-rotate-iv-mbytes=<num>: Number of megabytes to rotate the IV.  "
    "Default 50\n"
    "\t-n <name>  | --base-encrypt-key-name=<name>  : crypt key file name (default crypt)\n"
    "\t-l <file>  | --log-file=<file>               : enable log file\n"
    "\t-q         | --quiet                         : only output errors\n"
    "\t-s <name>  | --subtitle-variant=<name>       : subtitle variant name (default "
    "subtitle_media.m3u8)\n"
    "\t-v         | --version                       : show version number\n"
    "\t-m <offset>| --mpegts-start-offset=<offset>  : Starting MPEG TS offset to be used in "
    "timestamp map.\n"
    "\t-D <dur>   | --duration=<dur>                : Set duration in seconds of subtitle "
    "stream\n"
    "\t-h         | --help                          : show help\n\n";

// A decimal number from 0 to kLatestMpegtsTime, digits only.
bool ParseMpegtsTime(const char* text, uint64_t* value) {
  if (*text == '\0') return false;
  uint64_t result = 0;
  for (const char* p = text; *p; p++) {
    if (*p < '0' || *p > '9') return false;
    result = result * 10 + static_cast<uint64_t>(*p - '0');
    if (result > kLatestMpegtsTime) return false;
  }
  *value = result;
  return true;
}

bool RefuseBothTimestampMapOptions(const char* program) {
  fprintf(stderr, "%s: -m and --timestamp-map-mpegts cannot be given together\n", program);
  return false;
}

// Values that end up inside playlist lines may not break them: no control characters.
bool HasControlCharacter(const char* text) {
  for (const char* p = text; *p; p++) {
    const unsigned char c = static_cast<unsigned char>(*p);
    if (c < 0x20 || c == 0x7f) return true;
  }
  return false;
}

// Checks one option's argument. Returns false after printing the option's message.
bool ApplyOption(int option, char* arg, const char* program, RunSettings* s) {
  if (strchr("bKiBns", option) && HasControlCharacter(arg)) {
    fprintf(stderr, "%s: the value of -%c contains a line break or other control character\n",
            program, option);
    return false;
  }
  switch (option) {
    case 'b':
      if (!TrimTrailingSlashes(arg)) {
        fprintf(stderr, "%s: illegal base url - no argument specified\n", program);
        return false;
      }
      s->baseURL = arg;
      return true;
    case 'f':
    case 'k':
      if (!TrimTrailingSlashes(arg)) {
        fprintf(stderr, "%s: illegal filename - no argument specified\n", program);
        return false;
      }
      (option == 'f' ? s->fileBase : s->encryptKeyFile) = arg;
      return true;
    case 'K':
      if (!TrimTrailingSlashes(arg)) {
        fprintf(stderr, "%s: illegal path - no argument specified\n", program);
        return false;
      }
      s->encryptKeyURL = arg;
      return true;
    case 'B':
    case 'n':
      // Stored even when rejected; the run ends anyway.
      (option == 'B' ? s->baseMediaFileName : s->baseEncryptKeyName) = arg;
      if (!IsLegalFileName(arg)) {
        fprintf(stderr, "%s: illegal characters in file name\n", program);
        return false;
      }
      return true;
    case 'D':
      s->duration = strtod(arg, nullptr);
      // Longer than any output can carry is as bad as infinite.
      if (!(s->duration > 0 && s->duration <= kLatestOutputSeconds)) {
        printf("%s: illegal duration %s\n", program, arg);
        return false;
      }
      return true;
    case 't':
      if (sscanf(arg, "%u", &s->targetDuration) != 1) {
        printf("%s: illegal target duration %s\n", program, arg);
        return false;
      }
      return true;
    case 'G':
      if (sscanf(arg, "%u", &s->keyRotationPeriod) != 1) {
        printf("%s: illegal (non-integer) parameter passed to generate-key: %s\n", program, arg);
        return false;
      }
      return true;
    case 'N':
      if (sscanf(arg, "%u", &s->ivRotateMegabytes) != 1 || s->ivRotateMegabytes == 0) {
        fprintf(stderr, "%s: illegal value of mbytes to change IV \"%s\"\n", program, arg);
        return false;
      }
      return true;
    case 'm': {
      if (s->timestampMapMpegtsGiven) return RefuseBothTimestampMapOptions(program);
      unsigned long long offset = 0;
      if (sscanf(arg, "%llu", &offset) != 1) {
        fprintf(stderr, "%s: illegal mpegts value %s\n", program, arg);
        return false;
      }
      s->mpegtsStartOffset = offset;
      s->mpegtsStartOffsetGiven = true;
      return true;
    }
    case 'T':
      if (s->mpegtsStartOffsetGiven) return RefuseBothTimestampMapOptions(program);
      if (!ParseMpegtsTime(arg, &s->timestampMapMpegts)) {
        fprintf(stderr, "%s: illegal timestamp-map-mpegts value %s (give 0 to 8589934591)\n",
                program, arg);
        return false;
      }
      s->timestampMapMpegtsGiven = true;
      return true;
    case 'J':
      if (strcasecmp(arg, "sequence") == 0) {
        s->ivSequence = true;
      } else if (strcasecmp(arg, "random") == 0) {
        s->ivSequence = false;
      } else {
        fprintf(stderr, "%s: illegal encrypt-iv %s\n", program, arg);
        return false;
      }
      return true;
    case 's':
      if (arg[0] == '-') {
        fprintf(stderr, "%s: Syntax error in subtitle variant name argument '%s'\n", program, arg);
        return false;
      }
      // A file name under -f, never a path that leads elsewhere.
      if (strchr(arg, '/') != nullptr) {
        fprintf(stderr, "%s: illegal characters in file name\n", program);
        return false;
      }
      s->subtitleVariantName = arg;
      return true;
    case 'i':
      s->indexFileName = arg;
      return true;
    case 'l':
      OutputSetFile(arg);
      return true;
    case 'q':
      s->quiet = true;
      return true;
    case 'd':
      s->debug = true;
      return true;
    case 'P':
      s->streamingKeyDelivery = true;
      return true;
    case '8':
      s->outputTimestamps = false;
      return true;
    case 'M':
      if (strcmp(arg, "webvtt") != 0) {
        fprintf(stderr, "%s: illegal srt-markup %s (the one value is webvtt)\n", program, arg);
        return false;
      }
      s->srtMarkupToWebVTT = true;
      return true;
    case 'E':
      if (!IsSourceEncodingValue(arg)) {
        fprintf(stderr,
                "%s: unknown source encoding %s (give auto or the name of an encoding, such as "
                "windows-1252)\n",
                program, arg);
        return false;
      }
      s->sourceEncoding = arg;
      return true;
    default:
      return false;
  }
}

}  // namespace

bool TrimTrailingSlashes(char* text) {
  if (strcmp(text, "/") == 0) return true;
  size_t length = strlen(text);
  while (length > 1 && text[length - 1] == '/') text[--length] = '\0';
  return length >= 2;
}

bool IsLegalFileName(const char* name) {
  if (name[0] == '-' || name[0] == '.' || name[0] == '_') return false;
  for (const char* p = name; *p; p++) {
    // The C locale classifies no byte above 127 as a letter or digit.
    unsigned char c = static_cast<unsigned char>(*p);
    if (!isalnum(c) && c != '-' && c != '.' && c != '_') return false;
  }
  return true;
}

void PrintUsage(const char* programName) {
  fprintf(stderr, kUsage, programName);
}

bool ParseCommandLine(int argc, char** argv, RunSettings* settings, Status* result) {
  const char* program = argv[0];
  *result = kNoErr;
  optind = 0;  // full re-initialisation, so that the parser can run more than once
  for (;;) {
    int option = getopt_long_only(argc, argv, kShortOptions, kLongOptions, nullptr);
    if (option == -1) break;
    if (option == 'h') {
      PrintUsage(program);
      return false;
    }
    if (option == 'v') {
      fprintf(stderr, "%s: Beta Version %s(%s)\n", program, kVersion, kBuildNumber);
      return false;
    }
    bool ok;
    if (option == ':') {
      fprintf(stderr, "%s: option %s requires an argument\n", program, argv[optind - 1]);
      ok = false;
    } else if (option == '?' || !strchr("bBdDfGiJkKlmMnNPqst8ET", option)) {
      fprintf(stderr, "%s: invalid option: %s\n", program, argv[optind - 1]);
      ok = false;
    } else {
      ok = ApplyOption(option, optarg, program, settings);
    }
    if (!ok) {
      PrintUsage(program);
      *result = kErrBadArgument;
      return false;
    }
  }
  if (argc - optind != 1) {
    PrintUsage(program);
    return false;
  }
  settings->inputPath = argv[optind];
  return true;
}

uint64_t TimestampMapValue(const RunSettings& settings) {
  if (settings.timestampMapMpegtsGiven) return settings.timestampMapMpegts;
  return static_cast<uint64_t>(static_cast<int64_t>(
      static_cast<int32_t>(static_cast<uint32_t>(settings.mpegtsStartOffset))));
}

Status LoadStaticKey(RunSettings* s) {
  if (s->encryptKeyFile == nullptr) return kNoErr;
  struct stat st;
  if (stat(s->encryptKeyFile, &st) != 0) {
    fprintf(stderr, "Can't find key path %s\n", s->encryptKeyFile);
    return kErrKeyPath;
  }
  if (S_ISDIR(st.st_mode)) return kNoErr;  // generated keys go there
  const size_t expected = s->streamingKeyDelivery ? 32 : 16;
  if (static_cast<unsigned long long>(st.st_size) != expected) {
    fprintf(stderr, "key file size must be %zu - size is %llu\n", expected,
            static_cast<unsigned long long>(st.st_size));
    return kErrBadArgument;
  }
  FILE* file = fopen(s->encryptKeyFile, "rb");
  if (file == nullptr) {
    fprintf(stderr, "Couldn't open encrypt key file: %s\n", s->encryptKeyFile);
    return kErrKeyPath;
  }
  s->staticKeyLength = fread(s->staticKey, 1, expected, file);
  fclose(file);
  if (s->staticKeyLength != expected) {
    fprintf(stderr, "Incorrect encrypt key length - must be %zu is %zu bytes\n", expected,
            s->staticKeyLength);
    return kErrBadArgument;
  }
  return kNoErr;
}
