#include "device/host/host_thread_state.h"

#include <atomic>
#include <utility>

#include "device/host/host_config.h"

namespace namespace_ratseg {

namespace {

struct Entry {
  std::uint64_t machine;
  HostThreadState state;
  Entry* next;
};

// The thread's entries, the one that was asked for last in front. A plain pointer is there behind
// the end of the thread's objects, too.
thread_local Entry* entries = nullptr;

struct EntriesEnd {
  ~EntriesEnd() {
    while (entries != nullptr) delete std::exchange(entries, entries->next);
  }
};

// Takes the machine's entry out of the list; null when there is none.
Entry* takeOut(std::uint64_t machine) {
  Entry** place = &entries;
  while (*place != nullptr && (*place)->machine != machine) place = &(*place)->next;
  Entry* entry = *place;
  if (entry != nullptr) *place = entry->next;
  return entry;
}

}  // namespace

std::uint64_t newHostMachine() {
  static std::atomic<std::uint64_t> machines = 0;
  return ++machines;
}

HostThreadState& hostThreadState(std::uint64_t machine) {
  if (entries != nullptr && entries->machine == machine) return entries->state;
  static thread_local EntriesEnd end;
  Entry* entry = takeOut(machine);
  if (entry == nullptr) {
    limitHostThreads();  // each thread has a number of its own
    entry = new Entry{machine, {}, nullptr};
  }
  entry->next = entries;
  entries = entry;
  return entry->state;
}

void forgetHostThreadState(std::uint64_t machine) { delete takeOut(machine); }

}  // namespace namespace_ratseg
