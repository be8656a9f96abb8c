// URIs in playlists: which ones are relative references (resolved against the playlist's own
// location), how to move one from one playlist's directory to another's, and how a relative
// reference names a file on disk.
#pragma once

#include <string>
#include <string_view>

#include "common/status.h"

// True for a relative-path reference: no scheme, not starting with '/', not empty.
bool IsRelativeReference(std::string_view uri);

// The URI path prefix that leads from directory `to` to directory `from` ("../subs/", or empty
// when both are the same directory), each step percent-encoded where a URI needs it.
Status RelativeDirectoryPrefix(const std::string& from, const std::string& to, std::string* prefix);

// The relative reference that leads from directory `directory` to the file `file`.
Status RelativeFileReference(const std::string& file, const std::string& directory,
                             std::string* uri);

// `uri` with `prefix` in front and its dot segments removed; a URI that is not a relative
// reference is returned unchanged.
std::string RebaseUri(std::string_view prefix, std::string_view uri);

// The file path, relative to the playlist's directory, that a relative reference names: query
// and fragment removed, percent escapes decoded. False when `uri` is not a relative reference or
// cannot name a file (a bad escape, an encoded NUL).
bool UriToLocalPath(std::string_view uri, std::string* path);
