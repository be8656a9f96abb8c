#include "common/incomplete_files.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

namespace {

constexpr int kSlots = 3;
constexpr size_t kPathCapacity = 4096;

// A slot's path is only read by the handler while `armed` is set; the main thread disarms it
// before changing the path. The flag is lock-free, so reading it in the handler is safe.
struct Slot {
  char path[kPathCapacity];
  std::atomic<bool> armed{false};
};
static_assert(std::atomic<bool>::is_always_lock_free);

Slot gSlots[kSlots];
const char* gInterruptMessage = "";
size_t gInterruptMessageLength = 0;

Slot& SlotFor(IncompleteFile which) {
  return gSlots[static_cast<int>(which)];
}

// Only async-signal-safe calls here: unlink, write, _exit.
extern "C" void RemoveIncompleteFilesAndExit(int signal) {
  for (Slot& slot : gSlots) {
    if (slot.armed.load()) unlink(slot.path);
  }
  ssize_t ignored = write(STDERR_FILENO, gInterruptMessage, gInterruptMessageLength);
  static_cast<void>(ignored);
  _exit(128 + signal);
}

}  // namespace

void IncompleteFileBegin(IncompleteFile which, const char* path) {
  Slot& slot = SlotFor(which);
  slot.armed.store(false);
  const size_t length = strlen(path);
  if (length >= kPathCapacity) return;
  memcpy(slot.path, path, length + 1);
  slot.armed.store(true);
}

void IncompleteFileDone(IncompleteFile which) {
  SlotFor(which).armed.store(false);
}

static_assert(sizeof(sigset_t) <= sizeof(unsigned long long[16]));

InterruptsHeld::InterruptsHeld() {
  sigset_t held;
  sigemptyset(&held);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&held, signal);
  sigprocmask(SIG_BLOCK, &held, reinterpret_cast<sigset_t*>(saved_));
}

InterruptsHeld::~InterruptsHeld() {
  sigprocmask(SIG_SETMASK, reinterpret_cast<const sigset_t*>(saved_), nullptr);
}

void InstallInterruptCleanup(const char* message) {
  gInterruptMessage = message;
  gInterruptMessageLength = strlen(message);
  struct sigaction action = {};
  action.sa_handler = RemoveIncompleteFilesAndExit;
  sigemptyset(&action.sa_mask);
  // One handler at a time: a second signal waits until the first has ended the process.
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  sigaddset(&action.sa_mask, SIGHUP);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}
