// Post-processing shell commands run after file events. A template's "%P" stands for the
// file's path (in double quotes), "%F" for its name, "%%" for a percent sign. Serial commands go
// through one process-wide queue; immediate ones run at once. Children are never waited for.
#pragma once

#include <sys/types.h>

#include <cstddef>

constexpr size_t kFileCommandLimit = 1024;

struct FileCommandEntry {
  FileCommandEntry* next = nullptr;
  char command[kFileCommandLimit + 2] = {};
  pid_t pid = 0;
  bool started = false;
  bool finished = false;
};

// Expands and queues a command; the queue owns the entry. Returns none when there is no
// template or the expansion fails. Starts the queue's head if it has not been started.
FileCommandEntry* CreateSerialFileCommand(const char* commandTemplate, const char* path,
                                          const char* fileName);
// Marks an entry finished (it still runs at drain time). False for none.
bool DestroyFileCommandEntry(FileCommandEntry* entry);
// Runs every queued command not yet started and frees the whole queue.
void DestroyAllFileCommands();
void CreateImmediateFileCommand(const char* commandTemplate, const char* path,
                                const char* fileName);

// Expands a template into `output` (kFileCommandLimit + 2 bytes); false when a replacement does
// not fit or a '%' is followed by anything but 'P', 'F' or '%'. Literal characters past the limit
// are dropped.
bool ExpandFileCommand(const char* commandTemplate, const char* path, const char* fileName,
                       char* output);
