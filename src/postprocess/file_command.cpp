#include "postprocess/file_command.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "log/output.h"

namespace {

// The one process-wide queue: head and the link to append at.
FileCommandEntry* queueHead = nullptr;
FileCommandEntry** queueTail = &queueHead;

constexpr int kForkAttempts = 10;

// Returns the child's pid, 0 for an empty command, or -1 when no child could be made.
pid_t RunFileCommand(const char* command) {
  if (command == nullptr || command[0] == '\0') return 0;
  OutputMessage(1, "forking \"%s\"", command);
  for (int failures = 0;;) {
    pid_t pid = fork();
    if (pid == 0) {
      int result = system(command);
      if (result < 0) {
        int error = errno;
        OutputMessage(0, "return from system is %d %d %s", result, error, strerror(error));
      }
      _Exit(0);  // no exit handlers, no stdio flushing in the child
    }
    if (pid > 0) {
      OutputMessage(1, "created pid %d", pid);
      return pid;
    }
    int error = errno;
    OutputMessage(0, "cannot fork - error %d %s", error, strerror(error));
    if (error != EAGAIN) exit(-1);
    usleep(1000);
    OutputMessage(1, "retrying \"%s\"", command);
    if (++failures >= kForkAttempts) {
      OutputMessage(0, "giving up on system String %s", command);
      return -1;
    }
  }
}

void StartHead() {
  FileCommandEntry* head = queueHead;
  if (head == nullptr || head->started) return;
  pid_t pid = RunFileCommand(head->command);
  if (pid > 0) {
    head->pid = pid;
    head->started = true;
  } else {
    head->finished = true;
  }
}

}  // namespace

bool ExpandFileCommand(const char* templ, const char* path, const char* fileName, char* output) {
  const size_t limit = kFileCommandLimit;
  size_t out = 0;
  bool ok = true;
  const char* t = templ;
  if (*t == '\0') {
    output[0] = '\0';
    return true;
  }
  do {
    if (*t != '%') {
      output[out++] = *t++;
    } else if (t[1] == 'P') {
      size_t length = strlen(path);
      if (out + length + 2 > limit) {
        ok = false;
      } else {
        output[out++] = '"';
        memcpy(output + out, path, length);
        out += length;
        output[out++] = '"';
        t += 2;
      }
    } else if (t[1] == 'F') {
      size_t length = strlen(fileName);
      if (out + length > limit) {
        ok = false;
      } else {
        memcpy(output + out, fileName, length);
        out += length;
        t += 2;
      }
    } else if (t[1] == '%') {
      output[out++] = '%';
      t += 2;
    } else {
      ok = false;
    }
    // Literal characters past the limit are dropped, which still counts as success.
  } while (ok && out <= limit && *t != '\0');
  output[out] = '\0';
  return ok;
}

FileCommandEntry* CreateSerialFileCommand(const char* templ, const char* path,
                                          const char* fileName) {
  if (templ == nullptr) return nullptr;
  auto entry = std::make_unique<FileCommandEntry>();
  if (!ExpandFileCommand(templ, path ? path : "", fileName ? fileName : "", entry->command))
    return nullptr;
  FileCommandEntry* raw = entry.release();
  *queueTail = raw;
  queueTail = &raw->next;
  StartHead();
  return raw;
}

bool DestroyFileCommandEntry(FileCommandEntry* entry) {
  if (entry == nullptr) return false;
  entry->finished = true;
  return true;
}

void DestroyAllFileCommands() {
  while (queueHead != nullptr) {
    std::unique_ptr<FileCommandEntry> head(queueHead);
    queueHead = head->next;
    if (queueHead == nullptr) queueTail = &queueHead;
    if (!head->started) RunFileCommand(head->command);
  }
}

void CreateImmediateFileCommand(const char* templ, const char* path, const char* fileName) {
  if (templ == nullptr) return;
  char command[kFileCommandLimit + 2];
  if (ExpandFileCommand(templ, path ? path : "", fileName ? fileName : "", command))
    RunFileCommand(command);
}
