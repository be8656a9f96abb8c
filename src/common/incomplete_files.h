// Files that are incomplete while they are being written: the open segment, the playlist's
// temporary file (in hlsvtt-master, the merged master's) and a key file. When the run is
// interrupted (SIGINT, SIGTERM, SIGHUP), a handler removes them and ends the process with 128 plus
// the signal number, so that an interrupted run leaves neither a partial file nor a playlist.
#pragma once

enum class IncompleteFile { kSegment, kPlaylist, kKey };

// Records `path` (copied) as incomplete until IncompleteFileDone; a path too long to copy is
// not recorded.
void IncompleteFileBegin(IncompleteFile which, const char* path);
void IncompleteFileDone(IncompleteFile which);
// Holds the interrupting signals back while it lives: a file created and recorded under it is
// never seen by the handler half-way (created but not yet recorded).
class InterruptsHeld {
 public:
  InterruptsHeld();
  ~InterruptsHeld();
  InterruptsHeld(const InterruptsHeld&) = delete;
  InterruptsHeld& operator=(const InterruptsHeld&) = delete;

 private:
  unsigned long long saved_[16];  // the previous signal mask (a sigset_t)
};

// Installs the handler for SIGINT, SIGTERM and SIGHUP; it prints `message` (a string that lives
// as long as the process) before it ends the process.
void InstallInterruptCleanup(
    const char* message = "hlsvtt: interrupted; incomplete files removed, no playlist\n");
